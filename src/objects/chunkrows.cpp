#include "objects/chunkrows.h"

#include <cfloat>

#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

using Order = kodd::ObjectQuery::SortOrder;
using Relation = kodd::PropertyValueMatchRelation;

}  // namespace

ChunkRows::ChunkRows(ObjectManager& manager)
    : manager_(manager),
      class_(manager.getClass(strings::Chunk)),
      withID_(makeQuery()),
      numbered_(makeQueryOfSignal()),
      first_(makeQueryOfTimed()),
      last_(makeQueryOfTimed()),
      reaching_(makeQueryOfTimed()),
      firstReaching_(makeQueryOfTimed()),
      lastBefore_(makeQueryOfTimed()),
      all_(makeQueryOfSignal()) {
  withID_.addIDConstraint(class_, &chunk_);
  numbered_.addConstraint(property(strings::ChunkNum), Relation::Equal, &number_);
  numbered_.setLimit(1);
  first_.setOrderByProperty(property(strings::ChunkNum), Order::ascending);
  first_.setLimit(1);
  last_.setOrderByProperty(property(strings::ChunkNum), Order::descending);
  last_.setLimit(1);
  for (kodd::ObjectQuery* query : {&reaching_, &firstReaching_}) {
    query->addConstraint(property(strings::EndTime), Relation::GreaterEqual, &time_);
    query->setOrderByProperty(property(strings::EndTime), Order::ascending);
    query->setOrderByProperty(property(strings::ChunkNum), Order::ascending);
  }
  firstReaching_.setLimit(1);
  lastBefore_.addConstraint(property(strings::EndTime), Relation::Less, &time_);
  lastBefore_.setOrderByProperty(property(strings::EndTime), Order::descending);
  lastBefore_.setOrderByProperty(property(strings::ChunkNum), Order::descending);
  lastBefore_.setLimit(1);
  all_.setOrderByProperty(property(strings::ChunkNum), Order::ascending);
}

kodd::PropertyRef ChunkRows::property(const std::string& name) const {
  return manager_.getPropertyRef(strings::Chunk, name);
}

kodd::ObjectQuery ChunkRows::makeQuery() {
  kodd::ObjectQuery query(manager_.repository());
  query.addResultID(class_, &row_.id);
  query.addResultProperty(property(strings::ChunkNum), &row_.number);
  query.addResultProperty(property(strings::NumPoints), &row_.points);
  query.addResultProperty(property(strings::StartTime), &row_.startTime);
  query.addResultProperty(property(strings::EndTime), &row_.endTime);
  return query;
}

kodd::ObjectQuery ChunkRows::makeQueryOfSignal() {
  kodd::ObjectQuery query = makeQuery();
  query.addConstraint(property(strings::Signal), Relation::Equal, &signal_);
  return query;
}

kodd::ObjectQuery ChunkRows::makeQueryOfTimed() {
  kodd::ObjectQuery query = makeQueryOfSignal();
  query.addConstraint(property(strings::NumPoints), Relation::Greater, &noPoints_);
  return query;
}

std::optional<ChunkRow> ChunkRows::one(kodd::ObjectQuery& query) {
  const bool found = raising([&](auto& diag) { return query.executeForOne(diag); });
  return found ? std::optional(row_) : std::nullopt;
}

std::optional<ChunkRow> ChunkRows::withID(int chunk) {
  chunk_ = chunk;
  return one(withID_);
}

std::optional<ChunkRow> ChunkRows::numbered(int signal, int number) {
  signal_ = signal;
  number_ = number;
  return one(numbered_);
}

std::optional<ChunkRow> ChunkRows::first(int signal) {
  signal_ = signal;
  return one(first_);
}

std::optional<ChunkRow> ChunkRows::last(int signal) {
  signal_ = signal;
  return one(last_);
}

std::optional<ChunkRow> ChunkRows::firstReaching(int signal, double time) {
  signal_ = signal;
  time_ = time;
  return one(firstReaching_);
}

std::optional<ChunkRow> ChunkRows::lastBefore(int signal, double time) {
  signal_ = signal;
  time_ = time;
  return one(lastBefore_);
}

std::vector<ChunkRow> ChunkRows::overlapping(int signal, double t0, double t1) {
  if (t0 <= -DBL_MAX && t1 >= DBL_MAX) return all(signal);
  std::vector<ChunkRow> rows;
  // Written so that NaN selects nothing.
  if (!(t0 <= t1)) return rows;
  signal_ = signal;
  time_ = t0;
  kodiag::util::diagnostics diag;
  kodd::ResultIterator results = reaching_.execute(diag);
  while (results.getNextResult(diag) && row_.startTime <= t1) rows.push_back(row_);
  diag.raiseIfAny();
  return rows;
}

std::vector<ChunkRow> ChunkRows::all(int signal) {
  std::vector<ChunkRow> rows;
  signal_ = signal;
  kodiag::util::diagnostics diag;
  kodd::ResultIterator results = all_.execute(diag);
  while (results.getNextResult(diag)) rows.push_back(row_);
  diag.raiseIfAny();
  return rows;
}

}  // namespace vela
