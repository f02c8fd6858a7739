#include "examples/host/helper_watch.h"

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/text.h"
#include "examples/host/event_log.h"

namespace sample {

std::optional<std::int32_t> runningHelper() {
  const auto helper = clientcomm::Bundle::mainBundle().infoString(kHelperBundleId);
  if (!helper) return std::nullopt;
  TQHPProcessList& processes = TQHPProcessList::share();
  for (const auto& process : processes.getBSDProcessList()) {
    const std::int32_t pid = clientcomm::intValue(process.at("pid"));
    const auto info = processes.infoForPID(pid);
    if (!info) continue;
    const auto identifier = info->find(clientcomm::kCFBundleIdentifierKey);
    if (identifier != info->end() && identifier->second.stringValue() == helper) return pid;
  }
  return std::nullopt;
}

HelperWatch::HelperWatch() {
  const GSourceFunc lookAgain = [](gpointer self) -> gboolean {
    static_cast<HelperWatch*>(self)->look();
    return G_SOURCE_CONTINUE;
  };
  source_ = g_timeout_add_seconds(1, lookAgain, this);
  look();
}

HelperWatch::~HelperWatch() { g_source_remove(source_); }

void HelperWatch::look() {
  if (const auto pid = runningHelper(); pid != pid_) {
    if (pid_) logEvent("helper", "gone", std::nullopt, "pid " + std::to_string(*pid_));
    if (pid) logEvent("helper", "running", std::nullopt, "pid " + std::to_string(*pid));
    pid_ = pid;
  }
  const bool isServerOpen = TQHPHelperCommunicate::share().getDefaultHelperServerOpen();
  if (isServerOpen_ && isServerOpen != *isServerOpen_) {
    logEvent("helper", isServerOpen ? "server-open" : "server-closed");
  }
  isServerOpen_ = isServerOpen;
}

}  // namespace sample
