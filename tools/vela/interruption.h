// Ctrl-C at the command: the first press asks the running call to stop, the second ends it.
#pragma once

namespace vela::tool {

/// From now on SIGINT makes the running call fail and undo what it began. Where SIGINT is
/// ignored, as in a job in the background, it stays so.
void stopOnInterrupt();

/// Whether SIGINT has come.
bool wasInterrupted();

}  // namespace vela::tool
