#include "objects/units.h"

#include "objectmanager/objectmanager.h"
#include "objects/checksum.h"
#include "objects/find.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

void createUnit(ObjectManager& manager, long long checksum, const std::wstring& label) {
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::Checksum, &checksum, ObjectConstructorPropType::int64},
      {strings::Label, &label, ObjectConstructorPropType::uString}};
  manager.createObject(strings::Unit, values, false);
}

}  // namespace

long long unitNumber(ObjectManager& manager, const std::wstring& label) {
  if (label.empty()) return 0;
  // Labels of one checksum take the numbers that follow it.
  auto number = static_cast<long long>(
      static_cast<unsigned>(CheckSum().add(text::toUtf8(label)).value()));
  for (;; ++number) {
    // No unit is told by 0.
    if (number == 0) continue;
    const auto unit = findFirst(manager, strings::Unit, {equals(strings::Checksum, number)});
    if (!unit) {
      createUnit(manager, number, label);
      return number;
    }
    if (unit->getPropertyUString(strings::Label) == label) return number;
  }
}

}  // namespace vela
