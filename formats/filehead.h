// The first bytes of a file, by which its format is told.
#pragma once

#include <string>

namespace formats {

struct FileHead {
  std::string name;  ///< the path as UTF-8
  std::string bytes;
  bool isWhole = false;  ///< whether that is all there is
};

}  // namespace formats
