// Transactions.
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

Any<"result"> safeTransaction(Repository repository, Any<"function"> function,
                              Further arguments) {
  if (!function.value.isFunction()) {
    throwScriptingError(
        {"nexstore:nex", "InvalidData"},
        {{"Operation", "safeTransaction"},
         {"Reason", "its first input must be a function, not " + function.value.describe()}});
  }
  host::HostArrays given;
  for (std::size_t i = 0; i < arguments.size(); ++i) given.push_back(arguments[i]);
  host::HostArrays results;
  repository.manager.inTransaction(
      [&] { results = function.value.toFunction()(given, std::size_t{1}); });
  return {results.empty() ? host::HostArray() : results.front()};
}

struct VelaRepositoryBeginTransaction
    : RepositoryAction<"beginTransaction", &ObjectManager::beginTransaction,
                       "Begin a transaction that lasts until it is committed or rolled back.",
                       "KODD:kodd:TransactionActive"> {};
struct VelaRepositoryCommitTransaction
    : RepositoryAction<"commitTransaction", &ObjectManager::commitTransaction,
                       "Keep everything written since beginTransaction.",
                       "KODD:kodd:NoTransaction"> {};
struct VelaRepositoryRollbackTransaction
    : RepositoryAction<"rollbackTransaction", &ObjectManager::rollbackTransaction,
                       "Undo everything written since beginTransaction.",
                       "KODD:kodd:NoTransaction"> {};
struct VelaRepositorySafeTransaction
    : Method<"safeTransaction",
             "Call a function with the further inputs as one unit of work: what it raises "
             "undoes everything it wrote.",
             &safeTransaction, "nexstore:nex:InvalidData"> {};

}  // namespace

void addTransactionMethods(Methods& methods) {
  methods.add<VelaRepositoryBeginTransaction, VelaRepositoryCommitTransaction,
              VelaRepositoryRollbackTransaction, VelaRepositorySafeTransaction>();
}

}  // namespace vela::scripting
