#include "comparison/report.h"

namespace comparison {

std::string textOf(Status status) {
  switch (status) {
    case Status::spansDiffer:
      return "spans differ";
    case Status::noCommonTime:
      return "no common time";
    case Status::noSamples:
      return "no samples";
    case Status::unitsDiffer:
      return "units differ";
    case Status::compared:
      break;
  }
  return "compared";
}

}  // namespace comparison
