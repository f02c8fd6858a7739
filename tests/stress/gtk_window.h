#pragma once

#include <functional>

namespace stress {

/// Shows a window, 640 x 480, in which a bar moves from frame to frame; `whenDrawn` runs with each.
/// @return false when there is no display.
bool showAnimatedWindow(std::function<void()> whenDrawn);

}  // namespace stress
