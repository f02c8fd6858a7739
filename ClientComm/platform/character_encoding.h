#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace clientcomm {

/// The UTF-8 form of `bytes`, which are in the character encoding of that (IANA) name: one of the
/// ISO-8859 or Windows code pages, KOI8, Macintosh, or one of GB2312, GBK, GB18030, Big5,
/// Shift_JIS, EUC-JP and EUC-KR. Nothing for any other encoding, for one that this system lacks,
/// and where the bytes are malformed.
std::optional<std::string> utf8FromEncoding(std::string_view bytes, const std::string& encoding);

}  // namespace clientcomm
