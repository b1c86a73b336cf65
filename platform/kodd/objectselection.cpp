#include "kodd/objectselection.h"

#include <utility>

#include "kodiag/message.h"

namespace kodd {
namespace {

/// Writes one selection and those nested in it, each under an alias of its own depth.
class SelectionWriter {
 public:
  SelectionWriter(BoundSql& sql, const Layout& layout) : sql_(sql), layout_(layout) {}

  std::string table(const ClassRef& cls, int depth) const {
    return layout_.of(cls).table + " AS " + alias(depth);
  }
  void writeConditions(const Selection& selection, int depth) {
    Conditions conditions(sql_);
    addConditions(selection, depth, conditions);
    if (conditions.empty()) conditions.next() += "1";
  }

  void addConstraints(const ClassRef& cls, const MatchConstraints& constraints, int depth,
                      Conditions& conditions);

 private:
  static std::string alias(int depth) { return "s" + std::to_string(depth); }
  std::string columnOf(const PropertyRef& property, int depth) const {
    return alias(depth) + "." + layout_.of(*property.info()).name;
  }

  void addConditions(const Selection& selection, int depth, Conditions& conditions);
  void addIDs(const std::vector<int>& ids, int depth, Conditions& conditions);
  void addReferring(const Selection::Link& link, int depth, Conditions& conditions);
  void addUnreferenced(const Selection::Link& link, int depth, Conditions& conditions);
  static void checkVia(const PropertyRef& via, const ClassRef& owner);

