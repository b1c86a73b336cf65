#include "objects/salvage.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <random>

#include "objects/set.h"
#include "objects/strings.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace fs = std::filesystem;

constexpr std::size_t kPageBytes = 16'384;
constexpr std::size_t kHeaderBytes = 100;

struct Samples {
  std::vector<double> times;
  std::vector<char> values;
  std::vector<unsigned> epochs;
  bool operator==(const Samples&) const = default;
};

Samples samplesOf(const Signal& signal) {
  Samples samples;
  signal.readRange(-DBL_MAX, DBL_MAX, samples.times, samples.values, &samples.epochs);
  return samples;
}

/// The same under a name that no other signal of the file has.
using NamedSamples = std::map<std::wstring, Samples>;

NamedSamples allSamples(ObjectManager& manager) {
  NamedSamples all;
  boost::ptr_vector<ObjectRef> signals;
  manager.findObjects(strings::Signal, {}, signals);
  for (const ObjectRef& object : signals) {
    const Signal signal(object.clone());
    all[signal.getName()] = samplesOf(signal);
  }
  return all;
}

std::string readBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A repository with runs of every shape; then copies of it, damaged and salvaged.
class SalvageTest : public test::SignalTest {
 protected:
  SalvageTest() : damaged_(folder_ / "damaged.dmr") {
    manager_.reset();
    empty_ = readBytes(folder_ / "store.dmr");
    reopen();
    fillRepository();
    original_ = allSamples(*manager_);
    manager_.reset();
    bytes_ = readBytes(folder_ / "store.dmr");
  }

  std::vector<double> noise(std::size_t count) {
    std::vector<double> values(count);
    for (double& value : values) value = std::normal_distribution<double>()(random_);
    return values;
  }
  static std::vector<double> ramp(double first, std::size_t count) {
    std::vector<double> times(count);
    for (std::size_t i = 0; i < count; ++i) times[i] = first + static_cast<double>(i);
    return times;
  }
  Signal newSignal(Set& run, const std::wstring& name) {
    Signal signal(*manager_);
    signal.setName(run.getName() + L"." + name);
    run.addElement(signal);
    return signal;
  }

  void fillRun(const std::wstring& name) {
    Set run(*manager_, true);
    run.setName(name);
    run.setDescription(L"described as " + name);
    run.setMetaData("Origin", std::string("bench ") + (name == L"first" ? "1" : "2"));
    Signal::setMinimumChunkNumBytes(0);
    Signal blocks = newSignal(run, L"blocks");
    blocks.setUnits(L"V");
    blocks.setBlockPath({L"model", L"model/gain"});
    for (int block = 0; block < 4; ++block)
      append(blocks, ramp(5000. * block, 5000), noise(5000));
    Signal small = newSignal(run, L"small");
    for (int block = 0; block < 60; ++block) append(small, ramp(10. * block, 10), noise(10));
    Signal epochs = newSignal(run, L"epochs");
    append(epochs, ramp(0, 3), noise(3), {7, 8, 9});

    Signal::setMinimumChunkNumBytes(65'536);
    Signal grown = newSignal(run, L"grown");
    for (int i = 0; i < 300; ++i) append(grown, {1. * i}, noise(1));

    Signal parent = newSignal(run, L"bus");
    const auto shared =
        boost::shared_ptr<Signal>(Signal::getSignalFromID(*manager_, parent.getID()).release());
    const std::vector<double> records = noise(2000);
    parent.addData(records.data(), ramp(0, 1000).data(), dtypeNull, nullptr, 1000, 16, nullptr);
    for (int k = 0; k < 2; ++k) {
      Signal leaf = leafOf(parent, 8, 16, 8 * k, dtypeDouble);
      leaf.setName(name + L".leaf" + std::to_wstring(k));
      leaf.setParent(shared);
    }

    Signal gear = newSignal(run, L"gear");
    long long type = 0;
    DataTypeUtil::createEnumDataType("Gear", {{-1, "R"}, {5, "Top"}}, "int32", *manager_, type);
    setType(gear, type);
    const std::vector<int> gears = {-1, 5, 5};
    gear.addData(gears.data(), ramp(0, 3).data(), dtypeInt32, nullptr, 3, 0, nullptr);
  }
  void fillRepository() {
    fillRun(L"first");
    fillRun(L"second");
  }

  struct Rescue {
    SalvageReport report;
    NamedSamples samples;
  };
  /// Salvages the bytes into a fresh repository, which is then open as `manager_`.
  Rescue salvage(const std::string& bytes) {
    test::writeText(damaged_, bytes);
    Rescue rescue;
    Salvage salvage(damaged_.string());
    manager_.reset();
    for (const char* suffix : {"", "-wal", "-shm"}) {
      fs::remove((folder_ / "rescued.dmr").string() + suffix);
    }
    test::writeText(folder_ / "rescued.dmr", empty_);
    manager_ = std::make_unique<ObjectManager>(test::wide(folder_ / "rescued.dmr"));
    manager_->initializeObjectManager("", "");
    manager_->setInstanceID(4711);
    rescue.report = salvage.storeInto(*manager_, [](std::uint64_t) {});
    rescue.samples = allSamples(*manager_);
    EXPECT_EQ(readBytes(damaged_), bytes) << "the damaged file is only read";
    return rescue;
  }

  /// Whether everything delivered is as it was, and everything missing was told of.
  void expectNothingWrong(const Rescue& rescue) {
    bool complete = true;
    for (const auto& [name, original] : original_) {
      const auto found = rescue.samples.find(name);
      if (found == rescue.samples.end() || found->second != original) complete = false;
    }
    for (const auto& [name, delivered] : rescue.samples) {
      SCOPED_TRACE(text::toUtf8(name));
      const auto original = original_.find(name);
      ASSERT_NE(original, original_.end());
      expectPart(delivered, original->second);
    }
    EXPECT_TRUE(complete || !rescue.report.losses.empty()) << "a loss nobody is told of";
  }
  static void expectPart(const Samples& part, const Samples& whole) {
    if (part.times.empty()) return;
    const std::size_t recordBytes = whole.values.size() / whole.times.size();
    ASSERT_EQ(part.values.size(), part.times.size() * recordBytes);
    for (std::size_t i = 0; i < part.times.size(); ++i) {
      const auto at = std::ranges::lower_bound(whole.times, part.times[i]);
      ASSERT_TRUE(at != whole.times.end() && *at == part.times[i]);
      const auto original = static_cast<std::size_t>(at - whole.times.begin());
      ASSERT_EQ(std::memcmp(&part.values[i * recordBytes],
                            &whole.values[original * recordBytes], recordBytes),
                0)
          << "sample " << i;
    }
  }
  static std::size_t count(const NamedSamples& samples) {
    std::size_t count = 0;
    for (const auto& [name, each] : samples) count += each.times.size();
    return count;
  }

  std::string randomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random_());
    return bytes;
  }
  std::size_t pages() const { return bytes_.size() / kPageBytes; }
  void garblePage(std::string& bytes, std::size_t page) {
    const std::size_t kept = page == 0 ? kHeaderBytes : 0;
    bytes.replace(page * kPageBytes + kept, kPageBytes - kept, randomBytes(kPageBytes - kept));
  }

  std::mt19937 random_{20'261'121};
  fs::path damaged_;
  std::string empty_;  ///< a repository without runs
  NamedSamples original_;
  std::string bytes_;
};

