#pragma once

namespace bench {

/// Runs a host with its helper in place for `seconds`, in which nothing happens but the ticks, and
/// prints as JSON what host and helper have used of the processor meanwhile.
/// @return the exit status.
int measureIdling(int seconds);

}  // namespace bench
