// The template of run names, display names, and the list made of them.
#include "host/arrays.h"
#include "host/functions.h"
#include "objectmanager/instancerecords.h"
#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/runnames.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

constexpr const wchar_t* kBuiltInTemplate = L"Run <run_index>: <model_name>";
constexpr const char* kPreferenceFunction = "Korvo.vela.Engine.getPrefOptions";

// Runs of a new instance go where the preferences say, also where another one made the
// template.
const bool preferenceIsKnown = [] {
  setShowAtTopPreference(
      [] { return Set::getDefaultRunNameTemplateAndShowAtTopFlagFromPrefs().second ? 1 : 0; });
  return true;
}();

void storeTemplate(ObjectManager& manager, const std::wstring& text) {
  if (const auto stored = findFirst(manager, strings::RunNameTemplate, {})) {
    stored->setPropertyUString(strings::Template, text);
    return;
  }
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::Template, &text, ObjectConstructorPropType::uString}};
  manager.createObject(strings::RunNameTemplate, values, false);
}

/// The instance's record of its list; empty when it has none or several.
std::unique_ptr<ObjectRef> orderRecord(ObjectManager& manager) {
  const std::vector<int> records =
      findIDs(manager, strings::MinMaxOrderIndex,
              {equals(strings::InstanceID, manager.getInstanceID())});
  bool found = false;
  return records.size() == 1
             ? manager.findObject(records.front(), strings::MinMaxOrderIndex, found)
             : nullptr;
}

}  // namespace

std::pair<std::wstring, bool> Set::getDefaultRunNameTemplateAndShowAtTopFlagFromPrefs() {
  std::pair<std::wstring, bool> result(kBuiltInTemplate, false);
  if (!host::hasFunction(kPreferenceFunction)) return result;
  try {
    const host::HostArray preferences = host::callFunction(kPreferenceFunction).front();
    const host::HostArray* text = preferences.findField("runNameTemplate");
    const host::HostArray* atTop = preferences.findField("showRunAtTop");
    if (text && text->isText()) result.first = text->toWide();
    if (atTop && atTop->isScalar()) result.second = atTop->toBool();
  } catch (const std::exception&) {
    // Preferences that cannot be had leave the built-in ones.
    return {kBuiltInTemplate, false};
  }
  return result;
}

std::wstring Set::getRunNameTemplate(ObjectManager& manager) {
  const auto stored = [&] { return findFirst(manager, strings::RunNameTemplate, {}); };
  if (const auto known = stored()) return known->getPropertyUString(strings::Template);
  // Asked before the write lock is taken: it may be a slow call into the host.
  const auto [text, showAtTop] = getDefaultRunNameTemplateAndShowAtTopFlagFromPrefs();
  if (manager.isReadOnly()) return text;
  DictionaryFunction make = [&](kodiag::util::diagnostics&) {
    initializeDefaultRunNameTemplateAndShowAtTopFlag(text, showAtTop, manager);
  };
  // Who asks for a name does not wait for a writer: the next one who asks makes the template.
  kodiag::util::diagnostics notMade;
  manager.trySafeTransaction(make, notMade);
  const auto now = stored();
  return now ? now->getPropertyUString(strings::Template) : text;
}

void Set::setRunNameTemplate(const std::wstring& text, ObjectManager& manager) {
  manager.inTransaction([&] { storeTemplate(manager, text); });
}

void Set::restoreRunNameTemplate(ObjectManager& manager) {
  setRunNameTemplate(getDefaultRunNameTemplateAndShowAtTopFlagFromPrefs().first, manager);
}

void Set::initializeDefaultRunNameTemplateAndShowAtTopFlag(const std::wstring& text,
                                                           bool showAtTop,
                                                           ObjectManager& manager) {
  manager.inTransaction([&] {
    if (findFirstID(manager, strings::RunNameTemplate, {}) == 0) storeTemplate(manager, text);
    const auto record = orderRecord(manager);
    if (record) record->setPropertyInt32(strings::ShowAtTop, showAtTop);
  });
}

bool Set::getShowRunAtTop(ObjectManager& manager) {
  manager.ensureInstanceRecords();
  const auto record = orderRecord(manager);
  return record && record->getPropertyInt32(strings::ShowAtTop) != 0;
}

void Set::setShowRunAtTop(bool atTop, ObjectManager& manager) {
  // Made by the first run otherwise, the template would bring the flag of the preferences
  // along.
  getRunNameTemplate(manager);
  manager.inTransaction([&] {
    manager.ensureInstanceRecords();
    const auto record = orderRecord(manager);
    if (record) record->setPropertyInt32(strings::ShowAtTop, atTop);
  });
}

std::wstring Set::getRunDisplayName() const {
  std::wstring name;
  manager().inReadUnit(
      [&] { name = RunNames(manager()).of(getObjectReference().getObjRef()); });
  return name;
}

std::vector<Set::Summary> Set::getRunSummaries(ObjectManager& manager, Application application,
                                               Sessions sessions) {
  std::vector<Summary> summaries;
  manager.inReadUnit([&] {
    std::vector<RunRow> rows;
    VisibleRuns(manager, application, sessions).forEach([&](const RunRow& row) {
      rows.push_back(row);
    });
    RunNames names(manager);
    for (const RunRow& row : rows) {
      const int id = row.object.id();
      summaries.push_back(
          {id, names.numberOf(row.object).value_or(0), names.of(row), row.date,
           static_cast<Application>(row.application),
           countObjects(manager, strings::Signal,
                        {equals(strings::FK_SetID, id), equals(strings::HasChildren, 0)})});
    }
  });
  return summaries;
}

}  // namespace vela
