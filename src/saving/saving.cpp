#include "saving/saving.h"

#include "kodiag/diagnostics.h"
#include "objectmanager/opening.h"
#include "objectmanager/outputpath.h"
#include "objectmanager/repositorylock.h"
#include "objects/strings.h"
#include "saving/chunkrecords.h"
#include "saving/objectrow.h"
#include "saving/progress.h"
#include "saving/savedformat.h"
#include "saving/savedobjects.h"
#include "text/utf8.h"

namespace vela::saving {
namespace {

using kodiag::util::diagnostics;

[[noreturn]] void raiseNotWritten(const std::string& file, const std::string& reason) {
  kodiag::raise({"nexstore:nex", "CouldNotWriteToMatFile"},
                {{"Location", file}, {"Reason", reason}});
}

/// The new file would take the place of what lies there.
void refuseUnlessReplaceable(const std::string& path) {
  if (const std::string reason = whyNotToWrite(path); !reason.empty()) {
    raiseNotWritten(path, reason);
  }
}

void putObject(datafile::DataFileWriter& file, ObjectManager& manager, ObjectRow& row, int id,
               const SavedObjects& saved, bool bareReferences) {
  file.put(variableName(kHeader, id),
           host::HostArray::structure({{kID, host::HostArray::scalar(static_cast<double>(id))},
                                       {kType, host::HostArray::text(row.className())}}));
  const bool isSignal = row.className() == strings::Signal;
  std::vector<std::string> names = row.fieldNames();
  if (isSignal) names.push_back(strings::Chunk);
  datafile::DataFileWriter::Variable data(file, variableName(kData, id));
  data.beginStructure(names);
  const auto isSaved = [&](int target) { return saved.contains(target); };
  for (const host::HostArray& value : row.fields(isSaved, bareReferences)) data.put(value);
  if (isSignal) putChunks(data, manager, id);
  data.finish();
}

Contents writeEverything(datafile::DataFileWriter& file, ObjectManager& manager,
                         Set::Sessions sessions) {
  const SavedObjects saved(manager, sessions);
  diagnostics diag;
  const Descriptor descriptor{hostVersion(), manager.repository().databaseID(diag)};
  diag.raiseIfAny();
  const bool bareReferences = hasBareReferences(descriptor);
  Progress progress("SavingProgressBar", L"Saving runs", saved.count());
  for (const std::string& className : savedClasses()) {
    ObjectRow row(manager, className);
    for (const int id : saved.ofClass(className)) {
      if (row.read(id)) putObject(file, manager, row, id, saved, bareReferences);
      progress.step();
    }
  }
  file.put(kDescriptor, toArray(descriptor));
  return {static_cast<int>(saved.ofClass(strings::DataSet).size()),
          static_cast<int>(saved.ofClass(strings::Signal).size())};
}

/// As durable as repositories are.
datafile::DataFileWriter::Durability wantedDurability() {
  using Durability = datafile::DataFileWriter::Durability;
  const bool isDurable =
      opening::optionsFromEnvironment().durability == sqldb::Durability::durable;
  return isDurable ? Durability::durable : Durability::fast;
}

/// Runs as one reading unit, which sees one state whatever others change meanwhile.
template <class Function>
void whileNothingChanges(ObjectManager& manager, Function&& function) {
  kodd::DictionaryFunction fn = [&](diagnostics&) { function(); };
  diagnostics diag;
  manager.repository().performReadFunction(fn, diag);
  diag.raiseIfAny();
}

}  // namespace

Contents save(ObjectManager& manager, const std::wstring& file, Set::Sessions sessions) {
  const std::string path = text::toUtf8(file);
  refuseUnlessReplaceable(path);
  try {
    datafile::DataFileWriter writer(path);
    Contents contents;
    whileNothingChanges(manager,
                        [&] { contents = writeEverything(writer, manager, sessions); });
    // Once more: somebody may have made a repository there meanwhile.
    refuseUnlessReplaceable(path);
    writer.commit(wantedDurability());
    return contents;
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    const kodiag::Message& cause = error.innermost();
    if (cause.id.component != "datafile:file") throw;
    raiseNotWritten(path, reasonOf(cause));
  }
}

}  // namespace vela::saving

namespace vela {

void ObjectManager::save(const std::wstring& file, const std::string&) {
  saving::save(*this, file, Set::Sessions::own);
}

}  // namespace vela
