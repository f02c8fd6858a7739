#pragma once

#include <string>

#include "ClientComm/platform/linux/proc_path.h"

namespace clientcomm {

/// The file of a process whose digest is its proof of access.
inline constexpr char kAccessProofFile[] = "/auxv";

/// What shows that the kernel lets this process look into another: the digest of its auxiliary
/// vector. That holds addresses which are random in each process, and the kernel hands it out by
/// the rules of ptrace (PTRACE_MODE_READ): not to another user, out of a sandbox, or of a process
/// that is not dumpable.
/// @param file `kAccessProofFile` of the process.
/// @return empty when it may not be read.
std::string accessProof(const ProcPath& file);

}  // namespace clientcomm
