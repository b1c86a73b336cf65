#include "host/classes/signature.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace host {

ValueKind valueKindOf(std::string_view typeName) {
  static constexpr std::pair<std::string_view, ValueKind> kKinds[] = {
      {"int32 scalar", ValueKind::int32Scalar},
      {"int64 scalar", ValueKind::int64Scalar},
      {"double scalar", ValueKind::doubleScalar},
      {"logical scalar", ValueKind::logicalScalar},
      {"int32 vector", ValueKind::int32Vector},
      {"uint8 vector", ValueKind::uint8Vector},
      {"asciiString", ValueKind::asciiString},
      {"unicodeString", ValueKind::unicodeString},
      {"any", ValueKind::any}};
  for (const auto& [name, kind] : kKinds) {
    if (name == typeName) return kind;
  }
  if (typeName.find('.') == std::string_view::npos) {
    throw std::invalid_argument("no type of script values: " + std::string(typeName));
  }
  return ValueKind::object;
}

Parameter::Parameter(std::string typeName, std::string parameterName)
    : type(std::move(typeName)), name(std::move(parameterName)), kind(valueKindOf(type)) {}

Parameter Parameter::optional() && {
  isOptional = true;
  return std::move(*this);
}

Parameter Parameter::fileName() && {
  isFileName = true;
  return std::move(*this);
}

MethodSignature::MethodSignature(std::vector<Parameter> inputs, std::vector<Parameter> outputs,
                                 bool acceptsMoreInputs, bool acceptsMoreOutputs)
    : inputs_(std::move(inputs)),
      outputs_(std::move(outputs)),
      acceptsMoreInputs_(acceptsMoreInputs),
      acceptsMoreOutputs_(acceptsMoreOutputs) {
  const auto firstOptional =
      std::find_if(inputs_.begin(), inputs_.end(), [](const auto& p) { return p.isOptional; });
  requiredInputCount_ = static_cast<std::size_t>(firstOptional - inputs_.begin());
}

}  // namespace host
