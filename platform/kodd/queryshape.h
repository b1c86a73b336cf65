// What an object query asks and where its values come from and go to, apart from any run of it.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/uuid/uuid.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kodd/constraints.h"
#include "kodd/layout.h"
#include "kodd/objectquery.h"
#include "kodd/objectref.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"

namespace kodd {

/// A variable of the caller, read when the query runs.
using QuerySource =
    std::variant<const int*, const long long*, const double*, const char*, const std::string*,
                 const std::wstring*, const boost::posix_time::ptime*,
                 const boost::uuids::uuid*, const EntryValue*, const ObjectRef*>;

/// One comparison with a variable. A property that is not valid stands for the object's ID.
struct QueryComparison {
  PropertyRef property;
  PropertyValueMatchRelation relation = PropertyValueMatchRelation::Equal;
  QuerySource source;
};

struct QueryCondition {
  enum class Form {
    comparisons,    ///< at least one of them holds
    empty,          ///< the blob has no bytes
    notEmpty,       ///< the blob has bytes
    namesExisting,  ///< the reference names an object of `target`
  };
  Form form = Form::comparisons;
  std::vector<QueryComparison> comparisons;
  PropertyRef property;  ///< of the other forms
  ClassRef target;
};

struct RawBuffer {
  int capacity;
  void* buffer;
  int* length;
};

/// A variable of the caller, written with every row.
using QueryDestination =
    std::variant<int*, long long*, double*, std::string*, std::wstring*, ObjectRef*,
                 BlobSizeInfo*, BlobPart*, std::vector<char>*, RawBuffer>;

struct QueryResult {
  enum class Form {
    property,
    live,      ///< ID of the object that a reference or link names; 0 when that is gone
    blobSize,  ///< of the property
    objectID,
    count,  ///< of all rows
  };
  Form form = Form::property;
  PropertyRef property;
  QueryDestination destination;
  ClassRef objectClass;  ///< of an ObjectRef destination; empty when only the row tells
};

class QueryShape {
 public:
  /// The first one given is the class searched. \throws "InvalidProperty" for another one later
  void setClass(const ClassRef& cls);
  void setClassOf(const PropertyRef& property);
  /// Keeps the first thing that is wrong with the query for its runs to report.
  void setDefect(const kodiag::Message& defect);
  void raiseDefect() const;

  /// The statement, built on first use. Its parameters are the values of the comparisons in
  /// their order, then the limit unless only a count is asked for.
  ///
  /// \param partialTerms  bit n set: the n-th comparison implies its property's partial index
  const std::string& sql(const Layout& layout, std::uint64_t partialTerms);
  bool isCountOnly() const;
  void forgetSql() { texts_.clear(); }

  ClassRef cls;
  std::vector<QueryCondition> conditions;
  std::vector<QueryResult> results;
  std::vector<std::pair<PropertyRef, ObjectQuery::SortOrder>> order;
  int limit = -1;

 private:
  std::string build(const Layout& layout, std::uint64_t partialTerms) const;

  std::map<std::uint64_t, std::string> texts_;
  std::optional<kodiag::Message> defect_;
};

/// The values of one run, taken when it starts: the caller's variables may change while rows
/// are read.
class QueryValues {
 public:
  QueryValues(const QueryShape& shape, const Session& session);

  std::uint64_t partialTerms() const { return partialTerms_; }
  /// \returns the number of parameters bound
  int bind(sqldb::Statement& statement) const;

 private:
  StoredValue value(const QueryComparison& comparison, const Session& session);

  std::vector<StoredValue> values_;
  std::vector<std::string>
      owned_;  ///< never grows beyond what was reserved: views point into it
  std::uint64_t partialTerms_ = 0;
};

}  // namespace kodd
