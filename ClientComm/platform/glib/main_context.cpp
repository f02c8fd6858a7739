#include "ClientComm/platform/glib/main_context.h"

namespace clientcomm {
namespace {

GMainContext* ownContext = nullptr;
bool isHostsInUse = false;

}  // namespace

void attachToMainContext(GSource* source) {
  GMainContext* const own = ownContext;
  if (own == nullptr) {
    isHostsInUse = true;
    g_source_attach(source, g_main_context_get_thread_default());
    return;
  }
  g_source_attach(source, own);
  // GLib wakes only a thread that is iterating the context; here the host waits for its
  // descriptors.
  g_main_context_wakeup(own);
}

void setOwnMainContext(GMainContext* context) noexcept { ownContext = context; }

bool isHostsMainContextInUse() noexcept { return isHostsInUse; }

}  // namespace clientcomm
