#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ClientComm/TQHPTypes.h"
#include "tests/support/child_process.h"

/// A running sample helper, with the test's own bundle as one of its hosts.
class SampleHelperFixture : public testing::Test {
 protected:
  using Json = nlohmann::json;

  void SetUp() override;

  /// Makes the helper's bundle, where `rewriteInfo` can change it. @return its path.
  static std::string prepareHelper();
  /// Starts the helper and waits until it answers.
  void startHelper();
  /// Ends the helper with SIGKILL.
  void killHelper();
  /// Ends the helper with SIGTERM. @return its exit status.
  int endHelper();
  pid_t helperPid() const { return helper_->pid(); }
  /// Waits for the helper's own end. @return its exit status.
  int waitForHelper();

  /// Calls the helper, without a result.
  static OSErr call(const char* className, const char* selector,
                    const std::vector<std::string>& arguments);
  /// Asks the helper. @return nil when there is no answer.
  static clientcomm::OptionalString ask(const char* className, const char* selector,
                                        const std::vector<std::string>& arguments);
  /// Everything the helper knows; what was sent before has been carried out by then. Null when the
  /// helper does not answer.
  static Json state();
  /// Waits until what the helper knows fulfils `condition`.
  static bool waitForState(const std::function<bool(const Json&)>& condition);

  /// Where the helper keeps what is its own.
  static std::string dataFolder();
  static std::string outbox() { return dataFolder() + "/Outbox"; }
  /// The records of all deliveries of `kind` in the outbox, each with its "folder".
  static std::vector<Json> deliveries(const std::string& kind);
  /// What all files of usage data in the outbox hold.
  static std::vector<Json> usageFiles();

  /// The helper's identifier. It is this test's own: one helper of an identifier runs for a user,
  /// and other tests run at the same time.
  static std::string identifier();
  /// Changes one entry of the Info dictionary of the bundle at `bundle`.
  static void rewriteInfo(const std::string& bundle, const char* key, const std::string& value);

 private:
  std::unique_ptr<support::ChildProcess> helper_;
};
