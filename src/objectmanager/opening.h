// Opening a store with patience: repeated attempts, the creation lock, quarantine.
#pragma once

#include <string>

#include "kodd/datamodelrepository.h"
#include "kodiag/diagnostics.h"

namespace vela::opening {

/// What to open, as DataModelRepository::open takes it.
struct Request {
  std::wstring location;
  std::wstring schemaFile;
  kodd::DataModelRepository::Options options;
  int attempts = 10;
};

/// So many attempts, 500 ms apart; fewer when no further one can succeed. Raises nothing: a
/// repository that could not be opened keeps the reason and reports it when it is used.
void openDirectly(kodd::DataModelRepository& repository, const Request& request);

/// The same for the shared file, each attempt under the machine-wide creation lock. A file that
/// is itself the cause of the failure is set aside after the last attempt, unless somebody has
/// it open, and a fresh one is opened in its place. \returns what the user should know: that
/// and where a file was set aside, or why not
kodiag::util::diagnostics openShared(kodd::DataModelRepository& repository,
                                     const Request& request);

/// Options from the environment: VELA_DURABILITY "fast" (default) or "durable".
/// \throws "InvalidSetting" for any other text
kodd::DataModelRepository::Options optionsFromEnvironment();

/// Name of the machine-wide lock around the creation, removal and quarantine of the shared
/// file.
inline constexpr const char* kCreationLockName = "_vela_objmgr_create";

}  // namespace vela::opening
