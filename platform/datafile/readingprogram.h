// The program that reads a data file in a process of its own.
#pragma once

#include <filesystem>
#include <string>

#include "datafile/descriptor.h"

namespace datafile {

/// One process of it, from its start to its end.
///
/// It stands beside the library, is started anew (nothing of the caller's memory or open files
/// is in it) and dies when the thread that made it ends. The caller's signals, standard streams
/// and ways of waiting for children are of no consequence.
class ReadingProgram {
 public:
  /// \param file  a regular file; a descriptor that only names it (O_PATH) will do
  /// \throws ReadFailure when it cannot be started
  explicit ReadingProgram(int file);
  ~ReadingProgram();
  ReadingProgram(const ReadingProgram&) = delete;
  ReadingProgram& operator=(const ReadingProgram&) = delete;

  int socket() const { return socket_; }
  static std::filesystem::path path();

  /// Makes sure that it has ended.
  /// \returns how: "ended by SIGSEGV"
  std::string end();

 private:
  Descriptor socket_;
  Descriptor process_;
};

}  // namespace datafile
