// Numbers that change their class.
#include "scripting/conversion.h"

#include <cmath>

#include "scriptingtest.h"

namespace vela {
namespace {

using host::ArrayClass;
using host::HostArray;
using test::idOf;

constexpr ArrayClass kClasses[] = {ArrayClass::real64, ArrayClass::real32, ArrayClass::int8,
                                   ArrayClass::uint8,  ArrayClass::int16,  ArrayClass::uint16,
                                   ArrayClass::int32,  ArrayClass::uint32, ArrayClass::int64,
                                   ArrayClass::uint64, ArrayClass::logical};

/// Numbers around every power of two, and what lies between whole ones. A long double holds
/// each of them, and all 64-bit integers, exactly.
std::vector<long double> numbers() {
  std::vector<long double> all = {0, 0.5L, -0.5L, 1.5L, 0.1L};
  for (int exponent = 0; exponent <= 64; ++exponent) {
    const long double power = std::ldexp(1.0L, exponent);
    for (const long double number : {power - 1, power, power + 1}) {
      all.push_back(number);
      // Whole numbers have no negative zero.
      if (number != 0) all.push_back(-number);
    }
  }
  return all;
}

template <class T>
HostArray listOf(const std::vector<long double>& values) {
  std::vector<T> list;
  for (const long double value : values) list.push_back(static_cast<T>(value));
  return HostArray::list(std::move(list));
}

HostArray arrayOf(ArrayClass cls, const std::vector<long double>& values) {
  switch (cls) {
    case ArrayClass::real64:
      return listOf<double>(values);
    case ArrayClass::real32:
      return listOf<float>(values);
    case ArrayClass::int8:
      return listOf<std::int8_t>(values);
    case ArrayClass::uint8:
      return listOf<std::uint8_t>(values);
    case ArrayClass::int16:
      return listOf<std::int16_t>(values);
    case ArrayClass::uint16:
      return listOf<std::uint16_t>(values);
    case ArrayClass::int32:
      return listOf<std::int32_t>(values);
    case ArrayClass::uint32:
      return listOf<std::uint32_t>(values);
    case ArrayClass::int64:
      return listOf<std::int64_t>(values);
    case ArrayClass::uint64:
      return listOf<std::uint64_t>(values);
    default:
      return HostArray::scalar(values.front() != 0).withRank(1);
  }
}

/// Whether a number can be of a class, told by limits alone.
bool canBe(ArrayClass cls, long double number) {
  const auto isWholeWithin = [&](long double lowest, long double highest) {
    return number == std::trunc(number) && number >= lowest && number <= highest;
  };
  const auto integer = [&]<class T>(T) {
    return isWholeWithin(static_cast<long double>(std::numeric_limits<T>::min()),
                         static_cast<long double>(std::numeric_limits<T>::max()));
  };
  switch (cls) {
    case ArrayClass::real64:
      return static_cast<long double>(static_cast<double>(number)) == number;
    case ArrayClass::real32:
      return static_cast<long double>(static_cast<float>(number)) == number;
    case ArrayClass::int8:
      return integer(std::int8_t());
    case ArrayClass::uint8:
      return integer(std::uint8_t());
    case ArrayClass::int16:
      return integer(std::int16_t());
    case ArrayClass::uint16:
      return integer(std::uint16_t());
    case ArrayClass::int32:
      return integer(std::int32_t());
    case ArrayClass::uint32:
      return integer(std::uint32_t());
    case ArrayClass::int64:
      return integer(std::int64_t());
    case ArrayClass::uint64:
      return integer(std::uint64_t());
    default:
      return isWholeWithin(0, 1);
  }
}

TEST(ConversionTest, KeepsEveryNumberExactlyOrRefusesIt) {
  for (const ArrayClass from : kClasses) {
    for (const long double number : numbers()) {
      if (!canBe(from, number)) continue;
      const HostArray given = arrayOf(from, {number});
      for (const ArrayClass to : kClasses) {
        SCOPED_TRACE(given.describe() + " " + std::to_string(number) + " to " +
                     std::string(host::arrayClassName(to)));
        const bool isWholeClass = to != ArrayClass::real64 && to != ArrayClass::real32;
        const std::string expected = canBe(to, number) ? ""
                                     : isWholeClass && number != std::trunc(number)
                                         ? "nexstore:nex:IntegerExpected"
                                         : "nexstore:nex:InvalidData";
        HostArray made;
        EXPECT_EQ(idOf([&] { made = scripting::converted(given, to, "test"); }), expected);
        if (expected.empty()) {
          EXPECT_EQ(made, arrayOf(to, {number}));
        }
      }
    }
  }
}

TEST(ConversionTest, NaNAndInfinityStayAmongReals) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  const HostArray reals = HostArray::list(std::vector<double>{nan, infinity, -infinity});
  const HostArray singles = scripting::converted(reals, ArrayClass::real32, "test");
  EXPECT_TRUE(std::isnan(singles.values<float>()[0]));
  EXPECT_EQ(singles.values<float>()[2], -std::numeric_limits<float>::infinity());
  for (const ArrayClass cls : kClasses) {
    if (cls == ArrayClass::real64 || cls == ArrayClass::real32) continue;
    const auto convert = [&](double number) {
      return idOf([&] { scripting::converted(HostArray::scalar(number), cls, "test"); });
    };
    EXPECT_EQ(convert(nan), "nexstore:nex:IntegerExpected");
    EXPECT_EQ(convert(infinity), "nexstore:nex:InvalidData");
  }
}

TEST(ConversionTest, TellsWhichNumberIsWrong) {
  try {
    scripting::converted(HostArray::list(std::vector<double>{1, 2, 300}), ArrayClass::int8,
                         "x");
    FAIL();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("number 2 (300)"));
  }
}

}  // namespace
}  // namespace vela
