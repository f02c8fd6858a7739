#pragma once

namespace support {

/// Runs `body` in a private folder, as the executable of a real bundle there (see test_sandbox.h),
/// or the role of an application that was started from there (see test_application.h).
/// @return the exit status of what ran; 128 + the signal's number when one ended it.
int runSupervised(int argc, char** argv, int (*body)(int argc, char** argv));

}  // namespace support
