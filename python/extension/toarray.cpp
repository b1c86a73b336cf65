#include "toarray.h"

#include <cmath>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "callbacks.h"
#include "hostobject.h"
#include "known.h"

namespace vela::python {
namespace {

using host::ArrayClass;
using host::Complexity;
using host::Dimensions;
using host::HostArray;

constexpr int kDeepest = 64;

struct NumberType {
  ArrayClass cls;
  Complexity complexity;
};

std::optional<NumberType> numberTypeOf(PyArray_Descr* descr) {
  const int bytes = static_cast<int>(descr->elsize);
  const auto real = [](ArrayClass cls) { return NumberType{cls, Complexity::real}; };
  const auto integer = [&](ArrayClass one, ArrayClass two, ArrayClass four,
                           ArrayClass eight) -> std::optional<NumberType> {
    if (bytes > 8) return std::nullopt;
    return real(bytes == 1 ? one : bytes == 2 ? two : bytes == 4 ? four : eight);
  };
  switch (descr->kind) {
    case 'b':
      return real(ArrayClass::logical);
    case 'i':
      return integer(ArrayClass::int8, ArrayClass::int16, ArrayClass::int32, ArrayClass::int64);
    case 'u':
      return integer(ArrayClass::uint8, ArrayClass::uint16, ArrayClass::uint32,
                     ArrayClass::uint64);
    case 'f':
      if (bytes == 8) return real(ArrayClass::real64);
      if (bytes == 4) return real(ArrayClass::real32);
      return std::nullopt;
    case 'c':
      if (bytes == 16) return NumberType{ArrayClass::real64, Complexity::complex};
      if (bytes == 8) return NumberType{ArrayClass::real32, Complexity::complex};
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

PyArrayObject* asArray(py::handle object) {
  return reinterpret_cast<PyArrayObject*>(object.ptr());
}

bool isMaskedArray(PyObject* object) {
  return PyObject_TypeCheck(object, known().maskedArray);
}

/// A plain array of a masked one; refuses masked elements of types without NaN.
py::object withoutMask(py::handle array, const Place& place) {
  const py::object plain = checked(PyObject_CallOneArg(known().withoutMask, array.ptr()));
  if (plain.is_none()) {
    refuse(PyExc_ValueError, place,
           "has masked elements, which only floating-point types can keep as missing (NaN)");
  }
  return plain;
}

py::object numpyArrayOf(py::handle value) {
  return checked(PyArray_FromAny(value.ptr(), nullptr, 0, 0, 0, nullptr));
}

/// The same numbers column by column, aligned and in native byte order; the array itself when
/// it is so already.
py::object columnMajor(PyArrayObject* array) {
  PyArray_Descr* const native = PyArray_DescrFromType(PyArray_TYPE(array));
  return checked(PyArray_FromArray(array, native, NPY_ARRAY_F_CONTIGUOUS | NPY_ARRAY_ALIGNED));
}

Dimensions dimensionsOf(PyArrayObject* array) {
  Dimensions dimensions(PyArray_DIMS(array), PyArray_DIMS(array) + PyArray_NDIM(array));
  while (dimensions.size() < 2) dimensions.push_back(1);
  return dimensions;
}

unsigned rankOf(PyArrayObject* array) {
  return static_cast<unsigned>(PyArray_NDIM(array));
}

bool isEnumerationMember(PyObject* object) {
  return PyLong_Check(object) && !PyLong_CheckExact(object) && !PyBool_Check(object) &&
         PyObject_TypeCheck(object, known().intEnum);
}

bool isInteger(PyObject* object) {
  return (PyLong_Check(object) && !PyBool_Check(object) && !isEnumerationMember(object)) ||
         PyArray_IsScalar(object, Integer);
}

bool isNumber(PyObject* object) {
  return PyFloat_Check(object) || PyBool_Check(object) || isInteger(object) ||
         PyComplex_Check(object) || PyArray_IsScalar(object, Number) ||
         PyArray_IsScalar(object, Bool);
}

bool isSequence(PyObject* object) {
  return PyList_Check(object) || PyTuple_Check(object);
}

/// Whether numpy can make an array of it beside what is looked at before: its own protocol,
/// that of buffers, or a range.
bool isArrayLike(PyObject* object) {
  PyObject* const type = reinterpret_cast<PyObject*>(Py_TYPE(object));
  return PyObject_CheckBuffer(object) || PyRange_Check(object) ||
         PyObject_HasAttrString(type, "__array__") != 0;
}

std::wstring wideText(PyObject* text, const Place& place) {
  const Py_ssize_t length = PyUnicode_GET_LENGTH(text);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  if (PyUnicode_AsWideChar(text, wide.data(), length) < 0) throw py::error_already_set();
  for (std::size_t i = 0; i < wide.size(); ++i) {
    if (wide[i] >= 0xD800 && wide[i] <= 0xDFFF) {
      refuse(PyExc_ValueError, place,
             "cannot hold half of a surrogate pair: character " + std::to_string(i));
    }
  }
  return wide;
}

std::string fieldName(PyObject* key, const Place& place) {
  const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (!PyUnicode_Check(key)) refuseType(place, "a dict with names as keys", key);
  std::string name = toNarrowText(key, false, place);
  bool valid = !name.empty() && isLetter(name.front());
  for (const char c : name)
    valid = valid && (isLetter(c) || (c >= '0' && c <= '9') || c == '_');
  if (!valid) {
    refuse(PyExc_TypeError, place,
           "has the key \"" + name +
               "\", which is no name of a field: a letter, then letters, " + "digits or _");
  }
  return name;
}

/// What a list holds, as far as all of its elements agree.
struct Contents {
  bool onlyNumbers = true;   ///< at the bottom of lists of lists
  bool onlyIntegers = true;  ///< likewise
  bool onlyTexts = true;
  bool onlyDicts = true;
  bool onlyMembers = true;
};

class Converter {
 public:
  enum class Memory { borrowed, copied };

  Converter(const Place& place, Memory memory) : place_(place), memory_(memory) {}

  HostArray convert(PyObject* object, int depth) const {
    if (object == Py_None) return {};
    if (PyBool_Check(object)) return HostArray::scalar(object == Py_True);
    if (PyLong_CheckExact(object)) return integer(object);
    if (PyFloat_CheckExact(object)) return HostArray::scalar(PyFloat_AS_DOUBLE(object));
    if (PyUnicode_Check(object)) return HostArray::text(wideText(object, place_));
    if (PyArray_Check(object)) return array(asArray(object), depth);
    if (PyArray_IsScalar(object, Generic)) return array(asArray(numpyArrayOf(object)), depth);
    if (isSequence(object)) return sequence(object, depth);
    if (PyDict_Check(object)) return dict(object, depth);
    if (isEnumerationMember(object)) return members(object);
    if (PyLong_Check(object)) return integer(object);
    if (PyFloat_Check(object)) return HostArray::scalar(PyFloat_AS_DOUBLE(object));
    if (PyComplex_Check(object)) {
      const Py_complex value = PyComplex_AsCComplex(object);
      return HostArray::scalar(std::complex<double>(value.real, value.imag));
    }
    if (PyObject_TypeCheck(object, known().fixedPoint)) return fixedPoint(object);
    if (isHostObject(object)) return arrayOf(object);
    if (isArrayLike(object)) return array(asArray(numpyArrayLike(object)), depth);
    if (PyCallable_Check(object)) return functionOf(object);
    refuseType(place_, "a number, a text, an array, a list, a dict or None", object);
  }

 private:
  HostArray integer(PyObject* object) const {
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (overflow == 0) return HostArray::scalar<std::int64_t>(value);
    if (overflow > 0) {
      const unsigned long long large = PyLong_AsUnsignedLongLong(object);
      if (!PyErr_Occurred()) return HostArray::scalar<std::uint64_t>(large);
      PyErr_Clear();
    }
    refuse(PyExc_OverflowError, place_, "is an integer of more than 64 bits");
  }

  py::object numpyArrayLike(PyObject* object) const {
    if (!PyBytes_Check(object)) return numpyArrayOf(object);
    // numpy takes bytes for a text; here they are numbers, as of any other buffer.
    return numpyArrayOf(checked(PyMemoryView_FromObject(object)));
  }

  HostArray array(py::object held, int depth) const {
    if (isMaskedArray(held.ptr())) held = withoutMask(held, place_);
    PyArrayObject* const given = asArray(held);
    if (const auto type = numberTypeOf(PyArray_DESCR(given))) return numbers(given, *type);
    const char kind = PyArray_DESCR(given)->kind;
    if (kind == 'U') return texts(given, depth);
    if (kind == 'O') return members(held.ptr());
    refuseType(place_, "an array of numbers, logical values, texts or enumeration members",
               held);
  }
  HostArray array(PyArrayObject* given, int depth) const {
    return array(py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(given)), depth);
  }

  HostArray numbers(PyArrayObject* given, NumberType type) const {
    const py::object elements = columnMajor(given);
    PyArrayObject* const array = asArray(elements);
    const auto* const data = static_cast<const std::byte*>(PyArray_DATA(array));
    const auto bytes = static_cast<std::size_t>(PyArray_NBYTES(array));
    Dimensions dimensions = dimensionsOf(given);
    const HostArray made =
        memory_ == Memory::copied
            ? HostArray::numeric(type.cls, std::move(dimensions), {data, bytes},
                                 type.complexity)
            : HostArray::sharing(type.cls, std::move(dimensions),
                                 {sharedReference(elements), data}, bytes, type.complexity);
    return made.withRank(rankOf(given));
  }

  HostArray texts(PyArrayObject* given, int depth) const {
    std::vector<HostArray> elements = inColumnOrder(given, depth);
    if (PyArray_NDIM(given) == 0) return elements.front();
    return HostArray::cell(dimensionsOf(given), std::move(elements)).withRank(rankOf(given));
  }

  std::vector<HostArray> inColumnOrder(PyArrayObject* given, int depth) const {
    std::vector<HostArray> elements;
    const py::object flat = checked(PyArray_Ravel(given, NPY_FORTRANORDER));
    for (const py::handle element : py::reinterpret_borrow<py::iterable>(flat)) {
      elements.push_back(convert(element.ptr(), depth + 1));
    }
    return elements;
  }

  Contents contentsOf(PyObject* sequence, int depth) const {
    if (depth > kDeepest) {
      refuse(PyExc_ValueError, place_,
             "is nested more than " + std::to_string(kDeepest) + " levels deep");
    }
    Contents found;
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
      PyObject* const element = PySequence_Fast_GET_ITEM(sequence, i);
      if (isSequence(element)) {
        const Contents inner = contentsOf(element, depth + 1);
        found.onlyNumbers = found.onlyNumbers && inner.onlyNumbers;
        found.onlyIntegers = found.onlyIntegers && inner.onlyIntegers;
      } else {
        found.onlyNumbers = found.onlyNumbers && isNumber(element);
        found.onlyIntegers = found.onlyIntegers && isInteger(element);
      }
      found.onlyTexts = found.onlyTexts && PyUnicode_Check(element);
      found.onlyDicts = found.onlyDicts && PyDict_Check(element);
      found.onlyMembers = found.onlyMembers && isEnumerationMember(element);
    }
    return found;
  }

  HostArray sequence(PyObject* given, int depth) const {
    const Contents contents = contentsOf(given, depth);
    if (PySequence_Fast_GET_SIZE(given) == 0) return {};
    if (contents.onlyMembers && haveOneClass(given)) return members(given);
    if (contents.onlyNumbers) {
      if (auto made = regularNumbers(given, contents.onlyIntegers)) return *std::move(made);
    }
    if (contents.onlyDicts && haveOneSetOfKeys(given)) return structures(given, depth);
    std::vector<HostArray> elements;
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(given); ++i) {
      elements.push_back(convert(PySequence_Fast_GET_ITEM(given, i), depth + 1));
    }
    return HostArray::cell(std::move(elements));
  }

