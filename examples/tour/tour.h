#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>

#include "examples/tour/printer.h"
#include "examples/tour/stage.h"

namespace tour {

/// Takes a product through its life with a helper, and checks every step by what the helper really
/// did. Each method throws StepFailed at the first step that fails.
class Tour {
 public:
  Tour(Stage& stage, Printer& printer) : stage_(stage), printer_(printer) {}

  /// Installation, start and stop, the helper's ends, its server, and other products' helpers.
  void takeLife();
  /// Every service, from the host's call to what the helper stored or answered.
  void takeServices();
  /// Ends the product and the helper.
  void takeEnd();

 private:
  void firstStart();
  void visibility();
  void stopAndRestart();
  void killHelper();
  void helperExits();
  void closedServer();
  void newerHost();
  void olderHost();

  void usageData();
  void collectSwitch();
  void uploads();
  void missingFile();
  void customerService();
  void pages();
  void switches();
  void upgrade();
  void upgradeErrors();

  /// Gives the host a command whose status must be `status`.
  HostEvent expectStatus(HostProcess& host, const std::string& command, int status);
  /// Waits for a running helper other than `former` that `product` has started.
  nlohmann::json waitForNewHelper(pid_t former, const std::string& product);
  /// Waits for the delivery of `kind` that carries `title`, and gives its record.
  nlohmann::json waitForDelivery(const std::string& kind, const std::string& title);
  void uploadOneFile(const std::string& command, const std::string& kind);
  void switchTips(bool isOn);
  void writeFeed(const nlohmann::json& feed);
  void waitForOffer(std::size_t index, const std::string& outcome);
  std::string hostFile(const std::string& name) const;

  Stage& stage_;
  Printer& printer_;
  HostProcess* host_ = nullptr;
  pid_t helper_ = 0;
  std::string clientID_;
  std::string dataFolder_;
  std::string outbox_;
};

/// Fails the step with `text` unless `holds`.
void require(bool holds, const std::string& text);

/// The bytes of the file at `path`. Fails the step when it cannot be read.
std::string contentOf(const std::string& path);

/// Writes `bytes` to the file at `path`, making the folders above it.
void writeFile(const std::string& path, const std::string& bytes);

}  // namespace tour
