#include "datafile/datafile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>

#include "kodiag/diagnostics.h"
#include "mutations.h"
#include "tests/objectmanager/managertest.h"

namespace datafile {
namespace {

namespace fs = std::filesystem;
using host::HostArray;
using testing::AnyOf;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using vela::test::raisedBy;

constexpr const char* kCannotRead = "datafile:file:CannotRead";
constexpr const char* kCannotWrite = "datafile:file:CannotWrite";
constexpr const char* kInvalid = "datafile:file:Invalid";
constexpr const char* kDamaged = "datafile:file:Damaged";

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// One variable of every kind.
std::vector<std::pair<std::string, HostArray>> everything() {
  const double reals[] = {1.5, -0.0, std::numeric_limits<double>::quiet_NaN(), 4, 5, 6};
  const bool flags[] = {true, false};
  const auto numbers =
      HostArray::numeric(host::ArrayClass::real64, {1, 2, 3}, std::as_bytes(std::span(reals)));
  return {{"numbers", numbers},
          {"none", HostArray()},
          {"flags", HostArray::column(std::span<const bool>(flags))},
          {"whole", HostArray::list(std::vector<std::int64_t>{1, -2, INT64_MIN})},
          {"complex", HostArray::scalar(std::complex<float>(1, -2))},
          {"narrow", HostArray::text(std::string("a\0\xff", 3))},
          {"wide", HostArray::text(std::wstring(L"\u00e4\U0001F600"))},
          {"cell", HostArray::cell({numbers, HostArray::cell(std::vector<HostArray>())})},
          {"structure", HostArray::structure({{"z", numbers}, {"a", HostArray::text("t")}})},
          {"gears", HostArray::enumeration({"Gear", {{"low", 1}, {"high", -2}}},
                                           HostArray::list(std::vector<int>{-2, 1}))},
          {"fixed", HostArray::fixedPoint({false, 8, 3, 0.125, 0}, HostArray::scalar(0.5))}};
}

class DataFileTest : public testing::Test {
 protected:
  std::string path(const char* name = "x.dat") const { return (folder_ / name).string(); }

