#include "streaming.h"

#include <pybind11/numpy.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "errors.h"
#include "kodiag/message.h"
#include "scripting/conversion.h"
#include "scripting/samples.h"
#include "toarray.h"
#include "yarrow/yarrowapi.h"

namespace vela::python {
namespace {

using yarrow::YarrowAPI;
using Doubles = py::array_t<double, py::array::c_style>;

/// Times and values as Python gives them; one time without an axis makes one row of the values.
class RowsGiven {
 public:
  RowsGiven(py::handle times, py::handle values, const char* method)
      : times_(toHostArray(times, {method, "times"})),
        values_(toHostArray(values, {method, "values"})),
        operation_(method) {}

  /// \throws "nexstore:nex:InvalidDimensions" unless there is one row of values for each time;
  ///         "nexstore:nex:InvalidData" for anything but real numbers
  YarrowAPI::Rows rows() const {
    const host::HostArray times = scripting::timesIn(times_, operation_);
    const bool isOneRow = times_.rank() == 0 && values_.rank() == 1 && values_.isNumeric();
    const scripting::GivenValues values(isOneRow ? asRow(values_) : values_, operation_);
    scripting::requireOneForEachTime(values, times.size(), operation_);
    requireRows(values);
    YarrowAPI::Rows rows;
    for (const double time : times.values<double>())
      rows.emplace_back(time, std::vector<double>());
    const std::size_t channels = values.dims().empty() ? 1 : values.dims().front();
    for (std::size_t k = 0; k < channels && !rows.empty(); ++k) {
      const host::HostArray column =
          scripting::converted(values.element(k), host::ArrayClass::real64, operation_);
      const std::span<const double> numbers = column.values<double>();
      for (std::size_t i = 0; i < rows.size(); ++i) rows[i].second.push_back(numbers[i]);
    }
    return rows;
  }

 private:
  static host::HostArray asRow(const host::HostArray& numbers) {
    const auto held = std::make_shared<const host::HostArray>(numbers);
    return host::HostArray::sharing(
        held->arrayClass(), {1, held->size()}, {held, held->bytes().data()},
        held->bytes().size(),
        held->isComplex() ? host::Complexity::complex : host::Complexity::real);
  }

  void requireRows(const scripting::GivenValues& values) const {
    if (values.dims().size() > 1) {
      kodiag::raise({"nexstore:nex", "InvalidDimensions"},
                    {{"Operation", operation_},
                     {"Reason", "values have two axes, rows and channels, unlike " +
                                    values_.describe()}});
    }
    if (values.isComplex()) {
      kodiag::raise(
          {"nexstore:nex", "InvalidData"},
          {{"Operation", operation_}, {"Reason", "a stream takes no complex values"}});
    }
  }

