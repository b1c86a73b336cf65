// Prepared creations of objects with initial values, one per class and list of properties.
#pragma once

#include <boost/tuple/tuple.hpp>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// The prepared-constructor cache of one manager for one thread.
class PreparedObjectConstructors {
 public:
  /// The constructor for that class and those properties, made on first use, bound to the given
  /// values until its next use. \throws "InvalidProperty"; "InvalidData" for a null value
  kodd::ObjectConstructor& bound(const kodd::ClassRef& cls,
                                 const std::vector<ObjectManager::InitialProperty>& properties,
                                 kodd::DataModelRepository& repository);
  void clear() { constructors_.clear(); }

 private:
  /// The class and what is bound, in order: the type is part of it since a source of another
  /// type is another statement parameter.
  struct Shape {
    kodd::ClassRef cls;
    std::vector<std::pair<const kodd::PropertyInfo*, ObjectConstructorPropType>> sources;
    bool operator==(const Shape&) const = default;
  };
  struct ShapeHash {
    std::size_t operator()(const Shape& shape) const;
  };

  std::unordered_map<Shape, kodd::ObjectConstructor, ShapeHash> constructors_;
};

}  // namespace vela
