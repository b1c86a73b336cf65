#include "objects/signalkey.h"

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
    run.setSignalHashesCached(true);
  });
}

}  // namespace

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

void Signal::dropHashesOfRun() {
  const boost::shared_ptr<Set> run = getRun();
  if (run && run->areSignalHashesCached()) run->setSignalHashesCached(false);
}

}  // namespace vela
