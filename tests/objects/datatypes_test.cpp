#include "objects/datatypes.h"

#include <boost/crc.hpp>
#include <limits>

#include "objects/find.h"
#include "objects/identifiers.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

using test::raisedBy;

class DataTypesTest : public test::ManagerTest {
 protected:
  long long builtIn(builtInDTypeId type) {
    long long handle = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(type, *manager_, handle);
    return handle;
  }
  long long enumeration(const std::string& name, const EnumerationDefinition& definition,
                        const std::string& storage) {
    long long handle = 0;
    DataTypeUtil::createEnumDataType(name, definition, storage, *manager_, handle);
    return handle;
  }
  long long alias(const std::string& name, builtInDTypeId type) {
    long long handle = 0;
    DataTypeUtil::createAliasedDataType(name, type, *manager_, handle);
    return handle;
  }
  long long slopeBias(double slope, int exponent, double bias) {
    long long handle = 0;
    DataTypeUtil::createFixedPointDataType_SlopeBiasScaling(1, 1, 16, slope, exponent, bias,
                                                            *manager_, handle);
    return handle;
  }
  std::unique_ptr<ObjectRef> typeObject(long long handle) {
    bool found = false;
    return manager_->findObject(static_cast<int>(handle), strings::DataType, found);
  }
  std::string effective(long long handle) {
    return DataTypeUtil::getEffectiveType(*typeObject(handle));
  }

  const EnumerationDefinition colours_ = {{2, "red"}, {-1, "green"}, {2, "crimson"}};
};

TEST_F(DataTypesTest, BuiltInTypesAreStoredOnce) {
  EXPECT_EQ(builtIn(dtypeInt16), builtIn(dtypeInt16));
  EXPECT_NE(builtIn(dtypeInt16), builtIn(dtypeUInt16));
  EXPECT_EQ(builtIn(static_cast<builtInDTypeId>(4711)), builtIn(dtypeDouble));
  EXPECT_EQ(effective(builtIn(dtypeNull)), "Null");
  EXPECT_EQ(effective(builtIn(dtypeBoolean)), "boolean");
  EXPECT_EQ(typeObject(builtIn(dtypeInt64))->getPropertyStdString(strings::Classification), "");
}

// A rolled-back creation must not leave a handle behind anywhere.
TEST_F(DataTypesTest, TypesOfAFailedUnitAreMadeAgain) {
  EXPECT_THROW(manager_->inTransaction([&] {
    builtIn(dtypeSingle);
    enumeration("Colour", colours_, "int8");
    throw std::runtime_error("no");
  }),
               std::exception);
  EXPECT_EQ(effective(builtIn(dtypeSingle)), "single");
  EXPECT_EQ(effective(enumeration("Colour", colours_, "int8")), "enumeration");
}

TEST_F(DataTypesTest, AnAliasStandsForItsBuiltInTypeAndIsNotTakenForOne) {
  const long long speed = alias("speed_T", dtypeInt16);
  EXPECT_EQ(alias("speed_T", dtypeInt16), speed);
  EXPECT_NE(alias("speed_T", dtypeInt32), speed);
  EXPECT_EQ(effective(speed), "int16");
  const long long misnomer = alias("double", dtypeUInt8);
  EXPECT_NE(builtIn(dtypeDouble), misnomer);
  EXPECT_EQ(effective(misnomer), "uint8");
}

TEST_F(DataTypesTest, EqualFixedPointTypesShareOneObject) {
  const auto binary = [&](int wordLength, int fraction) {
    long long handle = 0;
    DataTypeUtil::createFixedPointDataType_BinaryPointScaling(0, 1, wordLength, fraction,
                                                              *manager_, handle);
    return handle;
  };
  const auto unspecified = [&](int wordLength) {
    long long handle = 0;
    DataTypeUtil::createFixedPointDataType_UnspecifiedScaling(0, 1, wordLength, *manager_,
                                                              handle);
    return handle;
  };
  EXPECT_EQ(binary(16, 4), binary(16, 4));
  EXPECT_NE(binary(16, 4), binary(4, 16));
  EXPECT_EQ(unspecified(16), unspecified(16));
  EXPECT_EQ(slopeBias(1.5, -3, 0.25), slopeBias(1.5, -3, 0.25));
  EXPECT_NE(slopeBias(1.5, -3, 0.25), slopeBias(0.25, -3, 1.5));
  EXPECT_EQ(effective(binary(16, 4)), "fxp_binary_point_scaling");
  EXPECT_EQ(effective(unspecified(16)), "fxp_unspecified_scaling");
  EXPECT_EQ(effective(slopeBias(1.5, -3, 0.25)), "fxp_slope_bias_scaling");

  const auto definition = findFirst(*manager_, strings::FixedPointSlopeBiasScaling,
                                    {equals(strings::FixedExponent, -3)});
  EXPECT_EQ(definition->getPropertyReal64(strings::SlopeAdjustmentFactor), 1.5);
  EXPECT_EQ(definition->getPropertyReal64(strings::Bias), 0.25);
}

