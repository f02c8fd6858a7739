#pragma once

#include <string_view>

/// Version strings as runs of digits, runs of other characters, and single dots.
namespace clientcomm {

/// What a component of a version is made of.
enum class VersionComponentType : int { kDigits = 0, kOther = 1, kDot = 2 };

struct VersionComponent {
  std::string_view text;
  VersionComponentType type;
};

/// Takes the components off a version one by one, without allocating.
class VersionReader {
 public:
  explicit VersionReader(std::string_view version) : rest_(version) {}

  /// @return false at the end.
  bool next(VersionComponent& component);

 private:
  std::string_view rest_;
};

/// @return 1 when `first` is newer than `second`, -1 when it is older, 0 when they are equal.
int compareVersionStrings(std::string_view first, std::string_view second);

}  // namespace clientcomm
