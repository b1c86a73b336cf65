#include <vector>

#include "sqldbtest.h"

namespace sqldb {
namespace {

using Access = Database::Access;

class BlobTest : public SqldbTest {
 protected:
  BlobTest() {
    createTable(db_);
    for (const std::size_t size : {std::size_t{0}, std::size_t{10}, std::size_t{100'000}}) {
      Statement write = db_.statement("INSERT INTO t(v) VALUES (?1)");
      const std::vector<std::byte> bytes = pattern(size);
      write.bindBlob(1, bytes);
      write.run();
    }
  }
  static std::vector<std::byte> pattern(std::size_t size) {
    std::vector<std::byte> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i * 7 % 251);
    return bytes;
  }
  std::vector<std::byte> stored(long long row) {
    Statement read = db_.statement("SELECT v FROM t WHERE id = ?1");
    read.bind(1, row);
    EXPECT_TRUE(read.step());
    const auto bytes = read.blob(0);
    return {bytes.begin(), bytes.end()};
  }

  Database db_{path(), options()};
};

TEST_F(BlobTest, ReadsAnyPartOfAnyRow) {
  Blob blob = db_.blob("t", "v", 3, Access::read);
  ASSERT_EQ(blob.size(), 100'000U);
  const auto all = pattern(100'000);
  for (const std::uint64_t offset : {0U, 1U, 16'300U, 99'990U}) {
    std::vector<std::byte> part(10);
    blob.read(offset, part);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), all.begin() + static_cast<long>(offset)));
  }
  blob.reopen(2);
  EXPECT_EQ(blob.size(), 10U);
  blob.reopen(1);
  EXPECT_EQ(blob.size(), 0U);
  blob.read(0, {});
}

TEST_F(BlobTest, WritesInPlaceWithinAUnitAndGoesBackWithIt) {
  auto expected = pattern(100'000);
  const std::vector<std::byte> patch(20'000, std::byte{0xab});
  {
    Unit unit(db_, Access::write, "overwrite");
    Blob(db_.blob("t", "v", 3, Access::write)).write(40'000, patch);
    EXPECT_NE(stored(3), expected);
  }
  EXPECT_EQ(stored(3), expected);
  {
    Unit unit(db_, Access::write, "overwrite");
    Blob(db_.blob("t", "v", 3, Access::write)).write(40'000, patch);
    unit.commit();
  }
  std::copy(patch.begin(), patch.end(), expected.begin() + 40'000);
  EXPECT_EQ(stored(3), expected);
}

TEST_F(BlobTest, RefusesRangesRowsAndWritesThatCannotBe) {
  Blob blob = db_.blob("t", "v", 2, Access::read);
  std::vector<std::byte> bytes(5);
  for (const std::uint64_t offset :
       {std::uint64_t{6}, std::uint64_t{11}, ~std::uint64_t{0}, std::uint64_t{1} << 32}) {
    EXPECT_EQ(idRaisedBy([&] { blob.read(offset, bytes); }), "nexstore:nex:InternalError");
  }
  EXPECT_EQ(idRaisedBy([&] { db_.blob("t", "v", 99, Access::read); }),
            "nexstore:nex:InternalError");
  EXPECT_EQ(idRaisedBy([&] { db_.blob("t", "v", 2, Access::write); }),
            "KODD:kodd:NoTransaction");
}

}  // namespace
}  // namespace sqldb
