// Store calls whose errors are raised where they happen.
#pragma once

#include <type_traits>
#include <utility>

#include "kodiag/diagnostics.h"

namespace vela {

/// Calls `function` with fresh diagnostics, raises what it leaves there, and hands back its
/// result.
template <class Function>
decltype(auto) raising(Function&& function) {
  kodiag::util::diagnostics diag;
  if constexpr (std::is_void_v<decltype(function(diag))>) {
    function(diag);
    diag.raiseIfAny();
  } else {
    auto result = function(diag);
    diag.raiseIfAny();
    return result;
  }
}

}  // namespace vela
