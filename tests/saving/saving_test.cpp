#include <boost/make_shared.hpp>

#include "host/functions.h"
#include "progresstracker/abstractprogresstracker.h"
#include "saving/savedformat.h"
#include "savingtest.h"

namespace vela {
namespace {

using host::HostArray;
using test::contentOf;
using test::raisedBy;
using testing::ElementsAreArray;

class RoundTripTest : public test::SavingTest {};

TEST_F(RoundTripTest, EverythingComesBackAsItWas) {
  fill();
  manager_->save(file());
  const auto copy = emptyRepository("copy.dmr");
  copy->load(file());
  EXPECT_THAT(contentOf(*copy), ElementsAreArray(contentOf(*manager_)));
  kodiag::util::diagnostics diag;
  EXPECT_TRUE(copy->repository().integrityProblems(diag).empty());
}

// Everything but what is shared is there again for each loading, and each copy stands alone.
TEST_F(RoundTripTest, LoadingTwiceGivesIndependentCopies) {
  fill();
  manager_->save(file());
  const auto once = emptyRepository("once.dmr");
  once->load(file());
  const auto twice = emptyRepository("twice.dmr");
  twice->load(file());
  std::vector<int> first = Set::getAllVisibleRunIDs(*twice);
  twice->load(file());
  EXPECT_EQ(Set::getRunCount(*twice, Set::Application::AllApplications),
            2 * static_cast<int>(first.size()));
  for (const std::string* shared : {&strings::Unit, &strings::DataType,
                                    &strings::ClassDefinition, &strings::EnumerationValue}) {
    EXPECT_EQ(countObjects(*twice, *shared, {}), countObjects(*once, *shared, {})) << *shared;
  }
  std::set<int> numbers;
  std::set<int> places;
  for (const auto& run : Set::getAllVisibleRuns(*twice)) {
    const int number = run->getRunNumber();
    EXPECT_TRUE(number == 0 || numbers.insert(number).second);
    EXPECT_TRUE(places.insert(run->getOrderIndex()).second);
  }
  EXPECT_EQ(Set::getHighestRunNumber(*twice), *numbers.rbegin());
  EXPECT_EQ(countObjects(*twice, strings::RunNumberByRunID, {equals(strings::FK_SetID, 0)}), 1);
  const std::vector<int> streams = findIDs(*twice, strings::YarrowRuns, {});
  ASSERT_EQ(streams.size(), 2u);
  std::set<std::string> names;
  for (const int id : streams) {
    bool found = false;
    const auto stream = twice->findObject(id, found);
    const std::string name = stream->getPropertyStdString(strings::Name);
    names.insert(name);
    EXPECT_EQ(countObjects(*twice, strings::YarrowSignals, {equals(strings::Name, name)}), 1);
    EXPECT_EQ(
        countObjects(*twice, strings::YarrowMetaData, {equals(strings::StreamUUID, name)}), 1);
  }
  EXPECT_EQ(names.size(), 2u);

  // The copy that stays does not notice that the other one goes.
  Set::removeRuns(*twice, first);
  std::vector<std::string> left;
  for (const auto& run : Set::getAllVisibleRuns(*twice)) {
    for (const int id : run->getSignalIDs(Set::SignalQueryType::all)) {
      left.push_back(text::toUtf8(Signal::getSignalFromID(*twice, id)->getName()));
    }
  }
  std::vector<std::string> expected;
  for (const auto& run : Set::getAllVisibleRuns(*once)) {
    for (const int id : run->getSignalIDs(Set::SignalQueryType::all)) {
      expected.push_back(text::toUtf8(Signal::getSignalFromID(*once, id)->getName()));
    }
  }
  EXPECT_EQ(left, expected);
  kodiag::util::diagnostics diag;
  EXPECT_TRUE(twice->repository().integrityProblems(diag).empty());
}

TEST_F(RoundTripTest, OnlyLivingRunsOfTheInstanceAreSavedAndTheyBecomeTheLoaders) {
  manager_->setInstanceID(76);
  Set others(*manager_, true);
  signalOf(others, L"others");
  manager_->setInstanceID(77);
  Set marked(*manager_, true);
  marked.getObjectReference().setPropertyInt32(strings::MarkedForDelete, 1);
  signalOf(marked, L"marked");
  Set kept(*manager_, true);
  kept.setBaselineSetID(others.getID());
  kept.setCompareToSetID(kept.getID());
  kept.setIsActivelyStreaming(true);
  const auto signal = signalOf(kept, L"kept");
  signal->setIsActivelyStreaming(true);
  signal->getObjectReference().setPropertyObject(strings::SourceSignal,
                                                 signal->getObjectReference());
  manager_->save(file());

  const auto copy = emptyRepository("copy.dmr");
  copy->setInstanceID(5);
  copy->load(file());
  const auto runs = Set::getAllVisibleRuns(*copy);
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0]->getRunNumber(), 1);
  EXPECT_EQ(runs[0]->getBaselineSetID(), 0);
  EXPECT_EQ(runs[0]->getCompareToSetID(), runs[0]->getID());
  EXPECT_FALSE(runs[0]->isActivelyStreaming());
  EXPECT_EQ(runs[0]->getObjectReference().getPropertyInt32(strings::OLDID), kept.getID());
  const std::vector<int> signals = findIDs(*copy, strings::Signal, {});
  ASSERT_EQ(signals.size(), 1u);
  const auto loaded = Signal::getSignalFromID(*copy, signals[0]);
  EXPECT_EQ(loaded->getName(), L"kept");
  EXPECT_FALSE(loaded->getIsActivelyStreaming());
  EXPECT_EQ(loaded->getSourceSignal()->getID(), loaded->getID());

