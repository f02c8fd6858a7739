#pragma once

#include <cstddef>
#include <string_view>

namespace clientcomm {

/// A literal of up to `kCapacity` bytes that is stored in place, for constant tables. The loader
/// relocates every pointer of a table in every process; here there is none.
template <std::size_t kCapacity>
class FixedText {
 public:
  template <std::size_t kSize>
  constexpr FixedText(const char (&literal)[kSize]) noexcept {  // NOLINT(*-explicit-*)
    static_assert(kSize <= sizeof(text_));
    for (std::size_t i = 0; i < kSize; ++i) text_[i] = literal[i];
  }

  constexpr operator std::string_view() const noexcept { return text_; }  // NOLINT(*-explicit-*)

  friend constexpr bool operator==(const FixedText& text, std::string_view other) noexcept {
    return std::string_view(text.text_) == other;
  }

 private:
  char text_[kCapacity + 1] = {};
};

}  // namespace clientcomm
