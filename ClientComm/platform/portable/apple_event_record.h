#pragma once

#include "ClientComm/platform/apple_event.h"

namespace clientcomm {

/// What a descriptor has only as an event, or as a list of texts.
struct AppleEventDescriptor::Record {
  ~Record();

  // Of an event.
  AEEventClass eventClass = 0;
  AEEventID eventID = 0;
  AEReturnID returnID = 0;
  AETransactionID transactionID = 0;
  AppleEventDescriptor target;
  KeyedDescriptors parameters;
  KeyedDescriptors attributes;
  // Of a list.
  TextTable texts;
};

}  // namespace clientcomm
