#pragma once

namespace clientcomm {

/// Removes from the runtime folder what killed processes left: records, and sockets and drafts that
/// were not renamed into place. Records of another PID namespace stay, and so does one of a live
/// process that cannot be read.
void clearStaleFiles(int folder);

}  // namespace clientcomm
