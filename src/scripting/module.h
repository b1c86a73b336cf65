// Entry points through which a host loads the scripting classes.
#pragma once

#include "host/classes/module.h"

extern "C" {

/// Registers class "Repository" in package "vela", which is made unless it is there. Acts once;
/// to be called from one thread.
void OBInitialize_nexstore();
/// Marks this process's instance closed and closes the shared repositories. Objects that live
/// on refuse to work.
void OBTerminate_nexstore();
const host::ModuleFunctions* QueryOBFcnTable_nexstore();
}
