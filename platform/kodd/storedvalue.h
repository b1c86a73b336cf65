// Values on their way into the file: checked against the kind of their property.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "kodd/entryvalue.h"
#include "kodd/metamodel.h"
#include "sqldb/statement.h"

namespace kodd {

/// A blob of that many zero bytes.
struct ZeroBlob {
  std::size_t byteCount = 0;
};

/// A value as the file holds it. Text and bytes are borrowed, from the caller's value or from
/// the scratch string given to the conversion.
using StoredValue =
    std::variant<long long, double, std::string_view, std::span<const std::byte>, ZeroBlob>;

void bindStored(sqldb::Statement& statement, int parameter, const StoredValue& value);

/// The conversions for typed writes. Each throws "InvalidProperty" or "InvalidPropertyValue"
/// when the property's kind cannot hold the value as it is.
StoredValue storedValue(const PropertyInfo& property, int value, std::string& scratch);
StoredValue storedValue(const PropertyInfo& property, long long value, std::string& scratch);
StoredValue storedValue(const PropertyInfo& property, double value, std::string& scratch);
StoredValue storedValue(const PropertyInfo& property, const std::string& value,
                        std::string& scratch);
StoredValue storedValue(const PropertyInfo& property, const std::wstring& value,
                        std::string& scratch);
StoredValue storedValue(const PropertyInfo& property, const const_BlobDescriptor& value,
                        std::string& scratch);
/// Converts whatever converts without loss: whole numbers between kinds, text between narrow
/// and wide, a time to microseconds since 1970 (int64) or ISO text, a UUID to text or 16 bytes.
StoredValue storedEntry(const PropertyInfo& property, const EntryValue& value,
                        std::string& scratch);

/// What a property without a value holds.
StoredValue defaultValue(const PropertyInfo& property);
bool isDefault(const PropertyInfo& property, const StoredValue& value);
/// The default as it stands in SQL.
std::string defaultLiteral(const PropertyInfo& property);

/// Throws "InvalidPropertyValue" unless the property's kind fits what the caller wants of it.
void requireKind(const PropertyInfo& property, bool (*fits)(PropertyKind), const char* asWhat);

[[noreturn]] void raiseInvalidValue(const PropertyInfo& property, const std::string& value,
                                    const std::string& reason);
/// Throws "InvalidProperty" unless the property is one of the class.
void checkProperty(const PropertyRef& property, const ClassRef& cls);

std::string_view kindName(PropertyKind kind);

inline bool isText(PropertyKind kind) {
  return kind == PropertyKind::string || kind == PropertyKind::wstring;
}
inline bool namesObject(PropertyKind kind) {
  return kind == PropertyKind::reference || kind == PropertyKind::link;
}
inline bool isBytes(PropertyKind kind) {
  return kind == PropertyKind::blob || kind == PropertyKind::hostArray;
}
inline bool isBlob(PropertyKind kind) {
  return kind == PropertyKind::blob;
}
inline bool isReal(PropertyKind kind) {
  return kind == PropertyKind::real64;
}
inline bool fitsInt(PropertyKind kind) {
  return kind == PropertyKind::int32 || namesObject(kind);
}
inline bool isWholeNumber(PropertyKind kind) {
  return kind == PropertyKind::int64 || fitsInt(kind);
}
inline bool isNumber(PropertyKind kind) {
  return isWholeNumber(kind) || isReal(kind);
}
inline bool isStored(PropertyKind kind) {
  return kind != PropertyKind::collection;
}

}  // namespace kodd
