#include "signalcreationutil.h"

#include <gmock/gmock.h>

#include "objects/find.h"
#include "objects/set.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Created = std::vector<SignalCreationUtil::Expansion>;
using SignalPtr = boost::shared_ptr<Signal>;

class SignalCreationTest : public test::SignalTest {
 protected:
  SignalPtr create(const std::vector<unsigned>& dims, complexity parts = complexity::real,
                   const long long* parent = nullptr) {
    return SignalCreationUtil::createSignal(*manager_, parent, dimsMode::fixed, dims, parts,
                                            sampleTimeContinuity::discrete, doubleType(),
                                            created_);
  }
  long long doubleType() {
    long long type = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, *manager_, type);
    return type;
  }
  Signal signal(long long id) {
    return Signal(std::move(*Signal::getSignalFromID(*manager_, static_cast<int>(id))));
  }
  int signalCount() { return countObjects(*manager_, strings::Signal, {}); }

  Created created_;
};

TEST_F(SignalCreationTest, ARealScalarIsOneSignal) {
  const SignalPtr scalar = create({1});
  EXPECT_THAT(created_, IsEmpty());
  EXPECT_EQ(signalCount(), 1);
  EXPECT_EQ(state(*scalar, strings::HasDataHierarchy), 0);
  EXPECT_EQ(scalar->getDataTypeLabel(), "double");
  EXPECT_EQ(scalar->getSignalSourceID(), 0);
  append(*scalar, {1, 2});
  EXPECT_THAT(values(*scalar), ElementsAre(1, 2));
}

TEST_F(SignalCreationTest, InterpolatesWhatIsContinuous) {
  const auto interpolation = [&](sampleTimeContinuity continuity) {
    return SignalCreationUtil::createSignal(*manager_, nullptr, dimsMode::fixed, {1},
                                            complexity::real, continuity, doubleType(),
                                            created_)
        ->getInterpMethod();
  };
  EXPECT_EQ(interpolation(sampleTimeContinuity::continuous), "linear");
  EXPECT_EQ(interpolation(sampleTimeContinuity::discrete), "zoh");
}

TEST_F(SignalCreationTest, AComplexScalarHasARealAndAnImaginaryPart) {
  const SignalPtr parent = create({}, complexity::complex);
  ASSERT_EQ(created_.size(), 1);
  EXPECT_EQ(created_[0].get<0>(), parent->getID());
  EXPECT_EQ(created_[0].get<2>(), ContainerType::Complex);
  const std::vector<long long> ids = created_[0].get<1>();
  ASSERT_EQ(ids.size(), 2);
  EXPECT_EQ(state(*parent, strings::HasDataHierarchy), 1);
  EXPECT_FALSE(Signal::isLeafSignal(*manager_, parent->getID()));

  parent->setName(L"u");
  SignalCreationUtil::nameParts(*parent);
  Signal real = signal(ids[0]), imaginary = signal(ids[1]);
  EXPECT_EQ(real.getName(), L"u (real)");
  EXPECT_EQ(imaginary.getName(), L"u (imaginary)");
  EXPECT_FALSE(real.getIsImagPartOfComplex());
  EXPECT_TRUE(imaginary.getIsImagPartOfComplex());
  for (Signal* part : {&real, &imaginary}) {
    EXPECT_EQ(part->getDataTypeLabel(), "double");
    EXPECT_EQ(part->getComplexity(), complexity::real);
    EXPECT_THAT(part->getDimensions(), ElementsAre(1));
    EXPECT_EQ(part->getInterpMethod(), "zoh");
    append(*part, {1, 2});
    EXPECT_THAT(values(*part), ElementsAre(1, 2));
  }
}

TEST_F(SignalCreationTest, AMatrixHasAChildForEachElementFirstDimensionFastest) {
  const SignalPtr matrix = create({2, 3});
  ASSERT_EQ(created_.size(), 1);
  EXPECT_EQ(created_[0].get<2>(), ContainerType::Channels);
  std::vector<std::vector<unsigned>> channels;
  for (const long long id : created_[0].get<1>()) {
    channels.push_back(signal(id).getChannel());
    EXPECT_THAT(signal(id).getDimensions(), ElementsAre(2, 3));
    EXPECT_EQ(signal(id).getDataTypeLabel(), "double");
  }
  EXPECT_THAT(channels, ElementsAre(ElementsAre(1, 1), ElementsAre(2, 1), ElementsAre(1, 2),
                                    ElementsAre(2, 2), ElementsAre(1, 3), ElementsAre(2, 3)));
}

