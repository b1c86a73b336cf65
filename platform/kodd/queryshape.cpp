#include "kodd/queryshape.h"

#include <algorithm>

#include "kodd/objectselection.h"
#include "kodd/objectvalue.h"
#include "kodiag/diagnostics.h"
#include "text/utf8.h"

namespace kodd {
namespace {

constexpr std::size_t kTermBits = 64;
/// The engine refuses expressions that are nested more deeply than 1000, and takes each further
/// term of a chain for a level.
constexpr std::size_t kLongestChain = 500;

/// The terms as a chain, or as a chain of chains.
std::string joined(std::vector<std::string> terms, const std::string& sign) {
  while (terms.size() > kLongestChain) {
    std::vector<std::string> groups;
    for (std::size_t i = 0; i < terms.size(); i += kLongestChain) {
      const auto first = terms.begin() + static_cast<std::ptrdiff_t>(i);
      const auto count = std::min(kLongestChain, terms.size() - i);
      groups.push_back("(" + joined({first, first + static_cast<std::ptrdiff_t>(count)}, sign) +
                       ")");
    }
    terms = std::move(groups);
  }
  std::string text;
  for (const std::string& term : terms) text += (text.empty() ? "" : sign) + term;
  return text;
}

/// Whether the value needs memory of its own while a run lasts.
bool isKept(const QuerySource& source) {
  return !std::holds_alternative<const int*>(source) &&
         !std::holds_alternative<const long long*>(source) &&
         !std::holds_alternative<const double*>(source) &&
         !std::holds_alternative<const ObjectRef*>(source);
}

class QueryWriter {
 public:
  QueryWriter(const Layout& layout, std::uint64_t partialTerms)
      : layout_(layout), partialTerms_(partialTerms) {}

  std::string column(const PropertyRef& property) const {
    return property.isValid() ? "s0." + layout_.of(*property.info()).name : "s0.id";
  }

  std::string liveID(const QueryResult& result) const {
    const PropertyInfo& property = *result.property.info();
    // Which table to look into is known from the row alone.
    if (!property.target) return column(result.property);
    return "coalesce((SELECT t.id FROM " + layout_.of(*property.target).table +
           " t WHERE t.id=" + column(result.property) + "),0)";
  }

  std::string result(const QueryResult& result, bool countOnly) const {
    switch (result.form) {
      case QueryResult::Form::property:
      case QueryResult::Form::objectID:
        return column(result.property);
      case QueryResult::Form::live:
        return liveID(result);
      case QueryResult::Form::blobSize:
        return "length(" + column(result.property) + ")";
      case QueryResult::Form::count:
        return countOnly ? "count(*)" : "count(*) OVER ()";
    }
    return {};
  }

  std::string comparisons(const QueryCondition& condition) {
    std::vector<std::string> terms;
    for (const QueryComparison& comparison : condition.comparisons) {
      std::string term = column(comparison.property) + relationSign(comparison.relation) + "?";
      if (takeTermBit()) {
        term += " AND " + partialIndexTerm(layout_, *comparison.property.info(),
                                           comparison.relation, "s0");
      }
      terms.push_back(std::move(term));
    }
    return terms.empty() ? "0" : "(" + joined(std::move(terms), " OR ") + ")";
  }

  std::string notEmpty(const PropertyRef& property) const {
    if (layout_.of(*property.info()).headsPartialIndex) {
      return partialIndexTerm(layout_, *property.info(), PropertyValueMatchRelation::NotEqual,
                              "s0");
    }
    return column(property) + "<>x''";
  }

  std::string condition(const QueryCondition& condition) {
    switch (condition.form) {
      case QueryCondition::Form::comparisons:
        return comparisons(condition);
      case QueryCondition::Form::empty:
        return column(condition.property) + "=x''";
      case QueryCondition::Form::notEmpty:
        return notEmpty(condition.property);
      case QueryCondition::Form::namesExisting:
        return "EXISTS (SELECT 1 FROM " + layout_.of(condition.target).table +
               " t WHERE t.id=" + column(condition.property) + ")";
    }
    return {};
  }

 private:
  bool takeTermBit() {
    const std::size_t bit = comparison_++;
    return bit < kTermBits && (partialTerms_ >> bit & 1) != 0;
  }

