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
void addSignalCreationMethods(Methods& methods);
void addSignalDataMethods(Methods& methods);
void addSignalTreeMethods(Methods& methods);
void addSignalComparisonMethods(Methods& methods);
void addSignalAppearanceMethods(Methods& methods);
void addSignalPropertyMethods(Methods& methods);
void addSignalLookupMethods(Methods& methods);

}  // namespace vela::scripting
