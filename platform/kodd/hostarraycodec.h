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
/// The reverse; bytes become a uint8 column, a time and a UUID text, nothing an empty array.
host::HostArray convertEntryValueToHostArray(const EntryValue& value);

/// The array with its class, dimensions and contents, as stored in host array properties.
///
/// Stored: a version byte, 2, then one array. An array is its class (one byte), its rank (one
/// byte), the number of dimensions (one byte), each length (8 bytes), then its contents: of
/// numbers a byte that is 1 for complex ones and the elements; of text a byte that is 1 for
/// wide characters, the length (8 bytes) and UTF-8; one array after the other of a cell; of a
/// structure the number of fields (4 bytes), each name as length (8 bytes) and bytes, and the
/// arrays; of an enumeration the class name, the number of members (4 bytes), each label with
/// its value (4 bytes), and the array of samples; of fixed-point values a byte for signedness,
/// the word length (4 bytes), a byte that is 1 when there is a fraction length, that length
/// (4 bytes), slope and bias (8 bytes each), and the array of real-world values. All numbers
/// are little-endian. Version 1, which is read too, has neither ranks nor the byte of complex
/// numbers.
/// \throws "nexstore:nex:InvalidData" for objects, functions and arrays nested beyond 64 deep
std::string encodeHostArray(const host::HostArray& array);
/// Empty bytes are an empty array.
/// \throws "sqldb:ssdb:Corrupt" for bytes that encodeHostArray() did not make
host::HostArray decodeHostArray(std::span<const std::byte> stored);

}  // namespace kodd
