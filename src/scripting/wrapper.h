// What every "vela.Repository" object keeps: its object manager.
#pragma once

#include <memory>
#include <string>

#include "host/classes/classes.h"
#include "objectmanager/objectmanager.h"

namespace vela::scripting {

/// Holds an object manager: its own, which dies with the last wrapper that holds it, or a
/// shared one, which lives on. Empty until it is given one. Copies hold the same manager.
class ObjectManagerWrapper : public host::COSInstanceData {
 public:
  /// Null while there is none and after close().
  /// Whoever works with it keeps it, so that a close meanwhile does not take it away.
  std::shared_ptr<ObjectManager> getObjMgr() const;
  void setObjMgr(std::unique_ptr<ObjectManager> own);
  void setObjMgr(ObjectManager& shared);

  /// "private '<file>'", "shared", or "closed" while it holds none.
  std::string describe() const noexcept override;
  /// Lets go of a manager of its own; once no call works with it, what is open in it is rolled
  /// back. A shared one is kept.
  void close() override;

 private:
  std::shared_ptr<ObjectManager> manager_;
  bool isShared_ = false;
};

/// A manager on that file, opened or created; for reading, an existing one that is never
/// written. \throws the reason, at once, where no further attempt could open it
std::unique_ptr<ObjectManager> openPrivate(const std::wstring& location,
                                           ObjectManager::Access access);
/// A manager on a temporary file that goes with it.
std::unique_ptr<ObjectManager> openTemporary();

}  // namespace vela::scripting
