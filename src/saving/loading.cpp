#include <algorithm>
#include <boost/uuid/uuid_io.hpp>
#include <map>
#include <optional>

#include "kodiag/diagnostics.h"
#include "objects/find.h"
#include "objects/identifiers.h"
#include "objects/raising.h"
#include "objects/runnumbering.h"
#include "objects/strings.h"
#include "objects/units.h"
#include "saving/chunkrecords.h"
#include "saving/progress.h"
#include "saving/savedfile.h"
#include "saving/savedobjects.h"
#include "saving/saving.h"
#include "text/utf8.h"

namespace vela::saving {
namespace {

/// Makes the objects of a file again, as objects of this instance. To be used in one unit of
/// work.
class Loading {
 public:
  Loading(ObjectManager& manager, const SavedFile& file)
      : manager_(manager),
        file_(file),
        progress_("LoadingProgressBar", L"Loading runs", file.count()) {}

  void perform() {
    manager_.ensureInstanceRecords();
    removeOverwriteRun();
    placeRuns();
    file_.expectObjects(SavedFile::Extent::all);
    for (const std::string& className : savedClasses()) makeAll(className);
    completeLinks();
  }

 private:
  /// A link to an object that was made later than the one that has it.
  struct OpenLink {
    int object;
    kodd::PropertyRef property;
    int savedTarget;
  };

  /// With its record; one that names no run any more stays, and means nothing.
  void removeOverwriteRun() {
    const int run = Set::getOverWriteSetID(manager_);
    if (run != 0) Set::removeRuns(manager_, {run});
  }

  /// Runs keep their order among each other and get numbers and places behind those there are.
  void placeRuns() {
    RunNumbering numbering(manager_);
    for (const int record : file_.numbersInOrder()) numbers_[record] = numbering.nextNumber();
    std::vector<int> places;
    for (std::size_t i = 0; i < file_.runs().size(); ++i) {
      places.push_back(numbering.nextPlace());
    }
    std::ranges::sort(places);
    for (std::size_t i = 0; i < places.size(); ++i) places_[file_.runs()[i].first] = places[i];
    numbering.store();
  }

  void makeAll(const std::string& className) {
    ObjectRow row(manager_, className);
    for (const int savedID : file_.ofClass(className)) {
      make(row, savedID);
      progress_.step();
    }
  }

  void make(ObjectRow& row, int savedID) {
    datafile::DataFileReader::Variable data(file_.reader(), variableName(kData, savedID));
    const bool hasChunks = file_.readFields(data, row, savedID);
    const std::vector<OpenLink> open = relink(row);
    adapt(row, savedID);
    int id = findShared(row, savedID);
    if (id == 0) {
      id = row.create(savedID);
      for (const OpenLink& link : open) {
        openLinks_.push_back({id, link.property, link.savedTarget});
      }
    }
    ids_[savedID] = id;
    if (hasChunks) {
      takeChunks(data, file_.reader(), manager_, id, row.integer(strings::LastChunkIndex));
    }
    data.finish();
  }

  /// Names the objects made instead of those saved. \returns the links that cannot be made yet
  std::vector<OpenLink> relink(ObjectRow& row) const {
    std::vector<OpenLink> open;
    for (const ObjectRow::Link& link : row.links()) {
      if (*link.target == 0) continue;
      const auto made = ids_.find(*link.target);
      if (made == ids_.end()) open.push_back({0, link.property, *link.target});
      *link.target = made == ids_.end() ? 0 : made->second;
    }
    return open;
  }

  /// What cannot stay as it was: whose object it is, what is going on with it, its names here.
  void adapt(ObjectRow& row, int savedID) {
    const std::string& className = row.className();
    const long long instance = manager_.getInstanceID();
    if (className == strings::DataSet) {
      row.set(strings::InstanceID, instance);
      row.set(strings::OrderIndex, places_.at(savedID));
      row.set(strings::IsActivelyStreaming, 0);
      row.set(strings::PriorOverwrittenRun, 0);
    } else if (className == strings::RunNumberByRunID) {
      row.set(strings::InstanceID, instance);
      row.set(strings::RunNumber, numbers_.at(savedID));
    } else if (className == strings::Signal) {
      row.set(strings::InstanceID, instance);
      row.set(strings::IsActivelyStreaming, 0);
      const auto unit = units_.find(row.longInteger(strings::UnitsChecksum));
      if (unit != units_.end()) row.set(strings::UnitsChecksum, unit->second);
    } else if (className == strings::ClassDefinition) {
      row.set(strings::InstanceID, instance);
    } else if (className == strings::YarrowRuns) {
      row.set(strings::InstanceID, instance);
      row.set(strings::Name, streamName(row.text(strings::Name)));
    } else if (className == strings::YarrowSignals) {
      row.set(strings::Name, streamName(row.text(strings::Name)));
    } else if (className == strings::YarrowMetaData) {
      row.set(strings::StreamUUID, streamName(row.text(strings::StreamUUID)));
    }
  }

