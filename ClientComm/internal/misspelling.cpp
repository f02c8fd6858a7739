#include "ClientComm/internal/misspelling.h"

#include <cstring>

namespace clientcomm {
namespace {

constexpr unsigned kMostDifferences = 3;

bool isSeparator(char c) noexcept { return c == ' ' || c == '\t' || c == '_' || c == '-'; }

// Takes the next letter that counts off the text. In lower case; 0 at the end.
char takeLetter(const char*& text) noexcept {
  while (isSeparator(*text)) ++text;
  const char c = *text;
  if (c != '\0') ++text;
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool differAtMostBy(unsigned most, const char* one, const char* other) noexcept {
  const char* fromOne = nullptr;
  const char* fromOther = nullptr;
  char letter = 0;
  do {
    fromOne = one;
    fromOther = other;
    letter = takeLetter(one);
    if (letter != takeLetter(other)) {
      // Replaced, added or removed.
      return most > 0 &&
             (differAtMostBy(most - 1, one, other) || differAtMostBy(most - 1, fromOne, other) ||
              differAtMostBy(most - 1, one, fromOther));
    }
  } while (letter != '\0');
  return true;
}

const std::string* misspellingOf(std::span<const char* const> keys,
                                 const PropertyListDictionary& found) noexcept {
  for (unsigned most = 0; most <= kMostDifferences; ++most) {
    for (const auto& entry : found) {
      const char* const candidate = entry.first.c_str();
      for (const char* const key : keys) {
        if (std::strlen(key) / 4 < most || std::strcmp(candidate, key) == 0) continue;
        if (differAtMostBy(most, candidate, key)) return &entry.first;
      }
    }
  }
  return nullptr;
}

}  // namespace clientcomm