  saving::save(*manager_, file(), Set::Sessions::all);
  copy->load(file());
  EXPECT_EQ(Set::getRunCount(*copy, Set::Application::AllApplications), 3);
}

TEST_F(RoundTripTest, LoadedRunsKeepTheirOrderAtEitherEndOfTheList) {
  for (const wchar_t* name : {L"a", L"b", L"c"}) Set(*manager_, true).setName(name);
  Set::getAllVisibleRuns(*manager_)[2]->setOrderIndex(-4);
  manager_->save(file());
  for (const bool atTop : {false, true}) {
    const auto copy = emptyRepository(atTop ? "top.dmr" : "bottom.dmr");
    copy->ensureInstanceRecords();
    Set::initializeDefaultRunNameTemplateAndShowAtTopFlag(L"", atTop, *copy);
    Set(*copy, true).setName(L"old");
    copy->load(file());
    std::wstring order;
    for (const auto& run : Set::getAllVisibleRuns(*copy)) order += run->getName();
    EXPECT_EQ(order, atTop ? L"cabold" : L"oldcab");
  }
}

TEST_F(RoundTripTest, LoadingRemovesTheOverwriteRun) {
  manager_->save(file());
  Set run(*manager_, true);
  const auto record = create(strings::OverwriteSet);
  record->setPropertyInt64(strings::InstanceID, manager_->getInstanceID());
  record->setPropertyObject(strings::SetID, run.getObjectReference());
  manager_->load(file());
  EXPECT_EQ(count(strings::DataSet), 0u);
  EXPECT_EQ(count(strings::OverwriteSet), 0u);
}

TEST(SavedFormatTest, ComparesVersionsByTheirNumbers) {
  EXPECT_TRUE(saving::isOlderVersion("8.4.9", "8.5.0 (B15b)"));
  EXPECT_FALSE(saving::isOlderVersion("8.5.0", "8.5.0"));
  EXPECT_FALSE(saving::isOlderVersion("10.0.0", "9.9.9"));
  EXPECT_TRUE(saving::isOlderVersion("8.5.0", "8.5.1"));
  EXPECT_EQ(saving::variableName("header", -5), "header_5");
}

// --- Files that others made.

using Variables = std::map<std::string, HostArray>;

HostArray with(const HostArray& structure, const std::string& field, const HostArray& value) {
  HostArray::Fields fields;
  bool isNew = true;
  for (const std::string& name : structure.fieldNames()) {
    fields.emplace_back(name, name == field ? value : structure.field(name));
    isNew = isNew && name != field;
  }
  if (isNew) fields.emplace_back(field, value);
  return HostArray::structure(std::move(fields));
}

HostArray without(const HostArray& structure, const std::string& field) {
  HostArray::Fields fields;
  for (const std::string& name : structure.fieldNames()) {
    if (name != field) fields.emplace_back(name, structure.field(name));
  }
  return HostArray::structure(std::move(fields));
}

