// Named array values in a data file: writing a new one, reading one.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/arrays.h"

namespace datafile {

/// Whether a file that begins so was made by a DataFileWriter, or begins as one.
bool beginsLikeADataFile(std::string_view begin);

/// Makes a data file beside its target and puts it in the target's place at the end.
///
/// Until commit() the target is as it was, whatever fails and even if the process is killed; a
/// writer that goes away before leaves nothing behind. Neither does a killed process, unless
/// the file system knows no files without names or an old file was just being replaced: then
/// "<target>.<random>.part" stays until the next writer for the target removes it. A symbolic
/// link is refused as everything is that is no regular file.
///
/// Errors: "datafile:file:CannotWrite" naming target and cause. Threads: one writer is used by
/// one thread; all use of the library in the process takes turns.
class DataFileWriter {
 public:
  class Variable;

  /// \param target  path, UTF-8
  explicit DataFileWriter(const std::string& target);
  ~DataFileWriter();
  DataFileWriter(const DataFileWriter&) = delete;
  DataFileWriter& operator=(const DataFileWriter&) = delete;

  /// A name is any text without a slash but "" and ".", used once.
  void put(const std::string& name, const host::HostArray& value);
  enum class Durability {
    fast,     ///< a killed process loses nothing; a power cut may lose the new file
    durable,  ///< what is committed survives a power cut as well
  };

  /// The file is complete: puts it in the target's place.
  void commit(Durability durability = Durability::durable);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// A variable written piece by piece: one array, of which the heads of structures and cells are
/// given, then their fields and elements in order. At most one is open at a time.
class DataFileWriter::Variable {
 public:
  Variable(DataFileWriter& writer, std::string name);
  ~Variable();
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  /// A structure of 1x1; its fields follow in this order.
  void beginStructure(std::span<const std::string> fieldNames);
  /// A cell of 1xn; its elements follow.
  void beginCell(std::size_t count);
  void put(const host::HostArray& array);
  /// Without it the file cannot be committed.
  void finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Reads a data file, which a stranger may have made: what looks into it is a process of its
/// own, started for the reader's lifetime.
///
/// Errors: "datafile:file:CannotRead" when there is no such file, it is none of this kind or
/// not as it was written, "Invalid" when there is something else in it than variables, or the
/// reading process dies of it or is late, "Damaged" when a variable holds no array,
/// "NoSuchVariable"; each names the file. Threads: one reader is used by one thread, which must
/// not end before it.
class DataFileReader {
 public:
  class Variable;

  /// \param path  UTF-8
  explicit DataFileReader(const std::string& path);
  ~DataFileReader();
  DataFileReader(const DataFileReader&) = delete;
  DataFileReader& operator=(const DataFileReader&) = delete;

  const std::string& path() const;
  bool has(const std::string& name) const;
  /// The variables whose names start so, in the order of the names' bytes.
  std::vector<std::string> names(std::string_view start = {}) const;
  enum class Extent {
    beginning,  ///< 32 kB at most
    all,
  };
  /// Variables that will be read next, in this order, and how far: they then come faster.
  void expect(std::span<const std::string> names, Extent extent) const;
  host::HostArray get(const std::string& name) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// A variable read piece by piece, as DataFileWriter::Variable writes it.
class DataFileReader::Variable {
 public:
  Variable(const DataFileReader& reader, const std::string& name);
  ~Variable();
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  /// The field names of a structure of 1x1; its fields follow.
  std::vector<std::string> beginStructure();
  /// The number of elements of a cell; they follow.
  std::size_t beginCell();
  host::HostArray take();
  /// Makes sure that nothing is left.
  void finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace datafile
