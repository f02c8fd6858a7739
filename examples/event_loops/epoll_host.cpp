// A host that waits by epoll, as daemons do.

#include <ClientComm/event_loop.h>
#include <sys/epoll.h>

#include "examples/event_loops/product.h"

int main() {
  const int descriptor = clientcomm::openEventLoop();  // before anything else of the library
  if (descriptor < 0) return 1;
  const int loop = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  if (epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &event) != 0) return 1;

  const sample::Product product;
  for (;;) {
    if (epoll_wait(loop, &event, 1, -1) > 0) clientcomm::runEventLoop();
  }
}