  host::HostArray times_;
  host::HostArray values_;
  std::string operation_;
};

std::string nameOf(py::handle stream) {
  return toNarrowText(stream, false, {"Stream", "name"});
}

py::tuple arraysOf(const YarrowAPI::Rows& rows, py::ssize_t channels) {
  const auto count = static_cast<py::ssize_t>(rows.size());
  Doubles times(count);
  Doubles values({count, channels});
  double* time = times.mutable_data();
  double* value = values.mutable_data();
  for (const auto& [rowTime, rowValues] : rows) {
    *time++ = rowTime;
    value = std::copy(rowValues.begin(), rowValues.end(), value);
  }
  return py::make_tuple(std::move(times), std::move(values));
}

std::string createStream(py::handle channels) {
  return raisingPythonErrors([&] {
    const auto count = static_cast<unsigned>(
        toInteger(channels, 0, std::numeric_limits<int>::max(), {"create", "channels"}));
    std::string stream;
    withoutLock(
        [&] { stream = YarrowAPI::createStream(yarrow::StreamDataType::Double, count); });
    return stream;
  });
}

template <auto store>
py::none storeRows(py::handle stream, py::handle times, py::handle values, const char* method) {
  return raisingPythonErrors([&] {
    const std::string name = nameOf(stream);
    const RowsGiven given(times, values, method);
    withoutLock([&] { store(name, given.rows()); });
    return py::none();
  });
}

py::none addRows(py::handle stream, py::handle times, py::handle values) {
  return storeRows<&YarrowAPI::addDataToStream>(stream, times, values, "append");
}

py::none updateRows(py::handle stream, py::handle times, py::handle values) {
  return storeRows<&YarrowAPI::updateDataInStream>(stream, times, values, "update");
}

double endOfRange(py::handle time, const char* input) {
  const double seconds = toDouble(time, {"read", input});
  if (std::isnan(seconds)) refuse(PyExc_ValueError, {"read", input}, "must be a time, not NaN");
  return seconds;
}

/// -1 for None: no limit.
int limitOf(py::handle rows, const char* input) {
  if (rows.is_none()) return -1;
  return static_cast<int>(toInteger(rows, 0, std::numeric_limits<int>::max(), {"read", input}));
}

py::tuple readRows(py::handle stream, py::handle start, py::handle end, py::handle first,
                   py::handle last) {
  return raisingPythonErrors([&] {
    const std::string name = nameOf(stream);
    const double from = endOfRange(start, "start");
    const double to = endOfRange(end, "end");
    const int atMostFirst = limitOf(first, "first");
    const int atMostLast = limitOf(last, "last");
    YarrowAPI::Rows rows;
    std::size_t channels = 0;
    withoutLock([&] {
      YarrowAPI::getDataFromStream(name, from, to, atMostFirst, atMostLast, rows);
      channels = YarrowAPI::getNumberOfChannels(name);
    });
    return arraysOf(rows, static_cast<py::ssize_t>(channels));
  });
}

py::none deleteRows(py::handle stream, py::handle times) {
  return raisingPythonErrors([&] {
    const std::string name = nameOf(stream);
    const host::HostArray given = toHostArray(times, {"delete", "times"});
    withoutLock([&] {
      const host::HostArray list = scripting::timesIn(given, "delete");
      const std::span<const double> numbers = list.values<double>();
      YarrowAPI::deleteDataInStream(name, {numbers.begin(), numbers.end()});
    });
    return py::none();
  });
}

py::dict metadata(py::handle stream) {
  return raisingPythonErrors([&] {
    const std::string name = nameOf(stream);
    YarrowAPI::StringMetaData texts;
    YarrowAPI::DoubleMetaData numbers;
    withoutLock([&] { YarrowAPI::getMetaDataForStream(name, texts, numbers); });
    py::dict found;
    for (const auto& [key, value] : texts) found[py::str(key)] = py::str(value);
    for (const auto& [key, value] : numbers) found[py::str(key)] = py::float_(value);
    return found;
  });
}

py::none setMetadata(py::handle stream, py::handle key, py::handle value) {
  return raisingPythonErrors([&] {
    const std::string name = nameOf(stream);
    const std::string keyText = toNarrowText(key, false, {"set_metadata", "key"});
    const Place place{"set_metadata", "value"};
    if (PyUnicode_Check(value.ptr())) {
      const std::string text = toNarrowText(value, false, place);
      withoutLock([&] { YarrowAPI::setStringMetaDataForStream(name, keyText, text); });
    } else {
      const double number = toDouble(value, place);
      withoutLock([&] { YarrowAPI::setDoubleMetaDataForStream(name, keyText, number); });
    }
    return py::none();
  });
}

}  // namespace

void addStreamFunctions(py::module_& module) {
  module.def("createStream", &createStream, py::arg("channels"));
  module.def("addStreamRows", &addRows, py::arg("stream"), py::arg("times"), py::arg("values"));
  module.def("updateStreamRows", &updateRows, py::arg("stream"), py::arg("times"),
             py::arg("values"));
  module.def("readStreamRows", &readRows, py::arg("stream"), py::arg("start"), py::arg("end"),
             py::arg("first"), py::arg("last"));
  module.def("deleteStreamRows", &deleteRows, py::arg("stream"), py::arg("times"));
  module.def("streamMetadata", &metadata, py::arg("stream"));
  module.def("setStreamMetadata", &setMetadata, py::arg("stream"), py::arg("key"),
             py::arg("value"));
}

}  // namespace vela::python
