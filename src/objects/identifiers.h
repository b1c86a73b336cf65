// Unique identifiers: random UUIDs and the integers made from them.
#pragma once

#include <boost/uuid/uuid.hpp>
#include <string>

namespace vela {

/// Threads: every operation takes one process-wide lock.
class IdGenerator {
 public:
  /// A random (version 4) UUID.
  static boost::uuids::uuid generateUUID();
  /// The first 8 bytes of a random UUID, read little-endian.
  static long long generateIntegerUUID();
  /// The integer of a UUID given as text (8-4-4-4-12 hexadecimal digits), the same that
  /// generateIntegerUUID makes from it.
  /// \throws std::runtime_error for text that is no UUID
  static long long getUUIdFromString(const std::string& text);
};

}  // namespace vela
