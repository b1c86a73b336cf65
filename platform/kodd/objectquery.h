// Prepared queries: constraints and results bound by address, run any number of times.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/uuid/uuid.hpp>
#include <memory>
#include <string>

#include "kodd/constraints.h"
#include "kodd/objectref.h"

namespace kodd {

class DataModelRepository;

/// The rows of one execution. Owns its statement; resets it at the end, on destruction and when
/// the unit of work it ran in ends (it then answers false). While it is open it pins the state
/// of the file it reads: keep it inside a unit of work where anything is written meanwhile.
class ResultIterator {
 public:
  ResultIterator(ResultIterator&&) noexcept;
  ResultIterator& operator=(ResultIterator&&) noexcept;
  ~ResultIterator();

  /// Fills the bound variables with the next row; false after the last (variables untouched).
  bool getNextResult(kodiag::util::diagnostics& diag);

 private:
  friend class ObjectQuery;
  struct Impl;
  explicit ResultIterator(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

/// A query over the objects of one class: the class of the first result or constraint.
///
/// Values are taken by address: constraint values are read at execute(), result variables
/// written at each getNextResult(), so one query serves any number of runs. Rows come in
/// creation order unless an order is set; ties always in creation order. The SQL text is built
/// once per shape.
class ObjectQuery {
 public:
  explicit ObjectQuery(DataModelRepository& repository);
  ~ObjectQuery();
  ObjectQuery(ObjectQuery&&) noexcept;
  ObjectQuery& operator=(ObjectQuery&&) noexcept;

  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const int* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const long long* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const double* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const char* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const std::string* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const std::wstring* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const boost::posix_time::ptime* value);
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const boost::uuids::uuid* value);
  /// A value of any type that fits the property, as in MatchConstraints.
  void addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                     const EntryValue* value);
  void addConstraint(const DisjunctionMatchConstraint& alternatives);
  /// Not empty / empty, for blobs.
  void addEmptyConstraint(const PropertyRef& prop, bool empty);
  /// Only this object.
  void addObjectConstraint(const ClassRef& cls, const ObjectRef* object);
  /// Objects whose reference or link `prop` names (`equal`) or does not name the object.
  void addObjectConstraint(const PropertyRef& prop, bool equal, const ObjectRef* object);
  /// Only the object of that ID, of class `cls`.
  void addIDConstraint(const ClassRef& cls, const int* id);
  /// Objects whose reference names an existing object of the class.
  void addSubObjectConstraint(const PropertyRef& prop, const ClassRef* cls);

  void addResultProperty(const PropertyRef& prop, int* value);
  void addResultProperty(const PropertyRef& prop, long long* value);
  void addResultProperty(const PropertyRef& prop, double* value);
  void addResultProperty(const PropertyRef& prop, std::string* value);
  void addResultProperty(const PropertyRef& prop, std::wstring* value);
  void addResultProperty(const PropertyRef& prop, ObjectRef* value);
  void addResultProperty(const PropertyRef& prop, BlobSizeInfo* value);
  /// Copies the part to where it says, which may change from row to row.
  void addResultProperty(const PropertyRef& prop, BlobPart* value);
  void addResultProperty(const PropertyRef& prop, std::vector<char>* value);
  void addResultProperty(const PropertyRef& prop, int capacity, void* buffer, int* length);
  void addResultObject(const ClassRef& cls, ObjectRef* object);
  /// The ID alone; no handle is made.
  void addResultID(const ClassRef& cls, int* id);
  void addResultCount(int* count);

  enum class SortOrder { ascending, descending };
  /// Called again, adds a further key.
  void setOrderByProperty(const PropertyRef& prop, SortOrder order);
  void setLimit(int rows);

  ResultIterator execute(kodiag::util::diagnostics& diag);
  /// execute() and the first row; false when there is none. Holds no statement afterwards.
  bool executeForOne(kodiag::util::diagnostics& diag);

 private:
  friend class ResultIterator;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kodd
