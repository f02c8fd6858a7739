#include "ClientComm/TQHPHelper.h"

#include <chrono>
#include <utility>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/internal/guard.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/timer.h"

using clientcomm::OptionalString;

namespace {

constexpr std::chrono::seconds kAutoStartInterval{5};

clientcomm::SharedObject<TQHPHelper> sharedHelper;

}  // namespace

TQHPHelper& TQHPHelper::share() {
  if (TQHPHelper* const helper = sharedHelper.existing()) return *helper;
  TQHPHelper& made = sharedHelper.get([] { return new TQHPHelper; },
                                      [](const TQHPHelper* helper) { delete helper; });
  made.init();
  return made;
}

TQHPHelper& TQHPHelper::shareAsync(clientcomm::StartUpCallback callback) {
  TQHPHelperCommunicate::shareAsync(std::move(callback));
  return share();
}

TQHPHelper::~TQHPHelper() = default;

void TQHPHelper::init() {
  cmmt_ = &TQHPHelperCommunicate::share();
  clientcomm::guarded([this] {
    autoStartTimer_ = clientcomm::Timer::scheduledTimer(
        kAutoStartInterval,
        [this](const clientcomm::Timer& timer) { autoautoStartIntervaTimerMethod(&timer); },
        clientcomm::TimerPrecision::kShared);
  });
}

void TQHPHelper::autoautoStartIntervaTimerMethod(const clientcomm::Timer* timer) {
  if (timer != nullptr && timer == autoStartTimer_.get()) startHelper();
}

void TQHPHelper::startHelper() { cmmt_->autoRestartHelper(); }

void TQHPHelper::stopHelper() { cmmt_->stopHelper(); }

void TQHPHelper::commIncreaseDataCollect(const OptionalString& target, const OptionalString& key) {
  cmmt_->commIncreaseDataCollect(target, key);
}

void TQHPHelper::autoCreatedIncreaseDataCollect(const OptionalString& target,
                                                const OptionalString& key) {
  cmmt_->autoCreatedIncreaseDataCollect(target, key);
}

void TQHPHelper::customStringDataCollect(const OptionalString& target,
                                         const OptionalString& value) {
  cmmt_->customStringDataCollect(target, value);
}

void TQHPHelper::setProductCollectStatus(bool status) { cmmt_->setProductCollectStatus(status); }

bool TQHPHelper::productCollectStatus() { return cmmt_->productCollectStatus(); }

void TQHPHelper::directUploadData() { cmmt_->directUploadData(); }

void TQHPHelper::setDataCollectPID(const OptionalString& productID) {
  if (!productID || productID->empty()) return;
  cmmt_->setCollectDataPID(productID);
}

TQHPSuiteInfo TQHPHelper::regSuiteInfo() { return cmmt_->regSuiteInfo(); }

TQHPSuiteInfo TQHPHelper::unRegSuiteInfo() { return cmmt_->unRegSuiteInfo(); }

OptionalString TQHPHelper::netErrorPagePath() { return cmmt_->netErrorPagePath(); }

clientcomm::PendingQuery TQHPHelper::productCollectStatusAsync(
    clientcomm::QueryCallback<bool> callback, clientcomm::TimeLimit limit) {
  return cmmt_->productCollectStatusAsync(std::move(callback), limit);
}

clientcomm::PendingQuery TQHPHelper::regSuiteInfoAsync(
    clientcomm::QueryCallback<TQHPSuiteInfo> callback, clientcomm::TimeLimit limit) {
  return cmmt_->regSuiteInfoAsync(std::move(callback), limit);
}

clientcomm::PendingQuery TQHPHelper::unRegSuiteInfoAsync(
    clientcomm::QueryCallback<TQHPSuiteInfo> callback, clientcomm::TimeLimit limit) {
  return cmmt_->unRegSuiteInfoAsync(std::move(callback), limit);
}

clientcomm::PendingQuery TQHPHelper::netErrorPagePathAsync(
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return cmmt_->netErrorPagePathAsync(std::move(callback), limit);
}

void TQHPHelper::setTipsEnable(bool enable) { cmmt_->setTipsEnable(enable); }

OSErr TQHPHelper::uploadProductFile(const OptionalString& email, const OptionalString& filePath,
                                    const OptionalString& title,
                                    const OptionalString& description) {
  return cmmt_->uploadProductFile(email, filePath, title, description);
}
