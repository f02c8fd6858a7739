#pragma once

#include <glib.h>

#include <utility>

namespace clientcomm {

/// Owns a source of a main context, and takes it off the context for good.
class ScopedSource {
 public:
  ScopedSource() noexcept = default;
  /// Takes over the caller's reference.
  explicit ScopedSource(GSource* source) noexcept : source_(source) {}
  ScopedSource(ScopedSource&& other) noexcept : source_(std::exchange(other.source_, nullptr)) {}
  ScopedSource& operator=(ScopedSource&& other) noexcept {
    if (this != &other) reset(std::exchange(other.source_, nullptr));
    return *this;
  }
  ~ScopedSource() { reset(); }

  GSource* get() const noexcept { return source_; }
  bool isValid() const noexcept { return source_ != nullptr; }
  void reset(GSource* source = nullptr) noexcept {
    GSource* const previous = std::exchange(source_, source);
    if (previous == nullptr) return;
    g_source_destroy(previous);
    g_source_unref(previous);
  }

 private:
  GSource* source_ = nullptr;
};

}  // namespace clientcomm
