// Copies of signals.
#include <deque>
#include <optional>

#include "objects/raising.h"
#include "objects/signal.h"
#include "objects/strings.h"

namespace vela {
namespace {

using SignalPtr = boost::shared_ptr<Signal>;

/// Copies rows of one class: reads the bound properties of one object, and creates another with
/// them.
class RowCopier {
 public:
  RowCopier(ObjectManager& manager, const std::string& className)
      : cls_(manager.getClass(className)),
        reader_(manager.repository()),
        writer_(cls_, manager.repository()) {
    reader_.addIDConstraint(cls_, &id_);
  }

  template <class T>
  void copy(std::deque<T>& values, std::initializer_list<const std::string*> names) {
    for (const std::string* name : names) {
      T& value = values.emplace_back();
      reader_.addResultProperty(property(*name), &value);
      writer_.setPropertyValueSource(property(*name), &value);
    }
  }
  void copyNumbers(std::initializer_list<const std::string*> names) { copy(numbers_, names); }
  void copyLongNumbers(std::initializer_list<const std::string*> names) {
    copy(longNumbers_, names);
  }
  void copyReals(std::initializer_list<const std::string*> names) { copy(reals_, names); }
  void copyNarrowTexts(std::initializer_list<const std::string*> names) {
    copy(narrowTexts_, names);
  }
  void copyTexts(std::initializer_list<const std::string*> names) { copy(texts_, names); }
  void copyReference(const std::string& name) {
    int& value = numbers_.emplace_back();
    reader_.addResultProperty(property(name), &value);
    writer_.setPropertyIDSource(property(name), &value);
  }
  void copyBlobs(std::initializer_list<const std::string*> names) {
    for (const std::string* name : names) {
      std::vector<char>& bytes = blobs_.emplace_back();
      reader_.addResultProperty(property(*name), &bytes);
      writer_.setPropertyValueSource(property(*name), &blobViews_.emplace_back());
    }
  }
  /// A reference the copy does not take from the original; the ID is read at each copy.
  void giveReference(const std::string& name, const int* id) {
    writer_.setPropertyIDSource(property(name), id);
  }
  void giveLongNumber(const std::string& name, const long long* value) {
    writer_.setPropertyValueSource(property(name), value);
  }

  /// Empty when there is no such object.
  std::optional<kodd::ObjectRef> copyOf(int id) {
    id_ = id;
    if (!raising([&](auto& diag) { return reader_.executeForOne(diag); })) return std::nullopt;
    for (std::size_t i = 0; i < blobs_.size(); ++i)
      blobViews_[i] = kodd::const_BlobDescriptor(blobs_[i].data(), blobs_[i].size());
    return raising([&](auto& diag) { return writer_.createObject(diag); });
  }

  const kodd::ClassRef& cls() const { return cls_; }

 private:
  kodd::PropertyRef property(const std::string& name) { return cls_.findProperty(name); }

  kodd::ClassRef cls_;
  int id_ = 0;
  kodd::ObjectQuery reader_;
  kodd::ObjectConstructor writer_;
  // Deques keep the addresses of what they hold.
  std::deque<int> numbers_;
  std::deque<long long> longNumbers_;
  std::deque<double> reals_;
  std::deque<std::string> narrowTexts_;
  std::deque<std::wstring> texts_;
  std::deque<std::vector<char>> blobs_;
  std::deque<kodd::const_BlobDescriptor> blobViews_;
};

/// The statements of deep copies. Bookkeeping of samples, tree, run, plots, hashes and the
/// layout of composite leaves stay behind.
struct SignalCopies : PreparedSet {
  explicit SignalCopies(ObjectManager& owner)
      : manager(owner), signals(owner, strings::Signal), sources(owner, strings::SignalSource) {
    using namespace strings;
    signals.copyNumbers({&SourceType, &PortIndex, &SupportsThinning, &IsImagPartOfComplex,
                         &IsWithinTol, &LineStyle, &Marker, &Complexity, &DimensionMode,
                         &SampleTimeContinuity, &strings::SignalID});
    signals.copyLongNumbers({&UnitsChecksum, &InstrumentedSignalUUID});
    signals.copyReals({&FixedIncr, &Abs, &Rel});
    signals.copyNarrowTexts({&InterpSetting, &TimeAlignmentMethod, &SamplingMode});
    signals.copyTexts({&Name, &DataSource, &TimeSource, &RootSource, &RootDataSource, &Model,
                       &HierarchyReference, &LeafBusSignal, &AlignedBy});
    signals.copyBlobs({&Dimensions, &Channel, &Color});
    signals.copyReference(DataTypeID);
    signals.giveReference(SourceSignal, &original);
    signals.giveReference(SignalSourceID, &source);
    signals.giveLongNumber(InstanceID, &instanceID);
    sources.copyNumbers({&OrderingIndex});
    sources.copyLongNumbers({&BlockPathHash});
    sources.copyTexts({&SID});
    sources.copyBlobs({&BlockPath});
  }

  SignalPtr copyOf(const Signal& signal) {
    // Through the handle, which knows when the signal is gone.
    const int sourceID = signal.getSignalSourceID();
    original = signal.getID();
    instanceID = manager.getInstanceID();
    const auto ownSource = sources.copyOf(sourceID);
    source = ownSource ? ownSource->id() : 0;
    std::optional<kodd::ObjectRef> copy = signals.copyOf(original);
    return SignalPtr(new Signal(std::make_unique<ObjectRef>(
        std::move(copy.value()), signals.cls(), strings::Signal, manager)));
  }

  ObjectManager& manager;
  int original = 0;
  int source = 0;
  long long instanceID = 0;
  RowCopier signals;
  RowCopier sources;
};

}  // namespace

SignalPtr Signal::createDeepCopy(CopyMode mode) {
  SignalPtr copy;
  manager().inTransaction([&] {
    copy = manager().prepared<SignalCopies>().copyOf(*this);
    if (mode == CopyMode::WithData) copyChunksTo(copy);
  });
  return copy;
}

bool Signal::isEnum() const {
  return getDataTypeLabel() == strings::Enumeration;
}

}  // namespace vela
