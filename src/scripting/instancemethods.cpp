// The constructor, and what belongs to the process rather than to one repository.
#include <cmath>

#include "host/classes/classes.h"
#include "host/environment.h"
#include "host/features.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/wrapper.h"
#include "text/utf8.h"
#include "velainstance.h"

namespace vela::scripting {
namespace {

using host::HostArray;

/// The constructor: no input gives a private temporary file, a text that private file, anything
/// else the shared repository.
class VelaRepositoryRepository : public NexCOSMethodInfo {
 public:
  VelaRepositoryRepository()
      : NexCOSMethodInfo(
            "Repository",
            "Open a repository: a private file, created unless it is there; a "
            "private temporary file without an input; the shared repository for "
            "an empty array. With \"readOnly\" an existing private file is never written.",
            {{host::Parameter("any", "file").optional().fileName(),
              host::Parameter("logical scalar", "readOnly").optional()},
             {host::Parameter(kRepositoryClass, "repository")}},
            {"KODD:kodd:NotARepository", "KODD:kodd:IOError", "KODD:kodd:RepositoryNotOpen",
             "sqldb:ssdb:Corrupt"}) {}

 private:
  void perform(std::span<host::OutputValue> outputs,
               std::span<const host::InputValue> inputs) const override {
    const auto& object = std::get<std::shared_ptr<host::COSObject>>(outputs.front());
    auto& wrapper = dynamic_cast<ObjectManagerWrapper&>(object->instanceData());
    if (inputs.empty()) return wrapper.setObjMgr(openTemporary());
    const auto& file = std::get<HostArray>(inputs.front());
    if (file.isText()) {
      const bool readOnly = inputs.size() > 1 && std::get<bool>(inputs[1]);
      using Access = ObjectManager::Access;
      return wrapper.setObjMgr(
          openPrivate(file.toWide(), readOnly ? Access::read : Access::write));
    }
    wrapper.setObjMgr(VelaInstance::getInstance().getObjectManager({}, {}));
  }
};

std::string locationOf(const std::optional<Any<"repository">>& repository) {
  const bool isObject = repository && repository->value.isScriptObject() &&
                        repository->value.scriptClass() == kRepositoryClass;
  if (!isObject) return "unknown";
  const auto object = host::objectInArray(repository->value);
  const auto manager = dynamic_cast<ObjectManagerWrapper&>(object->instanceData()).getObjMgr();
  return manager ? text::toUtf8(manager->getDatabaseLocation()) : "unknown";
}

void throwCorruptDatabase(std::optional<Any<"repository">> repository) {
  throwScriptingError({"sqldb:ssdb", "Corrupt"}, {{"Operation", "throwCorruptDatabase"},
                                                  {"Location", locationOf(repository)},
                                                  {"Reason", "this error was asked for"}});
}

Flag<"created"> hasBeenCreated() {
  return {VelaInstance::getInstance().hasObjMgrBeenCreated()};
}

Flag<"required"> sessionRequiresRaccelImport() {
  return {!host::isWorkerMode()};
}

int integerIn(const HostArray& array, const std::string& operation) {
  const bool isReal = (array.isNumeric() || array.isLogical()) && !array.isComplex();
  if (isReal && array.isScalar()) {
    const double number = array.toDouble();
    const int integer = std::abs(number) <= 0x1p30 ? static_cast<int>(number) : 0;
    if (integer == number) return integer;
  }
  throwScriptingError({"nexstore:nex", "IntegerScalarExpected"},
                      {{"Operation", operation}, {"Actual", array.describe()}});
}

host::Feature& feature(const char* name) {
  return *host::findFeature(name);
}

Int32<"previous"> setPersistentDMRFeature(Int32<"value"> value,
                                          std::optional<Any<"deleteOnEmpty">> deleteOnEmpty,
                                          Further) {
  std::optional<int> emptying;
  if (deleteOnEmpty) emptying = integerIn(*deleteOnEmpty, "setPersistentDMRFeature");
  host::Feature& persistent = feature("VELAStaticDMR");
  const int previous = persistent.value();
  persistent.setFeatValFromC(value);
  if (emptying) feature("VELAStaticDMRDeleteOnEmpty").setFeatValFromC(*emptying);
  return {previous};
}

void clearRepositoryFile() {
  VelaInstance::getInstance().deleteDMR();
}

struct VelaRepositoryThrowCorruptDatabase
    : Method<"throwCorruptDatabase",
             "Raise the error of a damaged repository file, so that recovery can be exercised.",
             &throwCorruptDatabase, "sqldb:ssdb:Corrupt"> {};
struct VelaRepositoryHasBeenCreated
    : Method<"hasBeenCreated", "Whether this process has used the shared repository.",
             &hasBeenCreated> {};
struct VelaRepositorySessionRequiresRaccelImport
    : Method<"sessionRequiresRaccelImport",
             "Whether this process has to import the runs of rapid-accelerator children: true "
             "unless it is a farm worker.",
             &sessionRequiresRaccelImport> {};
struct VelaRepositorySetPersistentDMRFeature
    : Method<"setPersistentDMRFeature",
             "Choose whether shared repositories opened from now on are persistent (below 1 "
             "never, 1 except in batch jobs, above 1 always) and whether an empty one is "
             "deleted; returns the earlier choice.",
             &setPersistentDMRFeature, "nexstore:nex:IntegerScalarExpected"> {};
struct VelaRepositoryClearRepositoryFile
    : Method<"clearRepositoryFile",
             "Delete the shared repository file and go on with an empty one, even while other "
             "processes use it.",
             &clearRepositoryFile, "KODD:kodd:TransactionActive"> {};

}  // namespace

void addInstanceMethods(Methods& methods) {
  methods.add<VelaRepositoryRepository, VelaRepositoryThrowCorruptDatabase,
              VelaRepositoryHasBeenCreated, VelaRepositorySessionRequiresRaccelImport,
              VelaRepositorySetPersistentDMRFeature, VelaRepositoryClearRepositoryFile>();
}

}  // namespace vela::scripting
