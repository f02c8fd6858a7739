#include "ClientComm/internal/background_start.h"

#include <memory>
#include <utility>

#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/helper_installation.h"
#include "ClientComm/internal/wait_budget.h"
#include "ClientComm/platform/clock.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kStepInterval{10};

// How long another host that is installing the helper is waited for.
constexpr seconds kInstallLimit{10};

// How long a launched helper may take to open to events, as in a start-up that blocks.
constexpr seconds kReachLimit{5};

}  // namespace

BackgroundStart::BackgroundStart(OptionalString productID, OptionalString productVersion,
                                 std::function<OSErr()> reach)
    : productID_(std::move(productID)),
      productVersion_(std::move(productVersion)),
      reach_(std::move(reach)) {}

void BackgroundStart::begin() {
  outcome_ = kHelperNotLaunched;
  stage_ = Stage::kInstall;
  stageBegan_ = currentTime();
  schedule();
}

void BackgroundStart::whenOver(Callback callback) {
  if (!callback) return;
  callbacks_.push_back(std::move(callback));
  schedule();
}

OSErr BackgroundStart::restart() {
  KeptReports reports;
  const bool isRunning = tryToReach(reports) == noErr;
  if (isRunning || stage_ == Stage::kOver) reports.deliver();
  if (stage_ == Stage::kOver && (!isRunning || isPending_)) begin();
  return isRunning ? noErr : kHelperNotLaunched;
}

// A helper that is starting fails to take commands, which is no failure yet.
OSErr BackgroundStart::tryToReach(KeptReports& reports) const {
  const KeptReports::Scope scope(reports);
  return reach_();
}

void BackgroundStart::schedule() {
  if (timer_) return;
  timer_ = Timer::scheduledTimer(kStepInterval, [this](Timer& /*timer*/) { step(); });
}

void BackgroundStart::step() {
  if (stage_ == Stage::kOver) return finish();
  const Stage next = guarded(Stage::kOver, [this] { return nextStage(); });
  if (next != stage_) stageBegan_ = currentTime();
  stage_ = next;
}

BackgroundStart::Stage BackgroundStart::nextStage() {
  switch (stage_) {
    case Stage::kInstall:
      return install();
    case Stage::kInstalling:
      if (!work_->isDone()) return Stage::kInstalling;
      installing_->reports.deliver();
      return Stage::kOpen;
    case Stage::kOpen: {
      const HelperInstallation installation(productID_, productVersion_, WaitBudget::none());
      return installation.open() ? Stage::kReach : Stage::kOver;
    }
    case Stage::kReach:
      return reach();
    case Stage::kOver:
      break;
  }
  return Stage::kOver;
}

BackgroundStart::Stage BackgroundStart::install() {
  HelperInstallation installation(productID_, productVersion_, WaitBudget::none());
  auto work = installation.prepare();
  isPending_ = installation.isPending();
  if (work) {
    installing_ = std::make_shared<Installing>(*std::move(work));
    work_.emplace([installing = installing_] {
      const KeptReports::Scope scope(installing->reports);
      installing->work.run();
    });
    return Stage::kInstalling;
  }
  // While the copy is missing, another host is installing it.
  const bool isAwaited = isPending_ && !HelperInstallation::isInstalled();
  return isAwaited && !hasTaken(kInstallLimit) ? Stage::kInstall : Stage::kOpen;
}

BackgroundStart::Stage BackgroundStart::reach() {
  KeptReports reports;
  if (tryToReach(reports) == noErr) {
    reports.deliver();  // of the start that follows the check
    outcome_ = noErr;
    return Stage::kOver;
  }
  if (!hasTaken(kReachLimit)) return Stage::kReach;
  reports.deliver();
  HelperInstallation::explainUnreachable();
  return Stage::kOver;
}

bool BackgroundStart::hasTaken(std::chrono::milliseconds limit) const {
  return currentTime() - stageBegan_ >= limit;
}

// A call-back may begin anew.
void BackgroundStart::finish() {
  timer_.reset();
  const OSErr status = outcome_;
  for (const Callback& callback : std::exchange(callbacks_, {})) {
    guarded([&] { callback(status); });
  }
}

}  // namespace clientcomm
