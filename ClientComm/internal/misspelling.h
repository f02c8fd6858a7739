#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace clientcomm::tool {

/// How many letters have to be added, removed or replaced to make `one` of `other`. The case of
/// ASCII letters, blanks, "_" and "-" do not count.
std::size_t differences(std::string_view one, std::string_view other);

/// Which of `found` is most likely meant to be one of `keys`; nothing where none is close. A longer
/// key may differ more: one letter in four, three at most.
std::optional<std::string> misspellingOf(std::span<const std::string_view> keys,
                                         const std::vector<std::string>& found);

}  // namespace clientcomm::tool
