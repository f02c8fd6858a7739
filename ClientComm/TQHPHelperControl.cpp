#include "ClientComm/TQHPHelperControl.h"

#include <optional>
#include <utility>
#include <vector>

#include "ClientComm/TQHPHelperError.h"
#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/host_classes.h"
#include "ClientComm/internal/object_state.h"
#include "ClientComm/internal/proxy_call.h"
#include "ClientComm/internal/settings_keys.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/text.h"

using clientcomm::OptionalString;

namespace {

// Selectors, as they travel; each is used by the method table and by the call.
constexpr char kIsAlive[] = "isAlive:prodeuctVersion:";
constexpr char kHide[] = "hide:prodeuctVersion:";
constexpr char kShow[] = "show:prodeuctVersion:";
constexpr char kExitHelper[] = "exitHelper:productVersion:";
constexpr char kStop[] = "stop:prodeuctVersion:";
constexpr char kStart[] = "start:prodeuctVersion:";
constexpr char kWillHelperExit[] = "willHelperExit";
constexpr char kDidCheckServerOpen[] = "didCheckServerOpen::";

}  // namespace

struct CLIENTCOMM_LOCAL TQHPHelperControl::State : clientcomm::ObjectState {
  TQHPHelperControlCallBackDelegate* delegate = nullptr;
};

bool TQHPHelperControlCallBackDelegate::respondsToSelector(std::string_view selector) const {
  return selector == kWillHelperExit || selector == kDidCheckServerOpen;
}

const clientcomm::Class& TQHPHelperControl::staticClass() {
  using clientcomm::method;
  using Self = TQHPHelperControl;
  static const auto* const cls = new clientcomm::Class(
      "TQHPHelperControl", clientcomm::makeShared<Self>,
      {method<&Self::isAlive>(kIsAlive), method<&Self::hide>(kHide), method<&Self::show>(kShow),
       method<&Self::exitHelper>(kExitHelper), method<&Self::stop>(kStop),
       method<&Self::start>(kStart), method<&Self::helperExitNotify>("helperExitNotify:"),
       method<&Self::checkServerOpenCallBack>("checkServerOpenCallBack::::"),
       method<&Self::saveEnableADToPlistFile>("saveEnableADToPlistFile"),
       method<&Self::helperCtrlDelegate>("helperCtrlDelegate")});
  return *cls;
}

TQHPHelperControl& TQHPHelperControl::share() {
  static clientcomm::SharedObject<TQHPHelperControl> proxy;
  return proxy.get([] { return new TQHPHelperControl; });
}

TQHPHelperControl::TQHPHelperControl() {
  state_ = std::make_unique<State>();
  clientcomm::registerProxy(*this);
}

TQHPHelperControlCallBackDelegate* TQHPHelperControl::helperCtrlDelegate() const {
  return clientcomm::stateAs<const State>(*state_).delegate;
}

void TQHPHelperControl::setHelperCtrlDelegate(TQHPHelperControlCallBackDelegate* delegate) {
  clientcomm::stateAs<State>(*state_).delegate = delegate;
}

OSErr TQHPHelperControl::isAlive(const OptionalString& productID,
                                 const OptionalString& prodeuctVersion) {
  return clientcomm::sendCommand(*this, kIsAlive, productID, prodeuctVersion);
}

OSErr TQHPHelperControl::hide(const OptionalString& productID,
                              const OptionalString& prodeuctVersion) {
  return clientcomm::sendCommand(*this, kHide, productID, prodeuctVersion);
}

OSErr TQHPHelperControl::show(const OptionalString& productID,
                              const OptionalString& prodeuctVersion) {
  return clientcomm::sendCommand(*this, kShow, productID, prodeuctVersion);
}

OSErr TQHPHelperControl::exitHelper(const OptionalString& productID,
                                    const OptionalString& productVersion) {
  return clientcomm::sendCommand(*this, kExitHelper, productID, productVersion);
}

OSErr TQHPHelperControl::stop(const OptionalString& productID,
                              const OptionalString& prodeuctVersion) {
  return clientcomm::sendCommand(*this, kStop, productID, prodeuctVersion);
}

OSErr TQHPHelperControl::start(const OptionalString& productID,
                               const OptionalString& prodeuctVersion) {
  return clientcomm::sendCommand(*this, kStart, productID, prodeuctVersion);
}

// The calls of a helper reach functions that are not const.
// NOLINTBEGIN(readability-make-member-function-const)
OSErr TQHPHelperControl::helperExitNotify(const OptionalString& /*unused*/) {
  if (helperCtrlDelegate() != nullptr &&
      helperCtrlDelegate()->respondsToSelector(kWillHelperExit)) {
    helperCtrlDelegate()->willHelperExit();
  }
  return clientcomm::noErr;
}

OSErr TQHPHelperControl::checkServerOpenCallBack(const OptionalString& /*unused*/,
                                                 const OptionalString& isOpen,
                                                 const OptionalString& code,
                                                 const OptionalString& description) {
  if (helperCtrlDelegate() == nullptr ||
      !helperCtrlDelegate()->respondsToSelector(kDidCheckServerOpen)) {
    return clientcomm::noErr;
  }
  std::optional<clientcomm::Error> error;
  if (clientcomm::intValue(code.value_or(std::string())) != 0) {
    error = TQHPHelperError::errorWithCode(code, description);
  }
  helperCtrlDelegate()->didCheckServerOpen(clientcomm::boolValue(isOpen.value_or(std::string())),
                                           error ? &*error : nullptr);
  return clientcomm::noErr;
}
// NOLINTEND(readability-make-member-function-const)

bool TQHPHelperControl::saveEnableADToPlistFile() {
  return clientcomm::guarded(false, [] {
    const clientcomm::Bundle& bundle = clientcomm::Bundle::mainBundle();
    const auto enable = bundle.objectForInfoDictionaryKey(clientcomm::kEnableADKey);
    if (!enable) return true;
    const std::vector<std::string> paths = bundle.pathsForResourcesOfType(
        clientcomm::kPropertyListExtension, clientcomm::kContentsFolder);
    if (paths.empty()) return true;
    auto dictionary = clientcomm::dictionaryWithContentsOfFile(paths.front());
    if (!dictionary) return false;
    dictionary->insert_or_assign(clientcomm::kEnableADKey, enable->boolValue());
    return clientcomm::writeDictionaryToFile(*dictionary, paths.front());
  });
}
