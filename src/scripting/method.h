// Handlers made from functions: the types of a function's parameters and result declare the
// method.
#pragma once

#include <concepts>
#include <functional>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "scripting/methodinfo.h"

namespace vela::scripting {

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

/// Puts one parameter's declaration into a signature that is being made.
template <class Argument>
void declareInput(std::vector<host::Parameter>& inputs, RaisedIDs& raised) {
  if constexpr (isOptional<Argument>) {
    declareInput<typename Argument::value_type>(inputs, raised);
    inputs.back() = std::move(inputs.back()).optional();
  } else if constexpr (!std::is_same_v<Argument, Further>) {
    inputs.push_back(Argument::declared());
    for (std::string& id : Argument::raised()) raised.push_back(std::move(id));
  }
}

template <class Argument>
Argument readInput(Call& call, std::span<const host::InputValue> inputs, std::size_t index) {
  if constexpr (std::is_same_v<Argument, Further>) {
    return {inputs.subspan(std::min(index, inputs.size()))};
  } else if constexpr (isOptional<Argument>) {
    if (index >= inputs.size() || std::holds_alternative<std::monostate>(inputs[index])) {
      return std::nullopt;
    }
    return Argument::value_type::read(call, inputs[index]);
  } else {
    return Argument::read(call, inputs[index]);
  }
}

/// Declares and fills the outputs: none for void, several for a tuple.
template <class Result>
struct Outputs {
  static std::vector<host::Parameter> declared() { return {Result::declared()}; }
  static void write(const Result& result, std::span<host::OutputValue> slots) {
    result.write(slots[0]);
  }
};
template <>
struct Outputs<void> {
  static std::vector<host::Parameter> declared() { return {}; }
};
template <class... Results>
struct Outputs<std::tuple<Results...>> {
  static std::vector<host::Parameter> declared() { return {Results::declared()...}; }
  static void write(const std::tuple<Results...>& results, std::span<host::OutputValue> slots) {
    std::size_t i = 0;
    std::apply([&](const auto&... result) { (result.write(slots[i++]), ...); }, results);
  }
};

template <class Function>
struct Shape : Shape<decltype(&Function::operator())> {};
template <class Result, class... Arguments>
struct Shape<Result (*)(Arguments...)> {
  using Output = Outputs<Result>;
  static constexpr bool acceptsMoreInputs = (std::is_same_v<Arguments, Further> || ...);

  static std::vector<host::Parameter> inputs() {
    std::vector<host::Parameter> declared;
    RaisedIDs ignored;
    (declareInput<Arguments>(declared, ignored), ...);
    return declared;
  }
  static RaisedIDs raised() {
    std::vector<host::Parameter> ignored;
    RaisedIDs ids;
    (declareInput<Arguments>(ignored, ids), ...);
    return ids;
  }

  template <class Function>
  static void call(const Function& function, Call& call,
                   std::span<const host::InputValue> inputs,
                   std::span<host::OutputValue> outputs) {
    auto arguments = read(call, inputs, std::index_sequence_for<Arguments...>());
    if constexpr (std::is_void_v<Result>) {
      std::apply(function, std::move(arguments));
    } else {
      Output::write(std::apply(function, std::move(arguments)), outputs);
    }
  }

 private:
  template <std::size_t... indices>
  static std::tuple<Arguments...> read(
      [[maybe_unused]] Call& call, [[maybe_unused]] std::span<const host::InputValue> inputs,
      std::index_sequence<indices...>) {
    // In braces, so that inputs are read from left to right.
    return {readInput<Arguments>(call, inputs, indices)...};
  }
};
template <class Lambda, class Result, class... Arguments>
struct Shape<Result (Lambda::*)(Arguments...) const> : Shape<Result (*)(Arguments...)> {};

/// A method that calls `function`; `moreIDs` are what it raises beside what reading its
/// arguments does.
template <Literal methodName, Literal sentence, auto function, Literal... moreIDs>
class Method : public NexCOSMethodInfo {
  using Signature = Shape<decltype(function)>;

 public:
  Method()
      : NexCOSMethodInfo(
            methodName.str(), sentence.str(),
            {Signature::inputs(), Signature::Output::declared(), Signature::acceptsMoreInputs},
            allRaised()) {}

 private:
  static RaisedIDs allRaised() {
    RaisedIDs ids = Signature::raised();
    (ids.push_back(moreIDs.str()), ...);
    return ids;
  }

  void perform(std::span<host::OutputValue> outputs,
               std::span<const host::InputValue> inputs) const override {
    Call call{name(), nullptr, std::nullopt};
    Signature::call(function, call, inputs, outputs);
  }
};

template <class Owner, auto accessor, class Output>
Output get(Reading, Owner owner) {
  return makeOutput<Output>(std::invoke(accessor, *owner));
}

template <class Owner, auto accessor, class Input>
void set(Repository, Owner owner, Input input) {
  std::invoke(accessor, *owner, input.value);
}

template <class Owner, auto action>
void act(Repository, Owner owner) {
  std::invoke(action, *owner);
}

template <auto accessor, class Output>
Output getOfAll(Repository repository) {
  return makeOutput<Output>(std::invoke(accessor, repository.manager));
}

template <auto action>
void actOnAll(Repository repository) {
  std::invoke(action, repository.manager);
}

/// One property of a run. \tparam Output  as declared; what the accessor gives becomes that
template <Literal methodName, auto accessor, class Output, Literal sentence>
using RunGetter = Method<methodName, sentence, &get<Run, accessor, Output>>;
template <Literal methodName, auto accessor, class Input, Literal sentence>
using RunSetter = Method<methodName, sentence, &set<Run, accessor, Input>>;
template <Literal methodName, auto action, Literal sentence, Literal... moreIDs>
using RunAction = Method<methodName, sentence, &act<Run, action>, moreIDs...>;

/// The same for signals.
template <Literal methodName, auto accessor, class Output, Literal sentence>
using SignalGetter = Method<methodName, sentence, &get<SignalByID, accessor, Output>>;
template <Literal methodName, auto accessor, class Input, Literal sentence>
using SignalSetter = Method<methodName, sentence, &set<SignalByID, accessor, Input>>;
template <Literal methodName, auto action, Literal sentence, Literal... moreIDs>
using SignalAction = Method<methodName, sentence, &act<SignalByID, action>, moreIDs...>;

/// Something about the whole repository: a function of its manager.
template <Literal methodName, auto accessor, class Output, Literal sentence>
using RepositoryGetter = Method<methodName, sentence, &getOfAll<accessor, Output>>;
template <Literal methodName, auto action, Literal sentence, Literal... moreIDs>
using RepositoryAction = Method<methodName, sentence, &actOnAll<action>, moreIDs...>;

}  // namespace vela::scripting
