#pragma once

#include <chrono>

namespace stress {

/// Makes the wall clock of this process differ from the system's by so much; the steady clocks go
/// on as they are, as after a change of the system's time.
void setWallClockOffset(std::chrono::seconds offset);

}  // namespace stress
