#pragma once

#include <string>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// What `descriptionInStringsFileFormat` gives.
std::string stringsFileText(const PropertyListDictionary& dictionary);

}  // namespace clientcomm
