#include "hostmethod.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "documentation.h"
#include "errors.h"
#include "fromarray.h"
#include "hostobject.h"
#include "toarray.h"

namespace vela::python {
namespace {

using host::COSMethodInfo;
using host::InputValue;
using host::OutputValue;
using host::Parameter;
using host::ValueKind;

struct Method {
  PyObject_HEAD vectorcallfunc call;
  const COSMethodInfo* info;
  PyObject* name;
  PyObject* qualifiedName;
  PyObject* module;
  PyObject* documentation;
  PyObject* signature;
};

/// The inputs of one call by position; null where none is given.
using Given = std::vector<PyObject*>;

[[noreturn]] void refuseCall(const COSMethodInfo& method, const std::string& text) {
  refuse(PyExc_TypeError, {method.name().c_str(), nullptr}, text);
}

std::string countText(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " input" : " inputs");
}

void placeKeywords(const COSMethodInfo& method, PyObject* const* values, PyObject* names,
                   Given& given) {
  const std::vector<Parameter>& inputs = method.signature().inputs();
  for (Py_ssize_t k = 0; k < PyTuple_GET_SIZE(names); ++k) {
    const std::string name = py::str(PyTuple_GET_ITEM(names, k));
    std::size_t index = 0;
    while (index < inputs.size() && inputs[index].name != name) ++index;
    const bool isSelf = index == 0 && method.isInstanceMethod();
    if (index == inputs.size() || isSelf) refuseCall(method, "has no input \"" + name + "\"");
    if (index < given.size() && given[index]) {
      refuseCall(method, "input \"" + name + "\" is given twice");
    }
    if (given.size() <= index) given.resize(index + 1);
    given[index] = values[k];
  }
}

/// None stands for an optional input that is left out, save where None is a value of its own.
void leaveOutNones(const std::vector<Parameter>& inputs, Given& given) {
  for (std::size_t i = 0; i < std::min(given.size(), inputs.size()); ++i) {
    const bool meansNothing = inputs[i].isOptional && inputs[i].kind != ValueKind::any;
    if (meansNothing && given[i] == Py_None) given[i] = nullptr;
  }
  while (!given.empty() && !given.back()) given.pop_back();
}

Given arranged(const COSMethodInfo& method, PyObject* const* arguments, std::size_t count,
               PyObject* keywordNames) {
  const host::MethodSignature& signature = method.signature();
  const std::vector<Parameter>& inputs = signature.inputs();
  const std::size_t own = method.isInstanceMethod() ? 1 : 0;
  if (count > inputs.size() && !signature.acceptsMoreInputs()) {
    refuseCall(method, "takes at most " + countText(inputs.size() - own) + ", " +
                           std::to_string(count - own) + " were given");
  }
  Given given(arguments, arguments + count);
  if (keywordNames) placeKeywords(method, arguments + count, keywordNames, given);
  leaveOutNones(inputs, given);
  for (std::size_t i = 0; i < signature.requiredInputCount(); ++i) {
    if (i < given.size() && given[i]) continue;
    refuseCall(method, "needs the input \"" + inputs[i].name + "\"");
  }
  return given;
}

bool isPath(PyObject* object) {
  return !PyUnicode_Check(object) &&
         PyObject_HasAttrString(reinterpret_cast<PyObject*>(Py_TYPE(object)), "__fspath__") !=
             0;
}

host::HostArray anyInput(PyObject* object, const Parameter& parameter, const Place& place) {
  if (parameter.isFileName && isPath(object)) {
    return host::HostArray::text(toWideText(object, true, place));
  }
  return toHostArray(object, place);
}

InputValue objectInput(PyObject* object, const COSMethodInfo& method,
                       const Parameter& parameter) {
  if (!isHostObject(object)) {
    refuseType({method.name().c_str(), parameter.name.c_str()}, parameter.type, object);
  }
  if (!objectIn(object))
    refuseCall(method, "the object was made without a call of its __init__");
  return objectIn(object);
}

InputValue inputOf(PyObject* object, const COSMethodInfo& method, const Parameter& parameter) {
  const Place place{method.name().c_str(), parameter.name.c_str()};
  const auto integer = [&]<class T>(T) {
    return static_cast<T>(
        toInteger(object, std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), place));
  };
  switch (parameter.kind) {
    case ValueKind::object:
      return objectInput(object, method, parameter);
    case ValueKind::int32Scalar:
      return integer(std::int32_t());
    case ValueKind::int64Scalar:
      return integer(std::int64_t());
    case ValueKind::doubleScalar:
      return toDouble(object, place);
    case ValueKind::logicalScalar:
      return toLogical(object, place);
    case ValueKind::int32Vector:
      return toVector(object, host::ArrayClass::int32, place);
    case ValueKind::uint8Vector:
      return toVector(object, host::ArrayClass::uint8, place);
    case ValueKind::asciiString:
      return toNarrowText(object, parameter.isFileName, place);
    case ValueKind::unicodeString:
      return toWideText(object, parameter.isFileName, place);
    case ValueKind::any:
      return anyInput(object, parameter, place);
  }
  return {};
}

