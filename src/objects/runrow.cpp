#include "objects/runrow.h"

#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

constexpr auto kEqual = kodd::PropertyValueMatchRelation::Equal;
constexpr int kOwnRuns = static_cast<int>(Set::Application::VELA);
constexpr int kComparisonRuns = static_cast<int>(Set::Application::VELAComparison);

}  // namespace

void addRunResults(kodd::ObjectQuery& query, const kodd::ClassRef& dataSet, RunRow& row) {
  query.addResultObject(dataSet, &row.object);
  query.addResultProperty(dataSet.findProperty(strings::UName), &row.name);
  query.addResultProperty(dataSet.findProperty(strings::Date), &row.date);
  query.addResultProperty(dataSet.findProperty(strings::Application), &row.application);
  query.addResultProperty(dataSet.findProperty(strings::BaselineSetID), &row.baseline);
  query.addResultProperty(dataSet.findProperty(strings::CompareToSetID), &row.compareTo);
}

VisibleRuns::VisibleRuns(ObjectManager& manager, Set::Application application,
                         Set::Sessions sessions)
    : manager_(manager),
      dataSet_(manager.getClass(strings::DataSet)),
      instanceID_(manager.getInstanceID()),
      application_(static_cast<int>(application)),
      ofAllSessions_(sessions == Set::Sessions::all) {}

VisibleRuns::VisibleRuns(ObjectManager& manager, Set::Application application,
                         long long instanceID)
    : VisibleRuns(manager, application, Set::Sessions::own) {
  instanceID_ = instanceID;
  // Only children, which share an ID, can still be writing under that of somebody closed.
  finishedOnly_ = instanceID == ObjectManager::RACCEL_INSTANCE_ID;
}

void VisibleRuns::constrain(kodd::ObjectQuery& query) const {
  query.addConstraint(dataSet_.findProperty(strings::Visible), kEqual, &yes_);
  query.addConstraint(dataSet_.findProperty(strings::MarkedForDelete), kEqual, &no_);
  if (!ofAllSessions_) {
    query.addConstraint(dataSet_.findProperty(strings::InstanceID), kEqual, &instanceID_);
  }
  if (finishedOnly_) {
    query.addConstraint(dataSet_.findProperty(strings::IsActivelyStreaming), kEqual, &no_);
  }
  const kodd::PropertyRef application = dataSet_.findProperty(strings::Application);
  if (application_ == static_cast<int>(Set::Application::AllVELA)) {
    kodd::DisjunctionMatchConstraint either;
    either.addConstraint(application, kEqual, &kOwnRuns);
    either.addConstraint(application, kEqual, &kComparisonRuns);
    query.addConstraint(either);
  } else if (application_ != static_cast<int>(Set::Application::AllApplications)) {
    query.addConstraint(application, kEqual, &application_);
  }
}

int VisibleRuns::count() {
  const auto query = manager_.createObjectQuery();
  int runs = 0;
  constrain(*query);
  query->addResultCount(&runs);
  raising([&](kodiag::util::diagnostics& diag) { query->executeForOne(diag); });
  return runs;
}

void VisibleRuns::forEach(const std::function<void(const RunRow&)>& use) {
  const auto query = manager_.createObjectQuery();
  RunRow row;
  addRunResults(*query, dataSet_, row);
  constrain(*query);
  query->setOrderByProperty(dataSet_.findProperty(strings::OrderIndex),
                            kodd::ObjectQuery::SortOrder::ascending);
  raising([&](kodiag::util::diagnostics& diag) {
    kodd::ResultIterator rows = query->execute(diag);
    while (diag.empty() && rows.getNextResult(diag)) use(row);
  });
}

}  // namespace vela
