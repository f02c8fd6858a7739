#include "ClientComm/platform/owner_thread.h"

#ifndef NDEBUG

#include <cstdio>
#include <cstdlib>
#include <thread>

namespace clientcomm {

void requireOwnerThread() noexcept {
  static const std::thread::id owner = std::this_thread::get_id();
  if (std::this_thread::get_id() == owner) return;
  std::fputs("ClientComm: a call on a second thread; all calls go to the thread of the first one\n",
             stderr);
  std::abort();
}

}  // namespace clientcomm

#endif
