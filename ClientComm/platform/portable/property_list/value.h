#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// How deep the values of a property list may be nested; what is nested deeper is malformed.
inline constexpr int kMaximumPropertyListNesting = 128;

/// Largest settings, property-list or strings file that is read; the real ones have a few KiB.
inline constexpr std::size_t kMaximumSettingsFileSize = std::size_t{16} << 20U;

/// The key of the dictionary of one entry as which XML holds a keyed-archive reference.
inline constexpr char kUidKey[] = "CF$UID";

/// The day from which a property list counts its dates.
inline constexpr std::chrono::sys_days kReferenceDay =
    std::chrono::year(2001) / std::chrono::January / 1;

/// Whether `value`, which is itself nested `depth` deep, can be read again once written.
bool isNestedWithinLimit(const PropertyListValue& value, int depth = 0);

/// `value` as a signed integer where it fits.
PropertyListValue integerValue(std::uint64_t value);

}  // namespace clientcomm
