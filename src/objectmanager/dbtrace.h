// The logs of the statements the store executes: their texts, and their durations.
#pragma once

namespace kodd {
class DataModelRepository;
}

namespace vela::dbtrace {

/// Repositories opened afterwards append every statement, a line each, to "dbtrace_log.txt" in
/// the current directory.
void enableTrace();
/// The same for "dbprofile_log.txt": seconds with four decimals and "s", a tab, the statement.
void enableProfile();

/// Installs what was enabled, statementtimes too, on an open repository.
void install(kodd::DataModelRepository& repository);

}  // namespace vela::dbtrace
