#include "ClientComm/platform/own_process.h"

#include "tests/support/test_sandbox.h"

namespace clientcomm {

std::string ownExecutablePath() { return support::hostBundlePath() + "/Contents/Linux/TestHost"; }

std::string ownLaunchPath() { return ownExecutablePath(); }

bool isSetuidProcess() noexcept { return false; }

}  // namespace clientcomm
