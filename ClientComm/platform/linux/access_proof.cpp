#include "ClientComm/platform/linux/access_proof.h"

#include <fcntl.h>

#include "ClientComm/platform/digest.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

std::string accessProof(const ProcPath& file) {
  constexpr std::size_t kLimit = 4096;
  const ScopedFd opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  std::string bytes;
  if (!opened.isValid() || !readAll(opened.get(), kLimit, bytes).isOk() || bytes.empty()) return {};
  return digestOf(bytes);
}

}  // namespace clientcomm