  const Layout& layout_;
  std::uint64_t partialTerms_;
  std::size_t comparison_ = 0;
};

}  // namespace

void QueryShape::setClass(const ClassRef& wanted) {
  if (!cls.isValid()) cls = wanted;
  if (cls == wanted && cls.isValid()) return;
  kodiag::raise({"KODD:kodd", "NoSuchObjectType"},
                {{"ClassName", wanted.isValid() ? wanted.info()->qualifiedName() : ""}});
}

void QueryShape::setClassOf(const PropertyRef& property) {
  if (!cls.isValid() && property.isValid()) cls = ClassRef(property.info()->owner);
  checkProperty(property, cls);
}

void QueryShape::setDefect(const kodiag::Message& defect) {
  if (!defect_) defect_ = defect;
}

void QueryShape::raiseDefect() const {
  if (defect_) throw kodiag::except::ExceptionWithCauses(*defect_);
  if (!cls.isValid()) {
    kodiag::raise({"KODD:kodd", "NoSuchObjectType"}, {{"ClassName", ""}});
  }
}

bool QueryShape::isCountOnly() const {
  return !results.empty() && std::ranges::all_of(results, [](const QueryResult& result) {
    return result.form == QueryResult::Form::count;
  });
}

const std::string& QueryShape::sql(const Layout& layout, std::uint64_t partialTerms) {
  std::string& text = texts_[partialTerms];
  if (text.empty()) text = build(layout, partialTerms);
  return text;
}

std::string QueryShape::build(const Layout& layout, std::uint64_t partialTerms) const {
  QueryWriter writer(layout, partialTerms);
  std::string text = "SELECT ";
  const bool countOnly = isCountOnly();
  if (results.empty()) text += "s0.id";
  for (std::size_t i = 0; i < results.size(); ++i) {
    text += (i == 0 ? "" : ",") + writer.result(results[i], countOnly);
  }
  text += " FROM " + layout.of(cls).table + " AS s0";
  std::vector<std::string> terms;
  for (const QueryCondition& condition : conditions)
    terms.push_back(writer.condition(condition));
  if (!terms.empty()) text += " WHERE " + joined(terms, " AND ");
  if (countOnly) return text;
  text += " ORDER BY ";
  for (const auto& [property, direction] : order) {
    text += writer.column(property);
    text += direction == ObjectQuery::SortOrder::ascending ? "," : " DESC,";
  }
  return text + "s0.id LIMIT ?";
}

QueryValues::QueryValues(const QueryShape& shape, const Session& session) {
  std::size_t count = 0;
  for (const QueryCondition& condition : shape.conditions)
    count += condition.comparisons.size();
  values_.reserve(count);
  for (const QueryCondition& condition : shape.conditions) {
    for (const QueryComparison& comparison : condition.comparisons) {
      if (isKept(comparison.source)) owned_.reserve(count);
      const StoredValue stored = value(comparison, session);
      const std::size_t bit = values_.size();
      if (bit < kTermBits && comparison.property.isValid()) {
        const PropertyInfo& property = *comparison.property.info();
        const ColumnLayout& column = session.layout().of(property);
        if (impliesPartialIndex(property, column, comparison.relation, stored)) {
          partialTerms_ |= std::uint64_t{1} << bit;
        }
      }
      values_.push_back(stored);
    }
  }
}

StoredValue QueryValues::value(const QueryComparison& comparison, const Session& session) {
  const auto own = [this](std::string text) {
    return StoredValue(std::string_view(owned_.emplace_back(std::move(text))));
  };
  struct Reader {
    const QueryComparison& comparison;
    const Session& session;
    const decltype(own)& keep;
    std::vector<std::string>& owned;

    StoredValue operator()(const int* source) const { return static_cast<long long>(*source); }
    StoredValue operator()(const long long* source) const { return *source; }
    StoredValue operator()(const double* source) const { return *source; }
    StoredValue operator()(const char* source) const { return keep(source); }
    StoredValue operator()(const std::string* source) const { return keep(*source); }
    StoredValue operator()(const std::wstring* source) const {
      return keep(text::toUtf8(*source));
    }
    StoredValue operator()(const boost::posix_time::ptime* source) const {
      return storedEntry(*comparison.property.info(), *source, owned.emplace_back());
    }
    StoredValue operator()(const boost::uuids::uuid* source) const {
      return storedEntry(*comparison.property.info(), *source, owned.emplace_back());
    }
    StoredValue operator()(const EntryValue* source) const {
      return storedEntry(*comparison.property.info(), *source, owned.emplace_back());
    }
    StoredValue operator()(const ObjectRef* source) const {
      return static_cast<long long>(idInSession(session, *source));
    }
  };
  return std::visit(Reader{comparison, session, own, owned_}, comparison.source);
}

int QueryValues::bind(sqldb::Statement& statement) const {
  int parameter = 0;
  for (const StoredValue& value : values_) bindStored(statement, ++parameter, value);
  return parameter;
}

}  // namespace kodd
