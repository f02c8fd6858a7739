#pragma once

#include <string>

#include "ClientComm/platform/types.h"

namespace sample {

/// The page about the product suite, as "URL###width###height": from SuiteInfo/<product>.json in
/// the helper's data folder, else from SuiteInfo.json in its bundle. Either holds one object for
/// each `kind` ("registered", "unregistered") with "url", "width" and "height".
/// @return nil where neither file tells.
clientcomm::OptionalString suitePage(const std::string& productID, const char* kind);

}  // namespace sample
