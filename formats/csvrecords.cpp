#include "formats/csvrecords.h"

#include <algorithm>

namespace formats {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

CsvRecords::CsvRecords(ByteSource source, char delimiter)
    : source_(std::move(source)), delimiter_(delimiter) {}

CsvRecords::Outcome CsvRecords::next() {
  fields_.clear();
  const Outcome outcome = readNonEmptyLine();
  return outcome == Outcome::kRecord ? split() : outcome;
}

CsvRecords::Outcome CsvRecords::readNonEmptyLine() {
  do {
    const ByteSource::Line read = source_.readLine(raw_);
    line_ = source_.line();
    if (read == ByteSource::Line::kEnd) return Outcome::kEnd;
    if (read == ByteSource::Line::kTooLong) return Outcome::kTooLong;
    if (line_ == 1 && raw_.starts_with(kByteOrderMark)) raw_.erase(0, kByteOrderMark.size());
  } while (raw_.find_first_not_of(' ') == std::string::npos);
  return Outcome::kRecord;
}

CsvRecords::Outcome CsvRecords::split() {
  text_.clear();
  ranges_.clear();
  for (std::size_t at = 0; at <= raw_.size(); ++at) {  // the delimiter is stepped over
    const std::size_t start = text_.size();
    const std::size_t content = raw_.find_first_not_of(' ', at);
    if (content != std::string::npos && raw_[content] == '"') {
      at = content + 1;
      const Field field = takeQuoted(at);
      if (field == Field::kMalformed) return Outcome::kMalformed;
      if (field == Field::kUnclosed) return Outcome::kUnclosed;
    } else {
      takePlain(at);
    }
    ranges_.emplace_back(start, text_.size() - start);
  }
  for (const auto& [start, length] : ranges_) {
    fields_.push_back(std::string_view(text_).substr(start, length));
  }
  return Outcome::kRecord;
}

void CsvRecords::takePlain(std::size_t& at) {
  const std::size_t end = std::min(raw_.find(delimiter_, at), raw_.size());
  text_.append(raw_, at, end - at);
  at = end;
}

CsvRecords::Field CsvRecords::takeQuoted(std::size_t& at) {
  for (;;) {
    const std::size_t quote = raw_.find('"', at);
    if (quote == std::string::npos) {
      text_.append(raw_, at);
      at = raw_.size();
      if (!appendLine()) return Field::kUnclosed;
      continue;
    }
    text_.append(raw_, at, quote - at);
    at = quote + 1;
    if (at >= raw_.size() || raw_[at] != '"') break;
    text_ += '"';
    ++at;
  }
  at = std::min(raw_.find_first_not_of(' ', at), raw_.size());
  return at == raw_.size() || raw_[at] == delimiter_ ? Field::kGood : Field::kMalformed;
}

bool CsvRecords::appendLine() {
  if (source_.readLine(extra_) != ByteSource::Line::kRead) return false;
  if (raw_.size() + extra_.size() >= ByteSource::kMaxLineBytes) return false;
  raw_ += '\n';
  raw_ += extra_;
  return true;
}

}  // namespace formats
