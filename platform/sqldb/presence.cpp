#include "sqldb/presence.h"

#include <chrono>

#include "sqldb/processstate.h"
#include "sqldb/repositorylock.h"

namespace sqldb {
namespace {

constexpr std::chrono::milliseconds kPatience{1000};

}  // namespace

struct Presence::Impl final : ForkParticipant {
  explicit Impl(const std::string& path) : lock(path, kPatience) { joinForks(*this); }
  ~Impl() override { leaveForks(*this); }

  void prepareFork() noexcept override {}
  void abandonInChild() noexcept override { lock.closeAfterFork(); }
  bool makeWayInChild(FileIdentity) noexcept override { return true; }

  RepositoryLock lock;
};

Presence::Presence(const std::string& location)
    : impl_(std::make_unique<Impl>(resolvedPath(location))) {}

Presence::~Presence() = default;

bool removeUnusedFile(const std::string& location) {
  const std::string path = resolvedPath(location);
  const ExclusivePresence alone(path);
  if (!alone) return false;
  deleteSideFiles(path);
  // The repository goes last: as long as it is there, what is left of it can be found again.
  deleteFile(path + kLockSuffix);
  deleteFile(path);
  return true;
}

}  // namespace sqldb