  /// Nothing when the lists are ragged, or numpy would pass integers through doubles.
  std::optional<HostArray> regularNumbers(PyObject* given, bool onlyIntegers) const {
    const py::object made =
        py::reinterpret_steal<py::object>(PyArray_FromAny(given, nullptr, 0, 0, 0, nullptr));
    if (!made) {
      if (!PyErr_ExceptionMatches(PyExc_ValueError)) throw py::error_already_set();
      PyErr_Clear();
      return std::nullopt;
    }
    PyArrayObject* const array = asArray(made);
    const char kind = PyArray_DESCR(array)->kind;
    const bool inexact = onlyIntegers && kind == 'f' && PyArray_SIZE(array) > 0;
    if (kind == 'O' || inexact) return std::nullopt;
    const auto type = numberTypeOf(PyArray_DESCR(array));
    if (!type) refuseType(place_, "a list of numbers of at most 64 bits", made);
    return numbers(array, *type);
  }

  HostArray dict(PyObject* given, int depth) const {
    if (depth > kDeepest) {
      refuse(PyExc_ValueError, place_,
             "is nested more than " + std::to_string(kDeepest) + " levels deep");
    }
    HostArray::Fields fields;
    for (const auto& [key, value] : py::reinterpret_borrow<py::dict>(given)) {
      fields.emplace_back(fieldName(key.ptr(), place_), convert(value.ptr(), depth + 1));
    }
    return HostArray::structure(std::move(fields));
  }

