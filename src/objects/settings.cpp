#include "objects/settings.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "kodiag/message.h"
#include "objects/strings.h"
#include "text/numbers.h"

namespace vela {
namespace {

[[noreturn]] void refuse(const std::string& setting, const std::string& value,
                         const std::string& allowed) {
  kodiag::raise({"nexstore:nex", "InvalidSetting"},
                {{"Setting", setting}, {"Value", value}, {"Allowed", allowed}});
}

}  // namespace

void requireInterpMethod(const std::string& method) {
  if (method != strings::ZOH && method != strings::Linear)
    refuse("interpolation method", method, "\"zoh\" or \"linear\"");
}

void requireTimeAlignment(const std::string& method) {
  const auto known = {strings::Union, std::string("intersection"), std::string("uniform")};
  if (std::ranges::find(known, method) == known.end())
    refuse("alignment", method, "\"union\", \"intersection\" or \"uniform\"");
}

void requireTolerance(const std::string& setting, double tolerance) {
  if (!std::isfinite(tolerance) || tolerance < 0)
    refuse(setting, text::shortest(tolerance), "a finite number of at least 0");
}

void requireTime(const std::string& setting, double seconds) {
  if (!std::isfinite(seconds)) refuse(setting, text::shortest(seconds), "a finite number");
}

}  // namespace vela
