#include "objects/integrity.h"

#include <gmock/gmock.h>

#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class IntegrityTest : public test::SignalTest {
 protected:
  /// The only object of the class.
  std::unique_ptr<ObjectRef> the(const std::string& className) {
    boost::ptr_vector<ObjectRef> all;
    manager_->findObjects(className, {}, all);
    return all.front().clone();
  }
};

TEST_F(IntegrityTest, NamesWhatTheObjectsDoNotSayOfEachOther) {
  Signal signal(*manager_);
  const boost::shared_ptr<Signal> other(new Signal(*manager_));
  append(signal, {1, 2, 3});
  other->setParent(boost::shared_ptr<Signal>(boost::shared_ptr<Signal>(), &signal));
  ASSERT_THAT(findSignalProblems(*manager_), IsEmpty());
  const std::string first = "chunk 1 of signal " + std::to_string(signal.getID());
  const struct {
    std::function<void()> damage;
    const char* problem;
    std::string where;
  } cases[] = {
      {[&] { the(strings::Chunk)->setPropertyInt32(strings::NumPoints, 4); },
       "more samples than they have times", first},
      {[&] { the(strings::Chunk)->setPropertyInt32(strings::NumPoints, -1); },
       "less than nothing", first},
      {[&] { the(strings::Chunk)->setPropertyReal64(strings::EndTime, 0.5); }, "end before",
       first},
      {[&] {
         the(strings::DataChunk)->setPropertyConstBlob(strings::BlobData, {nullptr, 0});
       },
       "no values", first},
      {[&] { signal.getObjectReference().setPropertyInt32(strings::NumBytesInLastChunk, -8); },
       "less than nothing", "signal " + std::to_string(signal.getID())},
      {[&] {
         signal.getObjectReference().setPropertyInt32(strings::FK_Parent, other->getID());
       },
       "below themselves", "signal " + std::to_string(signal.getID())},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.problem);
    manager_->beginTransaction();
    c.damage();
    EXPECT_THAT(findSignalProblems(*manager_),
                ElementsAre(testing::AllOf(HasSubstr(c.problem), HasSubstr(c.where))));
    manager_->rollbackTransaction();
  }
}

}  // namespace
}  // namespace vela