TEST_F(SalvageTest, AHealthyFileComesBackWhole) {
  const Rescue rescue = salvage(bytes_);
  EXPECT_THAT(rescue.report.losses, IsEmpty());
  EXPECT_EQ(rescue.samples, original_);

  std::vector<Set::Summary> runs =
      Set::getRunSummaries(*manager_, Set::Application::AllApplications, Set::Sessions::all);
  ASSERT_THAT(runs, SizeIs(2));
  EXPECT_EQ(runs[0].displayName, L"first");
  EXPECT_EQ(runs[0].number, 1);
  EXPECT_EQ(runs[1].number, 2);
  EXPECT_EQ(runs[0].signalCount, 7);
  boost::shared_ptr<Set> run;
  ASSERT_TRUE(Set::lookupSet(runs[0].id, run, *manager_));
  EXPECT_EQ(run->getDescription(), L"described as first");
  EXPECT_EQ(std::get<std::string>(run->getMetaData("Origin").value), "bench 1");
  EXPECT_EQ(Set::getRunCount(*manager_, Set::Application::AllApplications, Set::Sessions::own),
            2)
      << "they belong to the manager's instance";

  const auto named = [&](const std::wstring& name) {
    return Signal::getSignalByProperties(
        *manager_, {{strings::Name, name, kodd::PropertyValueMatchRelation::Equal}});
  };
  const auto blocks = named(L"first.blocks");
  EXPECT_EQ(blocks->getUnits(), L"V");
  EXPECT_THAT(blocks->getBlockPath(), ElementsAre(L"model", L"model/gain"));
  bool found = false;
  EXPECT_EQ(named(L"second.leaf1")->getParent(found)->getName(), L"second.bus");
  EXPECT_EQ(named(L"second.gear")->getDataTypeLabel(), strings::Enumeration);

  // What is appended later goes on where the samples end.
  const auto grown = named(L"first.grown");
  append(*grown, {300., 301.}, {1., 2.});
  EXPECT_THAT(times(*grown), SizeIs(302));

  kodiag::util::diagnostics diag;
  EXPECT_THAT(manager_->repository().integrityProblems(diag), IsEmpty());
}

TEST_F(SalvageTest, NoGarbledPageGivesWrongSamplesOrGoesUnnoticed) {
  std::size_t delivered = 0;
  const std::size_t half = (pages() + 1) / 2;
  for (std::size_t page = 0; page < half; ++page) {
    SCOPED_TRACE("pages " + std::to_string(page + 1) + " and " +
                 std::to_string(page + half + 1));
    std::string bytes = bytes_;
    garblePage(bytes, page);
    if (page + half < pages()) garblePage(bytes, page + half);
    const Rescue rescue = salvage(bytes);
    ASSERT_NO_FATAL_FAILURE(expectNothingWrong(rescue));
    delivered += count(rescue.samples);
  }
  // A page among many costs little.
  EXPECT_GT(delivered, count(original_) * half * 8 / 10);
}