std::vector<InputValue> inputsOf(const COSMethodInfo& method, const Given& given) {
  const std::vector<Parameter>& declared = method.signature().inputs();
  static const Parameter further("any", "further input");
  std::vector<InputValue> inputs;
  inputs.reserve(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    const Parameter& parameter = i < declared.size() ? declared[i] : further;
    inputs.push_back(given[i] ? inputOf(given[i], method, parameter) : InputValue());
  }
  return inputs;
}

struct OutputConverter {
  py::object operator()(std::monostate) const { return py::none(); }
  py::object operator()(const std::shared_ptr<host::COSObject>& object) const {
    return pythonObjectOf(object);
  }
  py::object operator()(std::int64_t value) const { return py::int_(value); }
  py::object operator()(double value) const { return py::float_(value); }
  py::object operator()(bool value) const { return py::bool_(value); }
  py::object operator()(host::HostArray& value) const { return toPython(std::move(value)); }
};

py::object outputOf(std::vector<OutputValue>& outputs) {
  if (outputs.empty()) return py::none();
  if (outputs.size() == 1) return std::visit(OutputConverter(), outputs.front());
  py::tuple results(outputs.size());
  for (std::size_t i = 0; i < outputs.size(); ++i)
    results[i] = std::visit(OutputConverter(), outputs[i]);
  return results;
}

py::object called(const COSMethodInfo& method, const Given& given) {
  const std::vector<InputValue> inputs = inputsOf(method, given);
  std::vector<OutputValue> outputs(method.signature().outputs().size());
  withoutLock([&] {
    int count = 0;
    method.invoke(count, outputs, inputs);
    outputs.resize(static_cast<std::size_t>(count));
  });
  return outputOf(outputs);
}

Method* asMethod(PyObject* self) {
  return reinterpret_cast<Method*>(self);
}

PyObject* callMethod(PyObject* self, PyObject* const* arguments, std::size_t flaggedCount,
                     PyObject* keywordNames) {
  return translating<PyObject*>(nullptr, [&] {
    const COSMethodInfo& method = *asMethod(self)->info;
    const auto count = static_cast<std::size_t>(PyVectorcall_NARGS(flaggedCount));
    return called(method, arranged(method, arguments, count, keywordNames)).release().ptr();
  });
}

PyObject* bind(PyObject* self, PyObject* object, PyObject*) {
  const bool binds = object && object != Py_None && asMethod(self)->info->isInstanceMethod();
  return binds ? PyMethod_New(self, object) : Py_NewRef(self);
}

PyObject* represent(PyObject* self) {
  return PyUnicode_FromFormat("<method %U>", asMethod(self)->qualifiedName);
}

