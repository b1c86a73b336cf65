#include "objects/runnames.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <cwchar>
#include <functional>
#include <iterator>

#include "objects/raising.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

constexpr std::size_t kLongestName = 65'536;
constexpr std::size_t kDeepestReference = 16;

std::wstring replaceAll(const std::wstring& text, const std::wstring& token,
                        const std::wstring& value) {
  std::wstring result;
  std::size_t from = 0;
  while (result.size() < kLongestName) {
    const std::size_t at = text.find(token, from);
    result.append(text, from, at == std::wstring::npos ? at : at - from);
    if (at == std::wstring::npos) break;
    result += value;
    from = at + token.size();
  }
  return result;
}

}  // namespace

std::wstring dateText(double seconds) {
  const double whole = std::floor(seconds);
  // Compared this way round so that NaN fails too.
  if (!(whole >= -62'135'596'800.0 && whole <= 253'402'300'799.0)) return {};
  const auto moment = static_cast<std::time_t>(whole);
  std::tm parts{};
  if (!localtime_r(&moment, &parts)) return {};
  wchar_t text[32];
  return {text, std::wcsftime(text, std::size(text), L"%Y-%m-%d %H:%M:%S", &parts)};
}

RunNames::RunNames(ObjectManager& manager)
    : rows_(manager.createObjectQuery()),
      outputs_(manager.createObjectQuery()),
      numbers_(manager.createObjectQuery()) {
  const kodd::ClassRef run = manager.getClass(strings::DataSet);
  rows_->addObjectConstraint(run, &wanted_);
  addRunResults(*rows_, run, row_);

  const kodd::ClassRef output = manager.getClass(strings::OutputMetaData);
  outputs_->addObjectConstraint(output.findProperty(strings::DataSet), true, &wanted_);
  outputs_->addResultProperty(output.findProperty(strings::Model), &output_.model);
  outputs_->addResultProperty(output.findProperty(strings::SimMode), &output_.simMode);

  const kodd::ClassRef number = manager.getClass(strings::RunNumberByRunID);
  numbers_->addObjectConstraint(number.findProperty(strings::FK_SetID), true, &wanted_);
  numbers_->addResultProperty(number.findProperty(strings::RunNumber), &number_);
}

std::wstring RunNames::of(const RunRow& run) {
  known_.clear();
  return expand(run, true);
}

std::wstring RunNames::of(const kodd::ObjectRef& run) {
  const std::optional<RunRow> row = rowOf(run);
  return row ? of(*row) : std::wstring();
}

std::optional<int> RunNames::numberOf(const kodd::ObjectRef& run) {
  wanted_ = run;
  const bool found =
      raising([&](kodiag::util::diagnostics& diag) { return numbers_->executeForOne(diag); });
  return found ? std::optional(number_) : std::nullopt;
}

std::wstring RunNames::expand(const RunRow& run, bool withReferences) {
  std::optional<Output> output;
  const auto outputRow = [&]() -> const Output& {
    if (!output) output = outputOf(run.object);
    return *output;
  };
  const std::pair<const wchar_t*, std::function<std::wstring()>> tokens[] = {
      {L"<run_index>",
       [&] {
         const std::optional<int> number = numberOf(run.object);
         return number ? std::to_wstring(*number) : std::wstring();
       }},
      {L"<baseline>",
       [&] { return withReferences ? nameOfReferenced(run.baseline) : std::wstring(); }},
      {L"<compare_to>",
       [&] { return withReferences ? nameOfReferenced(run.compareTo) : std::wstring(); }},
      {L"<model_name>", [&] { return outputRow().model; }},
      {L"<time_stamp>", [&] { return dateText(run.date); }},
      {L"<sim_mode>", [&] { return text::toWide(outputRow().simMode); }},
  };

  open_.push_back(run.object.id());
  std::wstring name = run.name;
  for (const auto& [token, value] : tokens) {
    if (name.find(token) != std::wstring::npos) name = replaceAll(name, token, value());
  }
  open_.pop_back();
  name.resize(std::min(name.size(), kLongestName));
  return name;
}

std::wstring RunNames::nameOfReferenced(const kodd::ObjectRef& run) {
  if (run.id() == 0 || open_.size() > kDeepestReference) return {};
  if (isBeingExpanded(run.id())) {
    const std::optional<RunRow> row = rowOf(run);
    return row ? expand(*row, false) : std::wstring();
  }
  // Without this the runs of a chain that name both their references double at every step.
  const auto known = known_.find(run.id());
  if (known != known_.end()) return known->second;
  const std::optional<RunRow> row = rowOf(run);
  return known_[run.id()] = row ? expand(*row, true) : std::wstring();
}

std::optional<RunRow> RunNames::rowOf(const kodd::ObjectRef& run) {
  wanted_ = run;
  const bool found =
      raising([&](kodiag::util::diagnostics& diag) { return rows_->executeForOne(diag); });
  return found ? std::optional(row_) : std::nullopt;
}

RunNames::Output RunNames::outputOf(const kodd::ObjectRef& run) {
  wanted_ = run;
  const bool found =
      raising([&](kodiag::util::diagnostics& diag) { return outputs_->executeForOne(diag); });
  return found ? output_ : Output();
}

bool RunNames::isBeingExpanded(int runID) const {
  return std::ranges::find(open_, runID) != open_.end();
}

}  // namespace vela