  bool haveOneSetOfKeys(PyObject* sequence) const {
    PyObject* const first = PySequence_Fast_GET_ITEM(sequence, 0);
    for (Py_ssize_t i = 1; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
      PyObject* const other = PySequence_Fast_GET_ITEM(sequence, i);
      if (PyDict_GET_SIZE(other) != PyDict_GET_SIZE(first)) return false;
      for (const auto& entry : py::reinterpret_borrow<py::dict>(first)) {
        if (PyDict_Contains(other, entry.first.ptr()) != 1) return false;
      }
    }
    return true;
  }

  HostArray structures(PyObject* sequence, int depth) const {
    const auto count = static_cast<std::size_t>(PySequence_Fast_GET_SIZE(sequence));
    std::vector<py::object> keys;
    std::vector<std::string> names;
    for (const auto& entry :
         py::reinterpret_borrow<py::dict>(PySequence_Fast_GET_ITEM(sequence, 0))) {
      keys.push_back(py::reinterpret_borrow<py::object>(entry.first));
      names.push_back(fieldName(entry.first.ptr(), place_));
    }
    std::vector<HostArray> values;
    for (std::size_t i = 0; i < count; ++i) {
      PyObject* const element = PySequence_Fast_GET_ITEM(sequence, static_cast<Py_ssize_t>(i));
      for (const py::object& key : keys) {
        values.push_back(convert(PyDict_GetItemWithError(element, key.ptr()), depth + 2));
      }
    }
    return HostArray::structureArray({count, 1}, std::move(names), std::move(values))
        .withRank(1);
  }

