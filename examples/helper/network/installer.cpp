#include "examples/helper/network/installer.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <optional>
#include <utility>

namespace sample {
namespace {

// Runs in the child: in a session of its own, and without the helper's blocked signals.
void separate(gpointer /*unused*/) {
  setsid();
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

std::optional<UpgradePackage> packageFor(const FeedStore& store, const UpgradeOffer& offer) {
  try {
    const auto feed = store.newest();
    const auto entry = feed ? feed->entryFor(offer.productID) : std::nullopt;
    if (entry && entry->version == offer.toVersion) return entry->package;
  } catch (const std::exception& error) {
    g_warning("%s", error.what());
  }
  return std::nullopt;
}

std::string outcomeOf(gint status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "installed";
  const std::string reason = WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                                               : "signal " + std::to_string(WTERMSIG(status));
  return "not installed: " + reason;
}

struct Run {
  std::int64_t id;
  const Installer::Noted* noted;
};

}  // namespace

Installer::Installer(std::string folder, std::string publicKey, Noted noted)
    : folder_(std::move(folder)), store_(folder_, std::move(publicKey)), noted_(std::move(noted)) {}

Installer::~Installer() = default;

bool Installer::canInstall(const UpgradeOffer& offer) const {
  return packageFor(store_, offer).has_value();
}

void Installer::install(std::int64_t id, const UpgradeOffer& offer) {
  const auto package = packageFor(store_, offer);
  if (!package) {
    noted_(id, "not installed: the feed has another version now");
    return;
  }
  const std::string path = packagePath(folder_, *package);
  checks_[id] =
      std::make_unique<PackageCheck>(path, *package, [this, id, path, offer](bool isGood) {
        // The check holds this function.
        const std::unique_ptr<PackageCheck> check = std::move(checks_[id]);
        checks_.erase(id);
        if (isGood) {
          run(id, path, offer);
        } else {
          unlink(path.c_str());
          noted_(id, "not installed: the package is damaged");
        }
      });
}

// Noted before the start: a helper that ends meanwhile must not run it a second time.
void Installer::run(std::int64_t id, const std::string& program, const UpgradeOffer& offer) {
  if (!noted_(id, kOfferInstalling)) return;
  std::string arguments[] = {program, offer.productID, offer.toVersion};
  gchar* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
  GPid process = 0;
  GError* error = nullptr;
  if (!g_spawn_async("/", argv, nullptr, G_SPAWN_DO_NOT_REAP_CHILD, separate, nullptr, &process,
                     &error)) {
    noted_(id, std::string("not installed: ") + error->message);
    g_error_free(error);
    return;
  }
  g_child_watch_add_full(G_PRIORITY_DEFAULT, process, onEnd, new Run{id, &noted_},
                         [](gpointer run) { delete static_cast<Run*>(run); });
}

void Installer::onEnd(GPid process, gint status, gpointer run) {
  const auto* const ended = static_cast<const Run*>(run);
  (*ended->noted)(ended->id, outcomeOf(status));
  g_spawn_close_pid(process);
}

}  // namespace sample
