// Array values of the host as stored bytes and as entry values.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "host/arrays.h"
#include "kodd/entryvalue.h"

namespace kodd {

/// A real or logical scalar becomes a number or Boolean of its own type, characters become
/// text, every other array a pointer to `array` itself, which must outlive the result.
EntryValue convertHostArrayToEntryValue(const host::HostArray& array);
/// The reverse; bytes become a list of uint8, a time and a UUID text, nothing an empty array.
host::HostArray convertEntryValueToHostArray(const EntryValue& value);

/// The array as stored in host array properties: a version byte, then what host::ArrayEncoder
/// writes.
std::string encodeHostArray(const host::HostArray& array);
/// Empty bytes are an empty array.
/// \throws "sqldb:ssdb:Corrupt" for bytes that encodeHostArray() did not make
host::HostArray decodeHostArray(std::span<const std::byte> stored);

}  // namespace kodd