  bool haveOneClass(PyObject* sequence) const {
    const PyTypeObject* const first = Py_TYPE(PySequence_Fast_GET_ITEM(sequence, 0));
    for (Py_ssize_t i = 1; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
      if (Py_TYPE(PySequence_Fast_GET_ITEM(sequence, i)) != first) return false;
    }
    return true;
  }

  /// One member of an enumeration, or a list or an object array of members of one.
  HostArray members(PyObject* given) const {
    py::object flat;
    Dimensions dimensions = {1, 1};
    unsigned rank = 0;
    if (PyArray_Check(given)) {
      PyArrayObject* const array = asArray(given);
      dimensions = dimensionsOf(array);
      rank = rankOf(array);
      const py::object raveled = checked(PyArray_Ravel(array, NPY_FORTRANORDER));
      flat = checked(PySequence_List(raveled.ptr()));
    } else if (isSequence(given)) {
      flat = py::reinterpret_borrow<py::object>(given);
      dimensions[0] = static_cast<std::size_t>(PySequence_Fast_GET_SIZE(given));
      rank = 1;
    } else {
      flat = py::make_tuple(py::handle(given));
    }
    const Py_ssize_t count = PySequence_Fast_GET_SIZE(flat.ptr());
    bool sound = count > 0;
    for (Py_ssize_t i = 0; i < count && sound; ++i) {
      sound = isEnumerationMember(PySequence_Fast_GET_ITEM(flat.ptr(), i));
    }
    if (!sound || !haveOneClass(flat.ptr())) {
      refuseType(place_, "an array of numbers, texts or members of one enum.IntEnum", given);
    }
    std::vector<std::int32_t> samples;
    for (Py_ssize_t i = 0; i < count; ++i) {
      samples.push_back(memberValue(PySequence_Fast_GET_ITEM(flat.ptr(), i)));
    }
    PyObject* const cls =
        reinterpret_cast<PyObject*>(Py_TYPE(PySequence_Fast_GET_ITEM(flat.ptr(), 0)));
    return HostArray::enumeration(
        definitionOf(cls),
        HostArray::owning(ArrayClass::int32, std::move(dimensions), std::move(samples))
            .withRank(rank));
  }

