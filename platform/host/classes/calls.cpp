#include "host/classes/calls.h"

#include <limits>
#include <utility>

#include "kodiag/diagnostics.h"
#include "kodiag/message.h"

namespace host {
namespace {

struct Place {
  const COSMethodInfo& method;
  const Parameter& parameter;
  const HostArray& given;

  [[noreturn]] void refuse() const {
    kodiag::raise({"nexstore:nex", "InvalidInput"}, {{"MethodName", method.name()},
                                                     {"ParameterName", parameter.name},
                                                     {"Expected", parameter.type},
                                                     {"Actual", given.describe()}});
  }
};

bool isRealNumber(const HostArray& array) {
  return array.isNumeric() && !array.isComplex();
}

template <class Integer>
Integer integerIn(const Place& place) {
  if (!isRealNumber(place.given) || !place.given.isScalar()) place.refuse();
  try {
    const std::int64_t value = place.given.toInt64();
    if (std::in_range<Integer>(value)) return static_cast<Integer>(value);
  } catch (const kodiag::except::ExceptionWithCauses&) {
    // A fraction, or beyond 64 bits.
  }
  place.refuse();
}

double realIn(const Place& place) {
  if (!isRealNumber(place.given) || !place.given.isScalar()) place.refuse();
  return place.given.toDouble();
}

bool flagIn(const Place& place) {
  if (place.given.isLogical() && place.given.isScalar()) return place.given.toBool();
  const double number = realIn(place);
  if (number != 0 && number != 1) place.refuse();
  return number == 1;
}

template <class Element>
HostArray listIn(const Place& place) {
  if (place.given.isEmpty() && isRealNumber(place.given)) {
    return HostArray::list(std::vector<Element>());
  }
  if (!isRealNumber(place.given)) place.refuse();
  return place.given.visitNumbers([&]<class T>(std::span<const T> numbers) {
    std::vector<Element> elements;
    elements.reserve(numbers.size());
    for (const T number : numbers) {
      elements.push_back(
          integerIn<Element>({place.method, place.parameter, HostArray::scalar(number)}));
    }
    return HostArray::list(std::move(elements));
  });
}

const HostArray& textIn(const Place& place) {
  if (!place.given.isText()) place.refuse();
  return place.given;
}

std::shared_ptr<COSObject> objectIn(const Place& place) {
  if (!place.given.isScriptObject() || place.given.scriptClass() != place.parameter.type) {
    place.refuse();
  }
  return objectInArray(place.given);
}

std::vector<InputValue> convertInputs(const COSMethodInfo& method,
                                      std::span<const HostArray> inputs) {
  checkInputCount(method, inputs.size());
  std::vector<InputValue> converted;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    converted.push_back(convertInput(method, i, inputs[i]));
  }
  return converted;
}

}  // namespace

void checkInputCount(const COSMethodInfo& method, std::size_t count) {
  const MethodSignature& signature = method.signature();
  const bool isTooMany = count > signature.inputs().size() && !signature.acceptsMoreInputs();
  if (count >= signature.requiredInputCount() && !isTooMany) return;
  const std::size_t least = signature.requiredInputCount();
  const std::size_t most = signature.inputs().size();
  std::string expected = std::to_string(least);
  if (signature.acceptsMoreInputs()) {
    expected += " or more";
  } else if (most != least) {
    expected += " to " + std::to_string(most);
  }
  kodiag::raise({"nexstore:nex", "InputCount"}, {{"MethodName", method.name()},
                                                 {"Expected", expected},
                                                 {"Actual", std::to_string(count)}});
}

InputValue convertInput(const COSMethodInfo& method, std::size_t index,
                        const HostArray& given) {
  const std::vector<Parameter>& declared = method.signature().inputs();
  if (index >= declared.size()) return given;
  const Place place{method, declared[index], given};
  switch (declared[index].kind) {
    case ValueKind::object:
      return objectIn(place);
    case ValueKind::int32Scalar:
      return integerIn<std::int32_t>(place);
    case ValueKind::int64Scalar:
      return integerIn<std::int64_t>(place);
    case ValueKind::doubleScalar:
      return realIn(place);
    case ValueKind::logicalScalar:
      return flagIn(place);
    case ValueKind::int32Vector:
      return listIn<std::int32_t>(place);
    case ValueKind::uint8Vector:
      return listIn<std::uint8_t>(place);
    case ValueKind::asciiString:
      return textIn(place).toString();
    case ValueKind::unicodeString:
      return textIn(place).toWide();
    case ValueKind::any:
      return given;
  }
  place.refuse();
}

HostArray convertOutput(const Parameter& declared, const OutputValue& value) {
  if (const auto* integer = std::get_if<std::int64_t>(&value)) {
    return declared.kind == ValueKind::int32Scalar
               ? HostArray::scalar(static_cast<std::int32_t>(*integer))
               : HostArray::scalar(*integer);
  }
  if (const auto* number = std::get_if<double>(&value)) return HostArray::scalar(*number);
  if (const auto* flag = std::get_if<bool>(&value)) return HostArray::scalar(*flag);
  if (const auto* object = std::get_if<std::shared_ptr<COSObject>>(&value)) {
    return arrayOfObject(*object, declared.type);
  }
  const auto* array = std::get_if<HostArray>(&value);
  return array ? *array : HostArray();
}

HostArrays callMethod(const COSMethodInfo& method, std::span<const HostArray> inputs) {
  const std::vector<InputValue> converted = convertInputs(method, inputs);
  const std::vector<Parameter>& declared = method.signature().outputs();
  std::vector<OutputValue> outputs(declared.size());
  int count = 0;
  method.invoke(count, outputs, converted);
  HostArrays results;
  for (std::size_t i = 0; std::cmp_less(i, count) && i < outputs.size(); ++i) {
    results.push_back(convertOutput(declared[i], outputs[i]));
  }
  return results;
}

std::shared_ptr<COSObject> construct(const COSClassInfo& cls,
                                     std::span<const HostArray> inputs) {
  const COSMethodInfo& constructor = *cls.constructor();
  const std::vector<InputValue> converted = convertInputs(constructor, inputs);
  const auto object = std::make_shared<COSObject>(cls);
  OutputValue output = object;
  int count = 0;
  constructor.invoke(count, std::span(&output, 1), converted);
  return object;
}

}  // namespace host
