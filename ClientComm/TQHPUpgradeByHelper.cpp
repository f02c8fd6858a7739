#include "ClientComm/TQHPUpgradeByHelper.h"

#include <memory>
#include <optional>
#include <utility>

#include "ClientComm/TQHPHelperError.h"
#include "ClientComm/internal/host_classes.h"
#include "ClientComm/internal/object_state.h"
#include "ClientComm/internal/proxy_call.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/text.h"

using clientcomm::OptionalString;

namespace {

// Selectors, as they travel; each is used by the method table and by the call.
constexpr char kProductUpgrade[] = "productUpgrade:versionID:";
constexpr char kProductReadyToUpgrade[] = "productReadyToUpgrade:versionID:ready:";
constexpr char kProductWillUpgrade[] = "productWillUpgrade:";

// Cleared by the protocol's own `productWillUpgrade`, which runs only where no class overrides it.
bool isOverridden = true;

}  // namespace

struct CLIENTCOMM_LOCAL TQHPUpgradeByHelper::State : clientcomm::ObjectState {
  bool isUpgradeQueryResopned = true;
  TQHPProductUpgradeCallBackDelegate* delegate = nullptr;
};

bool TQHPProductUpgradeCallBackDelegate::respondsToSelector(std::string_view selector) const {
  return selector == kProductWillUpgrade;
}

void TQHPProductUpgradeCallBackDelegate::productWillUpgrade(const clientcomm::Error* /*error*/) {
  isOverridden = false;
}

bool TQHPProductUpgradeCallBackDelegate::tell(const clientcomm::Error* error) {
  // A delegate may receive another callback while it is told of one.
  const bool outer = std::exchange(isOverridden, true);
  productWillUpgrade(error);
  return std::exchange(isOverridden, outer);
}

const clientcomm::Class& TQHPUpgradeByHelper::staticClass() {
  using clientcomm::method;
  using Self = TQHPUpgradeByHelper;
  static const auto* const cls = new clientcomm::Class(
      "TQHPUpgradeByHelper", clientcomm::makeShared<Self>,
      {method<&Self::productUpgrade>(kProductUpgrade),
       method<&Self::productReadyToUpgrade>(kProductReadyToUpgrade),
       method<&Self::productUpgradeCallBack>("productUpgradeCallBack::::"),
       method<&Self::productUpgradeDelegate>("productUpgradeDelegate"),
       method<&Self::getProductUpgradeDelegate>("getProductUpgradeDelegate")});
  return *cls;
}

TQHPUpgradeByHelper& TQHPUpgradeByHelper::share() {
  static clientcomm::SharedObject<TQHPUpgradeByHelper> proxy;
  return proxy.get([] { return new TQHPUpgradeByHelper; });
}

TQHPUpgradeByHelper::TQHPUpgradeByHelper() {
  state_ = std::make_unique<State>();
  clientcomm::registerProxy(*this);
}

TQHPProductUpgradeCallBackDelegate* TQHPUpgradeByHelper::productUpgradeDelegate() const {
  return clientcomm::stateAs<const State>(*state_).delegate;
}

TQHPProductUpgradeCallBackDelegate* TQHPUpgradeByHelper::getProductUpgradeDelegate() const {
  return productUpgradeDelegate();
}

void TQHPUpgradeByHelper::setProductUpgradeDelegate(TQHPProductUpgradeCallBackDelegate* delegate) {
  clientcomm::stateAs<State>(*state_).delegate = delegate;
}

OSErr TQHPUpgradeByHelper::productUpgrade(const OptionalString& productID,
                                          const OptionalString& versionID) {
  return clientcomm::sendCommand(*this, kProductUpgrade, productID, versionID);
}

OSErr TQHPUpgradeByHelper::productReadyToUpgrade(const OptionalString& productID,
                                                 const OptionalString& versionID,
                                                 const OptionalString& ready) {
  clientcomm::stateAs<State>(*state_).isUpgradeQueryResopned = true;
  return clientcomm::sendCommand(*this, kProductReadyToUpgrade, productID, versionID, ready);
}

OSErr TQHPUpgradeByHelper::productUpgradeCallBack(const OptionalString& /*unused1*/,
                                                  const OptionalString& /*unused2*/,
                                                  const OptionalString& code,
                                                  const OptionalString& description) {
  auto& state = clientcomm::stateAs<State>(*state_);
  if (!state.isUpgradeQueryResopned) {
    clientcomm::report(clientcomm::DiagnosticCause::kUpgradeNoticeIgnored, className());
    const OSErr status = productReadyToUpgrade("", "", "ignore");
    state.isUpgradeQueryResopned = false;
    return status;
  }
  if (state.delegate == nullptr || !state.delegate->respondsToSelector(kProductWillUpgrade)) {
    clientcomm::report(clientcomm::DiagnosticCause::kNoDelegate, kProductWillUpgrade);
    return clientcomm::noErr;
  }
  std::optional<clientcomm::Error> error;
  if (clientcomm::intValue(code.value_or(std::string())) != 0) {
    error = TQHPHelperError::errorWithCode(code, description);
  }
  // Before the call: the delegate may answer from inside it.
  state.isUpgradeQueryResopned = false;
  const bool isTold = state.delegate->tell(error ? &*error : nullptr);
  // A delegate that was told may have destroyed this object.
  if (!isTold) state.isUpgradeQueryResopned = true;
  return clientcomm::noErr;
}
