#include "examples/helper/network.h"

#include <glib.h>

#include <exception>
#include <optional>

#include "examples/helper/network/installer.h"
#include "examples/helper/network/network_settings.h"
#include "examples/helper/network/upgrade_check.h"
#include "examples/helper/network/uploads.h"

namespace sample {
namespace {

class HttpsNetwork final : public Network {
 public:
  HttpsNetwork(const NetworkFolders& folders, const NetworkSettings& settings,
               const NetworkEvents& events) {
    if (!settings.uploads.url.empty()) uploads_.emplace(folders.data, folders.outbox, settings);
    if (settings.feed.url.empty()) return;
    check_.emplace(folders.upgrades, settings,
                   [checked = events.checked](const UpgradeCheck::Question& question) {
                     checked(question.id, question.offer);
                   });
    installer_.emplace(folders.upgrades, settings.feed.publicKey, events.installed);
  }

  void sendOutbox() override {
    if (uploads_) uploads_->wake();
  }
  nlohmann::json uploads() override {
    return uploads_ ? uploads_->contents() : nlohmann::json::array();
  }
  bool hasFeed() const override { return check_.has_value(); }
  void checkFeed(std::int64_t id, const UpgradeOffer& offer) override {
    if (check_) check_->ask({id, offer});
  }
  bool canInstall(const UpgradeOffer& offer) const override {
    return installer_ && installer_->canInstall(offer);
  }
  void install(std::int64_t id, const UpgradeOffer& offer) override {
    if (installer_) installer_->install(id, offer);
  }
  void suspend() override {
    if (uploads_) uploads_->suspend();
    if (check_) check_->suspend();
  }

 private:
  std::optional<Uploads> uploads_;
  std::optional<UpgradeCheck> check_;
  std::optional<Installer> installer_;
};

}  // namespace

std::unique_ptr<Network> makeNetwork(const NetworkFolders& folders, const NetworkEvents& events) {
  const NetworkSettings settings = readNetworkSettings();
  if (settings.uploads.url.empty() && settings.feed.url.empty()) return nullptr;
  try {
    return std::make_unique<HttpsNetwork>(folders, settings, events);
  } catch (const std::exception& error) {
    g_warning("no network: %s", error.what());
    return nullptr;
  }
}

}  // namespace sample
