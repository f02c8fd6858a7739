#include "ClientComm/c/border.h"

#include <atomic>
#include <thread>
#include <utility>

#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

// Atomic, so that other threads can be refused.
std::atomic<std::thread::id> owner;

bool isOnOwnThread() noexcept {
  const std::thread::id self = std::this_thread::get_id();
  std::thread::id first;
  return owner.compare_exchange_strong(first, self) || first == self;
}

}  // namespace

clientcomm_status runAtBorder(clientcomm_status (*body)(void* data), void* data) noexcept {
  if (!isOnOwnThread()) return CLIENTCOMM_WRONG_THREAD;
  try {
    return body(data);
  } catch (const Refusal& refusal) {
    return refusal.status;
  } catch (...) {
    reportException();
    return CLIENTCOMM_OUT_OF_RESOURCES;
  }
}

OptionalString stringOf(clientcomm_text text) {
  if (text.length > CLIENTCOMM_MAXIMUM_LENGTH) throw Refusal{CLIENTCOMM_TOO_LARGE};
  if (text.bytes != nullptr) return std::string(text.bytes, text.length);
  if (text.length != 0) throw Refusal{CLIENTCOMM_BAD_ARGUMENT};
  return std::nullopt;
}

std::string requiredString(clientcomm_text text) {
  OptionalString string = stringOf(text);
  if (!string || string->empty()) throw Refusal{CLIENTCOMM_BAD_ARGUMENT};
  return *std::move(string);
}

}  // namespace clientcomm
