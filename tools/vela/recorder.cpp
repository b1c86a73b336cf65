#include "tools/vela/recorder.h"

#include <filesystem>
#include <type_traits>

#include "objects/datatypes.h"
#include "objects/strings.h"
#include "signalcreationutil.h"
#include "text/utf8.h"
#include "tools/vela/runview.h"

namespace vela::tool {
namespace {

builtInDTypeId dataTypeOf(formats::ValueType type) {
  switch (type) {
    case formats::ValueType::kDouble:
      return dtypeDouble;
    case formats::ValueType::kInt64:
      return dtypeInt64;
    case formats::ValueType::kBoolean:
      return dtypeBoolean;
  }
  return dtypeDouble;
}

std::uint64_t elementBytes(const formats::SignalInfo& signal) {
  if (signal.isComplex) return 2 * sizeof(double);
  return signal.type == formats::ValueType::kBoolean ? 1 : sizeof(double);
}

std::uint64_t bytesOfRow(const formats::RunInfo& run) {
  std::uint64_t bytes = 0;
  for (const formats::SignalInfo& signal : *run.signals) {
    bytes += elementBytes(signal) + (signal.isComplex ? 2 : 1) * sizeof(double);
  }
  return bytes;
}

void append(Signal& signal, std::span<const double> times, const void* values,
            builtInDTypeId type) {
  signal.addData(values, times.data(), type, nullptr, static_cast<unsigned>(times.size()), 0,
                 nullptr);
}

}  // namespace

struct Recorder::StoredSignal {
  builtInDTypeId type;
  std::unique_ptr<Signal> whole;  ///< holds the samples unless the quantity is complex
  std::unique_ptr<Signal> real;
  std::unique_ptr<Signal> imaginary;
};

Recorder::Recorder(ObjectManager& manager, const formats::Summary& summary,
                   formats::Provenance provenance, std::string runName, Progress progress)
    : manager_(manager),
      summary_(summary),
      provenance_(std::move(provenance)),
      runName_(std::move(runName)),
      progress_(std::move(progress)) {}

Recorder::~Recorder() = default;

void Recorder::beginRun(const formats::RunInfo& run) {
  run_ = std::make_unique<Set>(manager_, true);
  describeRun(run);
  signals_.clear();
  for (const formats::SignalInfo& info : *run.signals)
    signals_.push_back(storeSignal(info, run));
  runs_.push_back({run_->getID(), nameOf(run), run.signals->size(), 0});
}

void Recorder::block(std::span<const double> axis, std::span<const formats::Column> columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const StoredSignal& signal = signals_.at(i);
    std::visit(
        [&](const auto& values) {
          using Value = typename std::decay_t<decltype(values)>::value_type;
          if constexpr (std::is_same_v<Value, std::complex<double>>) {
            std::vector<double> part(values.size());
            for (std::size_t k = 0; k < part.size(); ++k) part[k] = values[k].real();
            append(*signal.real, axis, part.data(), signal.type);
            for (std::size_t k = 0; k < part.size(); ++k) part[k] = values[k].imag();
            append(*signal.imaginary, axis, part.data(), signal.type);
          } else {
            append(*signal.whole, axis, values.data(), signal.type);
          }
          bytes_ += values.size() * (sizeof(Value) + sizeof(double));
        },
        columns[i]);
  }
  runs_.back().samples += axis.size();
  progress_(bytes_);
}

void Recorder::endRun() {
  signals_.clear();
}

std::string Recorder::nameOf(const formats::RunInfo& run) const {
  if (runName_.empty()) {
    const bool isQualified = !run.plot.empty() && qualified_.contains(run.name);
    const std::string file = std::filesystem::path(provenance_.file).filename().string();
    return isQualified ? file + ": " + run.name : run.name;
  }
  return summary_.runs.size() == 1 ? runName_ : runName_ + ": " + run.name;
}

void Recorder::describeRun(const formats::RunInfo& run) {
  run_->setName(text::toWide(nameOf(run)));
  run_->setDescription(text::toWide(run.title));
  run_->setStartTime(run.first);
  run_->setStopTime(run.last);
  if (run.date) run_->setDate(*run.date);

  const auto note = [this](const char* name, const std::string& value) {
    if (!value.empty()) run_->setMetaData(name, value);
  };
  note(kAxisName, run.axis.name);
  note(kAxisUnit, run.axis.unit);
  note(kImportPlot, run.plot);
  if (run.step) run_->setMetaData(kImportStep, static_cast<long long>(*run.step));
  note(kImportFormat, summary_.format);
  note(kImportFile, provenance_.file);
  run_->setMetaData(kImportBytes, static_cast<long long>(provenance_.sizeBytes));
  note(kImportHash, provenance_.sha256);
  note(kImportOptions, provenance_.options);
}

std::unique_ptr<Signal> Recorder::newSignal(const std::string& name,
                                            const formats::SignalInfo& info,
                                            const formats::RunInfo& run) {
  auto signal = std::make_unique<Signal>(manager_);
  signal->beginBulkPropertyUpdate();
  signal->setName(text::toWide(name));
  signal->setDataSource(text::toWide(info.origin));
  signal->setTimeSource(text::toWide(run.axis.name));
  signal->setSourceType(Signal::Imported);
  signal->setInterpMethod(info.type == formats::ValueType::kDouble ? strings::Linear
                                                                   : strings::ZOH);
  signal->commitBulkPropertyUpdate();
  signal->setUnits(text::toWide(info.unit));

  long long handle = 0;
  DataTypeUtil::getBuiltInDataTypeHandle(dataTypeOf(info.type), manager_, handle);
  bool found = false;
  const std::unique_ptr<ObjectRef> type =
      manager_.findObject(static_cast<int>(handle), strings::DataType, found);
  if (found) signal->setDataType(*type);
  return signal;
}

Recorder::StoredSignal Recorder::storeSignal(const formats::SignalInfo& info,
                                             const formats::RunInfo& run) {
  StoredSignal stored{dataTypeOf(info.type), newSignal(info.name, info, run), nullptr, nullptr};
  if (info.isComplex) {
    stored.whole->setComplexity(complexity::complex);
    const auto parent = boost::shared_ptr<Signal>(
        Signal::getSignalFromID(manager_, stored.whole->getID()).release());
    stored.real = newSignal(info.name, info, run);
    stored.real->setParent(parent);
    stored.imaginary = newSignal(info.name, info, run);
    stored.imaginary->setParent(parent);
    stored.imaginary->markAsImagPart();
    SignalCreationUtil::nameParts(*stored.whole);
  }
  run_->addElement(*stored.whole);
  return stored;
}

std::uint64_t sampleBytes(const formats::Summary& summary) {
  std::uint64_t bytes = 0;
  for (const formats::RunInfo& run : summary.runs) bytes += run.rows * bytesOfRow(run);
  return bytes;
}

}  // namespace vela::tool
