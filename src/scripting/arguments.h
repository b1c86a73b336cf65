// What handlers take and give: types that know how they are declared, read and written.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/classes/classes.h"
#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "scripting/literal.h"

namespace vela::scripting {

inline constexpr const char* kRepositoryClass = "vela.Repository";

/// Message IDs that a handler can raise.
using RaisedIDs = std::vector<std::string>;

/// The manager an object holds. \throws "nexstore:nex:RepositoryClosed" naming the operation
std::shared_ptr<ObjectManager> getObjectManager(const host::InputValue& repository,
                                                const std::string& operation);
/// The ID in an array: one whole number. What cannot be an ID gives 0, which names nothing.
/// \throws "nexstore:nex:NumericScalarExpected" for anything but one real number without a
///         fraction; a logical value is no ID
int idFromHostArray(const host::HostArray& array, const std::string& operation);
/// \throws as idFromHostArray(); "nexstore:nex:NoSuchRun"
boost::shared_ptr<Set> runFromID(ObjectManager& manager, const host::HostArray& id,
                                 const std::string& operation);
/// \throws as idFromHostArray(); "nexstore:nex:NoSuchSignal"
boost::shared_ptr<Signal> signalFromID(ObjectManager& manager, const host::HostArray& id,
                                       const std::string& operation);

/// One call, while its inputs are read and its handler runs.
struct Call {
  const std::string& method;
  std::shared_ptr<ObjectManager> manager;
  /// Makes everything the handler reads one state of the repository.
  std::optional<kodd::DataModelRepository::ReadScope> reading;
};

/// The repository, first input of nearly every method.
struct Repository {
  ObjectManager& manager;

  static host::Parameter declared() { return {kRepositoryClass, "repository"}; }
  static RaisedIDs raised() { return {"nexstore:nex:RepositoryClosed"}; }
  static Repository read(Call& call, const host::InputValue& given) {
    call.manager = getObjectManager(given, call.method);
    return {*call.manager};
  }
};

/// The same for methods that only read: cheaper, and all of one state.
struct Reading : Repository {
  static Reading read(Call& call, const host::InputValue& given) {
    const Reading repository{Repository::read(call, given)};
    call.reading.emplace(repository.manager.repository());
    return repository;
  }
};

/// A value that travels as it is.
template <Literal name, Literal type, class T>
struct Value {
  using Type = T;
  T value;

  operator const T&() const { return value; }

  static host::Parameter declared() { return {type.str(), name.str()}; }
  static RaisedIDs raised() { return {}; }
  static Value read(Call&, const host::InputValue& given) { return {std::get<T>(given)}; }
  void write(host::OutputValue& slot) const {
    if constexpr (std::is_same_v<T, std::int32_t>) {
      slot = std::int64_t{value};
    } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::wstring>) {
      slot = host::HostArray::text(value);
    } else {
      slot = value;
    }
  }
};

template <Literal name>
using Int32 = Value<name, "int32 scalar", std::int32_t>;
template <Literal name>
using Int64 = Value<name, "int64 scalar", std::int64_t>;
template <Literal name>
using Real = Value<name, "double scalar", double>;
template <Literal name>
using Flag = Value<name, "logical scalar", bool>;
template <Literal name>
using Ascii = Value<name, "asciiString", std::string>;
template <Literal name>
using Wide = Value<name, "unicodeString", std::wstring>;
template <Literal name>
using Any = Value<name, "any", host::HostArray>;
template <Literal name>
using Int32s = Value<name, "int32 vector", host::HostArray>;
template <Literal name>
using UInt8s = Value<name, "uint8 vector", host::HostArray>;

/// A run given by its ID.
template <Literal name>
struct RunNamed {
  boost::shared_ptr<Set> run;

  Set& operator*() const { return *run; }
  Set* operator->() const { return run.get(); }

