#include "tools/clientcomm/status_text.h"

namespace clientcomm::tool {

const char* textOf(OSErr status) noexcept {
  switch (status) {
    case noErr:
      return "The call was handed over.";
    case paramErr:
      return "The call is malformed.";
    case memFullErr:
      return "The call or its answer is larger than can be carried, or memory or descriptors are "
             "short.";
    case procNotFound:
      return "No application of this user and of that identifier takes calls.";
    case connectionInvalid:
      return "The application went away during the call; whether it was carried out is not known.";
    case errAEEventNotHandled:
      return "The application takes events, but has no handler for calls.";
    case errAETimeout:
      return "The application did not take the call, or did not answer, in time.";
    case errAEEventNotPermitted:
      return "The application or the runtime folder belongs to another user, or the application "
             "cannot identify this program.";
    default:
      return "The application refused the call.";
  }
}

}  // namespace clientcomm::tool
