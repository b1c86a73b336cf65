#include "scripting/errors.h"

#include <string>
#include <utility>
#include <vector>

namespace vela::scripting {

void throwScriptingError(kodiag::MessageID id, kodiag::Arguments arguments,
                         const std::source_location& where) {
  arguments.emplace_back("Source", where.file_name());
  arguments.emplace_back("Line", std::to_string(where.line()));
  kodiag::raise(std::move(id), std::move(arguments));
}

void raiseInnermost(const kodiag::except::ExceptionWithCauses& error) {
  const kodiag::Message& innermost = error.innermost();
  if (innermost.id.key == "DictFuncThrewStdException" && innermost.original) {
    std::rethrow_exception(innermost.original);
  }
  std::vector<kodiag::Message> causes;
  for (const kodiag::Message* unit = &error.message(); unit != &innermost;
       unit = &unit->causes.front()) {
    kodiag::Message& wrapper = causes.emplace_back(*unit);
    wrapper.causes.erase(wrapper.causes.begin());
  }
  causes.insert(causes.end(), innermost.causes.begin(), innermost.causes.end());
  kodiag::Message raised = innermost;
  raised.causes = std::move(causes);
  throw kodiag::except::ExceptionWithCauses(std::move(raised));
}

}  // namespace vela::scripting
