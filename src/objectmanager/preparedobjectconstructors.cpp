#include "objectmanager/preparedobjectconstructors.h"

#include <boost/functional/hash.hpp>

#include "kodiag/message.h"
#include "objectmanager/propertyaccess.h"

namespace vela {
namespace {

void bindSource(kodd::ObjectConstructor& constructor, const kodd::PropertyRef& property,
                const void* value, ObjectConstructorPropType type) {
  const auto bind = [&]<class T>(const T* typed) {
    constructor.setPropertyValueSource(property, typed);
  };
  switch (type) {
    case ObjectConstructorPropType::int32:
      return bind(static_cast<const int*>(value));
    case ObjectConstructorPropType::int64:
      return bind(static_cast<const long long*>(value));
    case ObjectConstructorPropType::real64:
      return bind(static_cast<const double*>(value));
    case ObjectConstructorPropType::stdString:
      return bind(static_cast<const std::string*>(value));
    case ObjectConstructorPropType::uString:
      return bind(static_cast<const std::wstring*>(value));
    case ObjectConstructorPropType::constBlob:
      return bind(static_cast<const kodd::const_BlobDescriptor*>(value));
    case ObjectConstructorPropType::objectRef:
      return bind(static_cast<const kodd::ObjectRef*>(value));
  }
}

}  // namespace

std::size_t PreparedObjectConstructors::ShapeHash::operator()(const Shape& shape) const {
  std::size_t seed = hash_value(shape.cls);
  for (const auto& [property, type] : shape.sources) {
    boost::hash_combine(seed, property);
    boost::hash_combine(seed, static_cast<int>(type));
  }
  return seed;
}

kodd::ObjectConstructor& PreparedObjectConstructors::bound(
    const kodd::ClassRef& cls, const std::vector<ObjectManager::InitialProperty>& properties,
    kodd::DataModelRepository& repository) {
  Shape shape{cls, {}};
  shape.sources.reserve(properties.size());
  for (const auto& [name, value, type] : properties) {
    if (!value) {
      kodiag::raise({"nexstore:nex", "InvalidData"},
                    {{"Operation", "create object of class \"" + cls.name() + "\""},
                     {"Reason", "property \"" + name + "\" has no value"}});
    }
    shape.sources.emplace_back(propertyOf(cls, name).info(), type);
  }

  const auto place = constructors_.try_emplace(std::move(shape), cls, repository).first;
  for (std::size_t i = 0; i < properties.size(); ++i) {
    const auto& [property, type] = place->first.sources[i];
    bindSource(place->second, kodd::PropertyRef(property), properties[i].get<1>(), type);
  }
  return place->second;
}

}  // namespace vela
