#pragma once

#include "ClientComm/c/call_back.h"
#include "ClientComm/internal/guard.h"

namespace clientcomm {

/// What a program in C gets back with its call-backs. It is destroyed with this object, and only
/// where the library has taken it over.
class Context {
 public:
  Context(void* data, clientcomm_destroy destroy) : data_(data), destroy_(destroy) {}
  ~Context() {
    if (isOwned_ && destroy_ != nullptr) guarded([this] { destroy_(data_); });
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  void* data() const noexcept { return data_; }
  /// From now on the library destroys the data.
  void takeOver() noexcept { isOwned_ = true; }

 private:
  void* data_;
  clientcomm_destroy destroy_;
  bool isOwned_ = false;
};

}  // namespace clientcomm
