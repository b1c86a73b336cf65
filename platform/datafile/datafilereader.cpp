#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <optional>
#include <utility>

#include "datafile/beginnings.h"
#include "datafile/datafile.h"
#include "datafile/readfailure.h"
#include "datafile/remotecontents.h"
#include "host/arraycodec.h"
#include "host/interrupt.h"
#include "kodiag/diagnostics.h"
#include "kodiag/message.h"

namespace datafile {
namespace {

/// What follows the beginning of a variable comes in pieces, each requested while the one
/// before it is taken apart.
constexpr std::uint64_t kPieceBytes = std::uint64_t{1} << 20;

/// What is read of a variable whose end is not needed.
constexpr std::uint64_t kBeginningBytes = std::uint64_t{32} << 10;

static_assert(kPieceBytes <= kMostRequestBytes);

struct NamedFile {
  Descriptor descriptor;
  std::uint64_t bytes;
};

/// Names a regular file without opening it: to close an open one frees the locks that this
/// process has on it when it is a repository.
NamedFile nameFile(const std::string& path) {
  const auto refuse = [](const char* reason) {
    throw ReadFailure(ReadFailure::Kind::unreadable, reason);
  };
  if (path.find('\0') != std::string::npos) refuse("its name holds a zero character");
  Descriptor file(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (file < 0 || fstat(file, &status) != 0) refuse(std::strerror(errno));
  if (!S_ISREG(status.st_mode)) refuse("it is no regular file");
  return {std::move(file), static_cast<std::uint64_t>(status.st_size)};
}

RemoteContents readContents(const std::string& path) {
  const NamedFile file = nameFile(path);
  return {file.descriptor, file.bytes};
}

[[noreturn]] void raise(const std::string& path, const ReadFailure& failure) {
  const bool isUnreadable = failure.kind() == ReadFailure::Kind::unreadable;
  kodiag::raise({"datafile:file", isUnreadable ? "CannotRead" : "Invalid"},
                {{"Location", path}, {"Reason", failure.what()}});
}

}  // namespace

struct DataFileReader::Impl {
  std::string path;
  RemoteContents contents;
  Beginnings beginnings{contents};
  std::vector<std::uint32_t> byName;  ///< variables in the order of their names

  explicit Impl(const std::string& name) try : path(name), contents(readContents(name)) {
    byName.resize(contents.variables().size());
    std::iota(byName.begin(), byName.end(), 0U);
    std::ranges::sort(byName, {}, [&](std::uint32_t variable) { return nameOf(variable); });
  } catch (const ReadFailure& failure) {
    raise(name, failure);
  }

  [[noreturn]] void raiseDamaged(const std::string& name, const std::string& reason) const {
    kodiag::raise({"datafile:file", "Damaged"},
                  {{"Location", path}, {"Variable", name}, {"Reason", reason}});
  }

  /// Calls a function that may meet a ReadFailure.
  template <class Function>
  auto attempt(Function&& function) const {
    try {
      return function();
    } catch (const ReadFailure& failure) {
      raise(path, failure);
    }
  }

  std::string_view nameOf(std::uint32_t variable) const {
    return contents.variables()[variable].name;
  }

