// Python's signal handlers, Ctrl-C above all, during calls that run without the interpreter's
// lock.
#pragma once

namespace vela::python {

/// From now on a call that the main thread is in lets Python handle its signals several times a
/// second, and stops when a handler raises.
void handleSignalsDuringCalls();

}  // namespace vela::python