  BoundSql& sql_;
  const Layout& layout_;
};

void SelectionWriter::addConstraints(const ClassRef& cls, const MatchConstraints& constraints,
                                     int depth, Conditions& conditions) {
  for (const MatchConstraints::Constraint& constraint : constraints.constraints()) {
    checkProperty(constraint.property, cls);
    const PropertyInfo& property = *constraint.property.info();
    const StoredValue value =
        storedEntry(property, constraint.value, sql_.owned.emplace_back());
    const std::string column = columnOf(constraint.property, depth);
    conditions.next() += column + relationSign(constraint.relation) + "?";
    sql_.values.push_back(value);
    const ColumnLayout& layout = layout_.of(property);
    if (impliesPartialIndex(property, layout, constraint.relation, value)) {
      conditions.next() +=
          partialIndexTerm(layout_, property, constraint.relation, alias(depth));
    }
  }
}

void SelectionWriter::addConditions(const Selection& selection, int depth,
                                    Conditions& conditions) {
  addIDs(selection.ids(), depth, conditions);
  addConstraints(selection.cls(), selection.constraints(), depth, conditions);
  for (const Selection::Link& link : selection.links()) {
    checkVia(link.via, link.inward ? link.others->cls() : selection.cls());
    if (link.inward) {
      addUnreferenced(link, depth, conditions);
    } else {
      addReferring(link, depth, conditions);
    }
  }
}

void SelectionWriter::addIDs(const std::vector<int>& ids, int depth, Conditions& conditions) {
  if (ids.empty()) return;
  if (ids.size() == 1) {
    conditions.next() += alias(depth) + ".id=?";
    sql_.values.emplace_back(static_cast<long long>(ids.front()));
    return;
  }
  // One parameter whatever their number, so that the statement is prepared once.
  conditions.next() += alias(depth) + ".id IN (SELECT value FROM json_each(?))";
  std::string& list = sql_.owned.emplace_back("[");
  for (const int id : ids) list += (list.size() > 1 ? "," : "") + std::to_string(id);
  list += "]";
  sql_.values.emplace_back(std::string_view(list));
}

void SelectionWriter::addReferring(const Selection::Link& link, int depth,
                                   Conditions& conditions) {
  const ColumnLayout& via = layout_.of(*link.via.info());
  const std::string column = columnOf(link.via, depth);
  // No object has the default as its ID, so this excludes nothing.
  if (via.headsPartialIndex) conditions.next() += column + "<>" + via.defaultLiteral;
  const int inner = depth + 1;
  conditions.next() += column + " IN (SELECT " + alias(inner) + ".id FROM " +
                       table(link.others->cls(), inner) + " WHERE ";
  writeConditions(*link.others, inner);
  sql_.text += ")";
}

void SelectionWriter::addUnreferenced(const Selection::Link& link, int depth,
                                      Conditions& conditions) {
  const PropertyInfo& via = *link.via.info();
  bool isIndexed = false;
  bool isPartial = false;
  for (const IndexInfo& index : via.owner->indexes) {
    if (index.properties.front() != &via) continue;
    isIndexed = true;
    isPartial |= index.partial;
  }
  const int inner = depth + 1;
  const std::string column = columnOf(link.via, inner);
  if (!isIndexed) {
    // One scan of the others, rather than one for every candidate.
    conditions.next() += alias(depth) + ".id NOT IN (SELECT " + column + " FROM " +
                         table(link.others->cls(), inner) + " WHERE ";
    writeConditions(*link.others, inner);
    sql_.text += ")";
    return;
  }
  conditions.next() +=
      "NOT EXISTS (SELECT 1 FROM " + table(link.others->cls(), inner) + " WHERE ";
  Conditions innerConditions(sql_);
  innerConditions.next() += column + "=" + alias(depth) + ".id";
  if (isPartial) innerConditions.next() += column + "<>" + layout_.of(via).defaultLiteral;
  addConditions(*link.others, inner, innerConditions);
  sql_.text += ")";
}

void SelectionWriter::checkVia(const PropertyRef& via, const ClassRef& owner) {
  checkProperty(via, owner);
  requireKind(*via.info(), namesObject, "an object");
}

}  // namespace

Selection Selection::withId(int id) && {
  ids_.push_back(id);
  return std::move(*this);
}

Selection Selection::matching(const PropertyRef& property, PropertyValueMatchRelation relation,
                              const EntryValue& value) && {
  constraints_.addConstraintLegacy(property, relation, value);
  return std::move(*this);
}

Selection Selection::referring(const PropertyRef& via, Selection others) && {
  links_.push_back({via, std::make_shared<const Selection>(std::move(others)), false});
  return std::move(*this);
}

Selection Selection::unreferencedBy(const PropertyRef& via, Selection others) && {
  links_.push_back({via, std::make_shared<const Selection>(std::move(others)), true});
  return std::move(*this);
}

void BoundSql::bind(sqldb::Statement& statement, int firstParameter) const {
  for (const StoredValue& value : values) bindStored(statement, firstParameter++, value);
}

std::string& Conditions::next() {
  if (!std::exchange(first_, false)) sql_.text += " AND ";
  return sql_.text;
}

const char* relationSign(PropertyValueMatchRelation relation) {
  switch (relation) {
    case PropertyValueMatchRelation::Equal:
      return "=";
    case PropertyValueMatchRelation::NotEqual:
      return "<>";
    case PropertyValueMatchRelation::Less:
      return "<";
    case PropertyValueMatchRelation::LessEqual:
      return "<=";
    case PropertyValueMatchRelation::Greater:
      return ">";
    case PropertyValueMatchRelation::GreaterEqual:
      return ">=";
  }
  kodiag::raise({"nexstore:nex", "InternalError"},
                {{"Operation", "query"}, {"Reason", "unknown relation"}});
}

bool impliesPartialIndex(const PropertyInfo& property, const ColumnLayout& column,
                         PropertyValueMatchRelation relation, const StoredValue& value) {
  if (!column.headsPartialIndex) return false;
  if (relation == PropertyValueMatchRelation::Equal) return !isDefault(property, value);
  return relation == PropertyValueMatchRelation::NotEqual && isDefault(property, value);
}

std::string partialIndexTerm(const Layout& layout, const PropertyInfo& property,
                             PropertyValueMatchRelation relation, const std::string& alias) {
  const ColumnLayout& column = layout.of(property);
  if (relation == PropertyValueMatchRelation::Equal) {
    return alias + "." + column.name + "<>" + column.defaultLiteral;
  }
  return alias + ".id IN (SELECT p.id FROM " + layout.of(*property.owner).table +
         " AS p WHERE p." + column.name + "<>" + column.defaultLiteral + ")";
}

std::string tableAsSearched(const Layout& layout, const ClassRef& cls) {
  return layout.of(cls).table + " AS s0";
}

void appendConditions(BoundSql& sql, const Layout& layout, const Selection& selection) {
  SelectionWriter(sql, layout).writeConditions(selection, 0);
}

void appendMatches(const std::shared_ptr<Session>& session, const ClassRef& cls,
                   const MatchConstraints& constraints, std::vector<ObjectRef>& results) {
  const Layout& layout = session->layout();
  BoundSql sql{"SELECT s0.id FROM " + tableAsSearched(layout, cls) + " WHERE ", {}, {}};
  Conditions conditions(sql);
  SelectionWriter(sql, layout).addConstraints(cls, constraints, 0, conditions);
  if (conditions.empty()) conditions.next() += "1";
  sql.text += " ORDER BY s0.id";
  std::vector<ObjectRef> found;
  sqldb::Statement query = session->database("find objects").statement(sql.text);
  sql.bind(query);
  while (query.step()) found.emplace_back(session, cls, static_cast<int>(query.int64(0)));
  results.insert(results.end(), std::make_move_iterator(found.begin()),
                 std::make_move_iterator(found.end()));
}

}  // namespace kodd
