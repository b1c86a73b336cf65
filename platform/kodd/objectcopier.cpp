#include "kodd/objectcopier.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "kodd/datamodelrepository.h"
#include "kodd/objectselection.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"

namespace kodd {
namespace {

using kodiag::util::diagnostics;

// Which object takes the place of which, kept by the connection alone. Stand-ins have class 0.
constexpr const char* kMakeMap =
    "CREATE TEMP TABLE IF NOT EXISTS kodd_copies("
    "old INTEGER PRIMARY KEY, new INTEGER NOT NULL, class INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS temp.kodd_copies_by_class ON kodd_copies(class, new);"
    "DELETE FROM temp.kodd_copies";
constexpr const char* kOperation = "copy objects";

/// The engine keeps what one statement copies within a table in memory before it writes it.
constexpr long long kBatchBytes = 4 << 20;

struct GivenValue {
  const PropertyInfo* property;
  StoredValue value;
};

constexpr const char* kNotNoted = " AND s0.id NOT IN (SELECT old FROM temp.kodd_copies)";

}  // namespace

struct ObjectCopier::Impl {
  std::shared_ptr<Session> session;
  std::vector<ClassRef> classes;  ///< of which there are objects to copy
  std::vector<GivenValue> given;
  std::deque<std::string> owned;  ///< what the given values borrow from
  bool hasMap = false;

  sqldb::Database& database() const {
    sqldb::Database& opened = session->database(kOperation);
    if (opened.depth() == 0) {
      kodiag::raise({"KODD:kodd", "NoTransaction"}, {{"Operation", kOperation}});
    }
    return opened;
  }

  void ensureMap() {
    if (hasMap) return;
    database().execute(kMakeMap);
    hasMap = true;
  }

