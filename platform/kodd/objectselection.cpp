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
  void addLink(const ClassRef& cls, const Selection::Link& link, int depth,
               Conditions& conditions);
  void addReferring(const Selection::Link& link, int depth, Conditions& conditions);
  void addNotReferring(const Selection::Link& link, int depth, Conditions& conditions);
  void addReferencedBy(const Selection::Link& link, int depth, Conditions& conditions);
  void addUnnamed(const Selection::Link& link, int depth, Conditions& conditions);
  void addListedBy(const Selection::Link& link, int depth, Conditions& conditions,
                   const std::string& sign);
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
    addLink(selection.cls(), link, depth, conditions);
  }
}

void SelectionWriter::addLink(const ClassRef& cls, const Selection::Link& link, int depth,
                              Conditions& conditions) {
  using Relation = Selection::Relation;
  switch (link.relation) {
    case Relation::referring:
      checkVia(link.via, cls);
      return addReferring(link, depth, conditions);
    case Relation::notReferring:
      checkVia(link.via, cls);
      return addNotReferring(link, depth, conditions);
    case Relation::referencedBy:
      checkVia(link.via, link.others->cls());
      return addReferencedBy(link, depth, conditions);
    case Relation::unreferencedBy:
      checkVia(link.via, link.others->cls());
      return addUnnamed(link, depth, conditions);
    case Relation::unmatchedBy:
      checkProperty(link.own, cls);
      checkProperty(link.via, link.others->cls());
      requireKind(*link.own.info(), isWholeNumber, "a whole number");
      requireKind(*link.via.info(), isWholeNumber, "a whole number");
      return addUnnamed(link, depth, conditions);
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

void SelectionWriter::addNotReferring(const Selection::Link& link, int depth,
                                      Conditions& conditions) {
  const int inner = depth + 1;
  conditions.next() +=
      "NOT EXISTS (SELECT 1 FROM " + table(link.others->cls(), inner) + " WHERE ";
  Conditions innerConditions(sql_);
  innerConditions.next() += alias(inner) + ".id=" + columnOf(link.via, depth);
  addConditions(*link.others, inner, innerConditions);
  sql_.text += ")";
}

void SelectionWriter::addReferencedBy(const Selection::Link& link, int depth,
                                      Conditions& conditions) {
  addListedBy(link, depth, conditions, alias(depth) + ".id IN ");
}

void SelectionWriter::addListedBy(const Selection::Link& link, int depth,
                                  Conditions& conditions, const std::string& sign) {
  const int inner = depth + 1;
  conditions.next() += sign + "(SELECT " + columnOf(link.via, inner) + " FROM " +
                       table(link.others->cls(), inner) + " WHERE ";
  writeConditions(*link.others, inner);
  sql_.text += ")";
}

void SelectionWriter::addUnnamed(const Selection::Link& link, int depth,
                                 Conditions& conditions) {
  const PropertyInfo& via = *link.via.info();
  const std::string own = link.own.isValid() ? columnOf(link.own, depth) : alias(depth) + ".id";
  bool isIndexed = false;
  bool isPartial = false;
  for (const IndexInfo& index : via.owner->indexes) {
    if (index.properties.front() != &via) continue;
    isIndexed = true;
    isPartial |= index.partial;
  }
  // One scan of the others, rather than one for every candidate.
  if (!isIndexed) return addListedBy(link, depth, conditions, own + " NOT IN ");
  const int inner = depth + 1;
  const std::string column = columnOf(link.via, inner);
  conditions.next() +=
      "NOT EXISTS (SELECT 1 FROM " + table(link.others->cls(), inner) + " WHERE ";
  Conditions innerConditions(sql_);
  innerConditions.next() += column + "=" + own;
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

Selection Selection::linked(Link link) && {
  links_.push_back(std::move(link));
  return std::move(*this);
}

Selection Selection::referring(const PropertyRef& via, Selection others) && {
  return std::move(*this).linked(
      {Relation::referring, via, std::make_shared<const Selection>(std::move(others)), {}});
}

Selection Selection::notReferring(const PropertyRef& via, Selection others) && {
  return std::move(*this).linked(
      {Relation::notReferring, via, std::make_shared<const Selection>(std::move(others)), {}});
}

Selection Selection::referencedBy(const PropertyRef& via, Selection others) && {
  return std::move(*this).linked(
      {Relation::referencedBy, via, std::make_shared<const Selection>(std::move(others)), {}});
}

Selection Selection::unreferencedBy(const PropertyRef& via, Selection others) && {
  return std::move(*this).linked({Relation::unreferencedBy,
                                  via,
                                  std::make_shared<const Selection>(std::move(others)),
                                  {}});
}

Selection Selection::unmatchedBy(const PropertyRef& own, const PropertyRef& theirs,
                                 Selection others) && {
  return std::move(*this).linked({Relation::unmatchedBy, theirs,
                                  std::make_shared<const Selection>(std::move(others)), own});
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
