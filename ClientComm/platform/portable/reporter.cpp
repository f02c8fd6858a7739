#include "ClientComm/platform/reporter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "ClientComm/platform/clock.h"

namespace clientcomm {
namespace {

using Time = std::chrono::steady_clock::time_point;

struct Handler {
  Reporter reporter;
  void* context;
  void (*destroy)(void* context);
  int users;  ///< The calls under way, and one while it is set.
};

/// A record that was reported lately.
struct Entry {
  std::uint64_t record = 0;
  Time time;
};

struct State {
  std::mutex mutex;
  Handler* handler = nullptr;
  Entry recent[64];
};

// Never destroyed: failures are reported until the process has ended.
union Lasting {
  State state;
  constexpr Lasting() noexcept : state() {}
  ~Lasting() {}  // NOLINT(modernize-use-equals-default): that would be deleted
};

constinit Lasting lasting;
constinit std::atomic<bool> isSet = false;

struct Thread {
  bool isInReporter = false;
  KeptReports* kept = nullptr;
};
constinit thread_local Thread ownThread;

// FNV-1a.
constexpr std::uint64_t kHashFactor = 0x100000001B3;

std::uint64_t hash(std::uint64_t start, std::string_view text) noexcept {
  for (const char c : text) start = (start ^ static_cast<unsigned char>(c)) * kHashFactor;
  return (start ^ text.size()) * kHashFactor;
}

std::uint64_t hashOf(const Diagnostic& diagnostic) noexcept {
  const auto numbers = static_cast<std::uint64_t>(diagnostic.cause) << 32 |
                       static_cast<std::uint32_t>(diagnostic.code);
  return hash(hash(hash(numbers * kHashFactor, diagnostic.subject), diagnostic.detail),
              diagnostic.call);
}

// @return whether an equal record has come less than `kReportPause` ago.
bool isRepeated(State& state, std::uint64_t record, Time now) noexcept {
  Entry* oldest = state.recent;
  for (Entry& entry : state.recent) {
    if (entry.record == record) return now - std::exchange(entry.time, now) < kReportPause;
    if (entry.time < oldest->time) oldest = &entry;
  }
  *oldest = {record, now};
  return false;
}

Handler* handlerFor(const Diagnostic& diagnostic) noexcept {
  State& state = lasting.state;
  const std::lock_guard lock(state.mutex);
  Handler* const handler = state.handler;
  if (handler == nullptr || isRepeated(state, hashOf(diagnostic), currentTime())) return nullptr;
  ++handler->users;
  return handler;
}

// What the handler holds may call the library when it is destroyed, so that is done unlocked.
void leave(Handler* handler) noexcept {
  if (handler == nullptr) return;
  {
    const std::lock_guard lock(lasting.state.mutex);
    if (--handler->users != 0) return;
  }
  if (handler->destroy != nullptr) handler->destroy(handler->context);
  delete handler;
}

// The handler runs unlocked: it may call the library and replace itself.
void tell(const Diagnostic& diagnostic) {
  Handler* const handler = handlerFor(diagnostic);
  if (handler == nullptr) return;
  try {
    handler->reporter(handler->context, diagnostic);
  } catch (...) {
    // The reporter's own, which ends here.
  }
  leave(handler);
}

void deliver(const Diagnostic& diagnostic) noexcept {
  Thread& thread = ownThread;
  if (thread.isInReporter) return;
  const int error = errno;
  thread.isInReporter = true;
  if (thread.kept != nullptr) {
    thread.kept->keep(diagnostic);
  } else {
    tell(diagnostic);
  }
  thread.isInReporter = false;
  errno = error;
}

}  // namespace

bool setReporter(Reporter reporter, void* context, void (*destroy)(void* context)) noexcept {
  Handler* handler = nullptr;
  if (reporter != nullptr) {
    handler = new (std::nothrow) Handler{reporter, context, destroy, 1};
    if (handler == nullptr) return false;
  }
  State& state = lasting.state;
  {
    const std::lock_guard lock(state.mutex);
    isSet.store(handler != nullptr, std::memory_order_relaxed);
    std::swap(state.handler, handler);
    for (Entry& entry : state.recent) entry = {};
  }
  leave(handler);
  return true;
}

bool isReporting() noexcept { return isSet.load(std::memory_order_relaxed); }

void report(DiagnosticCause cause, std::string_view subject, std::string_view detail) noexcept {
  if (!isReporting()) return;
  deliver({cause, DiagnosticCodeKind::kNone, 0, "", subject, detail});
}

void report(DiagnosticCause cause, std::string_view subject, const char* call, int code,
            DiagnosticCodeKind kind) noexcept {
  if (!isReporting()) return;
  deliver({cause, kind, code, call, subject, {}});
}

void reportException() noexcept {
  if (!isReporting()) return;
  try {
    throw;
  } catch (const std::exception& exception) {
    report(DiagnosticCause::kOperationAbandoned, exception.what());
  } catch (...) {
    report(DiagnosticCause::kOperationAbandoned, "");
  }
}

KeptReports::~KeptReports() = default;

KeptReports::Scope::Scope(KeptReports& reports) noexcept
    : previous_(std::exchange(ownThread.kept, &reports)) {}

KeptReports::Scope::~Scope() { ownThread.kept = previous_; }

void KeptReports::keep(const Diagnostic& diagnostic) noexcept {
  try {
    std::string texts(diagnostic.subject);
    records_.push_back({diagnostic, std::move(texts.append(diagnostic.detail))});
  } catch (...) {
    // Out of memory: the failure goes unreported.
  }
}

void KeptReports::deliver() noexcept {
  for (; !records_.empty(); records_.pop_front()) {
    const auto& [diagnostic, texts] = records_.front();
    Diagnostic record = diagnostic;
    record.subject = {texts.data(), record.subject.size()};
    record.detail = {texts.data() + record.subject.size(), record.detail.size()};
    clientcomm::deliver(record);
  }
}

}  // namespace clientcomm
