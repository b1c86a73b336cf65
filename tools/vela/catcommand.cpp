// `vela cat`: the samples of a range as CSV or JSON.
#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "kodiag/message.h"
#include "objects/strings.h"
#include "text/numbers.h"
#include "text/printable.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/selection.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

struct Range {
  double from = -HUGE_VAL;
  double to = HUGE_VAL;
};

// The samples of one signal that fall into a range.
struct Samples {
  std::string name;
  std::string unit;
  std::string type;
  std::vector<double> times;
  std::vector<char> values;
};

Samples samplesOf(const Signal& signal, const Range& range) {
  Samples samples;
  samples.name = nameOf(signal);
  samples.unit = text::toUtf8(signal.getUnits());
  samples.type = signal.getDataTypeLabel();
  signal.readRange(range.from, range.to, samples.times, samples.values);
  return samples;
}

template <class Element>
std::string elementText(const Samples& samples, std::size_t index) {
  Element element;
  if ((index + 1) * sizeof element > samples.values.size()) return "nan";
  std::memcpy(&element, samples.values.data() + index * sizeof element, sizeof element);
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof text, element);
  static_cast<void>(error);  // 32 characters hold every number
  return std::string(text, end);
}

using ElementText = std::string (*)(const Samples&, std::size_t);

ElementText textFunctionFor(const std::string& type) {
  if (type == strings::Single) return elementText<float>;
  if (type == strings::Int8) return elementText<std::int8_t>;
  if (type == strings::UInt8 || type == strings::Boolean) return elementText<std::uint8_t>;
  if (type == strings::Int16) return elementText<std::int16_t>;
  if (type == strings::UInt16) return elementText<std::uint16_t>;
  if (type == strings::Int32 || type == strings::Enumeration) return elementText<std::int32_t>;
  if (type == strings::UInt32) return elementText<std::uint32_t>;
  if (type == strings::Int64) return elementText<std::int64_t>;
  if (type == strings::UInt64) return elementText<std::uint64_t>;
  return elementText<double>;
}

std::string quoted(const std::string& field) {
  if (field.find_first_of(",\"\r\n") == std::string::npos) return field;
  std::string out = "\"";
  for (const char c : field) out += c == '"' ? "\"\"" : std::string(1, c);
  return out + "\"";
}

bool isJsonNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("+-.0123456789eE") == std::string::npos;
}

void write(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

using Axis = std::pair<std::string, std::string>;

void writeCsv(const Axis& axis, const std::vector<Samples>& columns) {
  std::string line = quoted(labelled(axis.first, axis.second));
  std::vector<ElementText> texts;
  for (const Samples& column : columns) {
    line += "," + quoted(labelled(column.name, column.unit));
    texts.push_back(textFunctionFor(column.type));
  }
  write(dataText(line) + "\n");
  const std::vector<double>& times = columns.front().times;
  for (std::size_t row = 0; row < times.size(); ++row) {
    line = text::shortest(times[row]);
    for (std::size_t i = 0; i < columns.size(); ++i) line += "," + texts[i](columns[i], row);
    write(line + "\n");
  }
}

// Written number by number with the same shortest texts as CSV; no document is built in memory.
void writeJsonArray(std::size_t count, const std::function<std::string(std::size_t)>& textAt) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::string text = textAt(i);
    write((i > 0 ? "," : "") + (isJsonNumber(text) ? text : "null"));
  }
}

void writeJson(const Axis& axis, const std::vector<Samples>& columns) {
  const auto quotedJson = [](const std::string& text) {
    return text::escapedInJson(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
  };
  const std::vector<double>& times = columns.front().times;
  write("{\"axis\": " + quotedJson(axis.first) + ", \"axisUnit\": " + quotedJson(axis.second) +
        ",\n \"time\": [");
  writeJsonArray(times.size(), [&](std::size_t i) { return text::shortest(times[i]); });
  write("],\n \"signals\": [");
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Samples& column = columns[i];
    const ElementText textAt = textFunctionFor(column.type);
    write(std::string(i > 0 ? ",\n" : "\n") + "  {\"name\": " + quotedJson(column.name) +
          ", \"unit\": " + quotedJson(column.unit) + ", \"type\": " + quotedJson(column.type) +
          ", \"values\": [");
    writeJsonArray(times.size(), [&](std::size_t row) { return textAt(column, row); });
    write("]}");
  }
  write("]}\n");
}

ExitCode cat(const Context& context, const std::string& signalWords,
             const std::string& runWords, const Range& range) {
  Repository repository = Repository::openForReading(context);
  ObjectManager& manager = repository.manager();
  std::vector<Samples> columns;
  Axis axis;
  manager.inReadUnit([&] {
    const std::unique_ptr<Signal> signal = findSignal(manager, signalWords, runWords);
    axis = axisOf(signal->getParentSet().get());
    for (const auto& leaf : leavesOf(manager, *signal))
      columns.push_back(samplesOf(*leaf, range));
  });
  for (const Samples& column : columns) {
    if (column.times != columns.front().times) {
      kodiag::raise({"VELA:vela", "DifferentTimes"},
                    {{"First", columns.front().name}, {"Second", column.name}});
    }
  }
  (context.json ? writeJson : writeCsv)(axis, columns);
  return kDone;
}

}  // namespace

void addCatCommand(CLI::App& app, Context& context) {
  CLI::App* const command =
      app.add_subcommand("cat", "Print the samples of a signal, or of all signals below it");
  command->footer(
      "Numbers are the shortest texts that read back to the stored bits.\n"
      "NaN and infinities are null in JSON. On a terminal, control characters in names\n"
      "show as '?'; in files and pipes names are as they are stored.");
  addCommonOptions(*command, context);
  auto signal = std::make_shared<std::string>();
  auto run = std::make_shared<std::string>();
  auto range = std::make_shared<Range>();
  command->add_option("SIGNAL", *signal, "ID or name of a signal")->required();
  command->add_option("--run", *run, "ID or name of its run")->type_name("RUN");
  command->add_option("--from", range->from, "First time, included")->type_name("T");
  command->add_option("--to", range->to, "Last time, included")->type_name("T");
  command->callback([&context, signal, run, range] {
    context.command = [&context, signal, run, range] {
      return cat(context, *signal, *run, *range);
    };
  });
}

}  // namespace vela::tool
