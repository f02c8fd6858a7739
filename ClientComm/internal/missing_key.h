#pragma once

namespace clientcomm {

/// Reports that the host's Info dictionary has no text for `key`, nor for the key `otherKey` where
/// that is not empty: as misspelt where it has a key that differs from one of the two by a few
/// letters.
void reportMissingKey(const char* key, const char* otherKey = "") noexcept;

}  // namespace clientcomm