  long long countNew(const Selection& selection) const;
  void note(const Selection& selection, IdAllocator::Range range) const;
  struct Batch {
    int first;
    int last;
  };
  std::vector<Batch> batches(const ClassRef& cls) const;
  std::string copiedRows(const ClassRef& cls) const;
  void insertCopies(const ClassRef& cls) const;
  std::string copied(const PropertyInfo& property) const;
  const GivenValue* findGiven(const PropertyInfo& property) const {
    const auto place = std::ranges::find(given, &property, &GivenValue::property);
    return place == given.end() ? nullptr : &*place;
  }
};

long long ObjectCopier::Impl::countNew(const Selection& selection) const {
  const Layout& layout = session->layout();
  BoundSql sql{
      "SELECT count(*) FROM " + tableAsSearched(layout, selection.cls()) + " WHERE ", {}, {}};
  appendConditions(sql, layout, selection);
  sql.text += kNotNoted;
  sqldb::Statement query = database().statement(sql.text);
  sql.bind(query);
  query.step();
  return query.int64(0);
}

/// Notes the first objects of the selection that are not noted yet, one for each ID of the
/// range.
void ObjectCopier::Impl::note(const Selection& selection, IdAllocator::Range range) const {
  const Layout& layout = session->layout();
  BoundSql sql{
      "INSERT INTO temp.kodd_copies(old,new,class) "
      "SELECT id,?+row_number() OVER (ORDER BY id),? FROM (SELECT s0.id AS id FROM " +
          tableAsSearched(layout, selection.cls()) + " WHERE ",
      {static_cast<long long>(range.first) - 1,
       static_cast<long long>(layout.of(selection.cls()).number)},
      {}};
  appendConditions(sql, layout, selection);
  sql.text += kNotNoted;
  sql.text += " ORDER BY s0.id LIMIT ?)";
  sql.values.emplace_back(static_cast<long long>(range.count));
  sqldb::Statement insert = database().statement(sql.text);
  sql.bind(insert);
  insert.run();
}

std::string ObjectCopier::Impl::copied(const PropertyInfo& property) const {
  const std::string column = "s0." + session->layout().of(property).name;
  if (!namesObject(property.kind)) return column;
  return "coalesce((SELECT m.new FROM temp.kodd_copies AS m WHERE m.old=" + column + ")," +
         column + ")";
}

/// The copies to make with one statement each, as first and last ID.
std::vector<ObjectCopier::Impl::Batch> ObjectCopier::Impl::batches(const ClassRef& cls) const {
  const Layout& layout = session->layout();
  std::string bytes;
  for (const auto& property : cls.info()->properties) {
    if (!isBytes(property->kind)) continue;
    bytes += (bytes.empty() ? "" : "+") + ("length(s0." + layout.of(*property).name + ")");
  }
  if (bytes.empty()) return {{0, std::numeric_limits<int>::max()}};
  sqldb::Statement query =
      database().statement("SELECT c.new," + bytes + copiedRows(cls) + " ORDER BY c.new");
  query.bind(1, layout.of(cls).number);
  std::vector<Batch> found;
  long long size = kBatchBytes;
  while (query.step()) {
    const auto id = static_cast<int>(query.int64(0));
    if (size >= kBatchBytes) {
      found.push_back({id, id});
      size = 0;
    }
    found.back().last = id;
    size += query.int64(1);
  }
  return found;
}

std::string ObjectCopier::Impl::copiedRows(const ClassRef& cls) const {
  return " FROM temp.kodd_copies AS c CROSS JOIN " + tableAsSearched(session->layout(), cls) +
         " ON s0.id=c.old WHERE c.class=?";
}

void ObjectCopier::Impl::insertCopies(const ClassRef& cls) const {
  const Layout& layout = session->layout();
  std::string names = "id";
  BoundSql sql{" SELECT c.new", {}, {}};
  for (const auto& property : cls.info()->properties) {
    if (!isStored(property->kind)) continue;
    names += "," + layout.of(*property).name;
    if (const GivenValue* fixed = findGiven(*property)) {
      sql.text += ",?";
      sql.values.push_back(fixed->value);
    } else {
      sql.text += "," + copied(*property);
    }
  }
  sql.text = "INSERT INTO " + layout.of(cls).table + "(" + names + ")" + sql.text +
             copiedRows(cls) + " AND c.new BETWEEN ? AND ? ORDER BY c.new";
  sql.values.emplace_back(static_cast<long long>(layout.of(cls).number));
  for (const Batch batch : batches(cls)) {
    sqldb::Statement insert = database().statement(sql.text);
    sql.bind(insert);
    const int next = static_cast<int>(sql.values.size()) + 1;
    insert.bind(next, batch.first);
    insert.bind(next + 1, batch.last);
    insert.run();
  }
}

ObjectCopier::ObjectCopier(DataModelRepository& repository) : impl_(std::make_unique<Impl>()) {
  impl_->session = repository.session_;
}
ObjectCopier::~ObjectCopier() = default;
ObjectCopier::ObjectCopier(ObjectCopier&&) noexcept = default;
ObjectCopier& ObjectCopier::operator=(ObjectCopier&&) noexcept = default;

long long ObjectCopier::add(const Selection& selection, diagnostics& diag) {
  long long count = 0;
  performWrite(*impl_->session, kOperation, diag, [&] {
    impl_->ensureMap();
    const ClassRef cls = selection.cls();
    count = impl_->countNew(selection);
    for (const IdAllocator::Range range : impl_->session->ids().takeMany(*cls.info(), count)) {
      impl_->note(selection, range);
    }
    const bool isKnown = std::ranges::find(impl_->classes, cls) != impl_->classes.end();
    if (count > 0 && !isKnown) impl_->classes.push_back(cls);
  });
  return count;
}

void ObjectCopier::substitute(int original, int standIn, diagnostics& diag) {
  performWrite(*impl_->session, kOperation, diag, [&] {
    impl_->ensureMap();
    sqldb::Statement insert = impl_->database().statement(
        "INSERT INTO temp.kodd_copies(old,new,class) VALUES(?,?,0)");
    insert.bind(1, original);
    insert.bind(2, standIn);
    insert.run();
  });
}

void ObjectCopier::give(const PropertyRef& property, const EntryValue& value,
                        diagnostics& diag) {
  performWrite(*impl_->session, kOperation, diag, [&] {
    const PropertyInfo& info = *property.info();
    impl_->given.push_back({&info, storedEntry(info, value, impl_->owned.emplace_back())});
  });
}

void ObjectCopier::copy(diagnostics& diag) {
  performWrite(*impl_->session, kOperation, diag, [&] {
    for (const ClassRef& cls : impl_->classes) impl_->insertCopies(cls);
  });
}

int ObjectCopier::placeOf(int original, diagnostics& diag) {
  int place = 0;
  performWrite(*impl_->session, kOperation, diag, [&] {
    impl_->ensureMap();
    sqldb::Statement query =
        impl_->database().statement("SELECT new FROM temp.kodd_copies WHERE old=?");
    query.bind(1, original);
    if (query.step()) place = static_cast<int>(query.int64(0));
  });
  return place;
}

}  // namespace kodd
