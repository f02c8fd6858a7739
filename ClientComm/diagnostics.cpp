#include "ClientComm/diagnostics.h"

#include <chrono>

#include "ClientComm/platform/reporter.h"

namespace clientcomm {

static_assert(kReportPause == std::chrono::seconds(kDiagnosticPause));

bool setDiagnosticFunction(DiagnosticFunction function, void* context,
                           void (*destroy)(void* context)) noexcept {
  return setReporter(function, context, destroy);
}

}  // namespace clientcomm
