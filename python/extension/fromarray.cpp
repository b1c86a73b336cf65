#include "fromarray.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "callbacks.h"
#include "errors.h"
#include "host/functions.h"
#include "hostobject.h"

namespace vela::python {
namespace {

using host::ArrayClass;
using host::Dimensions;
using host::HostArray;

/// Smaller arrays are copied: that costs less than keeping track of their memory.
constexpr std::size_t kWorthTakingOver = 64 * 1024;

int numpyType(const HostArray& array) {
  if (array.isComplex()) {
    return array.arrayClass() == ArrayClass::real64 ? NPY_COMPLEX128 : NPY_COMPLEX64;
  }
  constexpr std::array<int, 11> kTypes = {NPY_FLOAT64, NPY_FLOAT32, NPY_INT8,  NPY_UINT8,
                                          NPY_INT16,   NPY_UINT16,  NPY_INT32, NPY_UINT32,
                                          NPY_INT64,   NPY_UINT64,  NPY_BOOL};
  return kTypes[static_cast<std::size_t>(array.arrayClass())];
}

py::object numpyScalar(const HostArray& array) {
  void* const data = const_cast<std::byte*>(array.bytes().data());
  if (array.isLogical()) return py::bool_(array.toBool());
  PyArray_Descr* const type = PyArray_DescrFromType(numpyType(array));
  const py::object held = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(type));
  return checked(PyArray_Scalar(data, type, nullptr));
}

std::vector<npy_intp> shapeOf(const HostArray& array) {
  if (array.rank() <= 1) return {static_cast<npy_intp>(array.size())};
  return {array.dimensions().begin(), array.dimensions().end()};
}

py::object copiedArray(const HostArray& array) {
  std::vector<npy_intp> shape = shapeOf(array);
  const py::object copy = checked(PyArray_New(&PyArray_Type, static_cast<int>(shape.size()),
                                              shape.data(), numpyType(array), nullptr, nullptr,
                                              0, NPY_ARRAY_F_CONTIGUOUS, nullptr));
  const std::span<const std::byte> bytes = array.bytes();
  if (!bytes.empty()) {
    std::memcpy(PyArray_DATA(reinterpret_cast<PyArrayObject*>(copy.ptr())), bytes.data(),
                bytes.size());
  }
  return copy;
}

/// An array over the very memory of `array`, which lives as long as the result.
py::object takenOver(HostArray array) {
  std::vector<npy_intp> shape = shapeOf(array);
  const int type = numpyType(array);
  auto* const kept = new HostArray(std::move(array));
  const py::capsule owner(kept, [](void* memory) { delete static_cast<HostArray*>(memory); });
  void* const data = const_cast<std::byte*>(kept->bytes().data());
  const py::object view =
      checked(PyArray_New(&PyArray_Type, static_cast<int>(shape.size()), shape.data(), type,
                          nullptr, data, 0, NPY_ARRAY_FARRAY, nullptr));
  if (PyArray_SetBaseObject(reinterpret_cast<PyArrayObject*>(view.ptr()),
                            owner.inc_ref().ptr()) != 0) {
    throw py::error_already_set();
  }
  return view;
}

py::object numbers(HostArray array) {
  if (array.rank() == 0) return numpyScalar(array);
  if (array.bytes().size() < kWorthTakingOver || !array.ownsElementsAlone()) {
    return copiedArray(array);
  }
  return takenOver(std::move(array));
}

py::object text(const HostArray& array) {
  if (array.isWideText()) {
    const std::wstring wide = array.toWide();
    return checked(PyUnicode_FromWideChar(wide.data(), static_cast<Py_ssize_t>(wide.size())));
  }
  const std::string narrow = array.toString();
  return checked(
      PyUnicode_DecodeUTF8(narrow.data(), static_cast<Py_ssize_t>(narrow.size()), "replace"));
}

/// Elements in column order as a list; those of several columns as a list of rows, and so on.
template <class Element>
py::list nested(const Dimensions& dimensions, const Element& element) {
  const auto isOne = [](std::size_t length) { return length == 1; };
  const bool isList =
      dimensions.size() == 2 && std::any_of(dimensions.begin(), dimensions.end(), isOne);
  if (isList) {
    py::list list;
    for (std::size_t i = 0; i < dimensions[0] * dimensions[1]; ++i) list.append(element(i));
    return list;
  }
  const auto level = [&](const auto& self, std::size_t axis, std::size_t first,
                         std::size_t stride) -> py::list {
    py::list list;
    for (std::size_t i = 0; i < dimensions[axis]; ++i, first += stride) {
      if (axis + 1 == dimensions.size()) {
        list.append(element(first));
      } else {
        list.append(self(self, axis + 1, first, stride * dimensions[axis]));
      }
    }
    return list;
  };
  if (std::find(dimensions.begin(), dimensions.end(), 0U) != dimensions.end())
    return py::list();
  return level(level, 0, 0, 1);
}

py::object cell(const HostArray& array) {
  return nested(array.dimensions(), [&](std::size_t i) { return toPython(array.cell(i)); });
}

py::object structure(const HostArray& array) {
  const auto element = [&](std::size_t i) {
    py::dict dict;
    for (const std::string& name : array.fieldNames()) {
      dict[py::str(name)] = toPython(array.field(name, i));
    }
    return dict;
  };
  if (array.rank() != 1 && array.isScalar()) return element(0);
  return nested(array.dimensions(), element);
}

py::object enumeration(const HostArray& array) {
  const host::EnumerationType& type = array.enumerationType();
  std::vector<HostArray> labels;
  std::vector<std::int32_t> values;
  for (const auto& [label, value] : type.members) {
    labels.push_back(HostArray::text(label));
    values.push_back(value);
  }
  const host::HostArrays arguments = {array.underlying(), HostArray::cell(std::move(labels)),
                                      HostArray::text(type.className),
                                      HostArray::list(std::move(values))};
  return toPython(callHostFunction(kEnumerationConstructor, arguments));
}

/// "sfix16_En4": signed, 16 bits, 4 of them right of the binary point ("E2": two left out). The
/// ending is missing where slope and bias scale.
std::string fixedPointTypeName(const host::FixedPointType& type) {
  std::string name = (type.isSigned ? "sfix" : "ufix") + std::to_string(type.wordLength);
  if (!type.fractionLength) return name;
  const int fraction = *type.fractionLength;
  return name +
         (fraction < 0 ? "_E" + std::to_string(-fraction) : "_En" + std::to_string(fraction));
}

py::object fixedPoint(const HostArray& array) {
  const host::FixedPointType& type = array.fixedPointType();
  const host::HostArrays arguments = {
      HostArray::structure({{"TypeName", HostArray::text(fixedPointTypeName(type))},
                            {"Slope", HostArray::scalar(type.slope)},
                            {"Bias", HostArray::scalar(type.bias)}}),
      array.underlying()};
  return toPython(callHostFunction(kFixedPointConstructor, arguments));
}

py::object scriptObject(const HostArray& array) {
  if (py::object value = opaqueValue(array)) return value;
  return pythonObjectOf(host::objectInArray(array));
}

}  // namespace

py::object toPython(HostArray array) {
  switch (array.arrayClass()) {
    case ArrayClass::character:
      return text(array);
    case ArrayClass::cell:
      return cell(array);
    case ArrayClass::structure:
      return structure(array);
    case ArrayClass::enumeration:
      return enumeration(array);
    case ArrayClass::fixedPoint:
      return fixedPoint(array);
    case ArrayClass::scriptObject:
      return scriptObject(array);
    case ArrayClass::function:
      return pythonFunctionOf(array);
    default:
      return numbers(std::move(array));
  }
}

}  // namespace vela::python
