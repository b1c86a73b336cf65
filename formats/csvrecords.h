// Splits a table of text into records of fields (RFC 4180, any delimiter).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/bytesource.h"

namespace formats {

/// Yields the records of a source one by one; a byte-order mark and empty lines are passed
/// over.
///
/// A field that starts with '"' reaches to the next lone '"'; it may hold delimiters, line ends
/// and doubled quotes. A quote elsewhere is a character like any other.
class CsvRecords {
 public:
  enum class Outcome {
    kRecord,
    kMalformed,  ///< one line to leave out: characters follow a closing quote
    kUnclosed,   ///< a quote opened in this record never closes, or not within kMaxLineBytes
    kTooLong,    ///< the line exceeds ByteSource::kMaxLineBytes
    kEnd
  };

  CsvRecords(ByteSource source, char delimiter);

  Outcome next();

  /// Line the record last read starts in.
  std::uint64_t line() const { return line_; }
  /// Fields of the record last read, without their quotes; valid until next().
  const std::vector<std::string_view>& fields() const { return fields_; }
  ByteSource& source() { return source_; }

 private:
  enum class Field { kGood, kMalformed, kUnclosed };

  Outcome readNonEmptyLine();
  Outcome split();
  Field takeQuoted(std::size_t& at);
  void takePlain(std::size_t& at);
  bool appendLine();

  ByteSource source_;
  char delimiter_;
  std::uint64_t line_ = 0;
  std::string raw_;    ///< the record as the file has it
  std::string extra_;  ///< a line that continues it
  std::string text_;   ///< its fields one after the other, without quotes
  std::vector<std::pair<std::size_t, std::size_t>> ranges_;  ///< of the fields in text_
  std::vector<std::string_view> fields_;
};

}  // namespace formats
