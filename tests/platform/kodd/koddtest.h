// A repository in a folder of its own with a small schema, and verbs to work on it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "kodd/datamodelrepository.h"
#include "kodiag/diagnostics.h"
#include "sqldb/database.h"
#include "text/utf8.h"

namespace kodd {

using kodiag::util::diagnostics;
using Relation = PropertyValueMatchRelation;

inline constexpr const char* kLabClasses = R"(
  <Class name="Run">
    <Property name="Number" kind="int32" index="yes"/>
    <Property name="Visible" kind="int32" default="1"/>
    <Property name="Instance" kind="int64" default="-5"/>
    <Property name="Start" kind="real64"/>
    <Property name="Factor" kind="real64" default="2.5"/>
    <Property name="Name" kind="string"/>
    <Property name="Title" kind="wstring" default="it's new"/>
    <Property name="Baseline" kind="reference" target="Run"/>
    <Property name="Owner" kind="link"/>
    <Property name="Image" kind="blob"/>
    <Property name="Data" kind="hostarray"/>
    <Collection name="Signal" via="Run"/>
    <Collection name="Note"/>
  </Class>
  <Class name="Signal">
    <Property name="Run" kind="link" target="Run" index="yes"/>
    <Property name="Parent" kind="link" target="Signal" index="partial"/>
    <Property name="Source" kind="reference" target="Note"/>
    <Property name="Order" kind="int32"/>
    <Property name="order" kind="int32"/>
    <Property name="Select" kind="string"/>
    <Property name="Mask" kind="int32" index="partial"/>
    <Property name="Level" kind="real64"/>
    <Property name="Picture" kind="blob"/>
    <Index properties="Run Order"/>
    <Index properties="Picture" partial="yes"/>
  </Class>
  <Class name="Note">
    <Property name="Text" kind="wstring"/>
  </Class>)";

/// So that entry values can be compared.
inline bool operator==(const const_BlobDescriptor& a, const const_BlobDescriptor& b) {
  return std::ranges::equal(a.bytes(), b.bytes());
}

/// The joined ID of the first failure that the call leaves in its diagnostics; empty when none.
template <class Call>
std::string idLeftBy(Call&& call) {
  diagnostics diag;
  call(diag);
  return diag.empty() ? "" : diag.messages().front().id.str();
}

/// Diagnostics that must stay empty.
class NoFailure {
 public:
  NoFailure() = default;
  ~NoFailure() {
    for (const kodiag::Message& message : diag_.messages()) {
      ADD_FAILURE() << message.textWithCauses();
    }
  }
  NoFailure(const NoFailure&) = delete;
  NoFailure& operator=(const NoFailure&) = delete;
  operator diagnostics&() { return diag_; }

 private:
  diagnostics diag_;
};

class KoddTest : public ::testing::Test {
 protected:
  KoddTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "koddXXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    writeSchema(kLabClasses);
    open();
  }
  ~KoddTest() override {
    repository_.close();
    std::filesystem::remove_all(folder_);
  }

  std::string path(const std::string& name) const { return folder_ + "/" + name; }

  void writeFile(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }
  void writeSchema(const std::string& classes, const std::string& name = "schema.xml") const {
    writeFile(name, R"(<Metamodel metamodelVersion="1"><Package name="lab">)" + classes +
                        "</Package></Metamodel>");
  }

  std::string idOfOpening(DataModelRepository& repository,
                          const std::string& file = "runs.dmr") const {
    return idLeftBy([&](diagnostics& diag) {
      repository.open(text::toWide(path(file)), text::toWide(path("schema.xml")), {}, diag);
    });
  }
  void open() { ASSERT_EQ(idOfOpening(repository_), ""); }

  ClassRef cls(const std::string& name) {
    return repository_.metamodel(NoFailure()).findPackage("lab").findClass(name);
  }
  PropertyRef prop(const std::string& className, const std::string& name) {
    return cls(className).findProperty(name);
  }
  static PropertyRef propOf(const ObjectRef& object, const std::string& name) {
    return object.cls().findProperty(name);
  }

  ObjectRef create(const std::string& className) {
    return repository_.createObject(cls(className), NoFailure());
  }
  template <class Value>
  static Value get(const ObjectRef& object, const std::string& name) {
    Value value{};
    object.getPropertyValue(propOf(object, name), value, NoFailure());
    return value;
  }
  template <class Value>
  static void set(const ObjectRef& object, const std::string& name, const Value& value) {
    object.setPropertyValue(propOf(object, name), value, NoFailure());
  }
  bool exists(int id) { return repository_.getObjectRef(id, NoFailure()).id() != 0; }

  std::vector<int> find(const std::string& className, const MatchConstraints& constraints) {
    std::vector<ObjectRef> found;
    repository_.findObjects(cls(className), constraints, found, NoFailure());
    return idsOf(found);
  }
  long long count(const std::string& className) {
    return repository_.countObjects(Selection(cls(className)), NoFailure());
  }
  static std::vector<int> idsOf(const std::vector<ObjectRef>& objects) {
    std::vector<int> ids;
    for (const ObjectRef& object : objects) ids.push_back(object.id());
    return ids;
  }

  /// Runs `body` as one unit of work. \returns what idLeftBy() does
  template <class Body>
  std::string inUnit(Body&& body) {
    DictionaryFunction function = std::forward<Body>(body);
    return idLeftBy(
        [&](diagnostics& diag) { repository_.performDictionaryFunction(function, diag); });
  }

  std::string folder_;
  DataModelRepository repository_;
};

inline MatchConstraints matching(const PropertyRef& property, Relation relation,
                                 const EntryValue& value) {
  MatchConstraints constraints;
  constraints.addConstraintLegacy(property, relation, value);
  return constraints;
}

}  // namespace kodd
