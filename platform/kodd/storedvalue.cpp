#include "kodd/storedvalue.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

#include "kodd/hostarraycodec.h"
#include "kodiag/message.h"
#include "text/numbers.h"
#include "text/utf8.h"

namespace kodd {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

[[noreturn]] void raiseWrongKind(const PropertyInfo& property, const std::string& valueType) {
  raiseInvalidValue(property, valueType, "it holds " + std::string(kindName(property.kind)));
}

/// For properties that hold whole numbers.
StoredValue wholeNumber(const PropertyInfo& property, long long value) {
  if (property.kind != PropertyKind::int64 && !std::in_range<int>(value)) {
    raiseInvalidValue(property, std::to_string(value), "it is beyond 32 bits");
  }
  return value;
}

/// For properties that hold text.
StoredValue narrowText(const PropertyInfo& property, std::string_view value) {
  if (property.kind == PropertyKind::wstring && !text::isUtf8(value)) {
    raiseInvalidValue(property, "these bytes", "they are not UTF-8 text");
  }
  return value;
}

/// Turns an entry value of any type into what its property holds.
class EntryConversion {
 public:
  EntryConversion(const PropertyInfo& property, std::string& scratch)
      : property_(property), scratch_(scratch) {}

  StoredValue operator()(UndefinedValue) const { raiseWrongKind(property_, "nothing"); }
  StoredValue operator()(bool value) const { return (*this)(static_cast<int>(value)); }
  StoredValue operator()(char value) const {
    if (!isText(property_.kind)) return (*this)(static_cast<int>(value));
    scratch_.assign(1, value);
    return narrowText(property_, scratch_);
  }

  template <class Integer>
  requires std::is_integral_v<Integer> StoredValue operator()(Integer value) const {
    if (property_.kind == PropertyKind::real64) return exactReal(value);
    if (!isWholeNumber(property_.kind)) raiseWrongKind(property_, std::to_string(value));
    if (!std::in_range<long long>(value)) {
      raiseInvalidValue(property_, std::to_string(value), "it is beyond 63 bits");
    }
    return wholeNumber(property_, static_cast<long long>(value));
  }

  StoredValue operator()(float value) const { return (*this)(static_cast<double>(value)); }
  StoredValue operator()(double value) const {
    if (property_.kind == PropertyKind::real64) return value;
    if (!isWholeNumber(property_.kind)) raiseWrongKind(property_, text::shortest(value));
    // Written so that NaN fails as well.
    const bool isWhole = value >= -kTwoTo63 && value < kTwoTo63 && std::trunc(value) == value;
    if (!isWhole) {
      raiseInvalidValue(property_, text::shortest(value), "it is no whole number of 64 bits");
    }
    return wholeNumber(property_, static_cast<long long>(value));
  }

  StoredValue operator()(const std::string& value) const {
    return storedValue(property_, value, scratch_);
  }
  StoredValue operator()(const std::wstring& value) const {
    return storedValue(property_, value, scratch_);
  }
  StoredValue operator()(const const_BlobDescriptor& value) const {
    return storedValue(property_, value, scratch_);
  }

  StoredValue operator()(const boost::posix_time::ptime& value) const {
    if (value.is_special()) raiseInvalidValue(property_, "this time", "it is no point in time");
    if (isText(property_.kind)) {
      scratch_ = to_iso_extended_string(value);
      return scratch_;
    }
    if (property_.kind != PropertyKind::int64) raiseWrongKind(property_, "a time");
    const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
    return static_cast<long long>((value - epoch).total_microseconds());
  }

  StoredValue operator()(const boost::uuids::uuid& value) const {
    if (property_.kind == PropertyKind::blob) {
      scratch_.assign(value.begin(), value.end());
      return bytesOf(scratch_);
    }
    if (!isText(property_.kind)) raiseWrongKind(property_, "a UUID");
    scratch_ = to_string(value);
    return scratch_;
  }

  StoredValue operator()(const host::HostArray* value) const {
    if (!value) raiseWrongKind(property_, "nothing");
    if (property_.kind == PropertyKind::hostArray) {
      scratch_ = encodeHostArray(*value);
      return bytesOf(scratch_);
    }
    if (property_.kind == PropertyKind::blob) {
      if (!value->isNumeric() && !value->isLogical()) {
        raiseWrongKind(property_, value->describe());
      }
      return value->bytes();
    }
    const EntryValue simple = convertHostArrayToEntryValue(*value);
    if (std::holds_alternative<const host::HostArray*>(simple)) {
      raiseWrongKind(property_, value->describe());
    }
    const StoredValue stored = std::visit(*this, simple);
    // Text of `simple` dies here.
    if (const auto* text = std::get_if<std::string_view>(&stored)) {
      if (text->data() != scratch_.data()) scratch_ = std::string(*text);
      return scratch_;
    }
    return stored;
  }

 private:
  template <class Integer>
  StoredValue exactReal(Integer value) const {
    const double real = static_cast<double>(value);
    // The first test keeps the second conversion within range.
    const bool isExact = real < std::ldexp(1.0, std::numeric_limits<Integer>::digits) &&
                         static_cast<Integer>(real) == value;
    if (!isExact) {
      raiseInvalidValue(property_, std::to_string(value), "no double is equal to it");
    }
    return real;
  }

  const PropertyInfo& property_;
  std::string& scratch_;
};

}  // namespace

