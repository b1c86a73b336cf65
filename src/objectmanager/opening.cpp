#include "objectmanager/opening.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string_view>
#include <thread>

#include "host/interrupt.h"
#include "host/locks.h"
#include "kodiag/message.h"
#include "objectmanager/persistentdmr.h"
#include "objectmanager/quarantinefolders.h"
#include "sqldb/database.h"
#include "text/utf8.h"

namespace vela::opening {
namespace {

using kodiag::util::diagnostics;

constexpr auto kPauseAfterFailure = std::chrono::milliseconds(500);
/// How long a pause may last without looking whether the call should stop.
constexpr auto kNap = std::chrono::milliseconds(50);

bool failedWith(const diagnostics& failure, std::string_view id) {
  return !failure.empty() && failure.messages().front().id.str() == id;
}

bool isFaultOfTheFile(const diagnostics& failure) {
  return failedWith(failure, "sqldb:ssdb:Corrupt") ||
         failedWith(failure, "KODD:kodd:NotARepository");
}

// A forked process does not become the one that opened the file.
bool isBeyondRepair(const diagnostics& failure) {
  return failedWith(failure, "KODD:kodd:ForkedProcess");
}

// Somebody else's file does not become a repository by waiting.
bool isHopeless(const diagnostics& failure) {
  return isBeyondRepair(failure) || failedWith(failure, "KODD:kodd:NotARepository") ||
         failedWith(failure, "KODD:kodd:ReadOnly");
}

void pauseAfterFailure() {
  for (auto slept = std::chrono::milliseconds(0); slept < kPauseAfterFailure; slept += kNap) {
    host::stopIfInterrupted("open");
    std::this_thread::sleep_for(kNap);
  }
}

using Attempt = std::function<void(diagnostics&)>;

/// \returns nothing when an attempt succeeded, else what the last one left
/// \throws "KODD:kodd:Interrupted"
diagnostics attemptRepeatedly(int attempts, const Attempt& attempt,
                              bool (*giveUp)(const diagnostics&)) {
  diagnostics failure;
  for (int i = 0; i < attempts; ++i) {
    failure.clear();
    attempt(failure);
    if (failedWith(failure, "KODD:kodd:Interrupted")) failure.raiseIfAny();
    if (failure.empty() || giveUp(failure)) break;
    pauseAfterFailure();
  }
  return failure;
}

Attempt openingOf(kodd::DataModelRepository& repository, const Request& request) {
  return [&repository, &request](diagnostics& diag) {
    repository.open(request.location, request.schemaFile, request.options, diag);
  };
}

/// Runs the work holding the creation lock. When that cannot be had the work is done all the
/// same: the store's own locks keep the file whole, this one only keeps newcomers in order.
void underCreationLock(const std::function<void()>& work) {
  std::optional<host::NamedLock> lock;
  try {
    lock.emplace(kCreationLockName);
  } catch (const kodiag::except::ExceptionWithCauses& failure) {
    if (host::isInterruption(failure)) throw;
    // Taken for too long, or the temporary directory cannot be written.
  }
  work();
}

kodiag::Message notice(const char* key, const Request& request, std::string folder,
                       const diagnostics& failure) {
  return {{"nexstore:nex", key},
          {{"Location", text::toUtf8(request.location)}, {"Folder", std::move(folder)}},
          failure.messages(),
          nullptr};
}

/// Moves a file that is the cause of its own failure away, unless one last attempt opens it.
/// \param failure  what that attempt left; empty when the file is open now
/// \returns whether the file was moved
bool setAside(const Attempt& attempt, const Request& request, diagnostics& failure,
              diagnostics& notices) {
  std::string folder;
  underCreationLock([&] {
    // Once more, now that nobody else can come first: another process may have put it right.
    failure.clear();
    attempt(failure);
    if (!isFaultOfTheFile(failure) || !persistentdmr::isUsable()) return;
    try {
      folder = sqldb::quarantine(text::toUtf8(request.location));
      const char* const key = folder.empty() ? "DamagedFileInUse" : "FileSetAside";
      notices.add(notice(key, request, folder, failure));
      pruneQuarantineFolders(text::toUtf8(request.location));
    } catch (const kodiag::except::ExceptionWithCauses& exception) {
      notices = diagnostics(exception);
    }
  });
  return !folder.empty();
}

}  // namespace

void openDirectly(kodd::DataModelRepository& repository, const Request& request) {
  attemptRepeatedly(request.attempts, openingOf(repository, request), isHopeless);
}

diagnostics openShared(kodd::DataModelRepository& repository, const Request& request) {
  const Attempt attempt = openingOf(repository, request);
  const Attempt lockedAttempt = [&attempt](diagnostics& diag) {
    underCreationLock([&] { attempt(diag); });
  };
  diagnostics failure = attemptRepeatedly(request.attempts, lockedAttempt, isBeyondRepair);
  if (!isFaultOfTheFile(failure)) return {};
  diagnostics notices;
  if (setAside(attempt, request, failure, notices)) {
    attemptRepeatedly(request.attempts, lockedAttempt, isBeyondRepair);
  }
  return notices;
}

kodd::DataModelRepository::Options optionsFromEnvironment() {
  kodd::DataModelRepository::Options options;
  const char* const setting = std::getenv("VELA_DURABILITY");
  const std::string_view durability = setting ? setting : "fast";
  if (durability == "durable") {
    options.durability = sqldb::Durability::durable;
  } else if (durability != "fast") {
    kodiag::raise({"nexstore:nex", "InvalidSetting"},
                  {{"Setting", "environment variable VELA_DURABILITY"},
                   {"Value", std::string(durability)},
                   {"Allowed", "\"fast\" or \"durable\""}});
  }
  return options;
}

}  // namespace vela::opening
