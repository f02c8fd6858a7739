#include "ClientComm/platform/native_memory.h"

namespace clientcomm {

void preferLargePages(char* /*memory*/, std::size_t /*size*/) noexcept {}

}  // namespace clientcomm
