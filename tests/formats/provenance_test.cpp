#include "formats/provenance.h"

#include "formatstest.h"

namespace formats::test {
namespace {

using namespace std::string_literals;

TEST(ProvenanceTest, TellsFileSizeHashAndOptions) {
  TemporaryFolder folder;
  ReadOptions options;
  options.delimiter = ';';
  options.timeColumn = "t";
  options.header = Choice::kNo;
  const Provenance provenance =
      provenanceOf(folder.write("a.csv", std::string(1'000'000, 'a')), options);
  EXPECT_EQ(provenance.file, (folder.path() / "a.csv").string());
  EXPECT_EQ(provenance.sizeBytes, 1'000'000);
  // The published digest of a million times the letter a.
  EXPECT_EQ(provenance.sha256,
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  EXPECT_EQ(provenance.options, "delimiter=; time-column=t header=no");
}

TEST(OpenReaderTest, NamesTheFileAndTheReasonWhenItCannotRead) {
  TemporaryFolder folder;
  using ::testing::HasSubstr;
  EXPECT_THAT(failure(folder.path() / "none.csv"), HasSubstr("VELA:vela:CannotReadFile"));
  EXPECT_THAT(failure(folder.path()), HasSubstr("it is a directory"));
  EXPECT_THAT(failure(folder.write("a.txt", "")), HasSubstr("it is empty"));
  EXPECT_THAT(failure(folder.write("a.raw", "T\0i\0t\0l\0e\0:\0 \0x\0"s)), HasSubstr("UTF-16"));
  const std::string unknown =
      failure(folder.write("a.txt", "Dear all,\nthis is, well, a letter.\nYours\n"));
  EXPECT_THAT(unknown, HasSubstr("VELA:vela:UnknownFormat"));
  EXPECT_THAT(unknown, HasSubstr("circuit-simulator raw file, CSV"));
  EXPECT_THAT(failure(folder.write("a.dmr", "SQLite format 3\0\x10\0"s)),
              HasSubstr("UnknownFormat"));
}

}  // namespace
}  // namespace formats::test
