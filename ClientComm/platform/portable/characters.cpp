#include "ClientComm/platform/characters.h"

namespace clientcomm {
namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;

// What a lead byte says of its sequence; a length of 0 marks a byte that cannot begin one.
struct SequenceForm {
  std::size_t length;
  char32_t leadBits;
  char32_t smallest;
};

constexpr SequenceForm formOfLead(unsigned char lead) noexcept {
  if (lead < 0x80) return {1, lead, 0};
  if (lead < 0xC2) return {0, 0, 0};
  if (lead < 0xE0) return {2, lead & 0x1FU, 0x80};
  if (lead < 0xF0) return {3, lead & 0x0FU, 0x800};
  if (lead < 0xF5) return {4, lead & 0x07U, 0x10000};
  return {0, 0, 0};
}

}  // namespace

char32_t takeCharacter(std::string_view& text) noexcept {
  const SequenceForm form = formOfLead(static_cast<unsigned char>(text.front()));
  char32_t character = form.leadBits;
  bool isWellFormed = form.length != 0 && form.length <= text.size();
  for (std::size_t i = 1; isWellFormed && i < form.length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    isWellFormed = (byte & 0xC0U) == 0x80U;
    character = (character << 6U) | (byte & 0x3FU);
  }
  const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
  if (!isWellFormed || character < form.smallest || isSurrogate || character > 0x10FFFF) {
    text.remove_prefix(1);
    return kReplacementCharacter;
  }
  text.remove_prefix(form.length);
  return character;
}

std::size_t utf16Length(std::string_view text) noexcept {
  std::size_t length = 0;
  while (!text.empty()) length += takeCharacter(text) > 0xFFFF ? 2U : 1U;
  return length;
}

}  // namespace clientcomm
