// Which repository a command works on, and how it is opened.
#pragma once

#include <memory>
#include <string>

#include "objectmanager/objectmanager.h"
#include "tools/vela/context.h"
#include "velainstance.h"

namespace vela::tool {

/// A manager the command owns, or the process's shared one.
class Repository {
 public:
  /// For reading: the file of the context, or the user's shared repository as it is, whoever
  /// wrote its runs; this process leaves no trace in it. \throws for a file that is absent or
  /// no repository, before anything of it is changed
  static Repository openForReading(const Context& context);
  /// For writing: creates what is absent. In the shared repository the runs belong to this
  /// process.
  static Repository openForWriting(const Context& context);
  /// For changing what is stored already, whoever wrote it.
  static Repository openForChanging(const Context& context);

  /// For new runs in what is there already: in the shared repository they belong to this
  /// process.
  static Repository openAsSession(const Context& context);

  /// For bringing in runs of sessions that are over: creates what is absent; what is stored
  /// belongs to this process until its instance is closed.
  static Repository openForAdoption(const Context& context);

  ObjectManager& manager() { return *manager_; }
  /// The path, for words.
  std::string location() const;

 private:
  explicit Repository(std::unique_ptr<ObjectManager> owned)
      : owned_(std::move(owned)), manager_(owned_.get()) {}
  explicit Repository(VelaInstance& session);

  /// Ends this process's session: its runs are for others to adopt from then on.
  struct EndSession {
    void operator()(VelaInstance* session) const;
  };
  std::unique_ptr<ObjectManager> owned_;
  std::unique_ptr<VelaInstance, EndSession> session_;
  ObjectManager* manager_;
};

}  // namespace vela::tool
