#include "documentation.h"

#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace vela::python {
namespace {

using host::COSMethodInfo;
using host::Parameter;
using host::ValueKind;

std::string signatureOf(const COSMethodInfo& method, const std::string& self) {
  const host::MethodSignature& signature = method.signature();
  std::string text;
  const auto add = [&](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (!self.empty()) add(self);
  for (std::size_t i = method.isInstanceMethod() ? 1 : 0; i < signature.inputs().size(); ++i) {
    const Parameter& input = signature.inputs()[i];
    add(input.name + (input.isOptional ? "=None" : ""));
  }
  if (!text.empty()) add("/");
  if (signature.acceptsMoreInputs()) add("*args");
  return "(" + text + ")";
}

std::string heading(std::string_view title) {
  return "\n\n" + std::string(title) + "\n" + std::string(title.size(), '-');
}

/// The families the class documentation lists, by what their methods are about.
std::string familyOf(const COSMethodInfo& method) {
  if (!method.isInstanceMethod()) return "This process";
  for (const Parameter& input : method.signature().inputs()) {
    if (input.name.starts_with("signal")) return "Signals";
    if (input.name.starts_with("run")) return "Runs";
    if (input.name.starts_with("object")) return "Objects";
  }
  return "The repository";
}

std::string wrapped(const std::vector<std::string>& words, std::string_view indent) {
  constexpr std::size_t kColumns = 96;
  std::string text;
  std::string line(indent);
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string word = words[i] + (i + 1 < words.size() ? "," : "");
    if (line.size() > indent.size() && line.size() + 1 + word.size() > kColumns) {
      text += line + "\n";
      line = indent;
    }
    line += (line.size() > indent.size() ? " " : "") + word;
  }
  return text + line;
}

}  // namespace

std::string inputTypeOf(const Parameter& parameter) {
  switch (parameter.kind) {
    case ValueKind::object:
      return parameter.type;
    case ValueKind::int32Scalar:
    case ValueKind::int64Scalar:
      return "int";
    case ValueKind::doubleScalar:
      return "float";
    case ValueKind::logicalScalar:
      return "bool";
    case ValueKind::int32Vector:
    case ValueKind::uint8Vector:
      return "Sequence[int]";
    case ValueKind::asciiString:
    case ValueKind::unicodeString:
      return parameter.isFileName ? "str | os.PathLike[str]" : "str";
    case ValueKind::any:
      break;
  }
  return "Any";
}

std::string outputTypeOf(const Parameter& parameter) {
  switch (parameter.kind) {
    case ValueKind::int32Vector:
    case ValueKind::uint8Vector:
      return "numpy.ndarray";
    default:
      return inputTypeOf(parameter);
  }
}

std::string textSignatureOf(const COSMethodInfo& method) {
  return signatureOf(method, method.isInstanceMethod() ? "$self" : "");
}

std::string documentationOf(const COSMethodInfo& method) {
  const host::MethodSignature& signature = method.signature();
  std::string text = method.documentation();
  const std::size_t own = method.isInstanceMethod() ? 1 : 0;
  if (signature.inputs().size() > own) {
    text += heading("Parameters");
    for (std::size_t i = own; i < signature.inputs().size(); ++i) {
      const Parameter& input = signature.inputs()[i];
      text += "\n" + input.name + " : " + inputTypeOf(input) + " (" + input.type + ")" +
              (input.isOptional ? ", optional" : "");
    }
  }
  if (!signature.outputs().empty()) {
    text += heading("Returns");
    for (const Parameter& output : signature.outputs()) {
      text += "\n" + output.name + " : " + outputTypeOf(output) + " (" + output.type + ")";
    }
  }
  if (!method.raisedIDs().empty())
    text += "\n\nRaises:\n" + wrapped(method.raisedIDs(), "    ");
  return text;
}

std::string documentationOf(const host::COSClassInfo& info) {
  std::string text = info.name();
  const COSMethodInfo* const constructor = info.constructor();
  text += (constructor ? signatureOf(*constructor, "") : "()") + "\n--\n\n" +
          info.longDescription();
  if (constructor) text += "\n\n" + constructor->documentation();
  std::vector<std::pair<std::string, std::vector<std::string>>> families;
  for (const auto& method : info.methodInfos()) {
    if (method.get() == constructor) continue;
    const std::string family = familyOf(*method);
    auto place = families.begin();
    while (place != families.end() && place->first != family) ++place;
    if (place == families.end()) place = families.insert(place, {family, {}});
    place->second.push_back(method->name());
  }
  for (const auto& [family, names] : families)
    text += heading(family) + "\n" + wrapped(names, "");
  return text;
}

}  // namespace vela::python
