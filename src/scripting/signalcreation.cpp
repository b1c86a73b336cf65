// New signals.
#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "objects/signalremoval.h"
#include "objects/strings.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/sampleclass.h"
#include "scripting/samples.h"
#include "scripting/signalinputs.h"
#include "signalcreationutil.h"

namespace vela::scripting {
namespace {

using host::HostArray;
using SignalPtr = boost::shared_ptr<Signal>;

const std::string kAdd = "add";

Int32<"signalID"> createSignal(Repository repository, RunByNumber run) {
  int id = 0;
  repository.manager.inTransaction([&] {
    const Signal signal(repository.manager);
    run->addElement(signal);
    id = signal.getID();
  });
  return {id};
}

/// A signal of the run with the parts its shape asks for.
SignalPtr newSignal(ObjectManager& manager, Set& run, const Signal* parent,
                    const std::vector<unsigned>& dims, complexity parts,
                    sampleTimeContinuity continuity, builtInDTypeId type) {
  long long dataType = 0;
  DataTypeUtil::getBuiltInDataTypeHandle(type, manager, dataType);
  const long long parentID = parent ? parent->getID() : 0;
  std::vector<SignalCreationUtil::Expansion> created;
  SignalPtr signal =
      SignalCreationUtil::createSignal(manager, parent ? &parentID : nullptr, dimsMode::fixed,
                                       dims, parts, continuity, dataType, created);
  run.addElement(*signal);
  return signal;
}

Int32<"signalID"> createDoubleScalarSignal(Repository repository, RunByNumber run) {
  int id = 0;
  repository.manager.inTransaction([&] {
    id = newSignal(repository.manager, *run, nullptr, {1}, complexity::real,
                   sampleTimeContinuity::continuous, dtypeDouble)
             ->getID();
  });
  return {id};
}

[[noreturn]] void refuse(const char* key, const std::string& reason) {
  throwScriptingError({"nexstore:nex", key}, {{"Operation", kAdd}, {"Reason", reason}});
}

bool isNothing(const HostArray& given) {
  return given.isEmpty() && !given.isText();
}

/// An empty array stands for an empty text.
std::wstring textIn(const HostArray& given, const std::string& what) {
  if (isNothing(given)) return {};
  if (!given.isText()) refuse("InvalidData", what + " is a text, not " + given.describe());
  return given.toWide();
}

/// An empty array stands for 0.
double toleranceIn(const HostArray& given) {
  if (isNothing(given)) return 0;
  const bool isReal = given.isNumeric() && !given.isComplex() && given.isScalar();
  if (!isReal) refuse("InvalidData", "a tolerance is a real number, not " + given.describe());
  return given.toDouble();
}

/// An empty array stands for 0.
int portIn(const HostArray& given) {
  if (isNothing(given)) return 0;
  const bool isReal = given.isNumeric() && !given.isComplex() && given.isScalar();
  const double number = isReal ? given.toDouble() : 0.5;
  const bool fits = number >= -0x1p31 && number < 0x1p31;
  const int port = fits ? static_cast<int>(number) : 0;
  if (port != number) {
    throwScriptingError({"nexstore:nex", "IntegerScalarExpected"},
                        {{"Operation", "add, port index"}, {"Actual", given.describe()}});
  }
  return port;
}

/// A structure, or nothing.
HostArray metadataIn(const HostArray& given) {
  if (!isNothing(given) && !(given.isStructure() && given.isScalar())) {
    refuse("InvalidData", "the metadata are one structure, not " + given.describe());
  }
  return given;
}

/// Times and values, sound in themselves.
struct GivenSamples {
  HostArray times;
  GivenValues values;
};

GivenSamples samplesIn(const HostArray& data) {
  const bool isOne = data.isStructure() && data.isScalar();
  const HostArray* const times = isOne ? data.findField("Time") : nullptr;
  const HostArray* const values = isOne ? data.findField("Data") : nullptr;
  if (!times || !values) {
    refuse("InvalidData", "the data are a structure with fields \"Time\" and \"Data\", not " +
                              data.describe());
  }
  GivenSamples samples{timesIn(*times, kAdd), GivenValues(*values, kAdd)};
  requireOneForEachTime(samples.values, samples.times.size(), kAdd);
  return samples;
}

/// Dimensions of one sample; those of the values unless others of as many elements are given,
/// or, where there are no samples, any others.
std::vector<unsigned> dimsIn(const HostArray& given, const GivenValues& values) {
  std::vector<unsigned> dims;
  std::size_t elements = 1;
  for (const std::size_t dim : values.dims()) {
    // More elements than that are refused when the signal is made.
    dims.push_back(static_cast<unsigned>(std::min<std::size_t>(dim, 1U << 31)));
    elements *= dim;
  }
  if (dims.empty()) dims = {1};
  if (isNothing(given)) return dims;
  std::vector<unsigned> wanted = countsIn(given, kAdd);
  if (values.samples() == 0) return wanted;
  std::size_t count = 1;
  for (const unsigned dim : wanted) count = std::min(count * dim, elements + 1);
  if (count != elements) {
    refuse("InvalidDimensions", "samples of " + std::to_string(elements) +
                                    " elements do not have the dimensions that are given");
  }
  return wanted;
}

/// What is written on a new signal, and on the parts it has.
struct Description {
  std::wstring units;
  std::wstring rootSource;
  std::wstring rootDataSource;
  std::wstring timeSource;
  std::wstring dataSource;
  std::wstring model;
  int port = 0;
  double absTol = 0;
  double relTol = 0;
  std::string alignment;
  std::string interpolation;

