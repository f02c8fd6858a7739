#include "ClientComm/platform/digest.h"

#include <glib.h>

#include <memory>

namespace clientcomm {

std::string digestOf(std::string_view text) {
  const std::unique_ptr<char, decltype(&g_free)> digest(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()),
                                  text.size()),
      &g_free);
  return digest.get();
}

}  // namespace clientcomm
