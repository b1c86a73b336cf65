#include "bench/velastore.h"

#include <limits>

#include "text/utf8.h"

namespace {

// Code of the built-in type "double".
constexpr int kDouble = 0;

}  // namespace

Vela::Vela(const std::string& path) : manager_(text::toWide(path)) {
  manager_.initializeObjectManager("", "");
}

void Vela::createRun(const std::string& name) {
  run_ = std::make_unique<vela::Set>(manager_, true);
  run_->setName(text::toWide(name));
}

Vela::Id Vela::createSignal(const std::string& name) {
  if (!run_) createRun("run");
  Id signal(new vela::Signal(manager_));
  signal->setName(text::toWide(name));
  run_->addElement(*signal);
  return signal;
}

void Vela::addRunsOfInstance(long long instance, std::int64_t count) {
  vela::ObjectManager other(manager_.getDatabaseLocation());
  other.setInstanceID(static_cast<unsigned long long>(instance));
  other.initializeObjectManager("", "");
  other.beginTransaction();
  for (std::int64_t i = 0; i < count; ++i) const vela::Set run(other, true);
  other.commitTransaction();
  other.setInstanceClosed();
}

void Vela::importRuns(long long, long long) {
  vela::Set::importClosedInstances(manager_);
}

void Vela::append(const Id& signal, std::span<const double> times,
                  std::span<const double> values) {
  vela::Signal::setMinimumChunkNumBytes(0);
  signal->addData(values.data(), times.data(), kDouble, nullptr,
                  static_cast<unsigned>(times.size()), sizeof(double), nullptr);
}

void Vela::appendMerging(const Id& signal, double time, double value,
                         std::size_t minimumChunkBytes) {
  vela::Signal::setMinimumChunkNumBytes(static_cast<int>(minimumChunkBytes));
  signal->addData(&value, &time, kDouble, nullptr, 1, sizeof(double), nullptr);
}

void Vela::read(const Id& signal, std::vector<double>& times, std::vector<double>& values) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  readRange(signal, -kInfinity, kInfinity, times, values);
}

void Vela::readRange(const Id& signal, double from, double to, std::vector<double>& times,
                     std::vector<double>& values) {
  signal->readRange(from, to, [&](const vela::SampleExtent& extent) {
    times.resize(extent.samples);
    values.resize(extent.samples);
    return vela::SampleTarget{times.data(), reinterpret_cast<char*>(values.data()), nullptr};
  });
}

void Vela::save(const std::string& file) {
  manager_.save(text::toWide(file));
}

void Vela::load(const std::string& file) {
  manager_.load(text::toWide(file));
}
