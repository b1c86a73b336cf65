// The test unit and the test harness a run came from.
#include "objects/strings.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

using host::HostArray;

/// A field of the structures scripts see, and the property that keeps it.
struct Field {
  const char* name;
  const std::string& property;
};

const Field kFields[] = {{"name", strings::NameLower},
                         {"version", strings::VersionLower},
                         {"modified", strings::ModifiedLower},
                         {"solverType", strings::SolverTypeLower},
                         {"solverName", strings::SolverNameLower},
                         {"fixedStep", strings::FixedStepLower}};

/// The two parts, and where the run's output metadata names them.
struct Part {
  const char* name;
  const std::string& property;
};

const Part kParts[] = {{"testUnit", strings::TestUnitDataID},
                       {"testHarness", strings::TestHarnessDataID}};

std::unique_ptr<ObjectRef> outputOf(ObjectManager& manager, const Set& run) {
  boost::ptr_vector<ObjectRef> found;
  manager.findObjects(strings::OutputMetaData, {}, found,
                      {{strings::DataSet, &run.getObjectReference()}});
  if (found.empty()) return nullptr;
  return std::unique_ptr<ObjectRef>(found.release(found.begin()).release());
}

std::unique_ptr<ObjectRef> outputOrNewOf(ObjectManager& manager, const Set& run) {
  if (auto output = outputOf(manager, run)) return output;
  std::unique_ptr<ObjectRef> output = manager.createObject(strings::OutputMetaData, true);
  output->setPropertyObject(strings::DataSet, run.getObjectReference());
  return output;
}

std::unique_ptr<ObjectRef> partOf(const ObjectRef& output, const Part& part) {
  std::unique_ptr<ObjectRef> object;
  output.getPropertyObject(part.property, object, strings::VELATestHarnessData);
  return object;
}

HostArray structureOf(const ObjectRef& part) {
  HostArray::Fields fields;
  for (const Field& field : kFields) {
    fields.emplace_back(field.name, HostArray::text(part.getPropertyStdString(field.property)));
  }
  return HostArray::structure(std::move(fields));
}

Any<"data"> getHarness(Reading repository, Run run) {
  const auto output = outputOf(repository.manager, *run);
  if (!output) return {};
  HostArray::Fields fields;
  for (const Part& part : kParts) {
    const auto object = partOf(*output, part);
    if (!object) return {};
    fields.emplace_back(part.name, structureOf(*object));
  }
  return {HostArray::structure(std::move(fields))};
}

[[noreturn]] void refuse(const std::string& reason) {
  throwScriptingError({"nexstore:nex", "InvalidData"},
                      {{"Operation", "setRunHarnessModelMetaData"}, {"Reason", reason}});
}

void requireStructure(const HostArray& array, const std::string& what) {
  if (array.isStructure() && array.isScalar()) return;
  refuse(what + " must be one structure, not " + array.describe());
}

/// The texts of a part in the order of kFields; empty where a field is missing.
std::vector<std::string> textsOf(const HostArray& part, const Part& declared) {
  requireStructure(part, declared.name);
  std::vector<std::string> texts;
  for (const Field& field : kFields) {
    const HostArray* const given = part.findField(field.name);
    if (given && !given->isText()) {
      refuse(std::string(declared.name) + "." + field.name + " must be a text, not " +
             given->describe());
    }
    texts.push_back(given ? given->toString() : std::string());
  }
  return texts;
}

void storePart(ObjectManager& manager, ObjectRef& output, const Part& part,
               const std::vector<std::string>& texts) {
  std::unique_ptr<ObjectRef> object = partOf(output, part);
  if (!object) {
    object = manager.createObject(strings::VELATestHarnessData, true);
    output.setPropertyObject(part.property, *object);
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    object->setPropertyStdString(kFields[i].property, texts[i]);
  }
}

void setHarness(Repository repository, Run run, Any<"data"> data) {
  requireStructure(data, "the data");
  std::vector<std::vector<std::string>> parts;
  for (const Part& part : kParts) {
    const HostArray* const given = data.value.findField(part.name);
    if (!given) return;
    parts.push_back(textsOf(*given, part));
  }
  ObjectManager& manager = repository.manager;
  manager.inTransaction([&] {
    const auto output = outputOrNewOf(manager, *run);
    for (std::size_t i = 0; i < parts.size(); ++i) {
      storePart(manager, *output, kParts[i], parts[i]);
    }
  });
}

struct VelaRepositoryGetRunHarnessModelMetaData
    : Method<"getRunHarnessModelMetaData",
             "Test unit and test harness of a run; an empty array unless both are known.",
             &getHarness> {};
struct VelaRepositorySetRunHarnessModelMetaData
    : Method<"setRunHarnessModelMetaData",
             "Keep test unit and test harness of a run, given as fields \"testUnit\" and "
             "\"testHarness\"; nothing is kept unless both are there.",
             &setHarness, "nexstore:nex:InvalidData"> {};

}  // namespace

void addHarnessMethods(Methods& methods) {
  methods.add<VelaRepositoryGetRunHarnessModelMetaData,
              VelaRepositorySetRunHarnessModelMetaData>();
}

}  // namespace vela::scripting
