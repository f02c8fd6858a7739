#include "ClientComm/TQHPHelperControl.h"

#include <optional>
#include <utility>
#include <vector>

#include "ClientComm/TQHPHelperError.h"
#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/host_classes.h"
#include "ClientComm/internal/proxy_call.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/text.h"

bool TQHPHelperControlCallBackDelegate::respondsToSelector(std::string_view selector) const {
  return selector == "willHelperExit" || selector == "didCheckServerOpen::";
}

const clientcomm::Class& TQHPHelperControl::staticClass() {
  using clientcomm::method;
  using Self = TQHPHelperControl;
  static const auto* const cls = new clientcomm::Class(
      "TQHPHelperControl", clientcomm::makeShared<Self>,
      {method<&Self::isAlive>("isAlive:prodeuctVersion:"),
       method<&Self::hide>("hide:prodeuctVersion:"), method<&Self::show>("show:prodeuctVersion:"),
       method<&Self::exitHelper>("exitHelper:productVersion:"),
       method<&Self::stop>("stop:prodeuctVersion:"), method<&Self::start>("start:prodeuctVersion:"),
       method<&Self::helperExitNotify>("helperExitNotify:"),
       method<&Self::checkServerOpenCallBack>("checkServerOpenCallBack::::"),
       method<&Self::saveEnableADToPlistFile>("saveEnableADToPlistFile"),
       method<&Self::helperCtrlDelegate>("helperCtrlDelegate")});
  return *cls;
}

TQHPHelperControl& TQHPHelperControl::share() {
  static auto* const proxy = new TQHPHelperControl;
  return *proxy;
}

TQHPHelperControl::TQHPHelperControl() { registerProxy(*this); }

OSErr TQHPHelperControl::isAlive(const OptionalString& productID,
                                 const OptionalString& prodeuctVersion) {
  return sendCommand(*this, "isAlive:prodeuctVersion:", productID, prodeuctVersion);
}

OSErr TQHPHelperControl::hide(const OptionalString& productID,
                              const OptionalString& prodeuctVersion) {
  return sendCommand(*this, "hide:prodeuctVersion:", productID, prodeuctVersion);
}

OSErr TQHPHelperControl::show(const OptionalString& productID,
                              const OptionalString& prodeuctVersion) {
  return sendCommand(*this, "show:prodeuctVersion:", productID, prodeuctVersion);
}

OSErr TQHPHelperControl::exitHelper(const OptionalString& productID,
                                    const OptionalString& productVersion) {
  return sendCommand(*this, "exitHelper:productVersion:", productID, productVersion);
}

OSErr TQHPHelperControl::stop(const OptionalString& productID,
                              const OptionalString& prodeuctVersion) {
  return sendCommand(*this, "stop:prodeuctVersion:", productID, prodeuctVersion);
}

OSErr TQHPHelperControl::start(const OptionalString& productID,
                               const OptionalString& prodeuctVersion) {
  return sendCommand(*this, "start:prodeuctVersion:", productID, prodeuctVersion);
}

OSErr TQHPHelperControl::helperExitNotify(const OptionalString& /*unused*/) {
  if (helperCtrlDelegate_ != nullptr && helperCtrlDelegate_->respondsToSelector("willHelperExit")) {
    helperCtrlDelegate_->willHelperExit();
  }
  return clientcomm::noErr;
}

OSErr TQHPHelperControl::checkServerOpenCallBack(const OptionalString& /*unused*/,
                                                 const OptionalString& isOpen,
                                                 const OptionalString& code,
                                                 const OptionalString& description) {
  if (helperCtrlDelegate_ == nullptr ||
      !helperCtrlDelegate_->respondsToSelector("didCheckServerOpen::")) {
    return clientcomm::noErr;
  }
  std::optional<clientcomm::Error> error;
  if (clientcomm::intValue(code.value_or(std::string())) != 0) {
    error = TQHPHelperError::errorWithCode(code, description);
  }
  helperCtrlDelegate_->didCheckServerOpen(clientcomm::boolValue(isOpen.value_or(std::string())),
                                          error ? &*error : nullptr);
  return clientcomm::noErr;
}

bool TQHPHelperControl::saveEnableADToPlistFile() {
  return guarded(false, [] {
    const clientcomm::Bundle& bundle = clientcomm::Bundle::mainBundle();
    const auto enable = bundle.objectForInfoDictionaryKey("EnableAD");
    if (!enable) return true;
    const std::vector<std::string> paths = bundle.pathsForResourcesOfType("plist", "Contents");
    if (paths.empty()) return true;
    auto dictionary = clientcomm::dictionaryWithContentsOfFile(paths.front());
    if (!dictionary) return false;
    dictionary->insert_or_assign("EnableAD", enable->boolValue());
    return clientcomm::writeDictionaryToFile(*dictionary, paths.front());
  });
}
