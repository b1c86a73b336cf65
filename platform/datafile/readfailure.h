// Why a data file cannot be read, before anybody put the file's name to it.
#pragma once

#include <stdexcept>
#include <string>

namespace datafile {

/// what() is the reason.
class ReadFailure : public std::runtime_error {
 public:
  enum class Kind {
    unreadable,  ///< it is no data file, not as it was written or out of reach
    invalid,     ///< what is in it cannot be read safely
  };

  ReadFailure(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace datafile
