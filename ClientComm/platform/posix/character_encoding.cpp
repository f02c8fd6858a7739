#include "ClientComm/platform/character_encoding.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "ClientComm/platform/fixed_text.h"

namespace clientcomm {
namespace {

// Encodings in which a byte below 0x80 that is no part of a longer character is ASCII. Left out are
// encodings with shift states, in which markup can hide.
bool isSupported(std::string encoding) {
  static constexpr FixedText<11> kFamilies[] = {"ISO-8859-", "ISO8859-", "WINDOWS-125", "CP125"};
  static constexpr FixedText<9> kNames[] = {"UTF8",      "ASCII",  "LATIN1", "KOI8-R", "KOI8-U",
                                            "MACINTOSH", "GB2312", "GBK",    "BIG5",   "EUC-JP",
                                            "SHIFT_JIS", "EUC-KR", "GB18030"};
  for (char& c : encoding) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  const auto isMember = [&encoding](std::string_view family) {
    return encoding.starts_with(family) &&
           encoding.find_first_not_of("0123456789", family.size()) == std::string::npos;
  };
  return std::find(std::begin(kNames), std::end(kNames), encoding) != std::end(kNames) ||
         std::any_of(std::begin(kFamilies), std::end(kFamilies), isMember);
}

class Converter {
 public:
  explicit Converter(const std::string& encoding)
      : descriptor_(iconv_open("UTF-8", encoding.c_str())) {}
  ~Converter() {
    if (isValid()) iconv_close(descriptor_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool isValid() const { return reinterpret_cast<std::intptr_t>(descriptor_) != -1; }

  std::optional<std::string> convert(std::string_view bytes) {
    std::string text;
    auto* input = const_cast<char*>(bytes.data());  // iconv takes it so, and changes nothing
    std::size_t left = bytes.size();
    for (bool isFlushed = false; !isFlushed;) {
      std::array<char, 4096> buffer;
      char* output = buffer.data();
      std::size_t room = buffer.size();
      const bool isAtEnd = left == 0;
      const std::size_t status = isAtEnd ? iconv(descriptor_, nullptr, nullptr, &output, &room)
                                         : iconv(descriptor_, &input, &left, &output, &room);
      text.append(buffer.data(), output);
      const bool isFailed = status == static_cast<std::size_t>(-1);
      if (isFailed && errno != E2BIG) return std::nullopt;
      isFlushed = isAtEnd && !isFailed;
    }
    return text;
  }

 private:
  iconv_t descriptor_;
};

}  // namespace

std::optional<std::string> utf8FromEncoding(std::string_view bytes, const std::string& encoding) {
  if (!isSupported(encoding)) return std::nullopt;
  Converter converter(encoding);
  return converter.isValid() ? converter.convert(bytes) : std::nullopt;
}

}  // namespace clientcomm
