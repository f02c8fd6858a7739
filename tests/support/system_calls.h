#pragma once

namespace support {

/// Makes the system call fail with the errno value `error` from now on, in this process and in what
/// it starts, as a sandbox does. It cannot be undone.
void refuseSystemCall(unsigned number, int error);

}  // namespace support
