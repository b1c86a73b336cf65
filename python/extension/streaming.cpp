#include "streaming.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "errors.h"
#include "toarray.h"
#include "yarrow/yarrowapi.h"

namespace vela::python {
namespace {

using yarrow::YarrowAPI;
using Doubles = py::array_t<double, py::array::c_style | py::array::forcecast>;

YarrowAPI::Rows rowsFrom(const Doubles& times, const Doubles& values, const char* method) {
  const Place place{method, "values"};
  if (times.ndim() != 1 || values.ndim() != 2 || values.shape(0) != times.shape(0)) {
    refuse(PyExc_ValueError, place,
           "must be an array of shape (rows, channels) beside times of shape (rows,)");
  }
  YarrowAPI::Rows rows;
  rows.reserve(static_cast<std::size_t>(times.shape(0)));
  const py::ssize_t channels = values.shape(1);
  const double* value = values.data();
  for (py::ssize_t i = 0; i < times.shape(0); ++i, value += channels) {
    rows.emplace_back(times.data()[i], std::vector<double>(value, value + channels));
  }
  return rows;
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

std::string createStream(unsigned channels) {
  return raisingPythonErrors([&] {
    std::string stream;
    withoutLock(
        [&] { stream = YarrowAPI::createStream(yarrow::StreamDataType::Double, channels); });
    return stream;
  });
}

py::none addRows(const std::string& stream, const Doubles& times, const Doubles& values) {
  const YarrowAPI::Rows rows =
      raisingPythonErrors([&] { return rowsFrom(times, values, "append"); });
  return withoutResult([&] { YarrowAPI::addDataToStream(stream, rows); });
}

py::none updateRows(const std::string& stream, const Doubles& times, const Doubles& values) {
  const YarrowAPI::Rows rows =
      raisingPythonErrors([&] { return rowsFrom(times, values, "update"); });
  return withoutResult([&] { YarrowAPI::updateDataInStream(stream, rows); });
}

py::tuple readRows(const std::string& stream, double start, double end, int maxFromStart,
                   int maxFromEnd) {
  return raisingPythonErrors([&] {
    YarrowAPI::Rows rows;
    std::size_t channels = 0;
    withoutLock([&] {
      YarrowAPI::getDataFromStream(stream, start, end, maxFromStart, maxFromEnd, rows);
      channels = YarrowAPI::getNumberOfChannels(stream);
    });
    return arraysOf(rows, static_cast<py::ssize_t>(channels));
  });
}

py::none deleteRows(const std::string& stream, const std::vector<double>& times) {
  return withoutResult([&] { YarrowAPI::deleteDataInStream(stream, times); });
}

py::dict metadata(const std::string& stream) {
  return raisingPythonErrors([&] {
    YarrowAPI::StringMetaData texts;
    YarrowAPI::DoubleMetaData numbers;
    withoutLock([&] { YarrowAPI::getMetaDataForStream(stream, texts, numbers); });
    py::dict found;
    for (const auto& [key, value] : texts) found[py::str(key)] = py::str(value);
    for (const auto& [key, value] : numbers) found[py::str(key)] = py::float_(value);
    return found;
  });
}

py::none setTextMetadata(const std::string& stream, const std::string& key,
                         const std::string& value) {
  return withoutResult([&] { YarrowAPI::setStringMetaDataForStream(stream, key, value); });
}

py::none setNumberMetadata(const std::string& stream, const std::string& key, double value) {
  return withoutResult([&] { YarrowAPI::setDoubleMetaDataForStream(stream, key, value); });
}

}  // namespace

void addStreamFunctions(py::module_& module) {
  module.def("createStream", &createStream, py::arg("channels"));
  module.def("addStreamRows", &addRows, py::arg("stream"), py::arg("times"), py::arg("values"));
  module.def("updateStreamRows", &updateRows, py::arg("stream"), py::arg("times"),
             py::arg("values"));
  module.def("readStreamRows", &readRows, py::arg("stream"), py::arg("start"), py::arg("end"),
             py::arg("maxFromStart"), py::arg("maxFromEnd"));
  module.def("deleteStreamRows", &deleteRows, py::arg("stream"), py::arg("times"));
  module.def("streamMetadata", &metadata, py::arg("stream"));
  module.def("setStreamText", &setTextMetadata, py::arg("stream"), py::arg("key"),
             py::arg("value"));
  module.def("setStreamNumber", &setNumberMetadata, py::arg("stream"), py::arg("key"),
             py::arg("value"));
}

}  // namespace vela::python
