#include "tools/vela/junit.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <sstream>
#include <vector>

#include "text/utf8.h"

namespace vela::tool {
namespace {

using boost::property_tree::ptree;

constexpr const char* kSuite = "vela compare";

// XML has no way to write most control characters.
bool isXmlCharacter(wchar_t c) {
  return c == L'\t' || c == L'\n' || c == L'\r' || (c >= 0x20 && c < 0xFFFE) || c > 0xFFFF;
}

std::string xmlText(const std::string& text) {
  std::wstring characters = text::toWide(text);
  for (wchar_t& c : characters) {
    if (!isXmlCharacter(c)) c = 0xFFFD;
  }
  return text::toUtf8(characters);
}

void setAttribute(ptree& element, const std::string& name, const std::string& value) {
  element.put("<xmlattr>." + name, xmlText(value));
}

ptree testCase(const std::string& name, const std::string& suite) {
  ptree element;
  setAttribute(element, "classname", suite);
  setAttribute(element, "name", name);
  return element;
}

void addProblem(ptree& testCase, const char* kind, const std::string& type,
                const std::string& message) {
  ptree problem;
  setAttribute(problem, "type", type);
  setAttribute(problem, "message", message);
  testCase.add_child(kind, problem);
}

std::string document(const std::string& suite, const std::vector<ptree>& cases) {
  ptree element;
  const auto count = [&](const char* kind) {
    return std::to_string(
        std::ranges::count_if(cases, [&](const ptree& each) { return each.count(kind) > 0; }));
  };
  setAttribute(element, "name", suite);
  setAttribute(element, "tests", std::to_string(cases.size()));
  setAttribute(element, "failures", count("failure"));
  setAttribute(element, "errors", count("error"));
  for (const ptree& each : cases) element.add_child("testcase", each);
  ptree tree;
  tree.add_child("testsuites.testsuite", element);
  std::ostringstream out;
  write_xml(out, tree, boost::property_tree::xml_writer_make_settings<std::string>(' ', 2));
  return out.str();
}

bool isReport(std::string_view begin) {
  return begin.starts_with("<?xml") && begin.find("<testsuite") != std::string_view::npos;
}

}  // namespace

const OutputKind kJunitReport{"a report of test results", isReport};

std::string junitOf(const ShownComparison& shown) {
  const std::string suite = shown.baseline + " against " + shown.compared;
  std::vector<ptree> cases;
  for (const ComparedSignal& row : shown.comparison.signals) {
    cases.push_back(testCase(text::toUtf8(row.path), suite));
    if (!shown.comparison.isDifference(row)) continue;
    addProblem(cases.back(), "failure", textOf(row.outcome), wordsOf(row, shown.axisUnit));
  }
  if (!shown.comparison.comparedAnything()) {
    cases.push_back(testCase(kSuite, suite));
    addProblem(cases.back(), "error", "nothing compared", "no signal could be compared");
  }
  return document(suite, cases);
}

std::string junitOfError(const std::string& message) {
  std::vector<ptree> cases = {testCase(kSuite, kSuite)};
  addProblem(cases.back(), "error", "trouble", message);
  return document(kSuite, cases);
}

}  // namespace vela::tool
