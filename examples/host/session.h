#pragma once

#include <glib.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "examples/host/commands.h"
#include "examples/host/upgrade_listener.h"

namespace sample {

/// The host at work: the library's entry object is made, and commands are carried out.
class Session {
 public:
  enum class Mode {
    kOneCommand,  ///< Wait for what a command sets off, then end.
    kInteractive  ///< Stay, and print what happens when it happens.
  };

  /// Makes the library's entry object, and waits until the helper answers, or gives up.
  explicit Session(Mode mode);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Carries out one command and prints what came of it. @return the process's exit status for it.
  int carryOut(const Arguments& words);

  /// Stays until "quit" or the end of standard input, and carries out what it says, line by line.
  void stay();

  /// Asks the helper for an upgrade; where the session ends with it, waits for its question.
  Outcome upgrade(std::optional<bool> answer);

 private:
  static gboolean readInput(gint descriptor, GIOCondition condition, gpointer self);
  void carryOutLine(const std::string& line);
  bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

  Mode mode_;
  UpgradeListener upgrades_;
  GMainLoop* loop_;
  std::string input_;
};

}  // namespace sample
