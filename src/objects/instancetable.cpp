#include "objects/instancetable.h"

#include <utility>

#include "objects/find.h"
#include "objects/raising.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

bool mayGoFromInstanceTable(ObjectManager& manager, long long instanceID) {
  if (instanceID == ObjectManager::RACCEL_INSTANCE_ID) return false;
  if (isInstanceOpen(manager, instanceID)) return false;
  return countSelected(manager, ofInstance(manager, strings::DataSet, instanceID)) == 0;
}

}  // namespace

std::vector<long long> instancesWith(ObjectManager& manager, const std::string& flag) {
  const kodd::ClassRef cls = manager.getClass(strings::InstanceID);
  const int yes = 1;
  long long id = 0;
  const auto query = manager.createObjectQuery();
  query->addConstraint(cls.findProperty(flag), kodd::PropertyValueMatchRelation::Equal, &yes);
  query->addResultProperty(cls.findProperty(strings::IDLower), &id);
  return raising([&](kodiag::util::diagnostics& diag) {
    std::vector<long long> ids;
    kodd::ResultIterator rows = query->execute(diag);
    while (diag.empty() && rows.getNextResult(diag)) ids.push_back(id);
    return ids;
  });
}

bool isInstanceOpen(ObjectManager& manager, long long instanceID) {
  return countObjects(manager, strings::InstanceID,
                      {equals(strings::IDLower, instanceID), equals(strings::IsClosed, 0)}) > 0;
}

kodd::Selection runsMovingWith(ObjectManager& manager, long long instanceID) {
  constexpr int kLast = static_cast<int>(Set::Application::VELAComparison);
  static_assert(static_cast<int>(Set::Application::VELA) == 0 && kLast == 1);
  return where(where(ofInstance(manager, strings::DataSet, instanceID), strings::Application, 0,
                     kodd::PropertyValueMatchRelation::GreaterEqual),
               strings::Application, kLast, kodd::PropertyValueMatchRelation::LessEqual);
}

void removeInstanceRecords(ObjectManager& manager, long long instanceID) {
  removeSelected(manager, ofInstance(manager, strings::OverwriteSet, instanceID));
  removeSelected(manager, ofInstance(manager, strings::PlottedComparisonSignal, instanceID));

  const bool goesOn = countSelected(manager, runsMovingWith(manager, instanceID)) > 0;
  const kodd::ClassRef numberClass = manager.getClass(strings::RunNumberByRunID);
  kodd::Selection numbers =
      ofInstance(manager, strings::RunNumberByRunID, instanceID)
          .notReferring(numberClass.findProperty(strings::FK_SetID),
                        kodd::Selection(manager.getClass(strings::DataSet)));
  if (goesOn) {
    // The counter stands where the run would.
    numbers = where(std::move(numbers), strings::FK_SetID, 0,
                    kodd::PropertyValueMatchRelation::NotEqual);
  } else {
    removeSelected(manager, ofInstance(manager, strings::MinMaxOrderIndex, instanceID));
  }
  removeSelected(manager, numbers);

  if (!mayGoFromInstanceTable(manager, instanceID)) return;
  removeSelected(manager, where(kodd::Selection(manager.getClass(strings::InstanceID)),
                                strings::IDLower, instanceID));
}

}  // namespace vela