  std::int32_t memberValue(PyObject* member) const {
    return static_cast<std::int32_t>(toInteger(member, std::numeric_limits<std::int32_t>::min(),
                                               std::numeric_limits<std::int32_t>::max(),
                                               place_));
  }

  host::EnumerationType definitionOf(py::handle cls) const {
    host::EnumerationType type;
    type.className = toNarrowText(cls.attr("__name__"), false, place_);
    for (const py::handle member : py::iter(cls)) {
      type.members.emplace_back(toNarrowText(member.attr("name"), false, place_),
                                memberValue(member.ptr()));
    }
    return type;
  }

  HostArray fixedPoint(PyObject* given) const {
    const py::handle object(given);
    host::FixedPointType type;
    type.isSigned = object.attr("signed").cast<bool>();
    type.wordLength = object.attr("wordLength").cast<int>();
    const py::object fractionLength = object.attr("fractionLength");
    if (!fractionLength.is_none()) type.fractionLength = fractionLength.cast<int>();
    type.slope = object.attr("slope").cast<double>();
    type.bias = object.attr("bias").cast<double>();
    const py::object values = numpyArrayOf(object.attr("__array__")());
    return HostArray::fixedPoint(
        type, numbers(asArray(values), NumberType{ArrayClass::real64, Complexity::real}));
  }