  void write(const std::vector<std::pair<std::string, HostArray>>& variables) {
    DataFileWriter writer(path());
    for (const auto& [name, value] : variables) writer.put(name, value);
    writer.commit();
  }
  std::vector<std::string> filesLeft() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  vela::test::TemporaryFolder folder_;
};

TEST_F(DataFileTest, VariablesComeBackByTheirNames) {
  const auto variables = everything();
  write(variables);
  const DataFileReader reader(path());
  for (const auto& [name, value] : variables) {
    EXPECT_TRUE(reader.has(name));
    EXPECT_EQ(reader.get(name), value) << name;
  }
  EXPECT_THAT(reader.get("structure").fieldNames(), ElementsAre("z", "a"));
  EXPECT_THAT(reader.names("n"), ElementsAre("narrow", "none", "numbers"));
  EXPECT_FALSE(reader.has("absent"));
  EXPECT_FALSE(reader.has(""));
  EXPECT_FALSE(reader.has("/"));
  EXPECT_EQ(raisedBy([&] { reader.get("absent"); }), "datafile:file:NoSuchVariable");
}

// The pieces lie around the lengths from which a variable is written and read in several steps.
TEST_F(DataFileTest, WhatIsWrittenInPiecesIsOneVariable) {
  const std::size_t step = std::size_t{4} << 20;
  const std::size_t ahead = std::size_t{32} << 10;
  std::vector<HostArray> pieces;
  for (const std::size_t length : {std::size_t{3}, ahead - 100, ahead - 1, ahead, ahead + 1,
                                   step - 1, step, step + 1, 2 * step + 5}) {
    std::vector<std::uint8_t> bytes(length);
    for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(i * i / 251);
    pieces.push_back(HostArray::list(std::move(bytes)));
  }
  DataFileWriter writer(path());
  {
    DataFileWriter::Variable variable(writer, "v");
    variable.beginStructure(std::vector<std::string>{"list", "end"});
    variable.beginCell(pieces.size());
    for (const HostArray& piece : pieces) variable.put(piece);
    variable.put(HostArray::text("end"));
    variable.finish();
  }
  writer.commit();

  const HostArray whole = HostArray::structure(
      {{"list", HostArray::cell(pieces)}, {"end", HostArray::text("end")}});
  const DataFileReader reader(path());
  EXPECT_TRUE(reader.get("v") == whole);
  DataFileReader::Variable variable(reader, "v");
  EXPECT_THAT(variable.beginStructure(), ElementsAre("list", "end"));
  ASSERT_EQ(variable.beginCell(), pieces.size());
  for (const HostArray& piece : pieces) EXPECT_TRUE(variable.take() == piece);
  EXPECT_EQ(raisedBy([&] { variable.finish(); }), kDamaged);  // something is left
  EXPECT_EQ(variable.take().toString(), "end");
  variable.finish();
  EXPECT_EQ(raisedBy([&] { variable.take(); }), kDamaged);
}

TEST_F(DataFileTest, TheTargetIsOldUntilTheNewFileIsWhole) {
  write({{"old", HostArray::scalar(1)}});
  chmod(path().c_str(), 0640);
  const std::string old = contentOf(path());
  {
    DataFileWriter abandoned(path());
    abandoned.put("new", HostArray::scalar(2));
  }
  {
    DataFileWriter unfinished(path());
    DataFileWriter::Variable variable(unfinished, "v");
    variable.beginCell(1);
    EXPECT_EQ(raisedBy([&] { unfinished.commit(); }), kCannotWrite);
  }
  EXPECT_EQ(contentOf(path()), old);
  EXPECT_THAT(filesLeft(), ElementsAre("x.dat"));

  DataFileWriter writer(path());
  writer.put("new", HostArray::scalar(2));
  EXPECT_EQ(contentOf(path()), old);
  writer.commit();
  EXPECT_THAT(DataFileReader(path()).names(), ElementsAre("new"));
  EXPECT_EQ(fs::status(path()).permissions(), fs::perms(0640));
}

TEST_F(DataFileTest, RefusesWhatCannotBeWritten) {
  EXPECT_EQ(raisedBy([&] { DataFileWriter writer(path("absent/x")); }), kCannotWrite);
  EXPECT_EQ(raisedBy([&] { DataFileWriter writer(path("absent/../x")); }), kCannotWrite);
  EXPECT_EQ(raisedBy([&] { DataFileWriter writer(folder_.path().string()); }), kCannotWrite);
  const std::string withZero = path("a") + std::string("\0b", 2);
  EXPECT_EQ(raisedBy([&] { DataFileWriter(withZero).commit(); }), kCannotWrite);
  EXPECT_FALSE(std::filesystem::exists(path("a")));
  fs::create_symlink("elsewhere", path("link"));
  EXPECT_EQ(raisedBy([&] { DataFileWriter writer(path("link")); }), kCannotWrite);
  DataFileWriter writer(path());
  for (const char* name : {"", ".", "a/b"}) {
    EXPECT_EQ(raisedBy([&] { writer.put(name, HostArray()); }), kCannotWrite) << name;
  }
  writer.put("a", HostArray());
  EXPECT_EQ(raisedBy([&] { writer.put("a", HostArray()); }), kCannotWrite);
}

TEST_F(DataFileTest, RefusesWhatIsNoDataFile) {
  EXPECT_EQ(raisedBy([&] { DataFileReader reader(path("absent")); }), kCannotRead);
  EXPECT_EQ(raisedBy([&] { DataFileReader reader(folder_.path().string()); }), kCannotRead);
  mkfifo(path("pipe").c_str(), 0600);
  EXPECT_EQ(raisedBy([&] { DataFileReader reader(path("pipe")); }), kCannotRead);
  for (const std::string& content :
       {std::string(), std::string("text"), "\x89HDF\r\n\x1a\n" + std::string(1000, '\0')}) {
    std::ofstream(path(), std::ios::binary) << content;
    EXPECT_EQ(raisedBy([&] { DataFileReader reader(path()); }), kCannotRead);
  }
}

/// \returns how it ended: 0 when the test holds there
int inAnotherProcess(const std::function<bool()>& test) {
  const pid_t child = fork();
  if (child == 0) exit(test() ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

std::string readAll(const std::string& path,
                    const std::vector<std::pair<std::string, HostArray>>& variables) {
  return raisedBy([&] {
    const DataFileReader reader(path);
    for (const auto& [name, value] : variables) EXPECT_EQ(reader.get(name), value) << name;
  });
}

TEST_F(DataFileTest, AFileThatIsNotAsItWasWrittenIsNotRead) {
  write(everything());
  const std::string whole = contentOf(path());
  ASSERT_EQ(readAll(path(), everything()), "");
  std::mt19937 random(7);
  const auto refused = [&](const std::string& damaged) {
    std::ofstream(path(), std::ios::binary) << damaged;
    return raisedBy([&] { DataFileReader reader(path()); }) == kCannotRead;
  };
  for (std::size_t i = 0; i < whole.size(); i += 1 + random() % (i < 40 ? 4 : 200)) {
    std::string damaged = whole;
    damaged[i] ^= static_cast<char>(1 + random() % 255);
    EXPECT_TRUE(refused(damaged)) << i;
    EXPECT_TRUE(refused(whole.substr(0, i))) << i;
  }
  EXPECT_TRUE(refused(whole + "x"));
}

TEST_F(DataFileTest, AFileMadeToHarmIsReadOrRefused) {
  write(everything());
  Mutations mutations(path(), 11);
  for (int i = 0; i < 300; ++i) {
    mutations.write(path("changed.dat"));
    const std::string id = raisedBy([&] {
      const DataFileReader reader(path("changed.dat"));
      for (const std::string& name : reader.names()) reader.get(name);
    });
    EXPECT_THAT(id, AnyOf("", kCannotRead, kDamaged, kInvalid)) << i;
  }
}

pid_t onlyChild() {
  std::ifstream children("/proc/thread-self/children");
  pid_t child = 0;
  children >> child;
  return child;
}

TEST_F(DataFileTest, TheReadersDeathIsTheFilesFault) {
  write({{"long", HostArray::list(std::vector<double>(1'000'000, 1.5))}});
  const DataFileReader reader(path());
  ASSERT_EQ(kill(onlyChild(), SIGSEGV), 0);
  EXPECT_EQ(raisedBy([&] { reader.get("long"); }), kInvalid);
}

// Without standard streams, with every signal blocked, with children that nobody waits for.
TEST_F(DataFileTest, ReadingLeavesNothingOfItselfWhateverTheCallerIsLike) {
  write(everything());
  EXPECT_EQ(inAnotherProcess([&] {
              for (int standard = 0; standard < 3; ++standard) close(standard);
              signal(SIGCHLD, SIG_IGN);
              sigset_t all;
              sigfillset(&all);
              sigprocmask(SIG_SETMASK, &all, nullptr);
              const int before = dup(open("/dev/null", O_RDONLY));
              const bool isRead = readAll(path(), everything()).empty();
              return isRead && onlyChild() == 0 && dup(before) == before + 1;
            }),
            0);
}

TEST_F(DataFileTest, AKilledWriterLeavesNothingAndWhatIsLeftIsRemoved) {
  write({{"old", HostArray::scalar(1)}});
  const std::string abandoned = path("x.dat.0123456789ab.part");
  std::ofstream(abandoned) << "x";
  std::ofstream(path("x.dat.0123456789az.part")) << "somebody else's";
  EXPECT_EQ(inAnotherProcess([&] {
              DataFileWriter writer(path());
              writer.put("new", HostArray::scalar(2));
              return raise(SIGKILL) == 0;
            }),
            SIGKILL);
  EXPECT_THAT(filesLeft(), UnorderedElementsAre("x.dat", "x.dat.0123456789az.part"));
  EXPECT_THAT(DataFileReader(path()).names(), ElementsAre("old"));
}

TEST_F(DataFileTest, ANameWithAZeroCharacterNamesNoOtherFile) {
  write({{"old", HostArray::scalar(1)}});
  const std::string cut = path() + std::string("\0b", 2);
  EXPECT_EQ(raisedBy([&] { DataFileWriter writer(cut); }), kCannotWrite);
  EXPECT_EQ(raisedBy([&] { DataFileReader reader(cut); }), kCannotRead);
}

/// Runs in a process whose files cannot grow beyond that many bytes at first.
int inFullDisk(rlim_t bytes, const std::function<bool()>& test) {
  return inAnotherProcess([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    return test();
  });
}

TEST_F(DataFileTest, AFullDiskLeavesTheOldFileAndTheLibraryUsable) {
  std::vector<std::pair<std::string, HostArray>> variables;
  for (int i = 0; i < 50; ++i) {
    variables.emplace_back("v" + std::to_string(i),
                           HostArray::list(std::vector<double>(10'000, i)));
  }
  for (const rlim_t bytes : {0, 100, 5'000, 100'000, 1'000'000, 3'999'000}) {
    SCOPED_TRACE(bytes);
    write({{"old", HostArray::scalar(1)}});
    const std::string old = contentOf(path());
    EXPECT_EQ(
        inFullDisk(
            bytes,
            [&] {
              const bool isRefused = raisedBy([&] { write(variables); }) == kCannotWrite;
              const rlimit noLimit{RLIM_INFINITY, RLIM_INFINITY};
              setrlimit(RLIMIT_FSIZE, &noLimit);
              return isRefused && readAll(path(), {{"old", HostArray::scalar(1)}}).empty();
            }),
        0);
    EXPECT_EQ(contentOf(path()), old);
    EXPECT_THAT(filesLeft(), ElementsAre("x.dat"));
  }
}

}  // namespace
}  // namespace datafile
