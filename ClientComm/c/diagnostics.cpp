#include "ClientComm/c/diagnostics.h"

#include <memory>
#include <string>

#include "ClientComm/c/border.h"
#include "ClientComm/diagnostics.h"

namespace {

using clientcomm::Diagnostic;

struct Handler {
  clientcomm_diagnostic_handler function;
  void* context;
  clientcomm_destroy destroy;
};

void tell(void* context, const Diagnostic& diagnostic) {
  // Which are followed by a NUL.
  const std::string subject(diagnostic.subject);
  const std::string detail(diagnostic.detail);
  const clientcomm_diagnostic record = {static_cast<std::int32_t>(diagnostic.cause),
                                        static_cast<std::int32_t>(diagnostic.codeKind),
                                        diagnostic.code,
                                        clientcomm_text_of(diagnostic.call),
                                        clientcomm::textOf(subject),
                                        clientcomm::textOf(detail)};
  const auto* const handler = static_cast<const Handler*>(context);
  handler->function(handler->context, &record);
}

void release(void* context) {
  const std::unique_ptr<Handler> handler(static_cast<Handler*>(context));
  if (handler->destroy != nullptr) handler->destroy(handler->context);
}

}  // namespace

clientcomm_status clientcomm_set_diagnostic_handler(clientcomm_diagnostic_handler handler,
                                                    void* context, clientcomm_destroy destroy) {
  return clientcomm::atBorder([=] {
    auto held = handler != nullptr ? std::make_unique<Handler>(Handler{handler, context, destroy})
                                   : nullptr;
    if (!clientcomm::setDiagnosticFunction(held ? tell : nullptr, held.get(), release)) {
      return CLIENTCOMM_OUT_OF_RESOURCES;
    }
    static_cast<void>(held.release());  // the library has it
    return CLIENTCOMM_OK;
  });
}
