#include "scripting/signalinputs.h"

#include <cstdint>
#include <utility>

#include "scripting/conversion.h"
#include "scripting/errors.h"

namespace vela::scripting {

std::string methodIn(const host::HostArray& given, const std::string& otherwise) {
  return given.isText() ? given.toString() : otherwise;
}

std::vector<std::wstring> pathOf(const std::wstring& block) {
  return block.empty() ? std::vector<std::wstring>() : std::vector<std::wstring>{block};
}

std::vector<unsigned> countsIn(const host::HostArray& given, const std::string& operation) {
  const host::HostArray numbers = wholeNumbers(given, operation);
  std::vector<unsigned> counts;
  for (const std::int64_t number : numbers.values<std::int64_t>()) {
    if (!std::in_range<std::int32_t>(number) || number < 0) {
      throwScriptingError({"nexstore:nex", "InvalidDimensions"},
                          {{"Operation", operation},
                           {"Reason", std::to_string(number) + " is no length or subscript"}});
    }
    counts.push_back(static_cast<unsigned>(number));
  }
  return counts;
}

}  // namespace vela::scripting