class ForeignFileTest : public test::SavingTest {
 protected:
  ForeignFileTest() {
    Set run(*manager_, true);
    run.setCompareToSetID(run.getID());
    parent_ = signalOf(run, L"parent");
    child_ = signalOf(run, L"child");
    child_->setParent(parent_);
    append(*child_, {0, 1}, {2, 3});
    append(*child_, {2}, {4});
    runID_ = run.getID();
    manager_->save(file());
    const datafile::DataFileReader reader(path());
    for (const std::string& name : reader.names()) variables_[name] = reader.get(name);
    content_ = contentOf(*manager_);
  }

  static std::string data(int id) { return saving::variableName("data", id); }
  std::string childData() const { return data(child_->getID()); }

  void write(const Variables& variables) {
    datafile::DataFileWriter writer(path());
    for (const auto& [name, value] : variables) writer.put(name, value);
    writer.commit();
  }

  /// Replaces a property of the child's chunk of that number.
  static void changeChunk(HostArray& signal, std::size_t index, const std::string& field,
                          const HostArray& value) {
    const HostArray& chunks = signal.field(strings::Chunk);
    std::vector<HostArray> records(chunks.cells());
    const HostArray changed = with(records[index].field("data"), field, value);
    records[index] = with(records[index], "data", changed);
    signal = with(signal, strings::Chunk, HostArray::cell(std::move(records)));
  }

  boost::shared_ptr<Signal> parent_;
  boost::shared_ptr<Signal> child_;
  int runID_ = 0;
  Variables variables_;
  std::vector<std::string> content_;
};

