// The handlers of "vela.Repository", by family.
#pragma once

#include "scripting/methodinfo.h"

namespace vela::scripting {

void addInstanceMethods(Methods& methods);
void addObjectMethods(Methods& methods);
void addFileMethods(Methods& methods);
void addTraceMethods(Methods& methods);
void addTransactionMethods(Methods& methods);
void addRunCreationMethods(Methods& methods);
void addRunPropertyMethods(Methods& methods);
void addRunNumberingMethods(Methods& methods);
void addRunListMethods(Methods& methods);
void addRunRemovalMethods(Methods& methods);
void addSessionMethods(Methods& methods);
void addOverwriteMethods(Methods& methods);
void addPausedModelMethods(Methods& methods);
void addHarnessMethods(Methods& methods);
void addSelectionMethods(Methods& methods);

}  // namespace vela::scripting
