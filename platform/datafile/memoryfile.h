// Memory that another process fills and nobody can change afterwards.
#pragma once

#include <cstddef>
#include <span>

#include "datafile/descriptor.h"

namespace datafile {

/// A file in memory of fixed size. Whoever has the descriptor writes to it until it is sealed.
class MemoryFile {
 public:
  /// \throws std::system_error when there is no memory or descriptor for it
  explicit MemoryFile(std::size_t size);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  int descriptor() const { return file_; }

  /// From now on nobody writes; the descriptor is closed.
  ///
  /// \returns whether that holds: it does not when somebody has the file mapped for writing or
  ///          has kept it from being sealed
  /// \throws std::system_error when it cannot be mapped
  bool seal();

  /// All of a sealed file.
  std::span<const char> bytes() const { return {begin_, size_}; }

 private:
  std::size_t size_;
  Descriptor file_;
  const char* begin_ = nullptr;
};

}  // namespace datafile
