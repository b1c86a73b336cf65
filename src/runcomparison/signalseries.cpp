#include "runcomparison/signalseries.h"

#include "datarangeiterator.h"
#include "objects/classdef.h"
#include "objects/elementnumbers.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

using comparison::ScalarType;

/// The blocks of a series are the chunks of the signal.
class SignalBlocks : public comparison::BlockReader {
 public:
  explicit SignalBlocks(Signal& signal) : chunks_(signal, false, true) {}

  bool next(comparison::Block& block) override {
    bool hasMore = false;
    chunks_.getNext(values_, times_, nullptr, hasMore);
    if (hasMore) block = {times_, values_};
    return hasMore;
  }

 private:
  Signal::DataRangeIterator chunks_;
  std::vector<char> values_;
  std::vector<double> times_;
};

std::optional<ScalarType> scalarTypeOf(const std::string& label) {
  if (label == strings::Boolean) return ScalarType::boolean;
  switch (numberKindOf(label)) {
    case NumberKind::real64:
      return ScalarType::real;
    case NumberKind::real32:
      return ScalarType::single;
    case NumberKind::int8:
      return ScalarType::int8;
    case NumberKind::int16:
      return ScalarType::int16;
    case NumberKind::int32:
      return ScalarType::int32;
    case NumberKind::int64:
      return ScalarType::int64;
    case NumberKind::uint8:
      return ScalarType::uint8;
    case NumberKind::uint16:
      return ScalarType::uint16;
    case NumberKind::uint32:
      return ScalarType::uint32;
    case NumberKind::uint64:
      return ScalarType::uint64;
    case NumberKind::none:
      break;
  }
  return std::nullopt;
}

std::optional<std::pair<std::string, EnumerationDefinition>> enumerationOf(
    const Signal& signal) {
  const int id = signal.getDataType()->getPropertyInt32(strings::FK_DataTypeDefinitionID);
  bool found = false;
  auto definition = signal.getObjectReference().getObjectManager().findObject(
      id, strings::ClassDefinition, found);
  if (!found) return std::nullopt;
  const ClassDef enumeration(std::move(definition));
  return std::pair(enumeration.getName(), enumeration.getOrderedEnumerationDefinition());
}

}  // namespace

std::optional<comparison::Series> seriesOf(Signal& signal) {
  const std::string label = signal.getDataTypeLabel();
  const std::optional<ScalarType> type = scalarTypeOf(label);
  if (!type) return std::nullopt;
  comparison::Series series;
  series.type = *type;
  series.isEnumeration = label == strings::Enumeration;
  series.interpolation = comparison::interpolationFromText(signal.getInterpMethod());
  series.unit = text::toUtf8(signal.getUnits());
  series.open = [&signal] { return std::make_unique<SignalBlocks>(signal); };
  return series;
}

bool haveSameKind(const Signal& baseline, const Signal& compareTo) {
  if (baseline.isEnum() != compareTo.isEnum()) return false;
  if (!baseline.isEnum()) return true;
  const auto enumeration = enumerationOf(baseline);
  return enumeration && enumeration == enumerationOf(compareTo);
}

}  // namespace vela
