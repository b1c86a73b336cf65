#include "tools/vela/statementreport.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "objectmanager/statementtimes.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

constexpr std::size_t kStatementsShown = 20;
constexpr std::size_t kLongestText = 160;

std::string fixed(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", value);
  return text;
}

std::string shortened(const std::string& statement) {
  return statement.size() <= kLongestText ? statement
                                          : statement.substr(0, kLongestText) + " ...";
}

void print() {
  const std::vector<statementtimes::Row> rows = statementtimes::rows();
  statementtimes::Row all;
  Table table({{"TOTAL [ms]", Table::Align::right},
               {"CALLS", Table::Align::right},
               {"AVERAGE [ms]", Table::Align::right},
               {"STATEMENT"}});
  const auto add = [&](const statementtimes::Row& row, const std::string& text) {
    const double milliseconds = row.totalSeconds * 1e3;
    const auto calls = static_cast<double>(std::max<std::uint64_t>(row.calls, 1));
    table.addRow(
        {fixed(milliseconds), std::to_string(row.calls), fixed(milliseconds / calls), text});
  };
  for (std::size_t i = 0; i < rows.size(); ++i) {
    all.calls += rows[i].calls;
    all.totalSeconds += rows[i].totalSeconds;
    if (i < kStatementsShown) add(rows[i], shortened(rows[i].statement));
  }
  add(all, "all " + counted(rows.size(), "statement"));
  std::fputs(table.str().c_str(), stderr);
}

}  // namespace

StatementReport::StatementReport() {
  statementtimes::enable();
}

StatementReport::~StatementReport() {
  try {
    print();
  } catch (const std::exception&) {
    // A report that cannot be made is no failure of what it tells about.
  }
}

}  // namespace vela::tool
