#pragma once

namespace bench {

/// Runs more and more hosts beside one helper, for `seconds` each time, in which nothing happens
/// but their ticks, and prints as JSON what the helper and one of the hosts use of the processor.
/// @param isSmoke with a few hosts only, to see that it works.
/// @return the exit status.
int measureHosts(int seconds, bool isSmoke);

}  // namespace bench
