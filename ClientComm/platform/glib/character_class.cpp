#include "ClientComm/platform/character_class.h"

#include <glib.h>

namespace clientcomm {

bool isDecimalDigit(char16_t unit) noexcept {
  if (unit < 0x80) return unit >= u'0' && unit <= u'9';
  return g_unichar_type(unit) == G_UNICODE_DECIMAL_NUMBER;
}

}  // namespace clientcomm