TEST_F(ForeignFileTest, WhatIsNotInOrderIsRefusedAndLeavesNoTrace) {
  const std::string invalid = "nexstore:nex:InvalidFile";
  const HostArray one = HostArray::scalar(1.0);
  const HostArray text = HostArray::text("x");
  const std::string run = data(runID_);
  struct Case {
    const char* what;
    std::function<void(Variables&)> change;
  };
  const auto descriptor = [](const HostArray& value) {
    return [value](Variables& v) { v["NexDescriptor"] = value; };
  };
  const auto field = [](const std::string& variable, const std::string& name,
                        const HostArray& value) {
    return [=](Variables& v) { v[variable] = with(v[variable], name, value); };
  };
  const auto chunk = [this](std::size_t index, const std::string& name,
                            const HostArray& value) {
    return [=, this](Variables& v) { changeChunk(v[childData()], index, name, value); };
  };
  const auto reference = [](double id) {
    return HostArray::structure({{"ID", HostArray::scalar(id)},
                                 {"Type", HostArray::text("DataSet")},
                                 {"data", HostArray()}});
  };
  const auto timesOf = [](std::vector<double> times) {
    return HostArray::structure({{"BlobData", HostArray::list(std::move(times))},
                                 {"EpochBlobData", HostArray::list(std::vector<unsigned>{})}});
  };
  const Case cases[] = {
      {"no descriptor", [](Variables& v) { v.erase("NexDescriptor"); }},
      {"descriptor is no structure", descriptor(one)},
      {"descriptor of three fields", field("NexDescriptor", "More", text)},
      {"descriptor of one field", descriptor(HostArray::structure({{"Version", text}}))},
      {"descriptor in another order",
       descriptor(HostArray::structure({{"DatabaseID", text}, {"Version", text}}))},
      {"version is no text",
       descriptor(HostArray::structure({{"Version", one}, {"DatabaseID", text}}))},
      {"data missing", [&](Variables& v) { v.erase(run); }},
      {"header missing",
       [&](Variables& v) { v.erase(saving::variableName("header", parent_->getID())); }},
      {"header is no structure", [](Variables& v) { v["header9"] = HostArray::scalar(9.0); }},
      {"header without a number", [&](Variables& v) { v["headerX"] = v["header9"]; }},
      {"header of another object",
       [&](Variables& v) { v["header9"] = v[saving::variableName("header", runID_)]; }},
      {"unknown class", field(saving::variableName("header", runID_), "Type", text)},
      {"class that is never saved alone",
       field(saving::variableName("header", runID_), "Type", HostArray::text("Chunk"))},
      {"data is no structure", [&](Variables& v) { v[run] = one; }},
      {"data of another class", [&](Variables& v) { v[run] = v[childData()]; }},
      {"unknown field", field(run, "Colour", one)},
      {"text where a number should be", field(run, "Visible", text)},
      {"number where text should be", field(run, "UName", one)},
      {"fraction where a whole number should be", field(run, "Visible", HostArray::scalar(0.5))},
      {"number beyond 32 bits", field(run, "Visible", HostArray::scalar(1e10))},
      {"several numbers", field(run, "Visible", HostArray::list(std::vector<int>{1, 2}))},
      {"characters where bytes should be", field(childData(), "Color", text)},
      {"bare reference", field(run, "FK_CompareToSetID", one)},
      {"reference to nothing in the file", field(run, "FK_CompareToSetID", reference(12345))},
      {"reference to another class",
       field(run, "FK_CompareToSetID", reference(child_->getID()))},
      {"link to nothing in the file", field(childData(), "FK_SetID", HostArray::scalar(4))},
      {"link to another class",
       field(childData(), "FK_SetID", HostArray::scalar(parent_->getID()))},
      {"parents in a circle",
       field(data(parent_->getID()), "FK_Parent", HostArray::scalar(child_->getID()))},
      {"its own parent",
       field(data(parent_->getID()), "FK_Parent", HostArray::scalar(parent_->getID()))},
      {"chunks in no cell", field(childData(), "Chunk", one)},
      {"chunks before other fields",
       [&](Variables& v) {
         const HostArray name = v[childData()].field("Name");
         v[childData()] = with(without(v[childData()], "Name"), "Name", name);
       }},
      {"chunk without number", chunk(0, "ChunkNum", text)},
      {"chunk numbers in disorder", chunk(1, "ChunkNum", one)},
      {"chunk beyond the last", chunk(1, "ChunkNum", HostArray::scalar(3))},
      {"other number of points", chunk(0, "NumPoints", HostArray::scalar(3))},
      {"negative number of points", chunk(0, "NumPoints", HostArray::scalar(-1))},
      {"times of another class",
       chunk(0, "TimeChunk", HostArray::structure({{"BlobData", text}, {"EpochBlobData", text}}))},
      {"times decrease", chunk(0, "TimeChunk", timesOf({1, 0}))},
      {"times are no numbers", chunk(0, "TimeChunk", timesOf({0, test::kNaN}))},
      {"times reach into the next chunk", chunk(1, "TimeChunk", timesOf({0.5}))},
      {"span is not that of the times", chunk(0, "EndTime", HostArray::scalar(1.5))},
      {"chunk without values", chunk(0, "DataChunk", one)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Variables changed = variables_;
    c.change(changed);
    write(changed);
    EXPECT_EQ(raisedBy([&] { manager_->load(file()); }), invalid);
  }
  EXPECT_THAT(contentOf(*manager_), ElementsAreArray(content_));
}

TEST_F(ForeignFileTest, WhatIsNoDataFileCannotBeRead) {
  const std::string unreadable = "nexstore:nex:CouldNotReadMatFile";
  EXPECT_EQ(raisedBy([&] { manager_->load(test::wide(folder_ / "absent")); }), unreadable);
  EXPECT_EQ(raisedBy([&] { manager_->load(test::wide(folder_.path())); }), unreadable);
  EXPECT_EQ(raisedBy([&] { manager_->load(location()); }), unreadable);
  test::writeText(path(), "text");
  EXPECT_EQ(raisedBy([&] { manager_->load(file()); }), unreadable);
  EXPECT_THAT(contentOf(*manager_), ElementsAreArray(content_));
}

TEST_F(ForeignFileTest, OldFilesHoldBareReferencesAndMayLackProperties) {
  variables_["NexDescriptor"] =
      with(variables_["NexDescriptor"], "Version", HostArray::text("8.4.9"));
  for (auto& [name, value] : variables_) {
    if (!name.starts_with("data")) continue;
    const std::vector<std::string> fields = value.fieldNames();
    for (const std::string& field : fields) {
      const HostArray stored = value.field(field);
      if (stored.isStructure()) value = with(value, field, stored.field("ID"));
    }
  }
  HostArray& run = variables_[data(runID_)];
  run = without(without(run, "WasVisualizeOnly"), "Visible");
  write(variables_);
  const auto copy = emptyRepository("copy.dmr");
  copy->load(file());
  EXPECT_THAT(contentOf(*copy), ElementsAreArray(content_));
}

TEST_F(ForeignFileTest, IDsMayBeNegative) {
  Variables negated;
  for (auto& [name, value] : variables_) {
    HostArray changed = value;
    for (const std::string& field :
         value.isStructure() ? value.fieldNames() : std::vector<std::string>{}) {
      const HostArray& stored = value.field(field);
      const bool isID = field == "ID" || field == "FK_SetID" || field == "FK_Parent" ||
                        field == "FK_DataTypeDefinitionID";
      if (isID) changed = with(changed, field, HostArray::scalar(-stored.toDouble()));
      if (stored.isStructure()) {
        const double id = -stored.field("ID").toDouble();
        changed = with(changed, field, with(stored, "ID", HostArray::scalar(id)));
      }
    }
    std::string key = name;
    const std::size_t digit = name.find_first_of("0123456789");
    if (digit != std::string::npos) key.insert(digit, "_");
    negated[key] = changed;
  }
  write(negated);
  const auto copy = emptyRepository("copy.dmr");
  copy->load(file());
  // Objects of a class come in the order of their IDs, which is now the reverse.
  EXPECT_EQ(contentOf(*copy).size(), content_.size());
  const std::vector<int> signals = findIDs(*copy, strings::Signal, {});
  ASSERT_EQ(signals.size(), 2u);
  const auto child = Signal::getSignalFromID(*copy, signals[0]);
  EXPECT_EQ(child->getName(), L"child");
  bool found = false;
  EXPECT_EQ(child->getParent(found)->getID(), signals[1]);
  EXPECT_THAT(values(*child), testing::ElementsAre(2, 3, 4));
}

/// Lets the host have a version for a scope.
class HostVersion {
 public:
  explicit HostVersion(const char* version) {
    host::registerFunction("version", [version](auto, auto) {
      return host::HostArrays{HostArray::text(version)};
    });
  }
  ~HostVersion() { host::unregisterFunction("version"); }
};

TEST_F(ForeignFileTest, AFileKeepsTheHostsVersionAndANewerOneIsRefused) {
  {
    const HostVersion newer("9.1.0 (B20a)");
    manager_->save(file());
    EXPECT_EQ(datafile::DataFileReader(path()).get("NexDescriptor").field("Version").toString(),
              "9.1.0 (B20a)");
  }
  const HostVersion older("9.0.7");
  EXPECT_EQ(raisedBy([&] { manager_->load(file()); }), "nexstore:nex:InvalidFile");
  EXPECT_THAT(contentOf(*manager_), ElementsAreArray(content_));
}

// Its files hold references as bare IDs, and say so by its version.
TEST_F(ForeignFileTest, AHostBeforeRecordsLoadsWhatItSaves) {
  const HostVersion old("8.4.9");
  manager_->save(file());
  const HostArray run = datafile::DataFileReader(path()).get(data(runID_));
  EXPECT_EQ(run.field("FK_CompareToSetID").toInt64(), runID_);
  const auto copy = emptyRepository("copy.dmr");
  copy->load(file());
  EXPECT_THAT(contentOf(*copy), ElementsAreArray(content_));
}

TEST_F(ForeignFileTest, APathWithAZeroCharacterNamesNoOtherFile) {
  const std::wstring cut = file() + std::wstring(L"\0b", 2);
  EXPECT_EQ(raisedBy([&] { manager_->save(cut); }), "nexstore:nex:CouldNotWriteToMatFile");
  EXPECT_EQ(raisedBy([&] { manager_->load(cut); }), "nexstore:nex:CouldNotReadMatFile");
}

TEST_F(ForeignFileTest, ARepositoryIsNeverSavedOver) {
  emptyRepository("other.dmr").reset();
  std::filesystem::create_symlink("absent", folder_ / "link");
  for (const char* name :
       {"other.dmr", "other.dmr-wal", "other.dmr-lock", "link", "absent/x"}) {
    EXPECT_EQ(raisedBy([&] { manager_->save(test::wide(folder_ / name)); }),
              "nexstore:nex:CouldNotWriteToMatFile")
        << name;
  }
  EXPECT_EQ(raisedBy([&] { manager_->save(location()); }),
            "nexstore:nex:CouldNotWriteToMatFile");
  EXPECT_THAT(contentOf(*manager_), ElementsAreArray(content_));
}

}  // namespace
}  // namespace vela