TEST_F(SignalCreationTest, EveryLeafOfAComplexMatrixIsAReadableRealScalar) {
  const SignalPtr matrix = create({2, 2}, complexity::complex);
  Set run(*manager_, true);
  run.addElement(*matrix);
  ASSERT_EQ(created_.size(), 5);
  EXPECT_EQ(created_[0].get<0>(), matrix->getID());
  for (std::size_t k = 1; k < 5; ++k) {
    EXPECT_EQ(created_[k].get<0>(), created_[0].get<1>()[k - 1]);
    EXPECT_EQ(created_[k].get<2>(), ContainerType::Complex);
  }
  const std::vector<int> leaves = run.getSignalIDs(Set::SignalQueryType::leaf);
  ASSERT_EQ(leaves.size(), 8);
  for (const int id : leaves) {
    Signal leaf = signal(id);
    EXPECT_EQ(leaf.getComplexity(), complexity::real);
    append(leaf, {1, 2});
    EXPECT_THAT(values(leaf), ElementsAre(1, 2));
  }
}

TEST_F(SignalCreationTest, ClassifiedTypesAreNotExpanded) {
  long long fixed = 0;
  DataTypeUtil::createFixedPointDataType_BinaryPointScaling(0, 1, 16, 4, *manager_, fixed);
  const int before = signalCount();
  SignalCreationUtil::createSignal(*manager_, nullptr, dimsMode::fixed, {3}, complexity::real,
                                   sampleTimeContinuity::discrete, fixed, created_);
  EXPECT_THAT(created_, IsEmpty());
  EXPECT_EQ(signalCount(), before + 1);
}

TEST_F(SignalCreationTest, GrowsABusBelowItsRootAndInItsRun) {
  const long long root =
      SignalCreationUtil::createHierarchicalSignal(*manager_, nullptr, dimsMode::fixed, {1});
  Set run(*manager_, true);
  run.addElement(signal(root));
  const SignalPtr vector = create({2}, complexity::real, &root);
  bool found = false;
  EXPECT_EQ(vector->getParent(found)->getID(), root);
  EXPECT_EQ(state(signal(root), strings::HasDataHierarchy), 1);
  EXPECT_EQ(run.getSignalIDs(Set::SignalQueryType::all).size(), 4);
  EXPECT_EQ(run.getNumberOfLeafSignals(), 2);
}

TEST_F(SignalCreationTest, LeavesNothingBehindWhenRefused) {
  const long long nobody = 123456;
  const auto createWith = [&](const std::vector<unsigned>& dims, const long long* parent,
                              long long type) {
    return raisedBy([&] {
      SignalCreationUtil::createSignal(*manager_, parent, dimsMode::fixed, dims,
                                       complexity::complex, sampleTimeContinuity::discrete,
                                       type, created_);
    });
  };
  const std::vector<std::vector<unsigned>> shapes = {{0}, {2, 0}, {65536, 65536}, {1000001}};
  for (const auto& dims : shapes)
    EXPECT_EQ(createWith(dims, nullptr, doubleType()), "nexstore:nex:InvalidDimensions");
  EXPECT_EQ(createWith({2}, &nobody, doubleType()), "nexstore:nex:InvalidData");
  EXPECT_EQ(createWith({2}, nullptr, nobody), "nexstore:nex:InvalidData");
  EXPECT_EQ(createWith({2}, nullptr, (1LL << 32) + doubleType()), "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] {
              SignalCreationUtil::createHierarchicalSignal(*manager_, &nobody, dimsMode::fixed,
                                                           {});
            }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(signalCount(), 0);
  EXPECT_THAT(created_, IsEmpty());
}

}  // namespace
}  // namespace vela
