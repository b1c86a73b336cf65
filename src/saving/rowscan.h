// A walk over all objects of a class that reads a few of their properties.
#pragma once

#include <memory>
#include <string>

#include "objectmanager/objectmanager.h"
#include "objects/raising.h"

namespace vela::saving {

/// Values are written to the variables given, object by object.
class RowScan {
 public:
  RowScan(ObjectManager& manager, const std::string& className)
      : class_(manager.getClass(className)), query_(manager.createObjectQuery()) {
    query_->addResultID(class_, &id_);
  }

  template <class T>
  RowScan& reading(const std::string& property, T* into) {
    query_->addResultProperty(class_.findProperty(property), into);
    return *this;
  }

  /// Calls `visit` with every ID, in the order of creation.
  template <class Visit>
  void run(Visit&& visit) {
    raising([&](kodiag::util::diagnostics& diag) {
      kodd::ResultIterator rows = query_->execute(diag);
      while (diag.empty() && rows.getNextResult(diag)) visit(id_);
    });
  }

 private:
  kodd::ClassRef class_;
  std::unique_ptr<kodd::ObjectQuery> query_;
  int id_ = 0;
};

}  // namespace vela::saving