TEST_F(DataTypesTest, RefusesAFixedPointScalingThatIsNoNumber) {
  const std::size_t before = count(strings::DataType);
  EXPECT_EQ(raisedBy([&] { slopeBias(std::numeric_limits<double>::quiet_NaN(), 0, 0); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(count(strings::DataType), before);
}

TEST_F(DataTypesTest, EnumerationsAreSharedWithinAnInstance) {
  const long long first = enumeration("Colour", colours_, "int8");
  EXPECT_EQ(enumeration("Colour", colours_, "int8"), first);
  EXPECT_EQ(count(strings::ClassDefinition), 1u);
  EXPECT_EQ(count(strings::DataType), 1u);
  EXPECT_EQ(effective(first), "enumeration");
  EXPECT_EQ(findFirst(*manager_, strings::ClassDefinition, {})
                ->getPropertyStdString(strings::Classification),
            "enumeration");

  manager_->setInstanceID(77);
  EXPECT_NE(enumeration("Colour", colours_, "int8"), first);
  EXPECT_EQ(count(strings::ClassDefinition), 2u);
}

// Nothing separates name, storage type and labels in what the checksum is taken of.
TEST_F(DataTypesTest, EnumerationsWithOneCheckSumAreToldApart) {
  ASSERT_EQ(ClassDef::checkSumOf("Xu", colours_, "int8"),
            ClassDef::checkSumOf("X", colours_, "uint8"));
  EXPECT_NE(enumeration("Xu", colours_, "int8"), enumeration("X", colours_, "uint8"));
}

TEST_F(DataTypesTest, OtherStorageTypesMakeNoEnumeration) {
  long long handle = 4711;
  DataTypeUtil::createEnumDataType("Colour", colours_, "int64", *manager_, handle);
  EXPECT_EQ(handle, 4711);
  EXPECT_EQ(count(strings::ClassDefinition), 0u);
}

TEST_F(DataTypesTest, AnEnumerationKeepsItsOrder) {
  const ClassDef stored("Colour", colours_, "int32", *manager_);
  EXPECT_EQ(stored.getName(), "Colour");
  EXPECT_EQ(stored.getOrderedEnumerationDefinition(), colours_);
  EXPECT_THAT(
      stored.getEnumerationDefinition(),
      testing::UnorderedElementsAre(testing::Pair(2, "red"), testing::Pair(-1, "green")));
  const ClassDef empty("Nothing", {}, "int32", *manager_);
  EXPECT_TRUE(empty.getOrderedEnumerationDefinition().empty());
}

TEST_F(DataTypesTest, TheCheckSumIsTheCrcOfTheBytesSpelledOut) {
  const std::string bytes("ABint8\x02\x01\0\0x\xff\xff\xff\xffy", 16);
  boost::crc_32_type crc;
  crc.process_bytes(bytes.data(), bytes.size());
  EXPECT_EQ(ClassDef::checkSumOf("AB", {{258, "x"}, {-1, "y"}}, "int8"),
            static_cast<int>(crc.checksum()));
  // The check value of this CRC.
  EXPECT_EQ(ClassDef::checkSumOf("12345", {}, "6789"), static_cast<int>(0xCBF43926));
}

TEST(DataSize, IsThatOfTheStoredSample) {
  const std::pair<const char*, unsigned> sizes[] = {{"double", 8},
                                                    {"single", 4},
                                                    {"int8", 1},
                                                    {"uint8", 1},
                                                    {"int16", 2},
                                                    {"uint16", 2},
                                                    {"int32", 4},
                                                    {"uint32", 4},
                                                    {"int64", 8},
                                                    {"uint64", 8},
                                                    {"boolean", 1},
                                                    {"enumeration", 4},
                                                    {"fxp_binary_point_scaling", 8},
                                                    {"fxp_slope_bias_scaling", 8},
                                                    {"fxp_unspecified_scaling", 8},
                                                    {"Null", 0},
                                                    {"", 0},
                                                    {"Double", 0}};
  for (const auto& [name, bytes] : sizes)
    EXPECT_EQ(DataTypeUtil::getDataSize(name), bytes) << name;
}

TEST(IdGenerator, TheIntegerOfAUuidIsItsFirstHalfLittleEndian) {
  EXPECT_EQ(IdGenerator::getUUIdFromString("01020304-0506-0780-ffff-ffffffffffff"),
            static_cast<long long>(0x8007060504030201));
  EXPECT_THROW(IdGenerator::getUUIdFromString("01020304"), std::runtime_error);
  const boost::uuids::uuid uuid = IdGenerator::generateUUID();
  EXPECT_EQ(uuid.version(), boost::uuids::uuid::version_random_number_based);
  EXPECT_NE(IdGenerator::generateIntegerUUID(), IdGenerator::generateIntegerUUID());
}

}  // namespace
}  // namespace vela
