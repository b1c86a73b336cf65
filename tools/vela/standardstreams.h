// The streams a command is started with.
#pragma once

namespace vela::tool {

/// Fills the places of standard streams that are closed, so that no file opened later gets one
/// of their numbers and is written to as if it were the stream. Using such a stream fails.
void holdStandardStreams();

/// Sends on what was printed so far and complains where that failed, now or before.
/// \returns whether all of it was taken
bool finishOutput();

}  // namespace vela::tool
