// Selections and constraints as SQL.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "kodd/constraints.h"
#include "kodd/layout.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"

namespace kodd {

/// SQL with the values of its parameters, in their order.
struct BoundSql {
  std::string text;
  std::vector<StoredValue> values;
  std::deque<std::string> owned;  ///< what `values` borrow from, besides the caller's values

  void bind(sqldb::Statement& statement, int firstParameter = 1) const;
};

/// " AND "-joined conditions of one statement.
class Conditions {
 public:
  explicit Conditions(BoundSql& sql) : sql_(sql) {}
  /// The text to append a condition to.
  std::string& next();
  bool empty() const { return first_; }

 private:
  BoundSql& sql_;
  bool first_ = true;
};

/// "=", "<>", "<" ...
const char* relationSign(PropertyValueMatchRelation relation);

/// Whether rows that satisfy the comparison are all in the partial indexes of the property, so
/// that saying so lets the engine use them.
bool impliesPartialIndex(const PropertyInfo& property, const ColumnLayout& column,
                         PropertyValueMatchRelation relation, const StoredValue& value);

/// Says so. The engine does not know how few rows a partial index has and would rather scan the
/// table in order, hence the detour for all but equality.
std::string partialIndexTerm(const Layout& layout, const PropertyInfo& property,
                             PropertyValueMatchRelation relation, const std::string& alias);

/// The table of the class under the alias that the conditions use.
std::string tableAsSearched(const Layout& layout, const ClassRef& cls);

/// What belongs behind "WHERE" for the objects of a selection.
void appendConditions(BoundSql& sql, const Layout& layout, const Selection& selection);

/// Appends the objects that satisfy all constraints, in creation order.
void appendMatches(const std::shared_ptr<Session>& session, const ClassRef& cls,
                   const MatchConstraints& constraints, std::vector<ObjectRef>& results);

}  // namespace kodd
