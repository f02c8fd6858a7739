#pragma once

#include <glib.h>

namespace clientcomm {

/// Puts `source` on the library's own main context, or, where there is none, on the thread's
/// default one.
void attachToMainContext(GSource* source);

/// Makes `context` the library's own main context; null for none. The caller keeps it alive.
void setOwnMainContext(GMainContext* context) noexcept;

/// Whether a source has been put on a context of the host's.
bool isHostsMainContextInUse() noexcept;

}  // namespace clientcomm