void bindStored(sqldb::Statement& statement, int parameter, const StoredValue& value) {
  struct Binder {
    sqldb::Statement& statement;
    int parameter;
    void operator()(long long number) const { statement.bind(parameter, number); }
    void operator()(double number) const { statement.bind(parameter, number); }
    void operator()(std::string_view text) const { statement.bindText(parameter, text); }
    void operator()(std::span<const std::byte> bytes) const {
      statement.bindBlob(parameter, bytes);
    }
    void operator()(ZeroBlob blob) const { statement.bindZeroBlob(parameter, blob.byteCount); }
  };
  std::visit(Binder{statement, parameter}, value);
}

StoredValue storedValue(const PropertyInfo& property, int value, std::string& scratch) {
  return storedValue(property, static_cast<long long>(value), scratch);
}

StoredValue storedValue(const PropertyInfo& property, long long value, std::string&) {
  if (!isWholeNumber(property.kind)) raiseWrongKind(property, std::to_string(value));
  return wholeNumber(property, value);
}

StoredValue storedValue(const PropertyInfo& property, double value, std::string&) {
  if (property.kind != PropertyKind::real64) raiseWrongKind(property, text::shortest(value));
  return value;
}

StoredValue storedValue(const PropertyInfo& property, const std::string& value, std::string&) {
  if (!isText(property.kind)) raiseWrongKind(property, "text");
  return narrowText(property, value);
}

StoredValue storedValue(const PropertyInfo& property, const std::wstring& value,
                        std::string& scratch) {
  if (!isText(property.kind)) raiseWrongKind(property, "text");
  scratch = text::toUtf8(value);
  return scratch;
}

StoredValue storedValue(const PropertyInfo& property, const const_BlobDescriptor& value,
                        std::string&) {
  if (property.kind != PropertyKind::blob) raiseWrongKind(property, "bytes");
  return value.bytes();
}

StoredValue storedEntry(const PropertyInfo& property, const EntryValue& value,
                        std::string& scratch) {
  return std::visit(EntryConversion(property, scratch), value);
}

StoredValue defaultValue(const PropertyInfo& property) {
  if (property.kind == PropertyKind::real64) {
    return text::parseDouble(property.defaultText).value_or(0.0);
  }
  if (isText(property.kind)) return std::string_view(property.defaultText);
  if (isBytes(property.kind)) return std::span<const std::byte>{};
  return text::parseInteger(property.defaultText).value_or(0);
}

bool isDefault(const PropertyInfo& property, const StoredValue& value) {
  const StoredValue standard = defaultValue(property);
  const auto* whole = std::get_if<long long>(&value);
  const auto* real = std::get_if<double>(&value);
  if (const auto* standardWhole = std::get_if<long long>(&standard)) {
    return whole ? *whole == *standardWhole
                 : real && *real == static_cast<double>(*standardWhole);
  }
  if (const auto* standardReal = std::get_if<double>(&standard)) {
    return whole ? static_cast<double>(*whole) == *standardReal
                 : real && *real == *standardReal;
  }
  if (const auto* text = std::get_if<std::string_view>(&value)) {
    return *text == property.defaultText;
  }
  const auto* bytes = std::get_if<std::span<const std::byte>>(&value);
  return bytes && bytes->empty();
}

std::string defaultLiteral(const PropertyInfo& property) {
  if (isBytes(property.kind)) return "x''";
  if (isText(property.kind)) {
    std::string literal = "'";
    for (const char c : property.defaultText) literal.append(c == '\'' ? 2 : 1, c);
    return literal + "'";
  }
  if (property.kind == PropertyKind::real64) {
    const std::string digits =
        text::shortest(text::parseDouble(property.defaultText).value_or(0.0));
    return digits.find_first_of(".e") == std::string::npos ? digits + ".0" : digits;
  }
  return std::to_string(text::parseInteger(property.defaultText).value_or(0));
}

void requireKind(const PropertyInfo& property, bool (*fits)(PropertyKind), const char* asWhat) {
  if (fits(property.kind)) return;
  raiseInvalidValue(property, asWhat, "it holds " + std::string(kindName(property.kind)));
}

void raiseInvalidValue(const PropertyInfo& property, const std::string& value,
                       const std::string& reason) {
  kodiag::raise({"KODD:kodd", "InvalidPropertyValue"},
                {{"PropNameString", property.name},
                 {"ClassName", property.owner->qualifiedName()},
                 {"Value", value},
                 {"Reason", reason}});
}

void checkProperty(const PropertyRef& property, const ClassRef& cls) {
  if (property.isValid() && property.info()->owner == cls.info()) [[likely]] {
    return;
  }
  kodiag::raise({"KODD:kodd", "InvalidProperty"},
                {{"PropNameString", property.isValid() ? property.name() : ""},
                 {"ClassName", cls.isValid() ? cls.info()->qualifiedName() : ""}});
}

std::string_view kindName(PropertyKind kind) {
  switch (kind) {
    case PropertyKind::int32:
      return "whole numbers of 32 bits";
    case PropertyKind::int64:
      return "whole numbers of 64 bits";
    case PropertyKind::real64:
      return "doubles";
    case PropertyKind::string:
      return "text";
    case PropertyKind::wstring:
      return "wide text";
    case PropertyKind::blob:
      return "bytes";
    case PropertyKind::reference:
      return "a reference to an object";
    case PropertyKind::link:
      return "the ID of an object";
    case PropertyKind::hostArray:
      return "an array";
    case PropertyKind::collection:
      return "a collection of objects";
  }
  return "something unknown";
}

}  // namespace kodd
