#include "ClientComm/c/upgrade.h"

#include <memory>

#include "ClientComm/TQHPHelperError.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/c/context.h"
#include "ClientComm/c/handles.h"
#include "ClientComm/c/started_host.h"

using clientcomm::atBorder;
using clientcomm::Handles;
using clientcomm::startedHost;

namespace {

class UpgradeDelegate final : public clientcomm::Handled,
                              public TQHPProductUpgradeCallBackDelegate {
 public:
  static constexpr Kind kKind = Kind::kUpgradeDelegate;

  UpgradeDelegate(clientcomm_will_upgrade willUpgrade, void* context, clientcomm_destroy destroy)
      : Handled(kKind), willUpgrade_(willUpgrade), context_(context, destroy) {}

  void start() noexcept {
    TQHPUpgradeByHelper::share().setProductUpgradeDelegate(this);
    context_.takeOver();
  }

  void stop() {
    TQHPUpgradeByHelper& proxy = TQHPUpgradeByHelper::share();
    if (proxy.productUpgradeDelegate() == this) proxy.setProductUpgradeDelegate(nullptr);
  }

 private:
  void productWillUpgrade(const clientcomm::Error* error) override {
    const clientcomm::InUse use(*this);
    if (error == nullptr) {
      willUpgrade_(context_.data(), nullptr);
      return;
    }
    const auto description = error->userInfo.find(kHelperErrorDescription);
    const clientcomm_error view = {error->code, clientcomm::textOf(error->domain),
                                   description == error->userInfo.end()
                                       ? clientcomm_text{nullptr, 0}
                                       : clientcomm::textOf(description->second)};
    willUpgrade_(context_.data(), &view);
  }

  clientcomm_will_upgrade willUpgrade_;
  clientcomm::Context context_;
};

}  // namespace

clientcomm_status clientcomm_upgrade_product() {
  return atBorder([] { return startedHost().productUpgrade(); });
}

clientcomm_status clientcomm_ready_to_upgrade(bool is_ready) {
  return atBorder([=] { return startedHost().productReadyToUpgrade(is_ready); });
}

clientcomm_status clientcomm_set_upgrade_delegate(clientcomm_will_upgrade will_upgrade,
                                                  void* context, clientcomm_destroy destroy,
                                                  clientcomm_upgrade_delegate** delegate) {
  if (delegate != nullptr) *delegate = nullptr;
  return atBorder([=] {
    startedHost();
    clientcomm_upgrade_delegate*& handle = clientcomm::required(delegate);
    clientcomm::required(will_upgrade);
    auto made = std::make_unique<UpgradeDelegate>(will_upgrade, context, destroy);
    handle = static_cast<clientcomm_upgrade_delegate*>(Handles::add(*made));
    made.release()->start();
  });
}

clientcomm_status clientcomm_upgrade_delegate_release(clientcomm_upgrade_delegate* delegate) {
  return atBorder([=] {
    if (delegate == nullptr) return;
    clientcomm::handled<UpgradeDelegate>(delegate).stop();
    Handles::release(delegate, UpgradeDelegate::kKind);
  });
}
