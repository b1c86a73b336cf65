// Array values of the host as stored bytes and as entry values.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "host/arrays.h"
#include "kodd/entryvalue.h"

namespace kodd {

/// A numeric or logical scalar becomes a number or Boolean of its own type, characters become
/// text, every other array a pointer to `array` itself, which must outlive the result.
EntryValue convertHostArrayToEntryValue(const host::HostArray& array);
/// The reverse; bytes become a uint8 column, a time and a UUID text, nothing an empty array.
host::HostArray convertEntryValueToHostArray(const EntryValue& value);

/// The array with its class, dimensions and contents, as stored in host array properties.
///
/// Stored: a version byte, then one array. An array is its class (one byte), the number of
/// dimensions (one byte), each length (8 bytes), then its contents: the elements of numbers; a
/// byte that is 1 for wide characters, the length (8 bytes) and UTF-8 of text; one array after
/// the other of a cell; the number of fields (4 bytes), each name as length (8 bytes) and
/// bytes, and the arrays of a structure. All numbers are little-endian.
std::string encodeHostArray(const host::HostArray& array);
/// Empty bytes are an empty array.
/// \throws "sqldb:ssdb:Corrupt" for bytes that encodeHostArray() did not make
host::HostArray decodeHostArray(std::span<const std::byte> stored);

}  // namespace kodd