  /// The first of the variables whose names do not come before `name`.
  auto firstFrom(std::string_view name) const {
    return std::ranges::lower_bound(byName, name, {},
                                    [&](std::uint32_t variable) { return nameOf(variable); });
  }
  std::optional<std::uint32_t> find(std::string_view name) const {
    const auto place = firstFrom(name);
    if (place == byName.end() || nameOf(*place) != name) return std::nullopt;
    return *place;
  }
};

DataFileReader::DataFileReader(const std::string& path) : impl_(std::make_unique<Impl>(path)) {}

DataFileReader::~DataFileReader() = default;

const std::string& DataFileReader::path() const {
  return impl_->path;
}

bool DataFileReader::has(const std::string& name) const {
  return impl_->find(name).has_value();
}

std::vector<std::string> DataFileReader::names(std::string_view start) const {
  std::vector<std::string> names;
  for (auto place = impl_->firstFrom(start);
       place != impl_->byName.end() && impl_->nameOf(*place).starts_with(start); ++place) {
    names.emplace_back(impl_->nameOf(*place));
  }
  return names;
}

void DataFileReader::expect(std::span<const std::string> names, Extent extent) const {
  std::vector<std::uint32_t> variables;
  for (const std::string& name : names) {
    const std::optional<std::uint32_t> variable = impl_->find(name);
    if (variable) variables.push_back(*variable);
  }
  impl_->beginnings.expect(std::move(variables),
                           extent == Extent::all ? kPieceBytes : kBeginningBytes);
}

host::HostArray DataFileReader::get(const std::string& name) const {
  Variable variable(*this, name);
  host::HostArray array = variable.take();
  variable.finish();
  return array;
}

/// The bytes of a variable, one part of them at hand.
struct DataFileReader::Variable::Impl final : host::ByteSource {
  DataFileReader::Impl& reader;
  std::string name;
  std::uint32_t variable = 0;
  std::uint64_t end = 0;
  std::uint64_t handedOut = 0;
  std::uint64_t requested = 0;
  Part part;
  std::size_t partTaken = 0;
  std::shared_ptr<RemoteContents::Delivery> coming;
  host::ArrayDecoder decoder{*this};

  Impl(DataFileReader::Impl& owner, std::string variableName)
      : reader(owner), name(std::move(variableName)) {
    const std::optional<std::uint32_t> found = reader.find(name);
    if (!found) {
      kodiag::raise({"datafile:file", "NoSuchVariable"},
                    {{"Location", reader.path}, {"Variable", name}});
    }
    variable = *found;
    end = reader.contents.variables()[variable].bytes;
    takeBeginning();
  }

  std::uint64_t left() const override { return end - handedOut; }

  void take(void* into, std::size_t count) override {
    handedOut += count;
    for (auto* place = static_cast<char*>(into); count > 0;) {
      if (partTaken == part.bytes.size()) takeNextPart();
      const std::size_t step = std::min(count, part.bytes.size() - partTaken);
      std::memcpy(place, part.bytes.data() + partTaken, step);
      partTaken += step;
      place += step;
      count -= step;
    }
  }

  /// Runs a step of decoding; what it finds wrong is damage.
  template <class Step>
  auto decode(Step&& step) {
    try {
      return step();
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      const bool isDamage = error.message().id.component != "datafile:file";
      if (!isDamage || host::isInterruption(error)) throw;
      reader.raiseDamaged(name, error.message().text());
    }
  }

  void takeBeginning() {
    if (end == 0) return;
    part = reader.attempt([&] { return reader.beginnings.of(variable); });
    if (part.bytes.empty()) reader.raiseDamaged(name, part.delivery->reason);
    requested = part.bytes.size();
  }

  void takeNextPart() {
    reader.attempt([&] {
      if (!coming) requestNextPart();
      const auto here = std::exchange(coming, nullptr);
      requestNextPart();
      reader.contents.await(*here);
      part = {here, here->memory.bytes()};
    });
    const RemoteContents::Delivery& here = *part.delivery;
    if (here.complete == 0) reader.raiseDamaged(name, here.reason);
    partTaken = 0;
  }

  void requestNextPart() {
    const std::uint64_t length = std::min(kPieceBytes, end - requested);
    if (length > 0) coming = reader.contents.request({{variable, requested, length}});
    requested += length;
  }

  void checkEnd() {
    if (left() > 0) reader.raiseDamaged(name, "something is left behind the array");
  }
};

DataFileReader::Variable::Variable(const DataFileReader& reader, const std::string& name)
    : impl_(std::make_unique<Impl>(*reader.impl_, name)) {}

DataFileReader::Variable::~Variable() = default;

std::vector<std::string> DataFileReader::Variable::beginStructure() {
  return impl_->decode([&] { return impl_->decoder.takeStructureHead(); });
}

std::size_t DataFileReader::Variable::beginCell() {
  return impl_->decode([&] { return impl_->decoder.takeCellHead(); });
}

host::HostArray DataFileReader::Variable::take() {
  return impl_->decode([&] { return impl_->decoder.take(); });
}

void DataFileReader::Variable::finish() {
  impl_->checkEnd();
}

}  // namespace datafile
