#include "comparison/options.h"

#include <cmath>

#include "kodiag/message.h"
#include "text/numbers.h"

namespace comparison {
namespace {

[[noreturn]] void refuse(const std::string& setting, const std::string& value,
                         const std::string& allowed) {
  kodiag::raise({"nexstore:nex", "InvalidSetting"},
                {{"Setting", setting}, {"Value", value}, {"Allowed", allowed}});
}

void checkTolerance(const std::string& setting, double value) {
  if (!std::isfinite(value) || value < 0)
    refuse(setting, text::shortest(value), "a finite number of at least 0");
}

void checkGrid(const Options& options) {
  if (options.step && !(std::isfinite(*options.step) && *options.step > 0))
    refuse("step of the uniform alignment", text::shortest(*options.step),
           "a finite number above 0");
  if (options.count && (*options.count < 2 || *options.count > kMaxUniformRows))
    refuse("count of the uniform alignment", std::to_string(*options.count), "from 2 to 10^9");
  if (options.step && options.count)
    refuse("count of the uniform alignment", std::to_string(*options.count),
           "left out when there is a step");
  if ((options.step || options.count) && options.alignment != Alignment::uniform)
    refuse("alignment", textOf(options.alignment),
           "\"uniform\" when there is a step or a count");
}

}  // namespace

Alignment alignmentFromText(std::string_view text) {
  for (Alignment alignment : {Alignment::unite, Alignment::intersect, Alignment::uniform})
    if (textOf(alignment) == text) return alignment;
  refuse("alignment", std::string(text), "\"union\", \"intersection\" or \"uniform\"");
}

std::string textOf(Alignment alignment) {
  switch (alignment) {
    case Alignment::intersect:
      return "intersection";
    case Alignment::uniform:
      return "uniform";
    case Alignment::unite:
      break;
  }
  return "union";
}

bool Options::demandsEqualSpans() const {
  return strictSpan.value_or(alignment != Alignment::intersect);
}

void check(const Options& options) {
  checkTolerance("absolute tolerance", options.absTol);
  checkTolerance("relative tolerance", options.relTol);
  checkTolerance("time tolerance", options.timeTol);
  if (!(options.timeMatch >= 0 && options.timeMatch < 0.5))
    refuse("fraction of a step within which times match", text::shortest(options.timeMatch),
           "at least 0 and below 0.5");
  checkGrid(options);
}

}  // namespace comparison
