#include "host/classes/classes.h"

#include <mutex>
#include <utility>

#include "host/processmutex.h"
#include "kodiag/message.h"

namespace host {
namespace {

struct Registry {
  ProcessMutex lock;
  std::vector<std::unique_ptr<COSPackage>> packages;
};

// Never destroyed: objects of the registered classes may die later than any static object.
Registry& registry() {
  static auto* const packages = new Registry;
  return *packages;
}

template <class Named>
Named* findNamed(const std::vector<std::unique_ptr<Named>>& all, std::string_view name) {
  for (const auto& one : all) {
    if (one->name() == name) return one.get();
  }
  return nullptr;
}

template <class Named>
auto borrowed(const std::vector<std::unique_ptr<Named>>& all) {
  std::vector<Named*> pointers;
  for (const auto& one : all) pointers.push_back(one.get());
  return pointers;
}

}  // namespace

bool COSMethodInfo::isInstanceMethod() const {
  const std::vector<Parameter>& inputs = signature().inputs();
  return !inputs.empty() && inputs.front().kind == ValueKind::object;
}

const COSMethodInfo* COSClassInfo::findMethod(std::string_view name) const {
  return findNamed(methodInfos(), name);
}

COSObject::COSObject(const COSClassInfo& classInfo)
    : classInfo_(classInfo), data_(classInfo.createInstanceData()) {}

COSObject::~COSObject() {
  classInfo_.destroyInstanceData(std::move(data_));
}

HostArray arrayOfObject(const std::shared_ptr<COSObject>& object,
                        const std::string& className) {
  return HostArray::scriptObject(className, object);
}

std::shared_ptr<COSObject> objectInArray(const HostArray& array) {
  return std::static_pointer_cast<COSObject>(array.scriptPointer());
}

COSPackage* COSPackage::getPackage(std::string_view name) {
  const std::lock_guard lock(registry().lock);
  return findNamed(registry().packages, name);
}

COSPackage& COSPackage::addPackage(std::unique_ptr<COSPackageInfo> info) {
  const std::lock_guard lock(registry().lock);
  if (findNamed(registry().packages, info->name())) {
    kodiag::raise({"nexstore:nex", "PackageExists"}, {{"PackageName", info->name()}});
  }
  return *registry().packages.emplace_back(std::make_unique<COSPackage>(std::move(info)));
}

std::vector<COSPackage*> COSPackage::allPackages() {
  const std::lock_guard lock(registry().lock);
  return borrowed(registry().packages);
}

void COSPackage::addClass(std::unique_ptr<COSClassInfo> info) {
  const std::lock_guard lock(lock_);
  if (findNamed(classes_, info->name())) {
    kodiag::raise({"nexstore:nex", "ClassExists"},
                  {{"PackageName", name()}, {"ClassName", info->name()}});
  }
  classes_.push_back(std::move(info));
}

std::vector<const COSClassInfo*> COSPackage::classes() {
  const std::lock_guard lock(lock_);
  askForClasses();
  const std::vector<COSClassInfo*> all = borrowed(classes_);
  return {all.begin(), all.end()};
}

const COSClassInfo* COSPackage::findClass(std::string_view name) {
  const std::lock_guard lock(lock_);
  askForClasses();
  return findNamed(classes_, name);
}

void COSPackage::askForClasses() {
  if (std::exchange(asked_, true)) return;
  info_->addClasses(*this);
}

}  // namespace host
