#include "examples/helper/network.h"

#include <glib.h>

#include <exception>

#include "examples/helper/network/network_settings.h"
#include "examples/helper/network/uploads.h"

namespace sample {
namespace {

class HttpsNetwork final : public Network {
 public:
  HttpsNetwork(const NetworkFolders& folders, const NetworkSettings& settings)
      : uploads_(folders.data, folders.outbox, settings) {}

  void sendOutbox() override { uploads_.wake(); }
  void suspend() override { uploads_.suspend(); }
  nlohmann::json uploads() override { return uploads_.contents(); }

 private:
  Uploads uploads_;
};

}  // namespace

std::unique_ptr<Network> makeNetwork(const NetworkFolders& folders) {
  const NetworkSettings settings = readNetworkSettings();
  if (settings.uploads.url.empty()) return nullptr;
  try {
    return std::make_unique<HttpsNetwork>(folders, settings);
  } catch (const std::exception& error) {
    g_warning("no network: %s", error.what());
    return nullptr;
  }
}

}  // namespace sample
