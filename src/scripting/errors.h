// Errors on their way to scripts.
#pragma once

#include <source_location>

#include "kodiag/diagnostics.h"

namespace vela::scripting {

/// Raises the message. Where it was raised is among its arguments, as "Source" and "Line".
[[noreturn]] void throwScriptingError(
    kodiag::MessageID id, kodiag::Arguments arguments = {},
    const std::source_location& where = std::source_location::current());

/// Raises what a script can act on: the message at the bottom of the units of work that the
/// error travelled through, with those, outermost first, in front of its causes. What a
/// function of the host threw there is thrown again as it was.
[[noreturn]] void raiseInnermost(const kodiag::except::ExceptionWithCauses& error);

}  // namespace vela::scripting
