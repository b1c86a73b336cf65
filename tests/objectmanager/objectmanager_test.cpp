#include "objectmanager/objectmanager.h"

#include <cmath>

#include "managertest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using Relation = kodd::PropertyValueMatchRelation;

class ObjectManagerTest : public test::ManagerTest {
 protected:
  int createRun(int orderIndex, double date, const std::wstring& name) {
    std::vector<ObjectManager::InitialProperty> properties = {
        {"OrderIndex", &orderIndex, ObjectConstructorPropType::int32},
        {"Date", &date, ObjectConstructorPropType::real64},
        {"UName", &name, ObjectConstructorPropType::uString}};
    return manager_->createObject("DataSet", properties, true)->getObjectID();
  }
  std::vector<int> find(
      const std::vector<ObjectManager::Constraint>& constraints,
      const std::string& orderBy = {},
      kodd::ObjectQuery::SortOrder order = kodd::ObjectQuery::SortOrder::ascending) {
    boost::ptr_vector<ObjectRef> found;
    manager_->findObjects("DataSet", constraints, found, {}, orderBy, order);
    std::vector<int> ids;
    for (const ObjectRef& object : found) ids.push_back(object.getObjectID());
    return ids;
  }
};

TEST_F(ObjectManagerTest, CreatesObjectsWithDefaultsAndFindsThemByID) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  EXPECT_EQ(run->getObjectType(), "DataSet");
  EXPECT_EQ(run->getPropertyInt32("Visible"), 1);
  EXPECT_EQ(run->getPropertyUString("UName"), L"");

  EXPECT_EQ(manager_->createObject("DataSet", false), nullptr);
  EXPECT_EQ(count("DataSet"), 2u);

  bool found = false;
  EXPECT_EQ(manager_->findObject(run->getObjectID(), "DataSet", found)->getObjRef(),
            run->getObjRef());
  EXPECT_TRUE(found);
  EXPECT_EQ(manager_->findObject(run->getObjectID(), found)->getObjectType(), "DataSet");
  EXPECT_TRUE(found);
}

TEST_F(ObjectManagerTest, FindsNothingForIDsThatNameNoObjectOfTheClass) {
  const int signal = create("Signal")->getObjectID();
  for (const int id : {signal, 0, -1, 1'000'000}) {
    SCOPED_TRACE(id);
    bool found = true;
    EXPECT_EQ(manager_->findObject(id, "DataSet", found), nullptr);
    EXPECT_FALSE(found);
    kodd::ClassRef cls;
    kodd::ObjectRef object;
    EXPECT_FALSE(manager_->getObjectRef("DataSet", cls, id, object));
    EXPECT_EQ(cls.name(), "DataSet");
  }
}

TEST_F(ObjectManagerTest, WritesInitialValuesOfEveryKindInOneCreation) {
  const std::unique_ptr<ObjectRef> baseline = create("DataSet");
  const int order = -3;
  const long long instance = 1LL << 62;
  const double date = -0.0;
  const std::string checksum("a\0b", 3);
  const std::wstring name = L"Lauf \U0001F600";
  std::vector<ObjectManager::InitialProperty> properties = {
      {"OrderIndex", &order, ObjectConstructorPropType::int32},
      {"InstanceID", &instance, ObjectConstructorPropType::int64},
      {"Date", &date, ObjectConstructorPropType::real64},
      {"ModelChecksum", &checksum, ObjectConstructorPropType::stdString},
      {"UName", &name, ObjectConstructorPropType::uString},
      {"BaselineSetID", &baseline->getObjRef(), ObjectConstructorPropType::objectRef}};
  const auto run = manager_->createObject("DataSet", properties, true);
  EXPECT_EQ(run->getPropertyInt32("OrderIndex"), order);
  EXPECT_EQ(run->getPropertyInt64("InstanceID"), instance);
  EXPECT_TRUE(std::signbit(run->getPropertyReal64("Date")));
  EXPECT_EQ(run->getPropertyStdString("ModelChecksum"), checksum);
  EXPECT_EQ(run->getPropertyUString("UName"), name);
  std::unique_ptr<ObjectRef> named;
  run->getPropertyObject("BaselineSetID", named, "DataSet");
  EXPECT_EQ(named->getObjectID(), baseline->getObjectID());

  const std::string bytes = "blob";
  const kodd::const_BlobDescriptor blob(bytes.data(), bytes.size());
  std::vector<ObjectManager::InitialProperty> blobOnly = {
      {"BlobValue", &blob, ObjectConstructorPropType::constBlob}};
  std::vector<char> read;
  manager_->createObject("MetaData", blobOnly, true)->getProperty("BlobValue", read);
  EXPECT_EQ(std::string(read.begin(), read.end()), bytes);
}