  const Place& place_;
  Memory memory_;
};

bool isTextOrNone(PyObject* object) {
  return object == Py_None || PyUnicode_Check(object) || PyBytes_Check(object);
}

/// The number inside an array without dimensions; anything else as it is.
py::object unwrapped(py::handle value) {
  if (PyArray_Check(value.ptr()) && PyArray_NDIM(asArray(value)) == 0 &&
      !isMaskedArray(value.ptr())) {
    return checked(PyArray_ToScalar(PyArray_DATA(asArray(value)), asArray(value)));
  }
  return py::reinterpret_borrow<py::object>(value);
}

bool isRealFloat(PyObject* object) {
  return PyFloat_Check(object) || PyArray_IsScalar(object, Floating);
}

std::int64_t wholeNumberIn(double value, std::int64_t lowest, std::int64_t highest,
                           const Place& place) {
  if (std::isnan(value) || (std::isfinite(value) && std::trunc(value) != value)) {
    refuse(PyExc_TypeError, place, "must be a whole number, not " + std::to_string(value));
  }
  // Both bounds of int64 are exact as doubles this way round.
  if (!(value >= -0x1p63 && value < 0x1p63) || static_cast<std::int64_t>(value) < lowest ||
      static_cast<std::int64_t>(value) > highest) {
    refuse(PyExc_OverflowError, place, "is out of range");
  }
  return static_cast<std::int64_t>(value);
}

template <class T>
std::span<const T> spanOf(const py::object& array) {
  return {static_cast<const T*>(PyArray_DATA(asArray(array))),
          static_cast<std::size_t>(PyArray_SIZE(asArray(array)))};
}

template <class T>
HostArray listInRange(const py::object& numbers, const Place& place) {
  constexpr auto kLowest = std::numeric_limits<T>::min();
  constexpr auto kHighest = std::numeric_limits<T>::max();
  const auto cast = [&](int type) {
    return checked(PyArray_FromArray(asArray(numbers), PyArray_DescrFromType(type),
                                     NPY_ARRAY_CARRAY_RO | NPY_ARRAY_FORCECAST));
  };
  std::vector<T> list;
  const auto append = [&](const auto& values, const auto& check) {
    list.reserve(values.size());
    for (const auto value : values) list.push_back(static_cast<T>(check(value)));
  };
  const auto inRange = [&](auto value) {
    if (!std::in_range<T>(value))
      refuse(PyExc_OverflowError, place, "holds a number out of range");
    return value;
  };
  const char kind = PyArray_DESCR(asArray(numbers))->kind;
  if (kind == 'i') {
    append(spanOf<std::int64_t>(cast(NPY_INT64)), inRange);
  } else if (kind == 'u') {
    append(spanOf<std::uint64_t>(cast(NPY_UINT64)), inRange);
  } else {
    append(spanOf<double>(cast(NPY_FLOAT64)),
           [&](double value) { return wholeNumberIn(value, kLowest, kHighest, place); });
  }
  return HostArray::list(std::move(list));
}

bool holdsIntegers(PyArrayObject* objects) {
  for (const py::handle element : py::reinterpret_steal<py::list>(
           checked(PySequence_List(checked(PyArray_Ravel(objects, NPY_CORDER)).ptr()))
               .release())) {
    if (!isInteger(element.ptr())) return false;
  }
  return true;
}

}  // namespace

HostArray toHostArray(py::handle value, const Place& place) {
  return Converter(place, Converter::Memory::borrowed).convert(value.ptr(), 0);
}

HostArray toOwnedHostArray(py::handle value, const Place& place) {
  return Converter(place, Converter::Memory::copied).convert(value.ptr(), 0);
}

HostArray toVector(py::handle value, ArrayClass cls, const Place& place) {
  constexpr const char* kExpected = "a list of whole numbers";
  PyObject* const object = value.ptr();
  if (isTextOrNone(object) || PyDict_Check(object) || PyBool_Check(object) ||
      PyArray_IsScalar(object, Bool)) {
    refuseType(place, kExpected, value);
  }
  if (!isNumber(object) && !isSequence(object) && !isArrayLike(object)) {
    refuseType(place, kExpected, value);
  }
  const py::object array = isMaskedArray(object)
                               ? withoutMask(value, place)
                               : py::reinterpret_steal<py::object>(
                                     PyArray_FromAny(object, nullptr, 0, 0, 0, nullptr));
  if (!array) {
    if (!PyErr_ExceptionMatches(PyExc_ValueError)) throw py::error_already_set();
    PyErr_Clear();
    refuse(PyExc_TypeError, place,
           std::string("must be ") + kExpected + ", not lists of lists");
  }
  const char kind = PyArray_DESCR(asArray(array))->kind;
  if (kind == 'O' && holdsIntegers(asArray(array))) {
    refuse(PyExc_OverflowError, place, "holds a number out of range");
  }
  const bool isList = PyArray_NDIM(asArray(array)) <= 1 || PyArray_SIZE(asArray(array)) == 0;
  if (!isList || (kind != 'i' && kind != 'u' && kind != 'f'))
    refuseType(place, kExpected, array);
  return cls == ArrayClass::int32 ? listInRange<std::int32_t>(array, place)
                                  : listInRange<std::uint8_t>(array, place);
}

