// The message catalog: message IDs to texts.
#pragma once

#include <string>
#include <vector>

#include "kodiag/message.h"

namespace kodiag {

/// The text of a message with `{Name}` replaced by the argument of that name (by nothing when
/// it was not given). An ID without a text yields the ID followed by its arguments.
std::string catalogText(const MessageID& id, const Arguments& arguments);

/// Every joined ID the catalog has a text for, sorted.
std::vector<std::string> catalogIDs();

}  // namespace kodiag
