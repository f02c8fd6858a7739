#include "ClientComm/c/status_code.h"

namespace {

/// About a status of the C interface itself; null for another.
const char* textOfOwn(clientcomm_status status) {
  switch (status) {
    case CLIENTCOMM_NO_VALUE:
      return "There is no value.";
    case CLIENTCOMM_NOT_STARTED:
      return "The library has not been started.";
    case CLIENTCOMM_WRONG_THREAD:
      return "The library belongs to another thread.";
    case CLIENTCOMM_STALE_HANDLE:
      return "The handle is no longer valid.";
    case CLIENTCOMM_LOOP_NOT_OPEN:
      return "There is no open event loop.";
    case CLIENTCOMM_LOOP_TOO_LATE:
      return "The library is in use on a GLib main context.";
    case CLIENTCOMM_FORKED:
      return "The event loop belongs to the process that this one was forked from.";
    case CLIENTCOMM_OUT_OF_RESOURCES:
      return "Memory or descriptors ran out.";
    case CLIENTCOMM_NOT_WRITTEN:
      return "The settings could not be written.";
    default:
      return nullptr;
  }
}

/// About the status of an operation.
const char* textOfOperation(clientcomm_status status) {
  switch (status) {
    case CLIENTCOMM_OK:
      return "Done.";
    case CLIENTCOMM_HELPER_NOT_LAUNCHED:
      return "The helper was not running and could not be launched.";
    case CLIENTCOMM_HELPER_SERVER_CLOSED:
      return "The helper's server is marked closed.";
    case CLIENTCOMM_BAD_ARGUMENT:
      return "An argument is missing or has a value that the function does not take.";
    case CLIENTCOMM_TOO_LARGE:
      return "The call is larger than can be carried.";
    case CLIENTCOMM_NOT_RUNNING:
      return "No running application has that identifier.";
    case CLIENTCOMM_CONNECTION_LOST:
      return "The application went away during the exchange.";
    case CLIENTCOMM_NOT_HANDLED:
      return "The application does not take calls.";
    case CLIENTCOMM_TIMED_OUT:
      return "The application did not take the call, or answer, in time.";
    case CLIENTCOMM_NOT_PERMITTED:
      return "The application belongs to another user.";
    default:
      return "The call could not be sent.";
  }
}

}  // namespace

const char* clientcomm_status_text(clientcomm_status status) {
  const char* const text = textOfOwn(status);
  return text == nullptr ? textOfOperation(status) : text;
}
