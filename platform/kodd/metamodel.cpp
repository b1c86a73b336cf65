#include "kodd/metamodel.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "host/processmutex.h"
#include "kodd/schemabuilder.h"
#include "kodd/schemadeclaration.h"

namespace kodd {
namespace {

/// Every schema this process has read.
class SchemaShelf {
 public:
  const Metamodel& load(const std::string& file) {
    const std::scoped_lock lock(mutex_);
    const auto known = files_.find(file);
    if (known != files_.end() && isUnchanged(known->second)) return *known->second.model;

    SchemaDeclaration declaration = readSchemaFiles(file);
    std::unique_ptr<Metamodel> built = SchemaBuilder(declaration, file).build();
    std::unique_ptr<Metamodel>& model = models_[built->fingerprint()];
    if (!model) model = std::move(built);
    files_[file] = {std::move(declaration.sources), model.get()};
    return *model;
  }

 private:
  struct LoadedFile {
    std::vector<SchemaSource> sources;
    const Metamodel* model = nullptr;
  };

  static bool isUnchanged(const LoadedFile& loaded) {
    return std::all_of(loaded.sources.begin(), loaded.sources.end(),
                       [](const SchemaSource& source) {
                         return readSchemaBytes(source.file) == source.bytes;
                       });
  }

  host::ProcessMutex mutex_;
  std::map<std::string, LoadedFile> files_;
  std::map<std::string, std::unique_ptr<Metamodel>> models_;
};

template <class Named>
Named findByName(const std::unordered_map<std::string_view, Named>& byName,
                 std::string_view name) {
  const auto found = byName.find(name);
  return found == byName.end() ? nullptr : found->second;
}

}  // namespace

std::string ClassInfo::qualifiedName() const {
  return package->name + "." + name;
}

const Metamodel& Metamodel::load(const std::string& schemaFile) {
  // Never destroyed: handles in static objects may outlive any destructor of ours.
  static SchemaShelf& shelf = *new SchemaShelf;
  return shelf.load(schemaFile);
}

PropertyRef ClassRef::findProperty(std::string_view name) const {
  return info_ ? PropertyRef(findByName(info_->byName, name)) : PropertyRef();
}

void ClassRef::getPropertyNames(std::vector<std::string>& names) const {
  if (!info_) return;
  for (const auto& property : info_->properties) {
    if (!property->hidden) names.push_back(property->name);
  }
}

ClassRef PackageRef::findClass(std::string_view name) const {
  return info_ ? ClassRef(findByName(info_->byName, name)) : ClassRef();
}

void PackageRef::getClassNames(std::vector<std::string>& names) const {
  if (!info_) return;
  for (const auto& cls : info_->classes) names.push_back(cls->name);
}

PackageRef MetamodelRef::findPackage(std::string_view name) const {
  if (!model_) return {};
  for (const auto& package : model_->packages()) {
    if (package->name == name) return PackageRef(package.get());
  }
  return {};
}

}  // namespace kodd
