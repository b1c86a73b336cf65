#include "objectmanager/bulkupdates.h"

#include <new>

#include "managertest.h"

namespace vela {
namespace {

using test::raisedBy;

class BulkUpdatesTest : public test::ManagerTest {
 protected:
  std::unique_ptr<ObjectRef> run_ = create("DataSet");
};

TEST_F(BulkUpdatesTest, WithoutABeginEveryWriteIsMadeAtOnce) {
  const int order = 3;
  run_->setPropertyWithBulkSupport("OrderIndex", &order);
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 3);
  run_->commitBulkPropertyUpdate();
  EXPECT_EQ(raisedBy([&] { run_->setPropertyWithBulkSupport("NoSuchProperty", &order); }),
            "KODD:kodd:InvalidProperty");
}

TEST_F(BulkUpdatesTest, BoundValuesAreReadAtTheCommitAndWrittenTogether) {
  const std::unique_ptr<ObjectRef> baseline = create("DataSet");
  int order = 3;
  long long instance = 4;
  double date = 5;
  std::string checksum = "six";
  std::wstring name = L"seven";
  kodd::ObjectRef reference = baseline->getObjRef();
  run_->beginBulkPropertyUpdate();
  run_->setPropertyWithBulkSupport("OrderIndex", &order);
  run_->setPropertyWithBulkSupport("InstanceID", &instance);
  run_->setPropertyWithBulkSupport("Date", &date);
  run_->setPropertyWithBulkSupport("ModelChecksum", &checksum);
  run_->setPropertyWithBulkSupport("UName", &name);
  run_->setPropertyWithBulkSupport("BaselineSetID", &reference);
  run_->beginBulkPropertyUpdate();  // keeps what is bound
  EXPECT_EQ(raisedBy([&] { run_->setPropertyWithBulkSupport("NoSuchProperty", &order); }),
            "KODD:kodd:InvalidProperty");
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 0);

  order = 33;
  name = L"seventy-seven";
  run_->commitBulkPropertyUpdate();
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 33);
  EXPECT_EQ(run_->getPropertyInt64("InstanceID"), 4);
  EXPECT_EQ(run_->getPropertyReal64("Date"), 5);
  EXPECT_EQ(run_->getPropertyStdString("ModelChecksum"), "six");
  EXPECT_EQ(run_->getPropertyUString("UName"), L"seventy-seven");
  EXPECT_EQ(run_->getPropertyInt32("BaselineSetID"), baseline->getObjectID());

  order = 4;
  run_->setPropertyWithBulkSupport("OrderIndex", &order);
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 4);
}

TEST_F(BulkUpdatesTest, OfTwoBindingsOfOnePropertyTheLastWins) {
  const int first = 1;
  const int second = 2;
  run_->beginBulkPropertyUpdate();
  run_->setPropertyWithBulkSupport("OrderIndex", &first);
  run_->setPropertyWithBulkSupport("OrderIndex", &second);
  run_->commitBulkPropertyUpdate();
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 2);
}

TEST_F(BulkUpdatesTest, AnUpdateWithoutWritesChangesNothing) {
  run_->beginBulkPropertyUpdate();
  EXPECT_EQ(raisedBy([&] { run_->commitBulkPropertyUpdate(); }), "");
}

TEST_F(BulkUpdatesTest, HandlesToOneObjectHaveSeparateUpdates) {
  const std::unique_ptr<ObjectRef> twin = run_->clone();
  const int bound = 1;
  const int direct = 2;
  run_->beginBulkPropertyUpdate();
  run_->setPropertyWithBulkSupport("OrderIndex", &bound);
  twin->setPropertyWithBulkSupport("OrderIndex", &direct);
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 2);
  twin->commitBulkPropertyUpdate();
  run_->commitBulkPropertyUpdate();
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 1);
}

TEST_F(BulkUpdatesTest, AFailedCommitEndsTheUpdate) {
  const int order = 3;
  run_->beginBulkPropertyUpdate();
  run_->setPropertyWithBulkSupport("OrderIndex", &order);
  manager_->removeObject(run_->getObjectID(), "DataSet");
  EXPECT_EQ(raisedBy([&] { run_->commitBulkPropertyUpdate(); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { run_->commitBulkPropertyUpdate(); }), "");
}

TEST_F(BulkUpdatesTest, ANewHandleAtTheAddressOfAnOldOneStartsWithoutAnUpdate) {
  alignas(ObjectRef) unsigned char place[sizeof(ObjectRef)];
  const std::unique_ptr<ObjectRef> other = create("DataSet");
  const int old = 1;
  auto* handle = new (place)
      ObjectRef(run_->getObjRef(), run_->getClassRef(), run_->getObjectType(), *manager_);
  handle->beginBulkPropertyUpdate();
  handle->setPropertyWithBulkSupport("OrderIndex", &old);
  handle->~ObjectRef();

  handle = new (place)
      ObjectRef(other->getObjRef(), other->getClassRef(), other->getObjectType(), *manager_);
  const int written = 2;
  handle->setPropertyWithBulkSupport("OrderIndex", &written);
  EXPECT_EQ(handle->getPropertyInt32("OrderIndex"), 2);
  handle->commitBulkPropertyUpdate();
  EXPECT_EQ(run_->getPropertyInt32("OrderIndex"), 0);
  handle->~ObjectRef();
}

}  // namespace
}  // namespace vela
