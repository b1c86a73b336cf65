// What objects a query, deletion or modification is about.
#pragma once

#include <memory>
#include <vector>

#include "kodd/entryvalue.h"
#include "kodd/metamodel.h"
#include "kodd/objectref.h"

namespace kodd {

enum class PropertyValueMatchRelation {
  Equal,
  NotEqual,
  Less,
  LessEqual,
  Greater,
  GreaterEqual
};

/// Constraints with their values, all of which must hold. A property whose class differs from
/// the one searched, or a value that does not fit its kind, is an error of the search
/// ("InvalidProperty", "InvalidPropertyValue"). NaN matches nothing.
class MatchConstraints {
 public:
  struct Constraint {
    PropertyRef property;
    PropertyValueMatchRelation relation;
    EntryValue value;
  };

  void addConstraintLegacy(const PropertyRef& property, PropertyValueMatchRelation relation,
                           const EntryValue& value) {
    constraints_.push_back({property, relation, value});
  }
  const std::vector<Constraint>& constraints() const { return constraints_; }

 private:
  std::vector<Constraint> constraints_;
};

/// An OR of integer matches; the values are read when the query runs.
class DisjunctionMatchConstraint {
 public:
  struct Alternative {
    PropertyRef property;
    PropertyValueMatchRelation relation;
    const int* value;
  };

  void addConstraint(const PropertyRef& property, PropertyValueMatchRelation relation,
                     const int* value) {
    alternatives_.push_back({property, relation, value});
  }
  const std::vector<Alternative>& alternatives() const { return alternatives_; }

 private:
  std::vector<Alternative> alternatives_;
};

/// A set of objects of one class, described rather than listed, so that one statement can act
/// on all of them: those with given IDs, those that match constraints, those whose reference or
/// link names an object of another selection.
///
///     Selection chunks = Selection(chunk).referring(chunkSignal,
///     Selection(signal).withId(id));
///     deleter.deleteSelected(Selection(dataChunk).referring(dataChunkChunk, chunks), diag);
class Selection {
 public:
  /// All objects of the class.
  explicit Selection(ClassRef cls) : class_(cls) {}

  Selection withId(int id) &&;
  Selection matching(const PropertyRef& property, PropertyValueMatchRelation relation,
                     const EntryValue& value) &&;
  /// Only objects whose `via` names an object of `others`.
  Selection referring(const PropertyRef& via, Selection others) &&;
  /// Only objects whose `via` names no object of `others`; it may name none at all.
  Selection notReferring(const PropertyRef& via, Selection others) &&;
  /// Only objects that `via` of some object of `others` names.
  Selection referencedBy(const PropertyRef& via, Selection others) &&;
  /// Only objects that no `via` of any object of `others` names.
  Selection unreferencedBy(const PropertyRef& via, Selection others) &&;
  /// Only objects whose `own` equals `theirs` of no object of `others`; both whole numbers.
  Selection unmatchedBy(const PropertyRef& own, const PropertyRef& theirs, Selection others) &&;

  enum class Relation { referring, notReferring, referencedBy, unreferencedBy, unmatchedBy };
  struct Link {
    Relation relation;
    PropertyRef via;  ///< a property of these objects when they refer, else of the others
    std::shared_ptr<const Selection> others;
    PropertyRef own;  ///< what `via` must not equal, when that is not the object's ID
  };
  ClassRef cls() const { return class_; }
  const MatchConstraints& constraints() const { return constraints_; }
  const std::vector<int>& ids() const { return ids_; }
  const std::vector<Link>& links() const { return links_; }

 private:
  Selection linked(Link link) &&;

  ClassRef class_;
  MatchConstraints constraints_;
  std::vector<int> ids_;
  std::vector<Link> links_;
};

}  // namespace kodd
