// Functions that the host offers by name.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "host/arrays.h"

namespace host {

/// Offers a function, in place of one offered under that name before. Any thread.
void registerFunction(const std::string& name, HostFunction function);
/// Whether there was one to take away. Calls that are under way run on.
bool unregisterFunction(const std::string& name);
bool hasFunction(const std::string& name);

/// Calls the function of that name and returns exactly `resultCount` results. What it throws
/// reaches the caller.
/// \throws "nexstore:nex:NoSuchHostFunction" when nobody offers it;
///         "nexstore:nex:HostFunctionResults" when it returns too few results
HostArrays callFunction(const std::string& name, std::span<const HostArray> arguments = {},
                        std::size_t resultCount = 1);

}  // namespace host
