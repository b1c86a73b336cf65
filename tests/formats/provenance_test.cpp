#include "formats/provenance.h"

#include <functional>
#include <utility>

#include "formatstest.h"
#include "tests/support/throwsid.h"

namespace formats::test {
namespace {

using namespace std::string_literals;

TEST(ProvenanceTest, TellsFileSizeHashAndOptions) {
  TemporaryFolder folder;
  ReadOptions options;
  options.delimiter = ';';
  options.timeColumn = "t";
  options.header = Choice::kNo;
  SteadyFile file(folder.write("a.csv", std::string(1'000'000, 'a')));
  ByteSource pass = file.open();
  file.endPass(pass);
  Summary summary;
  summary.content = file.content();
  const Provenance provenance = provenanceOf(file.path(), summary, options);
  EXPECT_EQ(provenance.file, (folder.path() / "a.csv").string());
  EXPECT_EQ(provenance.sizeBytes, 1'000'000);
  // The published digest of a million times the letter a.
  EXPECT_EQ(provenance.sha256,
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  EXPECT_EQ(provenance.options, "delimiter=; time-column=t header=no");
}

/// Changes the file when the first block arrives.
class ChangingSink : public Collector {
 public:
  explicit ChangingSink(std::function<void()> change) : change_(std::move(change)) {}
  void block(std::span<const double>, std::span<const Column>) override {
    if (change_) std::exchange(change_, nullptr)();
  }
  void endRun() override {}

 private:
  std::function<void()> change_;
};

TEST(OpenReaderTest, RefusesAFileThatChangesWhileItIsRead) {
  TemporaryFolder folder;
  std::vector<double> points;
  std::string rows = "time,a\n";
  for (int i = 0; i < 100'000; ++i) {
    points.insert(points.end(), {1. * i, 2. * i});
    rows += std::to_string(i) + ",2\n";
  }
  const std::pair<const char*, std::string> files[] = {
      {"a.csv", rows},
      {"a.raw",
       "Title: t\nPlotname: p\nFlags: real\nNo. Variables: 2\nNo. Points: 100000\n"
       "Variables:\n0\ttime\ttime\n1\tv\tvoltage\nBinary:\n" +
           bytesOf(points)}};
  using Path = std::filesystem::path;
  using std::filesystem::file_size;
  const std::pair<const char*, std::function<void(const Path&)>> changes[] = {
      {"cut", [](const Path& path) { resize_file(path, file_size(path) / 2); }},
      {"grown", [](const Path& path) { std::ofstream(path, std::ios::app) << "300000,1\n"; }},
      {"replaced", [&](const Path& path) { rename(folder.path() / "b", path); }},
      {"one byte other, as long and as old",
       [](const Path& path) {
         const auto time = last_write_time(path);
         std::fstream stream(path, std::ios::in | std::ios::out);
         stream.seekp(static_cast<std::streamoff>(file_size(path)) - 50'000);
         stream.put('7');
         stream.close();
         last_write_time(path, time);
       }},
  };
  for (const auto& [name, content] : files) {
    for (const auto& [what, change] : changes) {
      SCOPED_TRACE(std::string(name) + " " + what);
      folder.write("b", content);
      const Path path = folder.write(name, content);
      const auto reader = openReader(path);
      ChangingSink sink([&] { change(path); });
      EXPECT_THAT([&] { reader->read(sink); }, vela::test::ThrowsId("VELA:vela:SourceChanged"));
    }
  }
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
