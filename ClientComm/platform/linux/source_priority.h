#pragma once

#include <glib.h>

namespace clientcomm {

/// Of everything that arrives: after drawing, before idle work. GTK resizes at
/// G_PRIORITY_HIGH_IDLE + 10 and draws at + 20, its text views lay lines out at + 25, and Clutter
/// draws at + 50; G_PRIORITY_DEFAULT_IDLE is + 100. At the default priority, busy senders would
/// leave a window no frame.
inline constexpr int kCallPriority = G_PRIORITY_HIGH_IDLE + 60;

}  // namespace clientcomm