TEST_F(ObjectManagerTest, ReusedConstructorTakesTheValuesOfEachCall) {
  const int first = createRun(1, 1.5, L"one");
  const int second = createRun(2, 2.5, L"two");
  bool found = false;
  EXPECT_EQ(manager_->findObject(first, found)->getPropertyUString("UName"), L"one");
  EXPECT_EQ(manager_->findObject(second, found)->getPropertyUString("UName"), L"two");
}

TEST_F(ObjectManagerTest, RefusesUnknownNamesBeforeAnythingIsStored) {
  const int value = 1;
  std::vector<ObjectManager::InitialProperty> unknown = {
      {"NoSuchProperty", &value, ObjectConstructorPropType::int32}};
  std::vector<ObjectManager::InitialProperty> missing = {
      {"OrderIndex", nullptr, ObjectConstructorPropType::int32}};
  boost::ptr_vector<ObjectRef> results;
  const struct {
    const char* what;
    std::function<void()> action;
    const char* id;
  } cases[] = {
      {"class", [&] { manager_->createObject("NoSuchClass", true); }, "NoSuchObjectType"},
      {"package", [&] { manager_->createObject("nobody.DataSet", true); }, "NoSuchObjectType"},
      {"class of findObject",
       [&] {
         bool found = false;
         manager_->findObject(1, "NoSuchClass", found);
       },
       "NoSuchObjectType"},
      {"class of findObjects", [&] { manager_->findObjects("NoSuchClass", {}, results); },
       "NoSuchObjectType"},
      {"initial property", [&] { manager_->createObject("DataSet", unknown, true); },
       "InvalidProperty"},
      {"constraint",
       [&] {
         find({{"NoSuchProperty", 1, Relation::Equal}});
       },
       "InvalidProperty"},
      {"order", [&] { find({}, "NoSuchProperty"); }, "InvalidProperty"},
      {"modifier",
       [&] { manager_->createObjectModifier("NoSuchProperty", manager_->getClass("DataSet")); },
       "InvalidProperty"},
      {"property of a class", [&] { manager_->getPropertyRef("DataSet", "visible"); },
       "InvalidProperty"},
      {"removal", [&] { manager_->removeObject(4711, "DataSet"); }, "NoSuchObject"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(raisedBy(c.action), std::string("KODD:kodd:") + c.id);
  }
  EXPECT_EQ(raisedBy([&] { manager_->createObject("DataSet", missing, true); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(count("DataSet"), 0u);
}

TEST_F(ObjectManagerTest, QualifiedNamesReachOtherPackages) {
  const std::unique_ptr<ObjectRef> suite = create("qrv.TestSuite");
  EXPECT_EQ(suite->getObjectType(), "TestSuite");
  suite->setPropertyStdString("Name", "nightly");
  EXPECT_EQ(count("qrv.TestSuite"), 1u);
  EXPECT_EQ(raisedBy([&] { create("TestSuite"); }), "KODD:kodd:NoSuchObjectType");

  std::string name;
  EXPECT_EQ(manager_->getPackageAndClass("qrv.A.B", name).name(), "qrv");
  EXPECT_EQ(name, "A.B");
  EXPECT_EQ(manager_->getPackageAndClass("DataSet", name).name(), "vela");
  EXPECT_EQ(name, "DataSet");
  EXPECT_FALSE(manager_->getPackageAndClass(".DataSet", name).isValid());
}

TEST_F(ObjectManagerTest, FindsObjectsThatSatisfyEveryConstraintInTheOrderAsked) {
  const int a = createRun(2, 1.0, L"x");
  const int b = createRun(1, 1.0, L"y");
  const int c = createRun(3, 2.0, L"x");
  using enum kodd::ObjectQuery::SortOrder;
  EXPECT_THAT(find({}), ElementsAre(a, b, c));
  EXPECT_THAT(find({}, "OrderIndex"), ElementsAre(b, a, c));
  EXPECT_THAT(find({}, "OrderIndex", descending), ElementsAre(c, a, b));
  EXPECT_THAT(find({{"UName", std::wstring(L"x"), Relation::Equal}}), ElementsAre(a, c));
  EXPECT_THAT(
      find({{"UName", std::wstring(L"x"), Relation::Equal}, {"Date", 1.5, Relation::Greater}}),
      ElementsAre(c));
  // Values of another type that say the same, as scripts give them.
  EXPECT_THAT(find({{"OrderIndex", 2.0, Relation::Equal}}), ElementsAre(a));
  EXPECT_THAT(find({{"Visible", true, Relation::Equal}}), ElementsAre(a, b, c));
  EXPECT_EQ(raisedBy([&] {
              find({{"OrderIndex", std::string("two"), Relation::Equal}});
            }),
            "KODD:kodd:InvalidPropertyValue");
}

TEST_F(ObjectManagerTest, FindsObjectsThatReferToAnother) {
  const std::unique_ptr<ObjectRef> baseline = create("DataSet");
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  run->setPropertyObject("BaselineSetID", *baseline);
  boost::ptr_vector<ObjectRef> found;
  manager_->findObjects("DataSet", {}, found, {{"BaselineSetID", baseline.get()}});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found.front().getObjectID(), run->getObjectID());
  EXPECT_EQ(raisedBy([&] {
              manager_->findObjects("DataSet", {}, found, {{"BaselineSetID", nullptr}});
            }),
            "KODD:kodd:InvalidObject");
}

TEST_F(ObjectManagerTest, UUIDTypePairSearchReplacesOrAppends) {
  create("UUIDTypePair")->setPropertyInt64("ClientUUID", 7);
  create("UUIDTypePair")->setPropertyInt64("ClientUUID", 8);
  boost::ptr_vector<ObjectRef> found;
  manager_->findUUIDTypePairObjects({{"ClientUUID", 7, Relation::Equal}}, found, false);
  EXPECT_EQ(found.size(), 1u);
  manager_->findUUIDTypePairObjects({}, found, true);
  EXPECT_EQ(found.size(), 3u);
  manager_->findUUIDTypePairObjects({}, found, false);
  EXPECT_EQ(found.size(), 2u);
}

TEST_F(ObjectManagerTest, RemovedObjectsAreGoneAndStayGone) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  manager_->removeObject(run->getObjectID(), "DataSet");
  bool found = true;
  EXPECT_EQ(manager_->findObject(run->getObjectID(), found), nullptr);
  kodiag::util::diagnostics diag;
  EXPECT_EQ(raisedBy([&] { run->removeObject(diag); }), "KODD:kodd:NoSuchObject");
  EXPECT_FALSE(diag.empty());
  EXPECT_EQ(raisedBy([&] { run->getPropertyInt32("Visible"); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(count("DataSet"), 0u);
}

struct CountedSet : PreparedSet {
  explicit CountedSet(ObjectManager& manager) : cls(manager.getClass("DataSet")) { ++made; }
  kodd::ClassRef cls;
  static inline int made = 0;
};

TEST_F(ObjectManagerTest, PreparedSetsLiveUntilTheRepositoryIsOpenedAnew) {
  CountedSet::made = 0;
  CountedSet& first = manager_->prepared<CountedSet>();
  EXPECT_EQ(&manager_->prepared<CountedSet>(), &first);
  EXPECT_EQ(CountedSet::made, 1);
  manager_->initializeObjectManager("", "");
  manager_->prepared<CountedSet>();
  EXPECT_EQ(CountedSet::made, 2);
}

TEST_F(ObjectManagerTest, EverythingReportsARepositoryThatIsNotOpen) {
  const std::unique_ptr<ObjectRef> run = create("DataSet");
  manager_->disconnect();
  EXPECT_FALSE(manager_->isOpen());
  boost::ptr_vector<ObjectRef> results;
  const std::pair<const char*, std::function<void()>> uses[] = {
      {"create", [&] { manager_->createObject("DataSet", true); }},
      {"find", [&] { manager_->findObjects("DataSet", {}, results); }},
      {"find by ID",
       [&] {
         bool found = false;
         manager_->findObject(run->getObjectID(), found);
       }},
      {"begin", [&] { manager_->beginTransaction(); }},
      {"unit", [&] { manager_->inTransaction([] {}); }},
      {"close the instance", [&] { manager_->setInstanceClosed(); }},
      {"instance records", [&] { manager_->ensureInstanceRecords(); }},
      {"dead instances", [&] { manager_->closeDeadInstances(); }},
  };
  for (const auto& [what, use] : uses) {
    SCOPED_TRACE(what);
    EXPECT_EQ(raisedBy(use), "KODD:kodd:RepositoryNotOpen");
  }
  EXPECT_EQ(raisedBy([&] { run->getPropertyInt32("Visible"); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { run->setPropertyInt32("Visible", 0); }), "KODD:kodd:InvalidObject");
}

}  // namespace
}  // namespace vela
