#pragma once

#include <glib.h>

#include <memory>

namespace sample {

struct GFree {
  void operator()(gchar* text) const noexcept { g_free(text); }
};
/// Owns a text that GLib allocated.
using GTextPtr = std::unique_ptr<gchar, GFree>;

struct GChecksumFree {
  void operator()(GChecksum* checksum) const noexcept { g_checksum_free(checksum); }
};
using GChecksumPtr = std::unique_ptr<GChecksum, GChecksumFree>;

}  // namespace sample
