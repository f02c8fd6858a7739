#include "ClientComm/c/loop.h"

#include "ClientComm/c/border.h"
#include "ClientComm/event_loop.h"

namespace {

using clientcomm::EventLoopStatus;

clientcomm_status statusOf(EventLoopStatus status) {
  switch (status) {
    case EventLoopStatus::kDone:
      return CLIENTCOMM_OK;
    case EventLoopStatus::kNotOpen:
      return CLIENTCOMM_LOOP_NOT_OPEN;
    case EventLoopStatus::kTooLate:
      return CLIENTCOMM_LOOP_TOO_LATE;
    case EventLoopStatus::kWrongThread:
      return CLIENTCOMM_WRONG_THREAD;
    case EventLoopStatus::kForked:
      return CLIENTCOMM_FORKED;
    case EventLoopStatus::kOutOfResources:
      break;
  }
  return CLIENTCOMM_OUT_OF_RESOURCES;
}

}  // namespace

clientcomm_status clientcomm_open_event_loop(int* descriptor) {
  if (descriptor != nullptr) *descriptor = -1;
  return clientcomm::atBorder([&] {
    int& result = clientcomm::required(descriptor);
    EventLoopStatus status{};
    result = clientcomm::openEventLoop(&status);
    return statusOf(status);
  });
}

clientcomm_status clientcomm_run_event_loop() {
  return clientcomm::atBorder([] { return statusOf(clientcomm::runEventLoop()); });
}
