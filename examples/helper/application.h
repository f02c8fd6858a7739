#pragma once

#include <glib.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "examples/helper/call_backs.h"
#include "examples/helper/journal.h"
#include "examples/helper/network.h"
#include "examples/helper/outbox.h"
#include "examples/helper/preferences.h"
#include "examples/helper/scoped_fd.h"
#include "examples/helper/usage_archive.h"

namespace sample {

/// The helper as a process: its parts, its main loop and its end.
class Application {
 public:
  /// Made on first use, never destroyed.
  static Application& shared();

  /// Whether this process is wanted: not if it was started with "--unless-running" and another
  /// process of the helper takes calls. What starts the helper at log-in passes this. A host that
  /// launches it does not: a newer helper begins while the older one ends.
  static bool isWanted(int count, char** arguments);

  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Opens the helper to hosts' calls and serves them until it is told to end.
  /// @return the exit status.
  int run();

  /// Ends the helper once the call at hand is over: its hosts are told first, and what they have
  /// handed over until then is still carried out.
  void requestExit();

  /// Has `action` run after each call that may have changed what the helper knows; for a helper
  /// with a window.
  void onChange(std::function<void()> action) { changed_ = std::move(action); }
  void noteChange();

  /// Marks the server closed or open for all hosts, and tells them the outcome of the check.
  void setServerClosed(bool isClosed, const std::string& code, const std::string& description);

  Preferences& preferences() { return preferences_; }
  CallBacks& callBacks() { return callBacks_; }
  Journal& journal() { return journal_; }
  Outbox& outbox() { return outbox_; }
  UsageArchive& usage() { return usage_; }
  /// Null where there is no server.
  Network* network() { return network_.get(); }

  /// Where the helper keeps what is its own.
  const std::string& dataFolder() const noexcept { return dataFolder_; }

  /// Notes that a usage record was not taken, by choice or for want of sense.
  void countRefusedRecord() { ++refusedRecords_; }

  /// Notes that something could not be taken.
  void noteFailure(const std::string& what);

  /// Everything that the helper knows, for people and tests to read.
  nlohmann::json state();

 private:
  Application();
  void watchSignals();
  void announceExit();
  void finishPendingCalls();
  std::unique_ptr<Network> openNetwork();
  void resumeNetwork();
  void sendOutbox();
  nlohmann::json stored();

  std::string dataFolder_;
  Preferences preferences_;
  CallBacks callBacks_;
  Journal journal_;
  Outbox outbox_;
  UsageArchive usage_;
  std::unique_ptr<Network> network_;
  ScopedFd signals_;
  GMainLoop* loop_;
  std::int64_t refusedRecords_ = 0;
  std::int64_t failures_ = 0;
  std::string latestFailure_;
  std::function<void()> changed_;
};

}  // namespace sample
