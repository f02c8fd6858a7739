#include "ClientComm/platform/real_number.h"

#include <glib.h>

#include <cerrno>
#include <cmath>

namespace clientcomm {

std::optional<double> realNumber(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const double value = g_ascii_strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size()) return std::nullopt;
  // Subnormal numbers give ERANGE too.
  if (errno == ERANGE && (value == 0 || std::isinf(value))) return std::nullopt;
  return value;
}

}  // namespace clientcomm
