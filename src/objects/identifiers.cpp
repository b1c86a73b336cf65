#include "objects/identifiers.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <cstdint>
#include <mutex>

#include "host/processmutex.h"

namespace vela {
namespace {

host::ProcessMutex& generatorLock() {
  static auto* lock = new host::ProcessMutex;
  return *lock;
}

long long firstHalf(const boost::uuids::uuid& uuid) {
  std::uint64_t bits = 0;
  for (int i = 7; i >= 0; --i) bits = bits << 8 | uuid.data[i];
  return static_cast<long long>(bits);
}

}  // namespace

boost::uuids::uuid IdGenerator::generateUUID() {
  std::lock_guard lock(generatorLock());
  // Takes its bytes from the kernel, so a forked child does not repeat its parent's.
  static boost::uuids::random_generator generate;
  return generate();
}

long long IdGenerator::generateIntegerUUID() {
  return firstHalf(generateUUID());
}

long long IdGenerator::getUUIdFromString(const std::string& text) {
  std::lock_guard lock(generatorLock());
  static boost::uuids::string_generator parse;
  return firstHalf(parse(text));
}

}  // namespace vela
