#pragma once

#include <string>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// What `xmlPropertyList` gives.
std::string propertyListToXml(const PropertyListDictionary& dictionary);

}  // namespace clientcomm