std::int64_t toInteger(py::handle value, std::int64_t lowest, std::int64_t highest,
                       const Place& place) {
  constexpr const char* kExpected = "int";
  const py::object number = unwrapped(value);
  PyObject* const object = number.ptr();
  if (isRealFloat(object)) {
    return wholeNumberIn(checked(PyNumber_Float(object)).cast<double>(), lowest, highest,
                         place);
  }
  const bool isArray = PyArray_Check(object);
  if (isArray || PyBool_Check(object) || PyArray_IsScalar(object, Bool) ||
      !PyIndex_Check(object)) {
    refuseType(place, kExpected, value);
  }
  const py::object index = checked(PyNumber_Index(object));
  int overflow = 0;
  const std::int64_t whole = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
  if (overflow != 0 || whole < lowest || whole > highest) {
    refuse(PyExc_OverflowError, place, "is out of range");
  }
  return whole;
}

double toDouble(py::handle value, const Place& place) {
  if (PyFloat_CheckExact(value.ptr())) return PyFloat_AS_DOUBLE(value.ptr());
  const py::object number = unwrapped(value);
  PyObject* const object = number.ptr();
  const bool isReal = isRealFloat(object) || PyArray_IsScalar(object, Bool) ||
                      (PyIndex_Check(object) && !PyArray_Check(object));
  if (!isReal) refuseType(place, "float", value);
  const double real = PyFloat_AsDouble(object);
  if (real == -1 && PyErr_Occurred()) throw py::error_already_set();
  return real;
}

bool toLogical(py::handle value, const Place& place) {
  if (PyBool_Check(value.ptr())) return value.ptr() == Py_True;
  const py::object number = unwrapped(value);
  PyObject* const object = number.ptr();
  if (!PyArray_Check(object) && (isNumber(object) || PyIndex_Check(object)) &&
      !PyComplex_Check(object) && !PyArray_IsScalar(object, ComplexFloating)) {
    const double real = PyFloat_AsDouble(object);
    if (real == 0 || real == 1) return real != 0;
    PyErr_Clear();
  }
  refuseType(place, "bool (or 0 or 1)", value);
}

std::wstring toWideText(py::handle value, bool isFileName, const Place& place) {
  if (PyUnicode_Check(value.ptr())) return wideText(value.ptr(), place);
  if (isFileName && PyObject_HasAttrString(value.ptr(), "__fspath__")) {
    const py::object path = checked(PyOS_FSPath(value.ptr()));
    if (PyUnicode_Check(path.ptr())) return wideText(path.ptr(), place);
  }
  refuseType(place, isFileName ? "str or a path of str" : "str", value);
}

std::string toNarrowText(py::handle value, bool isFileName, const Place& place) {
  if (PyUnicode_Check(value.ptr())) {
    Py_ssize_t length = 0;
    const char* const utf8 = PyUnicode_AsUTF8AndSize(value.ptr(), &length);
    if (utf8) return {utf8, static_cast<std::size_t>(length)};
    PyErr_Clear();
  }
  // The long way, which names what is wrong.
  const std::wstring wide = toWideText(value, isFileName, place);
  const py::object text =
      checked(PyUnicode_FromWideChar(wide.data(), static_cast<Py_ssize_t>(wide.size())));
  return toNarrowText(text, isFileName, place);
}

}  // namespace vela::python
