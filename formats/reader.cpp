#include "formats/reader.h"

#include <algorithm>
#include <array>

#include "formats/bytesource.h"
#include "formats/csvlayout.h"
#include "formats/csvreader.h"
#include "formats/encoding.h"
#include "formats/rawheader.h"
#include "formats/rawreader.h"
#include "host/interrupt.h"
#include "kodiag/diagnostics.h"
#include "kodiag/message.h"

namespace formats {
namespace {

constexpr std::size_t kHeadBytes = std::size_t{1} << 20;

/// A kind of file: how it is told and how it is read.
struct Format {
  std::string_view name;
  bool (*recognises)(const FileHead& head, const ReadOptions& options);
  std::unique_ptr<Reader> (*open)(SteadyFile file, const FileHead& head,
                                  const ReadOptions& options);
};

/// Asked in this order; the first that recognises a file reads it.
constexpr std::array kFormats = {
    Format{
        "circuit-simulator raw file",
        [](const FileHead& head, const ReadOptions&) { return looksLikeRawFile(head.bytes); },
        [](SteadyFile file, const FileHead&, const ReadOptions&) {
          return openRawReader(std::move(file));
        }},
    Format{"CSV", &looksLikeCsv, &openCsvReader},
};

FileHead readHead(const SteadyFile& file) {
  ByteSource source = file.open();
  FileHead head;
  head.name = source.name();
  head.bytes.resize(std::min<std::uint64_t>(kHeadBytes, source.size()));
  head.bytes.resize(source.read(head.bytes));
  head.isWhole = head.bytes.size() == source.size();
  return head;
}

[[noreturn]] void raiseUnknown(const std::string& name, const std::string& reason) {
  std::string known;
  for (const Format& format : kFormats) {
    known += (known.empty() ? "" : ", ") + std::string(format.name);
  }
  kodiag::raise({"VELA:vela", "UnknownFormat"},
                {{"FileName", name}, {"Reason", reason}, {"Formats", known}});
}

}  // namespace

std::string_view valueTypeName(ValueType type) {
  switch (type) {
    case ValueType::kInt64:
      return "int64";
    case ValueType::kBoolean:
      return "boolean";
    case ValueType::kDouble:
      break;
  }
  return "double";
}

void ReadReport::notice(std::uint64_t line, std::string text) {
  ++noticeCount;
  if (notices.size() < kNoticesKept) notices.push_back({line, std::move(text)});
}

/// Whatever goes wrong while the file changes is for that reason, and so is what goes wrong
/// with a file that was sound before.
template <class Work>
auto Reader::whileUnchanged(const Work& work) {
  auto result = [&] {
    try {
      return work();
    } catch (const kodiag::except::ExceptionWithCauses& failure) {
      const std::string& key = failure.message().id.key;
      if (host::isInterruption(failure) || key == "SourceChanged") throw;
      file_.refuseIfChanged({failure.message()});
      if (summary_ && key.starts_with("Broken")) {
        file_.raiseChanged("it was sound before", {failure.message()});
      }
      throw;
    }
  }();
  file_.refuseIfChanged();
  return result;
}

const Summary& Reader::describe() {
  if (summary_) return *summary_;
  Summary summary = whileUnchanged([&] { return check(); });
  summary.content = file_.content();
  return summary_.emplace(std::move(summary));
}

ReadReport Reader::read(Sink& sink) {
  const Summary& summary = describe();
  return whileUnchanged([&] { return yield(summary, sink); });
}

std::string optionsText(const ReadOptions& options) {
  std::string text;
  const auto add = [&text](std::string_view name, std::string_view value) {
    if (!text.empty()) text += ' ';
    text.append(name).append("=").append(value);
  };
  const auto addChoice = [&add](std::string_view name, Choice choice) {
    if (choice != Choice::kAuto) add(name, choice == Choice::kYes ? "yes" : "no");
  };
  if (options.delimiter)
    add("delimiter", *options.delimiter == '\t' ? "tab" : std::string(1, *options.delimiter));
  if (options.decimal) add("decimal", std::string(1, *options.decimal));
  if (!options.timeColumn.empty()) add("time-column", options.timeColumn);
  addChoice("header", options.header);
  addChoice("unit-row", options.unitRow);
  return text;
}

std::unique_ptr<Reader> openReader(const std::filesystem::path& path,
                                   const ReadOptions& options) {
  SteadyFile file(path);
  const FileHead head = readHead(file);
  if (head.bytes.empty()) raiseUnknown(head.name, "it is empty");
  if (looksLikeUtf16(head.bytes))
    raiseUnknown(head.name, "its text is UTF-16, and only UTF-8 is read");
  for (const Format& format : kFormats) {
    if (format.recognises(head, options)) return format.open(std::move(file), head, options);
  }
  raiseUnknown(head.name, "its content is of no known format");
}

}  // namespace formats
