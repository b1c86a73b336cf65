#include "objectmanager/objectref.h"

#include <cmath>
#include <limits>

#include "managertest.h"

namespace vela {
namespace {

using test::raisedBy;

class ObjectRefTest : public test::ManagerTest {};

TEST_F(ObjectRefTest, PropertiesReadBackWhatWasWritten) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  run->setPropertyInt32("OrderIndex", std::numeric_limits<int>::min());
  run->setPropertyInt64("InstanceID", std::numeric_limits<long long>::max());
  run->setPropertyReal64("Date", std::nan(""));
  run->setPropertyStdString("ModelChecksum", "\xff\xfe");
  run->setPropertyUString("UName", L"Größe");
  EXPECT_EQ(run->getPropertyInt32("OrderIndex"), std::numeric_limits<int>::min());
  EXPECT_EQ(run->getPropertyInt64("OrderIndex"), std::numeric_limits<int>::min());
  EXPECT_EQ(run->getPropertyInt64("InstanceID"), std::numeric_limits<long long>::max());
  EXPECT_TRUE(std::isnan(run->getPropertyReal64("Date")));
  EXPECT_EQ(run->getPropertyStdString("ModelChecksum"), "\xff\xfe");
  EXPECT_EQ(run->getPropertyUString("UName"), L"Größe");

  run->setProperty("Date", kodd::EntryValue(2.5));
  kodd::EntryValue value;
  run->getProperty("Date", value);
  EXPECT_EQ(std::get<double>(value), 2.5);
}

TEST_F(ObjectRefTest, BlobsAreReadWholeOrCutWithTheirFullLength) {
  const std::unique_ptr<ObjectRef> data = create("MetaData");
  data->setPropertyConstBlob("BlobValue", kodd::const_BlobDescriptor("0123456789", 10));
  std::vector<char> whole;
  data->getProperty("BlobValue", whole);
  EXPECT_EQ(std::string(whole.begin(), whole.end()), "0123456789");

  char buffer[] = "........";
  int length = 0;
  data->getProperty("BlobValue", 4, buffer, length);
  EXPECT_EQ(length, 10);
  EXPECT_STREQ(buffer, "0123....");
}

TEST_F(ObjectRefTest, ObjectPropertiesResolveReferencesAndLinks) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  const std::unique_ptr<ObjectRef> baseline = create("DataSet");
  const std::unique_ptr<ObjectRef> data = create("MetaData");
  std::unique_ptr<ObjectRef> named = run->clone();
  run->getPropertyObject("BaselineSetID", named, "DataSet");
  EXPECT_EQ(named, nullptr);

  run->setPropertyObject("BaselineSetID", *baseline);
  run->getPropertyObject("BaselineSetID", named, "DataSet");
  ASSERT_NE(named, nullptr);
  EXPECT_EQ(named->getObjectID(), baseline->getObjectID());

  data->setPropertyObject("FK_ParentID", *run);
  EXPECT_EQ(data->getPropertyInt32("FK_ParentID"), run->getObjectID());
  data->getPropertyObject("FK_ParentID", named, "");
  ASSERT_NE(named, nullptr);
  EXPECT_EQ(named->getObjectType(), "DataSet");
  EXPECT_EQ(raisedBy([&] { data->getPropertyObject("FK_ParentID", named, "Signal"); }),
            "KODD:kodd:NoSuchObject");

  manager_->removeObject(baseline->getObjectID(), "DataSet");
  run->getPropertyObject("BaselineSetID", named, "DataSet");
  EXPECT_EQ(named, nullptr);
}

TEST_F(ObjectRefTest, UnknownPropertiesAreRefusedAndLeaveTheHandleUsable) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  kodd::EntryValue value;
  EXPECT_EQ(raisedBy([&] { run->getPropertyInt32("Nothing"); }), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(raisedBy([&] { run->setPropertyReal64("date", 1); }), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(raisedBy([&] { run->getProperty("", value); }), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(run->getPropertyInt32("Visible"), 1);
}

TEST_F(ObjectRefTest, ValuesThatDoNotFitAreRefused) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  const std::unique_ptr<ObjectRef> signal = create("Signal");
  const std::function<void()> writes[] = {
      [&] { run->setPropertyStdString("OrderIndex", "1"); },
      [&] { run->setProperty("OrderIndex", kodd::EntryValue(1.5)); },
      [&] { run->setProperty("OrderIndex", kodd::EntryValue(1LL << 40)); },
      [&] { run->setPropertyObject("BaselineSetID", *signal); },
  };
  for (const auto& write : writes) {
    EXPECT_EQ(raisedBy(write), "KODD:kodd:InvalidPropertyValue");
  }
  EXPECT_EQ(run->getPropertyInt32("OrderIndex"), 0);
}

TEST_F(ObjectRefTest, NullHandlesAreRefused) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  ObjectRef null(kodd::ObjectRef(), manager_->getClass("DataSet"), "DataSet", *manager_);
  EXPECT_TRUE(null.isNull());
  EXPECT_FALSE(run->isNull());
  EXPECT_EQ(null.getTag(), 0);
  EXPECT_EQ(ObjectRef(7, run->getObjRef(), run->getClassRef(), "DataSet", *manager_)
                .clone()
                ->getTag(),
            7);
  kodiag::util::diagnostics diag;
  int value = 0;
  const std::function<void()> uses[] = {
      [&] { null.getPropertyInt32("Visible"); },
      [&] { null.setPropertyInt32("Visible", 1); },
      [&] { null.beginBulkPropertyUpdate(); },
      [&] { null.setPropertyWithBulkSupport("Visible", &value); },
      [&] { null.removeObject(diag); },
      [&] { null.addChild(*run); },
      [&] { run->addChild(null); },
  };
  for (const auto& use : uses) EXPECT_EQ(raisedBy(use), "KODD:kodd:InvalidObject");

  ObjectRef empty(kodd::ObjectRef(), kodd::ClassRef(), "", *manager_);
  EXPECT_EQ(raisedBy([&] { empty.getPropertyInt32("Visible"); }), "KODD:kodd:InvalidObject");
}

TEST_F(ObjectRefTest, HandlesFromBeforeAReopeningNameNothingAnyMore) {
  const std::unique_ptr<ObjectRef> stale = create("DataSet");
  manager_->initializeObjectManager("", "");
  EXPECT_EQ(raisedBy([&] { stale->getPropertyInt32("Visible"); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { stale->setPropertyInt32("Visible", 0); }),
            "KODD:kodd:InvalidObject");
  kodiag::util::diagnostics diag;
  EXPECT_EQ(raisedBy([&] { stale->removeObject(diag); }), "KODD:kodd:InvalidObject");
  bool found = false;
  EXPECT_EQ(manager_->findObject(stale->getObjectID(), found)->getPropertyInt32("Visible"), 1);
}

}  // namespace
}  // namespace vela
