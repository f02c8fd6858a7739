#pragma once

#include <fcntl.h>
#include <sys/stat.h>

/// The constants of docs/wire-format.md in the terms of Linux; the others are in wire_format.h.
namespace clientcomm {

/// Events that wait to be accepted; the kernel cuts it to net.core.somaxconn.
inline constexpr int kEndpointBacklog = 4096;

/// The mode of the socket file.
inline constexpr mode_t kEndpointMode = S_IRUSR | S_IWUSR;

/// The seals of a memory file that a sender makes.
inline constexpr int kBodyFileSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

/// The seals that a receiver asks for: without them the file could shrink or change under it.
inline constexpr int kRequiredSeals = F_SEAL_SHRINK | F_SEAL_WRITE;

}  // namespace clientcomm