// Method objects hold texts only and are no part of a cycle.
void destroy(PyObject* self) {
  Method* const method = asMethod(self);
  for (PyObject* const text : {method->name, method->qualifiedName, method->module,
                               method->documentation, method->signature}) {
    Py_XDECREF(text);
  }
  PyTypeObject* const type = Py_TYPE(self);
  type->tp_free(self);
  Py_DECREF(type);
}

PyMemberDef members[] = {
    {"__vectorcalloffset__", T_PYSSIZET, offsetof(Method, call), READONLY, nullptr},
    {"__name__", T_OBJECT, offsetof(Method, name), READONLY, nullptr},
    {"__qualname__", T_OBJECT, offsetof(Method, qualifiedName), READONLY, nullptr},
    {"__module__", T_OBJECT, offsetof(Method, module), READONLY, nullptr},
    {"__doc__", T_OBJECT, offsetof(Method, documentation), READONLY, nullptr},
    {"__text_signature__", T_OBJECT, offsetof(Method, signature), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr}};

PyType_Slot slots[] = {{Py_tp_call, reinterpret_cast<void*>(PyVectorcall_Call)},
                       {Py_tp_descr_get, reinterpret_cast<void*>(bind)},
                       {Py_tp_repr, reinterpret_cast<void*>(represent)},
                       {Py_tp_dealloc, reinterpret_cast<void*>(destroy)},
                       {Py_tp_members, members},
                       {0, nullptr}};

PyType_Spec spec = {"vela._vela.Method", sizeof(Method), 0,
                    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_VECTORCALL |
                        Py_TPFLAGS_METHOD_DESCRIPTOR | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                    slots};

PyTypeObject*& methodType() {
  static PyTypeObject* type = nullptr;
  return type;
}

PyObject* newText(const std::string& text) {
  return checked(PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())))
      .release()
      .ptr();
}

}  // namespace

void initializeMethodType() {
  methodType() =
      reinterpret_cast<PyTypeObject*>(checked(PyType_FromSpec(&spec)).release().ptr());
  if (!PyType_HasFeature(methodType(), Py_TPFLAGS_METHOD_DESCRIPTOR)) {
    throw std::logic_error("methods of script classes do not bind");
  }
}

py::object makeMethod(const COSMethodInfo& info, const std::string& qualifiedClass) {
  const py::object made = checked(methodType()->tp_alloc(methodType(), 0));
  Method* const method = asMethod(made.ptr());
  const std::size_t dot = qualifiedClass.find('.');
  method->call = callMethod;
  method->info = &info;
  method->name = newText(info.name());
  method->qualifiedName = newText(qualifiedClass.substr(dot + 1) + "." + info.name());
  method->module = newText(qualifiedClass.substr(0, dot));
  method->documentation = newText(documentationOf(info));
  method->signature = newText(textSignatureOf(info));
  return made;
}

void callConstructor(const COSMethodInfo& constructor,
                     const std::shared_ptr<host::COSObject>& object, PyObject* args,
                     PyObject* keywords) {
  Given values(PySequence_Fast_ITEMS(args),
               PySequence_Fast_ITEMS(args) + PyTuple_GET_SIZE(args));
  py::list names;
  if (keywords) {
    for (const auto& [name, value] : py::reinterpret_borrow<py::dict>(keywords)) {
      names.append(name);
      values.push_back(value.ptr());
    }
  }
  const Given given =
      arranged(constructor, values.data(), static_cast<std::size_t>(PyTuple_GET_SIZE(args)),
               py::tuple(names).ptr());
  const std::vector<InputValue> inputs = inputsOf(constructor, given);
  std::vector<OutputValue> outputs(constructor.signature().outputs().size());
  outputs.front() = object;
  withoutLock([&] {
    int count = 0;
    constructor.invoke(count, outputs, inputs);
  });
}

}  // namespace vela::python
