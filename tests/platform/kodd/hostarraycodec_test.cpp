#include "kodd/hostarraycodec.h"

#include <random>

#include "koddtest.h"

namespace kodd {
namespace {

using host::HostArray;

std::span<const std::byte> bytesOf(const std::string& text) {
  return std::as_bytes(std::span(text));
}

HostArray everything() {
  const double reals[] = {1.5, -0.0, std::numeric_limits<double>::quiet_NaN()};
  const bool flags[] = {true, false};
  return HostArray::structure(
      {{"reals", HostArray::row(std::span<const double>(reals))},
       {"flags", HostArray::column(std::span<const bool>(flags))},
       {"narrow", HostArray::text(std::string("a\0\xff", 3))},
       {"wide", HostArray::text(std::wstring(L"\u00e4\U0001F600"))},
       {"cell", HostArray::cell({HostArray(), HostArray::scalar(std::int8_t{-3}),
                                 HostArray::cell(std::vector<HostArray>())})},
       {"many", HostArray::structureArray({2, 1}, {"x"},
                                          {HostArray::scalar(1), HostArray::scalar(2u)})},
       {"list", HostArray::list(std::vector<int>{5})},
       {"complex", HostArray::scalar(std::complex<float>(1, -2))},
       {"gears", HostArray::enumeration({"Gear", {{"low", 1}, {"high", -2}}},
                                        HostArray::list(std::vector<int>{-2, 1, 1}))},
       {"binary", HostArray::fixedPoint({false, 8, 3, 0.125, 0}, HostArray::scalar(0.5))},
       {"slope", HostArray::fixedPoint({true, 33, {}, 0.1, 7}, HostArray::scalar(-0.0))}});
}

TEST(HostArrayCodecTest, StoresTheBytesOfItsFormat) {
  const std::int16_t values[] = {1, -2};
  const std::string expected(
      "\x02"                                  // format
      "\x04\x02\x02"                          // int16, rank 2, two dimensions
      "\x01\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"  // 1 x 2
      "\0"                                    // real
      "\x01\0\xfe\xff",
      25);
  EXPECT_EQ(encodeHostArray(HostArray::row(std::span<const std::int16_t>(values))), expected);
}

TEST(HostArrayCodecTest, ReadsTheFormatWithoutRanks) {
  const std::string row(
      "\x01\x04\x02\x01\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"
      "\x01\0\xfe\xff",
      23);
  const std::int16_t values[] = {1, -2};
  EXPECT_EQ(decodeHostArray(bytesOf(row)),
            HostArray::row(std::span<const std::int16_t>(values)));
  const std::string single("\x01\x02\x02\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\x07", 20);
  EXPECT_EQ(decodeHostArray(bytesOf(single)), HostArray::scalar(std::int8_t{7}));
}

TEST(HostArrayCodecTest, RefusesWhatCannotBeRead) {
  HostArray nested = HostArray::cell({HostArray()});
  for (int i = 0; i < 70; ++i) nested = HostArray::cell({nested});
  const auto object = HostArray::scriptObject("a.B", nullptr);
  const auto function = HostArray::function({});
  for (const HostArray& array : {nested, object, function, HostArray::cell({object})}) {
    try {
      encodeHostArray(array);
      ADD_FAILURE() << array.describe() << " was stored";
    } catch (const kodiag::except::ExceptionWithCauses& refusal) {
      EXPECT_EQ(refusal.id(), "nexstore:nex:InvalidData");
    }
  }
}

TEST(HostArrayCodecTest, GivesBackWhatWasStored) {
  EXPECT_EQ(decodeHostArray(bytesOf(encodeHostArray(everything()))), everything());
  EXPECT_EQ(decodeHostArray({}), HostArray());
}

// Damaged bytes are refused or read as some other array, but never beyond their end.
TEST(HostArrayCodecTest, DistrustsStoredBytes) {
  const std::string stored = encodeHostArray(everything());
  const auto decoding = [](const std::string& bytes) -> std::string {
    try {
      decodeHostArray(bytesOf(bytes));
      return {};
    } catch (const kodiag::except::ExceptionWithCauses& refusal) {
      return refusal.id();
    }
  };
  for (std::size_t length = 1; length < stored.size(); ++length) {
    EXPECT_EQ(decoding(stored.substr(0, length)), "sqldb:ssdb:Corrupt") << length;
  }
  EXPECT_EQ(decoding(stored + "x"), "sqldb:ssdb:Corrupt");
  std::mt19937 random(11);
  for (int i = 0; i < 20'000; ++i) {
    std::string damaged = stored;
    damaged[random() % damaged.size()] = static_cast<char>(random());
    const std::string id = decoding(damaged);
    EXPECT_TRUE(id.empty() || id == "sqldb:ssdb:Corrupt") << id;
  }
  std::string deep = "\x01";
  const std::string nested("\x0c\x02\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0", 18);
  for (int i = 0; i < 100'000; ++i) deep += nested;
  EXPECT_EQ(decoding(deep), "sqldb:ssdb:Corrupt");
}

TEST(HostArrayCodecTest, ScalarsAndTextBecomeSimpleEntryValues) {
  const auto there = [](const HostArray& array) { return convertHostArrayToEntryValue(array); };
  EXPECT_EQ(there(HostArray::scalar(2.5)), EntryValue(2.5));
  EXPECT_EQ(there(HostArray::scalar(2.5f)), EntryValue(2.5f));
  EXPECT_EQ(there(HostArray::scalar(true)), EntryValue(true));
  EXPECT_EQ(there(HostArray::scalar(std::int8_t{-1})),
            EntryValue(static_cast<signed char>(-1)));
  EXPECT_EQ(there(HostArray::scalar(std::uint64_t{1} << 63)), EntryValue(1ULL << 63));
  EXPECT_EQ(there(HostArray::text(L"\u00e4")), EntryValue(std::wstring(L"\u00e4")));
  EXPECT_EQ(there(HostArray::text("a")), EntryValue(std::string("a")));
  const HostArray array = everything();
  EXPECT_EQ(there(array), EntryValue(&array));
  for (const EntryValue& value :
       {EntryValue(1), EntryValue(1LL << 40), EntryValue(false), EntryValue(std::string("x")),
        EntryValue(std::wstring(L"x")), EntryValue(static_cast<unsigned short>(7))}) {
    const HostArray converted = convertEntryValueToHostArray(value);
    EXPECT_EQ(there(converted), value);
  }
  EXPECT_EQ(convertEntryValueToHostArray(const_BlobDescriptor("ab", 2)).size(), 2u);
  EXPECT_TRUE(convertEntryValueToHostArray(UndefinedValue()).isEmpty());
}

}  // namespace
}  // namespace kodd
