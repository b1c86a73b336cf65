// What a method of a script class takes and gives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/arrays.h"

namespace host {

class COSObject;

/// How a declared type travels between host and handler.
enum class ValueKind {
  object,         ///< a class name with its package: an object of that class
  int32Scalar,    ///< "int32 scalar"
  int64Scalar,    ///< "int64 scalar"
  doubleScalar,   ///< "double scalar"
  logicalScalar,  ///< "logical scalar"
  int32Vector,    ///< "int32 vector"
  uint8Vector,    ///< "uint8 vector"
  asciiString,    ///< "asciiString"
  unicodeString,  ///< "unicodeString"
  any,            ///< "any": an array as it was given
};

/// \throws std::invalid_argument for a text that names no type
ValueKind valueKindOf(std::string_view typeName);

/// One input or output.
struct Parameter {
  Parameter(std::string type, std::string name);
  /// May be left out by callers.
  Parameter optional() &&;
  /// A text that names a file; hosts may accept their own kinds of path.
  Parameter fileName() &&;

  std::string type;  ///< the declared type name
  std::string name;
  ValueKind kind;
  bool isOptional = false;
  bool isFileName = false;
};

/// What a method declares: its inputs in order, the optional ones last, and its outputs.
class MethodSignature {
 public:
  MethodSignature(std::vector<Parameter> inputs, std::vector<Parameter> outputs,
                  bool acceptsMoreInputs = false, bool acceptsMoreOutputs = false);

  const std::vector<Parameter>& inputs() const { return inputs_; }
  const std::vector<Parameter>& outputs() const { return outputs_; }
  /// Further inputs, after all declared ones, are of type "any".
  bool acceptsMoreInputs() const { return acceptsMoreInputs_; }
  bool acceptsMoreOutputs() const { return acceptsMoreOutputs_; }
  /// Inputs that cannot be left out.
  std::size_t requiredInputCount() const { return requiredInputCount_; }

 private:
  std::vector<Parameter> inputs_;
  std::vector<Parameter> outputs_;
  bool acceptsMoreInputs_;
  bool acceptsMoreOutputs_;
  std::size_t requiredInputCount_;
};

/// An input as a handler takes it. By kind: the object; int32_t; int64_t; double; bool; for
/// vectors a HostArray, a list of that class; UTF-8; wide text; the untouched HostArray.
using InputValue =
    std::variant<std::monostate, std::shared_ptr<COSObject>, std::int32_t, std::int64_t, double,
                 bool, std::string, std::wstring, HostArray>;

/// An output as a handler leaves it. By kind: the object; integers; double; bool; for vectors,
/// texts and "any" a HostArray.
using OutputValue = std::variant<std::monostate, std::shared_ptr<COSObject>, std::int64_t,
                                 double, bool, HostArray>;

}  // namespace host
