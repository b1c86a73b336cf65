#include <numeric>
#include <random>

#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;

class BlobStreamTest : public KoddTest {
 protected:
  BlobStream stream(BlobStream::Access access) {
    return BlobStream(prop("Run", "Image"), repository_, access);
  }
  std::vector<char> stored(const ObjectRef& run) {
    return get<std::vector<char>>(run, "Image");
  }

  ObjectRef run_ = create("Run");
};

TEST_F(BlobStreamTest, GrowsAndIsWrittenInPlaceLikeAByteVector) {
  std::mt19937 random(5);
  std::vector<char> twin;
  EXPECT_EQ(inUnit([&](diagnostics& diag) {
              BlobStream blob = stream(BlobStream::Access::write);
              blob.open(run_.id(), diag);
              for (int step = 0; step < 60 && diag.empty(); ++step) {
                if (random() % 3 == 0) {
                  twin.resize(twin.size() + random() % 20'000);
                  blob.growTo(twin.size(), diag);
                  blob.growTo(twin.size() / 2, diag);  // never shrinks
                }
                if (twin.empty()) continue;
                const std::size_t offset = random() % twin.size();
                const std::size_t length = random() % (twin.size() - offset + 1);
                std::vector<char> bytes(length);
                for (char& byte : bytes) byte = static_cast<char>(random());
                blob.write(offset, length, bytes.data(), diag);
                std::copy(bytes.begin(), bytes.end(), twin.begin() + static_cast<long>(offset));
                EXPECT_EQ(blob.size(), twin.size());
              }
            }),
            "");
  EXPECT_EQ(stored(run_), twin);
  BlobStream reader = stream(BlobStream::Access::read);
  reader.open(run_.id(), NoFailure());
  std::vector<char> middle(1000);
  reader.read(500, middle.size(), middle.data(), NoFailure());
  EXPECT_TRUE(std::equal(middle.begin(), middle.end(), twin.begin() + 500));
}

TEST_F(BlobStreamTest, GoesFromObjectToObjectAndOnAfterAnInnerUnit) {
  const ObjectRef other = create("Run");
  for (const ObjectRef& run : {run_, other}) {
    set(run, "Image", const_BlobDescriptor("abcd", 4));
  }
  EXPECT_EQ(inUnit([&](diagnostics& diag) {
              BlobStream blob = stream(BlobStream::Access::write);
              blob.open(run_.id(), diag);
              blob.write(0, 1, "X", diag);
              inUnit([&](diagnostics& inner) {
                blob.write(1, 1, "?", inner);
                throw 1;
              });
              blob.write(2, 1, "Y", diag);
              inUnit([this](diagnostics&) { create("Signal"); });
              blob.open(other.id(), diag);
              blob.write(3, 1, "Z", diag);
            }),
            "");
  EXPECT_THAT(stored(run_), ElementsAre('X', 'b', 'Y', 'd'));
  EXPECT_THAT(stored(other), ElementsAre('a', 'b', 'c', 'Z'));
}

TEST_F(BlobStreamTest, RefusesWhatIsNotThere) {
  set(run_, "Image", const_BlobDescriptor("abcd", 4));
  ObjectRef gone = create("Run");
  gone.deleteObject(NoFailure());
  char byte = 0;
  BlobStream reader = stream(BlobStream::Access::read);
  const auto reading = [&](std::size_t offset, std::size_t length) {
    return idLeftBy([&](diagnostics& diag) { reader.read(offset, length, &byte, diag); });
  };
  EXPECT_EQ(reading(0, 1), "KODD:kodd:InvalidObject");  // nothing is open
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { reader.open(gone.id(), diag); }),
            "KODD:kodd:InvalidObject");
  reader.open(run_.id(), NoFailure());
  EXPECT_EQ(reader.size(), 4u);
  EXPECT_EQ(reading(3, 1), "");
  EXPECT_EQ(byte, 'd');
  EXPECT_EQ(reading(4, 0), "");
  EXPECT_EQ(reading(4, 1), "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(reading(1, static_cast<std::size_t>(-1)), "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { reader.write(0, 1, &byte, diag); }),
            "KODD:kodd:ReadOnly");
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { reader.open(gone.id(), diag); }),
            "KODD:kodd:InvalidObject");
  EXPECT_EQ(reading(0, 1), "KODD:kodd:InvalidObject");
  reader.open(run_.id(), NoFailure());
  repository_.close();
  EXPECT_EQ(reading(0, 1), "KODD:kodd:RepositoryNotOpen");
}

TEST_F(BlobStreamTest, WritesOnlyInsideAUnitAndOnlyBlobs) {
  BlobStream writer = stream(BlobStream::Access::write);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { writer.open(run_.id(), diag); }),
            "KODD:kodd:NoTransaction");
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { writer.growTo(5, diag); }),
            "KODD:kodd:NoTransaction");
  BlobStream text(prop("Run", "Name"), repository_, BlobStream::Access::read);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { text.open(run_.id(), diag); }),
            "KODD:kodd:InvalidPropertyValue");
  EXPECT_TRUE(stored(run_).empty());
}

}  // namespace
}  // namespace kodd
