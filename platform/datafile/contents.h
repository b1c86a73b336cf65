// The variables of a data file as the HDF5 library sees them. For the reading program alone:
// a damaged file can crash the library.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "datafile/filedriver.h"

namespace datafile {

/// There is something in the file that is none of ours; what() says what.
class ForeignContent : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Contents {
 public:
  /// Looks at every variable of the open file.
  ///
  /// \param working  called after each
  /// \throws LibraryError when the library cannot read the file, ForeignContent
  Contents(int file, const std::function<void()>& working);

  struct Variable {
    std::string name;
    std::uint64_t bytes;
    std::optional<std::uint64_t> place;  ///< of its bytes in the file when they lie together
  };
  const std::vector<Variable>& variables() const { return variables_; }

  /// Reads from `offset` on; the caller has made sure that there is so much.
  /// \throws LibraryError
  void read(std::size_t variable, std::uint64_t offset, std::span<char> into);

 private:
  void checkRoot() const;
  void addAll(const std::function<void()>& working);
  Variable look(const std::string& name) const;
  void readTogether(std::uint64_t place, std::span<char> into) const;
  void readThroughLibrary(std::uint64_t offset, std::span<char> into) const;

  DiskFile disk_;
  std::uint64_t fileBytes_ = 0;
  Handle file_;
  std::vector<Variable> variables_;
  // The variable that was read last through the library.
  std::size_t openVariable_ = 0;
  Handle openDataset_;
};

}  // namespace datafile
