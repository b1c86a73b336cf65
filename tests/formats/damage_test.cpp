// Damaged files: whatever byte is missing or wrong, a reader reads or refuses, and stays small.
#include <sys/resource.h>

#include <random>

#include "formatstest.h"

namespace formats::test {
namespace {

/// Sound files of every layout.
std::vector<std::pair<std::string, std::string>> soundFiles() {
  const auto header = [](const std::string& flags, const std::string& scale) {
    return "Title: * x\nDate: Sat Nov 21 05:43:57  2026\nPlotname: AC\nFlags: " + flags +
           "\nNo. Variables: 2\nNo. Points: 3\nVariables:\n\t0\t" + scale + "\t" + scale +
           "\n\t1\tv(a)\tvoltage\n";
  };
  return {
      {"text.raw",
       header("real", "time") + "Values:\n 0\t0.0\n\t1\n\n 1\t1.0\n\t2\n\n 2\t2.0\n\t3\n\n"},
      {"binary.raw", header("real", "time") + "Binary:\n" + bytesOf({0, 1, 2, 3, 0, 5}) +
                         header("real", "time") + "Binary:\n" + bytesOf({0, 1, 2, 3, 4, 5})},
      {"complex.raw", header("complex", "frequency") +
                          "Values:\n 0\t1,0\n\t1,2\n\n 1\t2,0\n\t2,1\n\n 2\t3,0\n\t3,0\n\n"},
      {"table.csv",
       "\xEF\xBB\xBFtime [ms];\"a \"\"b\"\"\" "
       ";c;d\r\ns;V;;-\r\n0;1,5;true;7\r\n1;\"2,5\";false;8\r\n\r\n2;;NA;9\r\n"},
      {"stamps.csv", "date,a\n2024-01-01T00:00:00.5Z,1\n2024-01-01T00:00:01-01:00,2\n"},
  };
}

enum class End { kRead, kRefused };

/// Reads to the end. Anything but a refusal with a message of ours fails the test.
End readDamaged(const std::filesystem::path& path) {
  Collector collector;
  try {
    openReader(path)->read(collector);
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    EXPECT_TRUE(error.id().starts_with("VELA:vela:")) << error.what();
    EXPECT_TRUE(collector.runs.empty());
    return End::kRefused;
  }
  EXPECT_FALSE(collector.runs.empty());
  return End::kRead;
}

class DamageTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // Turns an allocation out of all proportion into a failure; a sanitizer needs the room.
    const rlimit limit = {rlim_t{1} << 30, rlim_t{1} << 30};
    setrlimit(RLIMIT_AS, &limit);
#endif
  }

  TemporaryFolder folder_;
};

TEST_F(DamageTest, FilesCutOffAnywhere) {
  for (const auto& [name, content] : soundFiles()) {
    SCOPED_TRACE(name);
    EXPECT_EQ(readDamaged(folder_.write(name, content)), End::kRead);
    std::size_t refused = 0;
    for (std::size_t length = 0; length < content.size(); ++length) {
      SCOPED_TRACE(length);
      if (readDamaged(folder_.write(name, content.substr(0, length))) == End::kRefused)
        ++refused;
    }
    EXPECT_GT(refused, content.size() / 4);
  }
}

TEST_F(DamageTest, FilesWithWrongBytesAnywhere) {
  std::mt19937 random(7);
  for (const auto& [name, content] : soundFiles()) {
    SCOPED_TRACE(name);
    for (std::size_t at = 0; at < content.size(); ++at) {
      for (const char wrong : {static_cast<char>(content[at] ^ (1 << random() % 8)),
                               static_cast<char>(random()), '9', '\n', '"', '\0'}) {
        SCOPED_TRACE(testing::Message() << "byte " << at << " = " << int{wrong});
        std::string damaged = content;
        damaged[at] = wrong;
        readDamaged(folder_.write(name, damaged));
      }
    }
  }
}

TEST_F(DamageTest, FilesWithRunsOfWrongBytes) {
  std::mt19937 random(11);
  const auto files = soundFiles();
  for (int round = 0; round < 2000; ++round) {
    const auto& [name, content] = files[random() % files.size()];
    std::string damaged = content;
    const std::size_t at = random() % damaged.size();
    const std::size_t length = 1 + random() % 20;
    switch (random() % 3) {
      case 0:
        damaged.erase(at, length);
        break;
      case 1:
        damaged.insert(at, damaged.substr(random() % damaged.size(), length));
        break;
      default:
        damaged.replace(at, length, damaged.substr(random() % damaged.size(), length));
        break;
    }
    SCOPED_TRACE("round " + std::to_string(round) + ", " + name + ":\n" + damaged);
    readDamaged(folder_.write(name, damaged));
  }
}

}  // namespace
}  // namespace formats::test
