#include <gmock/gmock.h>

#include "objects/find.h"
#include "objects/set.h"
#include "signalcreationutil.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;
using ::testing::ElementsAre;
using SignalPtr = boost::shared_ptr<Signal>;

class SignalMergeTest : public test::SignalTest {
 protected:
  SignalPtr with(const std::vector<double>& times, const std::vector<double>& values) {
    SignalPtr signal(new Signal(*manager_));
    append(*signal, times, values);
    return signal;
  }
  SignalPtr with(const std::vector<double>& times) { return with(times, times); }
  SignalPtr handle(int id) {
    return SignalPtr(Signal::getSignalFromID(*manager_, id).release());
  }
  std::vector<SignalPtr> childrenOf(const Signal& signal) {
    boost::ptr_vector<ObjectRef> objects;
    signal.getChildren(objects);
    std::vector<SignalPtr> children;
    for (const ObjectRef& object : objects) children.push_back(handle(object.getObjectID()));
    return children;
  }
  /// Its parts hold `first` and `first` + 0.5 at `time`.
  SignalPtr complexSignal(double time, double first) {
    long long type = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, *manager_, type);
    std::vector<SignalCreationUtil::Expansion> created;
    const SignalPtr top = SignalCreationUtil::createSignal(
        *manager_, nullptr, dimsMode::fixed, {1}, complexity::complex,
        sampleTimeContinuity::discrete, type, created);
    double value = first;
    for (const SignalPtr& part : childrenOf(*top)) {
      append(*part, {time}, {value});
      value += 0.5;
    }
    return top;
  }
  /// A bus of two elements, kept in records of two numbers.
  SignalPtr bus(double time, const std::vector<double>& record,
                const std::vector<std::wstring>& names = {L"a", L"b"}) {
    SignalPtr root(new Signal(*manager_));
    root->addData(record.data(), &time, dtypeNull, nullptr, 1, 16, nullptr);
    for (int i = 0; i < 2; ++i) {
      Signal leaf = leafOf(*root, 8, 16, 8 * i, dtypeDouble);
      leaf.setName(names[static_cast<std::size_t>(i)]);
      leaf.setParent(root);
    }
    return root;
  }
  int signalCount() { return countObjects(*manager_, strings::Signal, {}); }
};

TEST_F(SignalMergeTest, SamplesComeInTimeOrder) {
  const SignalPtr target = with({0, 1, 3, 3, 5}, {0, 1, 3, 3.5, 5});
  const SignalPtr source = with({1, 2, 3, 9}, {10, 20, 30, 90});
  Signal::mergeSignals(target, source);
  EXPECT_THAT(times(*target), ElementsAre(0, 1, 1, 2, 3, 3, 3, 5, 9));
  EXPECT_THAT(values(*target), ElementsAre(0, 1, 10, 20, 3, 3.5, 30, 5, 90));
  EXPECT_TRUE(target->getHasDuplicateTimes());
  EXPECT_EQ(target->getDataRange().maxValue, 90);
  EXPECT_EQ(Signal::getSignalFromID(*manager_, source->getID()), nullptr);
}

TEST_F(SignalMergeTest, NoSampleIsLostWhereSteppedRunsBegin) {
  Set run(*manager_, true);
  run.setStartTime(0);
  run.setStepperInterval(2);
  const SignalPtr target = with({-1, 0.5, 1});
  run.addElement(*target);
  Signal::mergeSignals(target, with({0}));
  EXPECT_THAT(times(*target), ElementsAre(-1, 0, 0.5, 1));
}

TEST_F(SignalMergeTest, TreesOfOneShapeMergeLeafByLeaf) {
  const SignalPtr complexTarget = complexSignal(1, 10);
  Signal::mergeSignals(complexTarget, complexSignal(0, 20));
  const auto parts = childrenOf(*complexTarget);
  EXPECT_THAT(values(*parts[0]), ElementsAre(20, 10));
  EXPECT_THAT(values(*parts[1]), ElementsAre(20.5, 10.5));

  const SignalPtr busTarget = bus(1, {1, 2});
  Signal::mergeSignals(busTarget, bus(0, {3, 4}));
  const auto elements = childrenOf(*busTarget);
  EXPECT_THAT(values(*elements[0]), ElementsAre(3, 1));
  EXPECT_THAT(values(*elements[1]), ElementsAre(4, 2));
  EXPECT_EQ(signalCount(), 6);
}

TEST_F(SignalMergeTest, RefusesWhatDoesNotFitAndChangesNothing) {
  const SignalPtr target = with({0, 1});
  const SignalPtr integers(new Signal(*manager_));
  const std::vector<int> numbers = {1, 2};
  const std::vector<double> at = {0, 1};
  integers->addData(numbers.data(), at.data(), dtypeInt32, nullptr, 2, 0, nullptr);
  const SignalPtr leaf(new Signal(leafOf(*target, 8, 8, 0, dtypeDouble)));
  const SignalPtr child = with({5});
  child->setParent(target);
  const SignalPtr family = with({6});
  with({7})->setParent(family);
  const SignalPtr streaming = with({8});
  streaming->setIsActivelyStreaming(true);
  const SignalPtr plain = with({9});
  struct Case {
    const char* what;
    SignalPtr target, source;
    const char* id = "nexstore:nex:InvalidData";
  };
  for (const Case& c :
       {Case{"itself", target, target}, Case{"another type", plain, integers},
        Case{"samples of somebody else", plain, leaf}, Case{"a descendant", target, child},
        Case{"an ancestor", child, target}, Case{"children of its own", plain, family},
        Case{"nothing", target, nullptr},
        Case{"another order", bus(0, {1, 2}), bus(1, {3, 4}, {L"b", L"a"})},
        Case{"being written", plain, streaming, "nexstore:nex:DeleteStreamingSignal"}}) {
    SCOPED_TRACE(c.what);
    const int before = signalCount();
    EXPECT_EQ(raisedBy([&] { Signal::mergeSignals(c.target, c.source); }), c.id);
    EXPECT_EQ(signalCount(), before);
  }
  EXPECT_THAT(times(*target), ElementsAre(0, 1));
  EXPECT_THAT(times(*plain), ElementsAre(9));
}

}  // namespace
}  // namespace vela
