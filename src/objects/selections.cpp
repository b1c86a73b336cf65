#include "objects/selections.h"

#include <utility>

#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

template <class T>
void write(ObjectManager& manager, const kodd::Selection& selection,
           const std::string& property, const T& value) {
  const auto modifier = manager.createObjectModifier(property, selection.cls());
  modifier->setPropertyValueSource(selection.cls().findProperty(property), &value);
  raising([&](auto& diag) { modifier->modifySelected(selection, diag); });
}

}  // namespace

kodd::Selection withIDs(ObjectManager& manager, const std::string& className,
                        const std::vector<int>& ids) {
  kodd::Selection selection(manager.getClass(className));
  for (const int id : ids) selection = std::move(selection).withId(id);
  return selection;
}

kodd::Selection ofInstance(ObjectManager& manager, const std::string& className,
                           long long instanceID) {
  return where(kodd::Selection(manager.getClass(className)), strings::InstanceID, instanceID);
}

kodd::Selection referring(ObjectManager& manager, const std::string& className,
                          const std::string& property, const kodd::Selection& others) {
  const kodd::ClassRef cls = manager.getClass(className);
  return kodd::Selection(cls).referring(cls.findProperty(property), others);
}

kodd::Selection referencedBy(ObjectManager& manager, const std::string& className,
                             const std::string& property, const kodd::Selection& others) {
  return kodd::Selection(manager.getClass(className))
      .referencedBy(others.cls().findProperty(property), others);
}

kodd::Selection where(kodd::Selection selection, const std::string& property,
                      const kodd::EntryValue& value,
                      kodd::PropertyValueMatchRelation relation) {
  const kodd::PropertyRef named = selection.cls().findProperty(property);
  return std::move(selection).matching(named, relation, value);
}

std::vector<int> selectedIDs(ObjectManager& manager, const kodd::Selection& selection,
                             const std::string& orderBy) {
  const kodd::PropertyRef order = selection.cls().findProperty(orderBy);
  return raising(
      [&](auto& diag) { return manager.repository().selectIDs(selection, order, diag); });
}

long long countSelected(ObjectManager& manager, const kodd::Selection& selection) {
  return raising(
      [&](auto& diag) { return manager.repository().countObjects(selection, diag); });
}

long long removeSelected(ObjectManager& manager, const kodd::Selection& selection) {
  const auto deleter = manager.createObjectDeleter(selection.cls());
  return raising([&](auto& diag) { return deleter->deleteSelected(selection, diag); });
}

void writeToSelected(ObjectManager& manager, const kodd::Selection& selection,
                     const std::string& property, int value) {
  write(manager, selection, property, value);
}

void writeToSelected(ObjectManager& manager, const kodd::Selection& selection,
                     const std::string& property, long long value) {
  write(manager, selection, property, value);
}

}  // namespace vela