  static host::Parameter declared() { return {"any", name.str()}; }
  static RaisedIDs raised() {
    return {"nexstore:nex:NumericScalarExpected", "nexstore:nex:NoSuchRun"};
  }
  static RunNamed read(Call& call, const host::InputValue& given) {
    return {runFromID(*call.manager, std::get<host::HostArray>(given), call.method)};
  }
};
using Run = RunNamed<"runID">;

/// The same where the ID is declared as an integer.
struct RunByNumber : RunNamed<"runID"> {
  static host::Parameter declared() { return {"int32 scalar", "runID"}; }
  static RaisedIDs raised() { return {"nexstore:nex:NoSuchRun"}; }
  static RunByNumber read(Call& call, const host::InputValue& given) {
    const auto id = host::HostArray::scalar(std::get<std::int32_t>(given));
    return {{runFromID(*call.manager, id, call.method)}};
  }
};

/// A signal given by its ID.
template <Literal name>
struct SignalNamed {
  boost::shared_ptr<Signal> signal;

  Signal& operator*() const { return *signal; }
  Signal* operator->() const { return signal.get(); }

  static host::Parameter declared() { return {"any", name.str()}; }
  static RaisedIDs raised() {
    return {"nexstore:nex:NumericScalarExpected", "nexstore:nex:NoSuchSignal"};
  }
  static SignalNamed read(Call& call, const host::InputValue& given) {
    return {signalFromID(*call.manager, std::get<host::HostArray>(given), call.method)};
  }
};
using SignalByID = SignalNamed<"signalID">;

/// A signal given by its ID, or none given by an empty array.
template <Literal name>
struct SignalOrNone {
  boost::shared_ptr<Signal> signal;

  Signal* get() const { return signal.get(); }

  static host::Parameter declared() { return SignalNamed<name>::declared(); }
  static RaisedIDs raised() { return SignalNamed<name>::raised(); }
  static SignalOrNone read(Call& call, const host::InputValue& given) {
    const auto& id = std::get<host::HostArray>(given);
    if (id.isNumeric() && id.isEmpty()) return {};
    return {signalFromID(*call.manager, id, call.method)};
  }
};

/// An ID that may name nothing.
template <Literal name>
struct IDNamed {
  int id;

  static host::Parameter declared() { return {"any", name.str()}; }
  static RaisedIDs raised() { return {"nexstore:nex:NumericScalarExpected"}; }
  static IDNamed read(Call& call, const host::InputValue& given) {
    return {idFromHostArray(std::get<host::HostArray>(given), call.method)};
  }
};

/// The path of a file.
template <Literal name>
struct FileName : Wide<name> {
  static host::Parameter declared() { return Wide<name>::declared().fileName(); }
  static FileName read(Call& call, const host::InputValue& given) {
    return {Wide<name>::read(call, given)};
  }
};

/// The inputs behind the declared ones.
struct Further {
  std::span<const host::InputValue> inputs;

  std::size_t size() const { return inputs.size(); }
  const host::HostArray& operator[](std::size_t index) const {
    return std::get<host::HostArray>(inputs[index]);
  }
};

// --- What handlers give back, made from what the system gives them.

inline host::HostArray toHostArray(const host::HostArray& array) {
  return array;
}
inline host::HostArray toHostArray(const std::string& text) {
  return host::HostArray::text(text);
}
inline host::HostArray toHostArray(const std::wstring& text) {
  return host::HostArray::text(text);
}
inline host::HostArray toHostArray(std::vector<int> numbers) {
  return host::HostArray::list(std::move(numbers));
}
template <host::ArrayElement Number>
host::HostArray toHostArray(Number number) {
  return host::HostArray::scalar(number);
}

/// An output from a value of the system: enumerations become numbers, and where the output is
/// an array everything becomes one.
template <class Output, class T>
Output makeOutput(T&& value) {
  if constexpr (std::is_enum_v<std::remove_cvref_t<T>>) {
    return {static_cast<typename Output::Type>(value)};
  } else if constexpr (std::is_same_v<typename Output::Type, host::HostArray>) {
    return {toHostArray(std::forward<T>(value))};
  } else {
    return {std::forward<T>(value)};
  }
}

}  // namespace vela::scripting