TEST_F(SalvageTest, ALostListOfTablesCostsNothing) {
  garblePage(bytes_, 0);
  const Rescue rescue = salvage(bytes_);
  EXPECT_THAT(rescue.report.losses, IsEmpty());
  EXPECT_EQ(rescue.samples, original_);
}

TEST_F(SalvageTest, WhateverIsLeftOfATruncatedOrTornFileIsRight) {
  for (int file = 0; file < 30; ++file) {
    SCOPED_TRACE(file);
    std::string bytes = bytes_;
    if (file % 2 == 0) {
      bytes.resize(kPageBytes + random_() % (bytes.size() - kPageBytes));
    }
    for (std::size_t torn = file % 5; torn > 0; --torn) {
      garblePage(bytes, 1 + random_() % (bytes.size() / kPageBytes));
      bytes.resize(std::min(bytes.size(), bytes_.size()));
    }
    const Rescue rescue = salvage(bytes);
    ASSERT_NO_FATAL_FAILURE(expectNothingWrong(rescue));
  }
}

TEST_F(SalvageTest, ChangedBytesAnywhereNeitherCrashNorSpread) {
  for (int file = 0; file < 20; ++file) {
    SCOPED_TRACE(file);
    std::string bytes = bytes_;
    const std::size_t length = 1 + random_() % 512;
    const std::size_t at = kHeaderBytes + random_() % (bytes.size() - kHeaderBytes - length);
    bytes.replace(at, length, randomBytes(length));
    const Rescue rescue = salvage(bytes);
    // Bytes inside a value bear no mark; no sample but the changed ones may be wrong.
    std::size_t wrong = 0;
    for (const auto& [name, delivered] : rescue.samples) {
      const auto original = original_.find(name);
      if (original == original_.end()) continue;  // its name was changed
      const std::size_t size =
          std::min(delivered.values.size(), original->second.values.size());
      if (delivered.times.size() != original->second.times.size()) continue;
      for (std::size_t i = 0; i < size; ++i)
        wrong += delivered.values[i] != original->second.values[i];
    }
    // The leaves of a bus show the bytes of its records again.
    EXPECT_LE(wrong, 2 * length);
  }
}

TEST_F(SalvageTest, TheLogIsReadToo) {
  reopen();
  const auto signal = Signal::getSignalByProperties(
      *manager_,
      {{strings::Name, std::wstring(L"first.small"), kodd::PropertyValueMatchRelation::Equal}});
  append(*signal, ramp(600, 4000), noise(4000));
  original_ = allSamples(*manager_);
  const std::string main = readBytes(folder_ / "store.dmr");
  const std::string log = readBytes(folder_ / "store.dmr-wal");
  ASSERT_FALSE(log.empty());

  test::writeText(folder_ / "damaged.dmr-wal", log);
  EXPECT_EQ(salvage(main).samples, original_);

  // The log goes beyond the end of a file that has lost its own.
  test::writeText(folder_ / "damaged.dmr-wal", log);
  const Rescue rescue = salvage(main.substr(0, main.size() / 2));
  EXPECT_FALSE(rescue.report.losses.empty());
  expectNothingWrong(rescue);
}

TEST_F(SalvageTest, SignalsWithoutTheirRunFormARunOfTheirOwn) {
  reopen();
  Signal loose(*manager_);
  loose.setName(L"loose");
  append(loose, {1., 2.}, {3., 4.});
  manager_->disconnect();
  const Rescue rescue = salvage(readBytes(folder_ / "store.dmr"));
  ASSERT_THAT(rescue.report.runs, SizeIs(3));
  EXPECT_EQ(rescue.report.runs[2].name, L"Recovered");
  EXPECT_EQ(rescue.report.runs[2].samples, 2U);
}

TEST_F(SalvageTest, WhatIsNoRepositoryOrInUseIsRefused) {
  const auto raised = [&] {
    return test::raisedBy([&] { Salvage salvage(damaged_.string()); });
  };
  EXPECT_EQ(raised(), "KODD:kodd:IOError") << "missing";
  for (const std::string& bytes : {std::string("text"), std::string(100'000, 'x')}) {
    test::writeText(damaged_, bytes);
    EXPECT_EQ(raised(), "KODD:kodd:NotARepository");
  }
  std::string foreign = bytes_;
  foreign[68] = 'X';
  test::writeText(damaged_, foreign);
  EXPECT_EQ(raised(), "KODD:kodd:NotARepository");

  test::writeText(damaged_, bytes_);
  ObjectManager user(test::wide(damaged_));
  user.initializeObjectManager("", "");
  EXPECT_EQ(raised(), "KODD:kodd:RepositoryBusy");
  user.disconnect();
  EXPECT_EQ(raised(), "");
}

}  // namespace
}  // namespace vela
