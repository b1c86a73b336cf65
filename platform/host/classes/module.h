// What a loaded component tells the host about itself.
#pragma once

namespace host {

/// The entry points of a component, as its query function returns them.
struct ModuleFunctions {
  const char* name;
  /// Registers packages and classes; acts once, however often it is called.
  void (*initialize)();
  /// To be called before the process ends; never throws.
  void (*terminate)();
};

}  // namespace host
