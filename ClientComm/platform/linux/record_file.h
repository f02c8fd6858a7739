#pragma once

#include <optional>
#include <span>
#include <string>

#include "ClientComm/platform/linux/record_key.h"
#include "ClientComm/platform/property_list.h"

/// What all records in the runtime folder have in common: a dictionary of which a reader takes the
/// keys that it knows (dictionary.h), and a rewriter keeps the others.
namespace clientcomm {

/// The record `name`; nothing when it is missing, cannot be read, is cut short or no dictionary.
std::optional<PropertyListDictionary> readRecordFile(int folder, const std::string& name);

/// Adds to `record` what `earlier` has beside the `known` keys: a later version may have put it
/// there.
void keepUnknownKeys(PropertyListDictionary earlier, std::span<const RecordKey> known,
                     PropertyListDictionary& record);

}  // namespace clientcomm