  /// A stream keeps its name unless another one here has it.
  std::string streamName(const std::string& saved) {
    const auto [place, isNew] = streams_.try_emplace(saved, saved);
    if (isNew && isStreamName(saved)) place->second = to_string(IdGenerator::generateUUID());
    return place->second;
  }

  bool isStreamName(const std::string& name) const {
    return findFirstID(manager_, strings::YarrowRuns, {equals(strings::Name, name)}) != 0 ||
           findFirstID(manager_, strings::YarrowSignals, {equals(strings::Name, name)}) != 0;
  }

  /// An object that is here already and stands for the saved one too; 0 when there is none.
  int findShared(const ObjectRow& row, int savedID) {
    const std::string& className = row.className();
    if (className == strings::Unit) return sharedUnit(row);
    if (className == strings::ClassDefinition) return sharedDefinition(row, savedID);
    if (className == strings::EnumerationValue) {
      const auto shared = sharedEnumerators_.find(savedID);
      return shared == sharedEnumerators_.end() ? 0 : shared->second;
    }
    const bool isShared = className == strings::DataType ||
                          className == strings::FixedPointBinaryPointScaling ||
                          className == strings::FixedPointSlopeBiasScaling ||
                          className == strings::FixedPointUnspecifiedScaling;
    return isShared ? findFirstID(manager_, className, row.sameValues()) : 0;
  }

  int sharedUnit(const ObjectRow& row) {
    const long long number = unitNumber(manager_, row.wideText(strings::Label));
    units_[row.longInteger(strings::Checksum)] = number;
    return findFirstID(manager_, strings::Unit, {equals(strings::Checksum, number)});
  }

  int sharedDefinition(const ObjectRow& row, int savedID) {
    for (const int id : findIDs(manager_, strings::ClassDefinition, row.sameValues())) {
      if (sharesEnumerators(id, savedID)) return id;
    }
    return 0;
  }

  bool sharesEnumerators(int definition, int savedDefinition) {
    const auto& saved = file_.enumerators(savedDefinition);
    boost::ptr_vector<ObjectRef> stored;
    manager_.findObjects(strings::EnumerationValue,
                         {equals(strings::ClassDefinition, definition)}, stored);
    if (stored.size() != saved.size()) return false;
    std::map<int, int> shared;
    for (std::size_t i = 0; i < saved.size(); ++i) {
      if (stored[i].getPropertyInt32(strings::Value) != saved[i].value ||
          stored[i].getPropertyStdString(strings::Label) != saved[i].label) {
        return false;
      }
      shared[saved[i].id] = stored[i].getObjectID();
    }
    sharedEnumerators_.merge(shared);
    return true;
  }

  void completeLinks() {
    for (const OpenLink& link : openLinks_) {
      const int target = ids_.at(link.savedTarget);
      kodd::ObjectModifier modifier(kodd::ClassRef(link.property.info()->owner),
                                    manager_.repository());
      modifier.setPropertyIDSource(link.property, &target);
      raising([&](auto& diag) { return modifier.modifyObjectID(link.object, diag); });
    }
  }

  ObjectManager& manager_;
  const SavedFile& file_;
  Progress progress_;
  std::map<int, int> ids_;  ///< of the objects made, by those saved
  std::map<int, int> numbers_;
  std::map<int, int> places_;
  std::map<long long, long long> units_;
  std::map<std::string, std::string> streams_;
  std::map<int, int> sharedEnumerators_;
  std::vector<OpenLink> openLinks_;
};

/// What the data file complains of, in the words of loading.
[[noreturn]] void raiseNotLoaded(const std::string& path, const kodiag::Message& cause) {
  const char* const key = cause.id.key == "CannotRead" ? "CouldNotReadMatFile" : "InvalidFile";
  kodiag::raise({"nexstore:nex", key}, {{"Location", path}, {"Reason", reasonOf(cause)}});
}

/// Opens the file and hands it to `function`.
template <class Function>
auto withFile(const std::wstring& file, Function&& function) {
  const std::string path = text::toUtf8(file);
  try {
    return function(datafile::DataFileReader(path));
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    const kodiag::Message& cause = error.innermost();
    if (cause.id.component != "datafile:file") throw;
    raiseNotLoaded(path, cause);
  }
}

}  // namespace

bool beginsLikeASavedFile(std::string_view begin) {
  return datafile::beginsLikeADataFile(begin);
}

void checkFile(const std::wstring& file) {
  withFile(file, [](const datafile::DataFileReader& reader) { readDescriptor(reader); });
}

Contents load(ObjectManager& manager, const std::wstring& file) {
  return withFile(file, [&](const datafile::DataFileReader& reader) -> Contents {
    const SavedFile saved(manager, reader);
    manager.inTransaction([&] { Loading(manager, saved).perform(); });
    return {static_cast<int>(saved.ofClass(strings::DataSet).size()),
            static_cast<int>(saved.ofClass(strings::Signal).size())};
  });
}

}  // namespace vela::saving

namespace vela {

void ObjectManager::load(const std::wstring& file, const std::string&) {
  saving::load(*this, file);
}

}  // namespace vela
