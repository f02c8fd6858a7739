#pragma once

#include <glib.h>

#include <optional>

#include "ClientComm/TQHPUpgradeByHelper.h"

namespace sample {

/// Hears that the helper is about to upgrade the product, and answers where it has been told how.
class UpgradeListener final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* error) override;

  /// What to answer from now on; nothing leaves the answer to the user.
  void setAnswer(std::optional<bool> ready) { answer_ = ready; }

  /// How many times the helper has asked.
  int questionCount() const { return questionCount_; }
  /// The status of the latest answer that went out by itself; noErr before the first.
  OSErr answerStatus() const { return answerStatus_; }

 private:
  std::optional<bool> answer_;
  int questionCount_ = 0;
  OSErr answerStatus_ = 0;
};

}  // namespace sample
