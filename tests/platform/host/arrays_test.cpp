#include "host/arrays.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>

#include "tests/support/throwsid.h"

namespace {

using host::ArrayClass;
using host::Dimensions;
using host::HostArray;
using vela::test::ThrowsId;

TEST(HostArray, HoldsNumbersOfEveryClassAsTheyAre) {
  const std::array<std::uint64_t, 6> big = {0, UINT64_MAX, 1, 2, 3, 4};
  const HostArray array =
      HostArray::numeric(ArrayClass::uint64, {2, 3}, std::as_bytes(std::span(big)));
  EXPECT_EQ(array.size(), 6u);
  EXPECT_EQ(array.values<std::uint64_t>()[1], UINT64_MAX);
  EXPECT_EQ(array.describe(), "a 2x3 uint64 array");
  EXPECT_EQ(HostArray::scalar<std::int8_t>(-3).toInt64(), -3);
  EXPECT_EQ(HostArray::scalar<float>(0.5F).arrayClass(), ArrayClass::real32);
  EXPECT_EQ(HostArray::scalar<unsigned short>(7).arrayClass(), ArrayClass::uint16);
  EXPECT_TRUE(HostArray::scalar(true).toBool());
  EXPECT_TRUE(HostArray::scalar(true).isLogical());
  EXPECT_FALSE(HostArray::scalar(true).isNumeric());
  EXPECT_TRUE(HostArray().isEmpty());
}

TEST(HostArray, RankTellsScalarsListsAndMatricesApart) {
  const HostArray scalar = HostArray::scalar(5);
  const HostArray list = HostArray::list(std::vector<int>{5});
  const HostArray matrix = HostArray::column(std::span<const int>(std::array{5}));
  EXPECT_EQ(scalar.rank(), 0u);
  EXPECT_EQ(list.rank(), 1u);
  EXPECT_EQ(matrix.rank(), 2u);
  EXPECT_EQ(scalar.dimensions(), list.dimensions());
  EXPECT_NE(scalar, list);
  EXPECT_NE(list, matrix);
  EXPECT_EQ(matrix.withRank(1), list);
  EXPECT_EQ(matrix.rank(), 2u);  // the copy took its elements along
  const HostArray square =
      HostArray::numeric(ArrayClass::int8, {2, 2}, std::as_bytes(std::span("abc", 4)));
  const HostArray three = HostArray::list(std::vector<int>{1, 2, 3});
  EXPECT_THAT([&] { (void)square.withRank(1); }, ThrowsId("nexstore:nex:InvalidHostArray"));
  EXPECT_THAT([&] { (void)square.withRank(3); }, ThrowsId("nexstore:nex:InvalidHostArray"));
  EXPECT_THAT([&] { (void)three.withRank(0); }, ThrowsId("nexstore:nex:InvalidHostArray"));
}

TEST(HostArray, ComplexNumbersAreNeverReadAsRealOnes) {
  const HostArray array = HostArray::scalar(std::complex<double>(1, -2));
  EXPECT_TRUE(array.isNumeric());
  EXPECT_EQ(array.complexValues<double>()[0], std::complex<double>(1, -2));
  EXPECT_EQ(array.describe(), "a 1x1 complex double array");
  for (const auto& read : std::initializer_list<std::function<void()>>{
           [&] { array.values<double>(); }, [&] { array.toDouble(); }, [&] { array.toInt64(); },
           [&] { array.toBool(); }, [&] { array.complexValues<float>(); },
           [&] { HostArray::scalar(1.0).complexValues<double>(); }}) {
    EXPECT_THAT(read, ThrowsId("nexstore:nex:HostArrayMismatch"));
  }
  EXPECT_THAT(
      [] {
        HostArray::owning(ArrayClass::int32, {1, 1}, std::vector<int>{1, 2},
                          host::Complexity::complex);
      },
      ThrowsId("nexstore:nex:InvalidHostArray"));
}

TEST(HostArray, EnumerationsAndFixedPointCarryTheirTypeAndNumbers) {
  const host::EnumerationType gears{"Gear", {{"low", 1}, {"high", -2}}};
  const HostArray samples = HostArray::list(std::vector<int>{-2, 1});
  const HostArray array = HostArray::enumeration(gears, samples);
  EXPECT_EQ(array.rank(), 1u);
  EXPECT_EQ(array.underlying(), samples);
  EXPECT_EQ(array, HostArray::enumeration(gears, HostArray::list(std::vector<int>{-2, 1})));
  EXPECT_NE(array, HostArray::enumeration({"Gear", {{"low", 1}, {"top", -2}}}, samples));
  EXPECT_FALSE(array.isNumeric());
  EXPECT_NE(HostArray::fixedPoint({true, 8, 2, 0.25, 0}, HostArray::scalar(0.5)),
            HostArray::fixedPoint({true, 8, 3, 0.125, 0}, HostArray::scalar(0.5)));
  const host::FixedPointType endless{true, 0, {}, 1, 0};
  for (const auto& make : std::initializer_list<std::function<void()>>{
           [&] { HostArray::enumeration(gears, HostArray::scalar(7)); },
           [&] { HostArray::enumeration(gears, HostArray::scalar(1.0)); },
           [&] { HostArray::enumeration({}, samples); },
           [&] { HostArray::fixedPoint({}, HostArray::scalar(1)); },
           [&] { HostArray::fixedPoint(endless, HostArray::scalar(1.0)); }}) {
    EXPECT_THAT(make, ThrowsId("nexstore:nex:InvalidHostArray"));
  }
}

TEST(HostArray, ObjectsAndFunctionsAreEqualToThemselves) {
  const auto object = std::make_shared<int>(3);
  const HostArray array = HostArray::scriptObject("a.B", object);
  EXPECT_EQ(array.scriptPointer(), object);
  EXPECT_EQ(array, HostArray::scriptObject("a.B", object));
  EXPECT_NE(array, HostArray::scriptObject("a.B", std::make_shared<int>(3)));
  const auto twice = [](std::span<const HostArray> inputs, std::size_t) {
    return host::HostArrays{HostArray::scalar(2 * inputs[0].toDouble())};
  };
  const HostArray function = HostArray::function(twice);
  const HostArray copy = function;
  const HostArray four = HostArray::scalar(4.0);
  EXPECT_EQ(copy.toFunction()(std::span(&four, 1), 1),
            host::HostArrays{HostArray::scalar(8.0)});
  EXPECT_EQ(copy, function);
  EXPECT_NE(function, HostArray::function(twice));
}

TEST(HostArray, KeepsTextCellsAndFieldsInTheirOrder) {
  const HostArray path =
      HostArray::cell({2, 1}, {HostArray::text("a/b"), HostArray::text("c")});
  const HostArray array = HostArray::structure({{"Name", HostArray::text(L"v\u00f6lt")},
                                                {"Path", path},
                                                {"Port", HostArray::scalar(2)}});
  EXPECT_EQ(array.fieldNames(), (std::vector<std::string>{"Name", "Path", "Port"}));
  EXPECT_EQ(array.field("Name").toString(), "v\u00f6lt");
  EXPECT_EQ(array.field("Path").cell(1).toWide(), L"c");
  EXPECT_EQ(array.field("Path").dimensions(), (Dimensions{2, 1}));
  EXPECT_EQ(array.findField("None"), nullptr);
  EXPECT_EQ(array, HostArray::structure({{"Name", HostArray::text(L"v\u00f6lt")},
                                         {"Path", path},
                                         {"Port", HostArray::scalar(2)}}));
  EXPECT_NE(array.field("Port"), HostArray::scalar(3));
}

TEST(HostArray, StructureArraysKeepTheFieldsOfEachElementTogether) {
  const HostArray runs =
      HostArray::structureArray({1, 2}, {"signalID", "parentRunID"},
                                {HostArray::scalar(10), HostArray::scalar(1),
                                 HostArray::scalar(20), HostArray::scalar(2)});
  EXPECT_EQ(runs.field("signalID", 1).toInt64(), 20);
  EXPECT_EQ(runs.field("parentRunID", 0).toInt64(), 1);
  EXPECT_THAT([&] { runs.field("signalID", 2); }, ThrowsId("nexstore:nex:HostArrayIndex"));
}

TEST(HostArray, NarrowTextKeepsBytesThatAreNotUtf8) {
  const std::string bytes = std::string("a\xFF") + '\0' + "b";
  EXPECT_EQ(HostArray::text(bytes).toString(), bytes);
  EXPECT_EQ(HostArray::text(bytes).size(), 4u);
  EXPECT_NE(HostArray::text("a"), HostArray::text(L"a"));
}

TEST(HostArray, WholeNumbersAreTakenOnlyWhenExact) {
  EXPECT_EQ(HostArray::scalar(-0x1p63).toInt64(), INT64_MIN);
  const std::function<void()> inexact[] = {
      [] { HostArray::scalar(1.5).toInt64(); },
      [] { HostArray::scalar(0x1p63).toInt64(); },
      [] { HostArray::scalar(std::nan("")).toInt64(); },
      [] { HostArray::scalar(std::numeric_limits<float>::infinity()).toInt64(); },
      [] { HostArray::scalar<std::uint64_t>(UINT64_MAX).toInt64(); },
      [] { HostArray::scalar(std::nan("")).toBool(); }};
  for (std::size_t i = 0; i < std::size(inexact); ++i) {
    EXPECT_THAT(inexact[i], ThrowsId("nexstore:nex:HostArrayMismatch")) << i;
  }
}

TEST(HostArray, IsNeverReadAsSomethingElse) {
  const HostArray number = HostArray::scalar(1.5);
  const HostArray structure = HostArray::structure({{"a", number}});
  const std::array<double, 2> two = {1, 2};
  const std::function<void()> misuses[] = {
      [&] { number.values<float>(); },
      [&] { number.toWide(); },
      [&] { number.cell(0); },
      [&] { number.findField("a"); },
      [&] { structure.bytes(); },
      [&] { structure.toDouble(); },
      [&] { HostArray::text("two").toDouble(); },
      [&] { HostArray::text("two").visitNumbers([](auto) {}); },
      [&] { HostArray().toDouble(); },
      [&] { HostArray::row<double>(two).toDouble(); }};
  for (std::size_t i = 0; i < std::size(misuses); ++i) {
    EXPECT_THAT(misuses[i], ThrowsId("nexstore:nex:HostArrayMismatch")) << i;
  }
  EXPECT_THAT([&] { structure.field("b"); }, ThrowsId("nexstore:nex:NoSuchField"));
  EXPECT_THAT(
      [&] {
        HostArray::cell(host::Dimensions{1, 1}, {number}).cell(1);
      },
      ThrowsId("nexstore:nex:HostArrayIndex"));
}

TEST(HostArray, RefusesElementsThatDoNotFillTheDimensions) {
  const std::array<std::byte, 16> bytes = {std::byte{2}};
  const HostArray number = HostArray::scalar(1);
  const std::function<void()> refused[] = {
      [&] {
        HostArray::numeric(ArrayClass::real64, {3, 1}, bytes);
      },
      [&] { HostArray::numeric(ArrayClass::real64, {2}, bytes); },
      [&] {
        HostArray::numeric(ArrayClass::real64, {SIZE_MAX, 2}, bytes);
      },
      [&] {
        HostArray::numeric(ArrayClass::real64, {SIZE_MAX / 2 + 1, 1}, {});
      },
      [&] {
        HostArray::numeric(ArrayClass::character, {16, 1}, bytes);
      },
      [&] {
        HostArray::numeric(ArrayClass::logical, {16, 1}, bytes);
      },
      [&] {
        HostArray::cell(host::Dimensions{2, 1}, {number});
      },
      [&] {
        HostArray::structure({{"a", number}, {"a", number}});
      },
      [&] {
        HostArray::structureArray({1, 2}, {"a"}, {number});
      }};
  for (std::size_t i = 0; i < std::size(refused); ++i) {
    EXPECT_THAT(refused[i], ThrowsId("nexstore:nex:InvalidHostArray")) << i;
  }
}

TEST(HostArray, SharesItsElementsInsteadOfCopyingThem) {
  const auto owner = std::make_shared<std::array<std::int32_t, 2>>(std::array{4, 5});
  const std::shared_ptr<const std::byte> bytes(
      owner, reinterpret_cast<const std::byte*>(owner->data()));
  const HostArray array = HostArray::sharing(ArrayClass::int32, {1, 2}, bytes, 8);
  const HostArray copy = array;
  EXPECT_EQ(copy.values<std::int32_t>().data(), owner->data());
  const std::shared_ptr<const std::byte> skewed(owner, bytes.get() + 1);
  EXPECT_THAT(
      [&] {
        HostArray::sharing(ArrayClass::int32, {1, 1}, skewed, 4);
      },
      ThrowsId("nexstore:nex:InvalidHostArray"));
}

}  // namespace
