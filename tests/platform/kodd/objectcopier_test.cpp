#include "kodd/objectcopier.h"

#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "koddtest.h"

namespace kodd {
namespace {

class ObjectCopierTest : public KoddTest {
 protected:
  Selection all(const char* className) { return Selection(cls(className)); }
  Selection signalsOf(int run) {
    return all("Signal").matching(prop("Signal", "Run"), Relation::Equal, run);
  }
  std::vector<int> ids(const Selection& selection) {
    return repository_.selectIDs(selection, {}, NoFailure());
  }
  int number(int id, const char* className, const char* name) {
    return get<int>(repository_.getObjectRef(id, cls(className), NoFailure()), name);
  }
};

// Trees of signals over several blocks of IDs, compared link by link with their originals.
TEST_F(ObjectCopierTest, LinksAmongTheCopiedLeadToTheCopiesAndOthersStay) {
  std::mt19937 random(8);
  int run = 0;
  int target = 0;
  std::vector<int> originals;
  int outside = 0;
  inUnit([&](diagnostics&) {
    run = create("Run").id();
    target = create("Run").id();
    outside = create("Signal").id();
    for (int i = 0; i < 900; ++i) {
      const ObjectRef signal = create("Signal");
      set(signal, "Run", run);
      set(signal, "Order", i);
      int parent = 0;
      if (random() % 3 == 0) parent = outside;
      if (!originals.empty() && random() % 3 == 0) {
        parent = originals[random() % originals.size()];
      }
      set(signal, "Parent", parent);
      originals.push_back(signal.id());
    }
  });
  std::vector<int> copies;
  inUnit([&](diagnostics& diag) {
    ObjectCopier copier(repository_);
    copier.substitute(run, target, diag);
    EXPECT_EQ(copier.add(signalsOf(run), diag), 900);
    EXPECT_EQ(copier.add(signalsOf(run), diag), 0);
    copier.give(prop("Signal", "Mask"), 5, diag);
    copier.copy(diag);
    for (const int id : originals) copies.push_back(copier.placeOf(id, diag));
    EXPECT_EQ(copier.placeOf(outside, diag), 0);
  });
  EXPECT_EQ(ids(signalsOf(target)), copies);
  std::map<int, int> placeOf = {{0, 0}, {outside, outside}};
  for (std::size_t i = 0; i < copies.size(); ++i) placeOf[originals[i]] = copies[i];
  for (std::size_t i = 0; i < copies.size(); ++i) {
    ASSERT_EQ(number(copies[i], "Signal", "Order"), static_cast<int>(i));
    ASSERT_EQ(number(copies[i], "Signal", "Mask"), 5);
    ASSERT_EQ(number(copies[i], "Signal", "Parent"),
              placeOf.at(number(originals[i], "Signal", "Parent")));
    ASSERT_EQ(number(originals[i], "Signal", "Run"), run);
  }
  // Later objects continue behind the copies.
  EXPECT_GT(create("Signal").id(), copies.back());
  EXPECT_TRUE(repository_.integrityProblems(NoFailure()).empty());
}

TEST_F(ObjectCopierTest, ValuesOfEveryKindAndLargeBlobsAreKept) {
  const std::string large(3'000'000, 'x');
  std::vector<int> runs;
  inUnit([&](diagnostics&) {
    for (int i = 0; i < 5; ++i) {
      const ObjectRef run = create("Run");
      set(run, "Start", i == 0 ? -0.0 : std::numeric_limits<double>::quiet_NaN());
      set(run, "Title", std::wstring(L"\u00fc"));
      set(run, "Image", const_BlobDescriptor(large.data(), large.size() - runs.size()));
      runs.push_back(run.id());
    }
  });
  std::vector<int> copies;
  inUnit([&](diagnostics& diag) {
    ObjectCopier copier(repository_);
    copier.add(all("Run"), diag);
    copier.copy(diag);
    for (const int id : runs) copies.push_back(copier.placeOf(id, diag));
  });
  for (std::size_t i = 0; i < copies.size(); ++i) {
    const ObjectRef copy = repository_.getObjectRef(copies[i], cls("Run"), NoFailure());
    const double start = get<double>(copy, "Start");
    EXPECT_TRUE(i == 0 ? std::signbit(start) && start == 0 : std::isnan(start));
    EXPECT_EQ(get<std::wstring>(copy, "Title"), L"\u00fc");
    EXPECT_EQ(get<std::vector<char>>(copy, "Image").size(), large.size() - i);
  }
}

TEST_F(ObjectCopierTest, OutsideAUnitOfWorkItIsRefused) {
  ObjectCopier copier(repository_);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { copier.add(all("Run"), diag); }),
            "KODD:kodd:NoTransaction");
}

TEST_F(ObjectCopierTest, AfterAFailedUnitTheNextCopyStartsAfresh) {
  const int run = create("Run").id();
  for (int attempt = 0; attempt < 2; ++attempt) {
    DictionaryFunction fail = [&](diagnostics& diag) {
      ObjectCopier copier(repository_);
      copier.add(all("Run"), diag);
      copier.copy(diag);
      throw std::runtime_error("no");
    };
    diagnostics ignored;
    repository_.performDictionaryFunction(fail, ignored);
    EXPECT_EQ(ids(all("Run")), std::vector<int>{run});
  }
  inUnit([&](diagnostics& diag) {
    ObjectCopier copier(repository_);
    EXPECT_EQ(copier.add(all("Run"), diag), 1);
    copier.copy(diag);
  });
  EXPECT_EQ(ids(all("Run")).size(), 2u);
}

}  // namespace
}  // namespace kodd
