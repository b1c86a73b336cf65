#include "objects/signalkey.h"

#include "objectmanager/propertywatch.h"
#include "objects/checksum.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "objects/textlist.h"
#include "text/utf8.h"

namespace vela {
namespace {

/// Never 0, which stands for a signal without hashes.
long long hashOf(std::string_view bytes) {
  return static_cast<long long>(static_cast<unsigned>(CheckSum().add(bytes).value())) +
         (1LL << 32);
}

long long hashOf(const std::wstring& text) {
  return hashOf(text::toUtf8(text));
}

long long hashOf(const std::vector<std::wstring>& texts) {
  const std::vector<char> bytes = encodeTexts(texts);
  return hashOf({bytes.data(), bytes.size()});
}

void storeHashes(ObjectRef& signal, const SignalKey& key) {
  signal.setPropertyInt64(strings::SIDHash, hashOf(key.sid));
  signal.setPropertyInt64(strings::NameHash, hashOf(key.name));
  signal.setPropertyInt64(strings::BlockPathHash, hashOf(key.blockPath));
}

void cacheHashes(ObjectManager& manager, Set& run) {
  manager.inTransaction([&] {
    for (const int id : run.getSignalIDs(Set::SignalQueryType::all)) {
      const auto signal = Signal::getSignalFromID(manager, id);
      storeHashes(signal->getObjectReference(), keyOf(*signal));
    }
    run.getObjectReference().setPropertyInt32(strings::SignalHashesAreCached, 1);
  });
}

void forgetHashesOfSignal(ObjectManager& manager, int signal) {
  bool found = false;
  const auto object = manager.findObject(signal, strings::Signal, found);
  if (found) forgetHashes(manager, object->getPropertyInt32(strings::FK_SetID));
}

/// Signals of several runs may share a source.
void forgetHashesOfSource(ObjectManager& manager, int source) {
  for (const int signal :
       findIDs(manager, strings::Signal, {equals(strings::SignalSourceID, source)}))
    forgetHashesOfSignal(manager, signal);
}

const bool isWatching = [] {
  watchProperties(
      strings::Signal,
      {&strings::Name, &strings::PortIndex, &strings::SignalSourceID, &strings::FK_SetID},
      &forgetHashesOfSignal);
  watchProperties(strings::SignalSource, {&strings::SID, &strings::BlockPath},
                  &forgetHashesOfSource);
  return true;
}();

}  // namespace

void forgetHashes(ObjectManager& manager, int runID) {
  bool found = false;
  const auto run = manager.findObject(runID, strings::DataSet, found);
  if (found && run->getPropertyInt32(strings::SignalHashesAreCached) != 0)
    run->setPropertyInt32(strings::SignalHashesAreCached, 0);
}

SignalKey keyOf(const Signal& signal) {
  SignalKey key;
  signal.getObjectReference().getObjectManager().inReadUnit([&] {
    key = {signal.getSID(),          signal.getName(),    signal.getBlockPath(),
           signal.getPortIndex(),    signal.getChannel(), signal.getIsImagPartOfComplex(),
           signal.getLeafBusSignal()};
  });
  return key;
}

boost::shared_ptr<Signal> Signal::findMatchingSignal(Set& run) const {
  ObjectManager& repository = run.getObjectReference().getObjectManager();
  if (!run.areSignalHashesCached()) cacheHashes(repository, run);
  const SignalKey key = keyOf(*this);
  boost::shared_ptr<Signal> match;
  repository.inReadUnit([&] {
    const std::vector<int> candidates = findIDs(
        repository, strings::Signal,
        {equals(strings::FK_SetID, run.getID()), equals(strings::NameHash, hashOf(key.name)),
         equals(strings::SIDHash, hashOf(key.sid)),
         equals(strings::BlockPathHash, hashOf(key.blockPath)),
         equals(strings::PortIndex, key.port)});
    for (const int id : candidates) {
      auto candidate = Signal::getSignalFromID(repository, id);
      if (keyOf(*candidate) != key) continue;
      match.reset(candidate.release());
      return;
    }
  });
  return match;
}

}  // namespace vela