  void writeTo(Signal& signal) const {
    signal.beginBulkPropertyUpdate();
    signal.setUnits(units);
    signal.setRootSource(rootSource);
    signal.setRootDataSource(rootDataSource);
    signal.setTimeSource(timeSource);
    signal.setDataSource(dataSource);
    signal.setModel(model);
    signal.setPortIndex(port);
    signal.setAbsTol(absTol);
    signal.setRelTol(relTol);
    signal.setTimeAlignmentMethod(alignment);
    signal.setInterpMethod(interpolation);
    signal.commitBulkPropertyUpdate();
  }
};

/// What identifies a new signal.
struct Identity {
  std::wstring name;
  std::wstring blockPath;
  std::wstring sid;
  std::vector<unsigned> channel;

  void writeTo(Signal& signal) const {
    signal.setBlockPath(pathOf(blockPath));
    signal.setSID(sid);
    signal.setName(name);
    if (!channel.empty()) signal.setChannel(channel);
  }
};

void keep(Signal& signal, const HostArray& metadata) {
  if (!metadata.isStructure()) return;
  for (const std::string& name : metadata.fieldNames()) {
    signal.setMetaData(name, &metadata.field(name));
  }
}

/// Parents belong to the same run, or to none.
void requireParentOf(const Set& run, const Signal* parent) {
  const int parentRun = parent ? parent->getParentSetID() : 0;
  if (parentRun != 0 && parentRun != run.getID()) {
    refuse("InvalidData", "the parent belongs to run " + std::to_string(parentRun));
  }
}

/// Parts share the source of the signal they are parts of.
void describeParts(ObjectManager& manager, const Signal& top, const Description& description,
                   ObjectRef& dataType) {
  const int source = top.getSignalSourceID();
  for (const int id : signalsBelow(manager, top.getID())) {
    const auto signal = Signal::getSignalFromID(manager, id);
    description.writeTo(*signal);
    signal->setDataType(dataType);
    if (source != 0) signal->setSignalSourceID(source);
  }
}

SignalPtr newFamily(ObjectManager& manager, Set& run, const Signal* parent,
                    const GivenValues& values, const std::vector<unsigned>& dims,
                    const Identity& identity, const Description& description) {
  const complexity parts = values.isComplex() ? complexity::complex : complexity::real;
  SignalPtr top = newSignal(manager, run, parent, dims, parts, sampleTimeContinuity::discrete,
                            builtInTypeOf(numbersIn(values.array()).arrayClass()));
  identity.writeTo(*top);
  describeParts(manager, *top, description, *dataTypeFor(manager, values.array()));
  SignalCreationUtil::nameParts(*top);
  return top;
}

Int32<"signalID"> add(Repository repository, Any<"data"> data, Any<"units"> units,
                      Wide<"rootSource"> rootSource, Wide<"rootDataSource"> rootDataSource,
                      Wide<"timeSource"> timeSource, Any<"dataSource"> dataSource,
                      Wide<"blockPath"> blockPath, Wide<"model"> model, Wide<"name"> name,
                      Any<"dimensions"> dimensions, Any<"portIndex"> portIndex,
                      Any<"channel"> channel, Any<"sid"> sid, Any<"absTol"> absTol,
                      Any<"relTol"> relTol, Any<"timeAlignment"> timeAlignment,
                      Any<"metaData"> metaData, RunByNumber run,
                      std::optional<SignalOrNone<"parentID">> parentID,
                      std::optional<Any<"interpMethod">> interpMethod, Further) {
  const GivenSamples samples = samplesIn(data);
  const std::vector<unsigned> dims = dimsIn(dimensions, samples.values);
  const int port = portIn(portIndex);
  const Identity identity{
      name, blockPath, textIn(sid, "the block identifier"),
      isNothing(channel) ? std::vector<unsigned>() : countsIn(channel, kAdd)};
  const Description description{
      textIn(units, "the unit"),
      rootSource,
      rootDataSource,
      timeSource,
      textIn(dataSource, "the data source"),
      model,
      port,
      toleranceIn(absTol),
      toleranceIn(relTol),
      methodIn(timeAlignment, strings::Union),
      methodIn(interpMethod ? interpMethod->value : HostArray(), strings::ZOH)};
  const HostArray metadata = metadataIn(metaData);
  const Signal* const parent = parentID ? parentID->get() : nullptr;
  requireParentOf(*run, parent);

  ObjectManager& manager = repository.manager;
  int id = 0;
  manager.inTransaction([&] {
    const SignalPtr top =
        newFamily(manager, *run, parent, samples.values, dims, identity, description);
    keep(*top, metadata);
    appendSamples(streamsOf(top), samples.times, samples.values.reshaped(dims), kAdd);
    if (samples.values.array().isEnumeration()) run->setRunHasEnumSignals(true);
    id = top->getID();
  });
  return {id};
}

struct VelaRepositoryCreateSignal
    : Method<"createSignal",
             "Create a signal in a run; it takes on the type of its first samples.",
             &createSignal> {};
struct VelaRepositoryCreateDoubleScalarSignal
    : Method<"createDoubleScalarSignal",
             "Create a continuous signal of doubles, read as straight lines, in a run.",
             &createDoubleScalarSignal> {};
struct VelaRepositoryAdd
    : Method<
          "add",
          "Add a signal with its samples: \"Time\" and \"Data\" of a structure. Values of "
          "more than one dimension, or complex ones, get a signal for each element or part "
          "below it; other dimensions arrange the elements of a sample anew, first dimension "
          "fastest. An empty array leaves an input out.",
          &add, "nexstore:nex:InvalidData", "nexstore:nex:InvalidDimensions",
          "nexstore:nex:IntegerExpected", "nexstore:nex:IntegerScalarExpected"> {};

}  // namespace

void addSignalCreationMethods(Methods& methods) {
  methods.add<VelaRepositoryCreateSignal, VelaRepositoryCreateDoubleScalarSignal,
              VelaRepositoryAdd>();
}

}  // namespace vela::scripting
