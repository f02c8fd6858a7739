#pragma once

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/async.h"
#include "ClientComm/c/border.h"

namespace clientcomm {

/// Starts the library as a host's, once.
void startHost();
/// The same without blocking.
void startHostAsync(StartUpCallback callback);

/// The controller. Refuses with CLIENTCOMM_NOT_STARTED before `startHost`: the controller's
/// creation would install and launch a helper.
TQHPHelperCommunicate& startedHost();

}  // namespace clientcomm
