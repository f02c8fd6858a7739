#pragma once

#include <glib.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "examples/helper/journal.h"
#include "examples/helper/network/package_file.h"
#include "examples/helper/network/signed_feed.h"

namespace sample {

/// Runs the packages of upgrades that hosts have agreed to: a program that is called with the
/// product ID and the new version. Only what the newest signed feed describes is run, and only
/// after its length and sum were compared with the feed.
class Installer {
 public:
  /// Told of each step of the offer `id`. Must not throw. @return whether it was noted.
  using Noted = std::function<bool(std::int64_t id, const std::string& outcome)>;

  /// @param folder where `UpgradeCheck` puts feed and packages.
  Installer(std::string folder, std::string publicKey, Noted noted);
  ~Installer();
  Installer(const Installer&) = delete;
  Installer& operator=(const Installer&) = delete;

  /// Whether the newest feed has a package for the offered version.
  bool canInstall(const UpgradeOffer& offer) const;

  /// Looks at the package and runs it.
  void install(std::int64_t id, const UpgradeOffer& offer);

 private:
  void run(std::int64_t id, const std::string& program, const UpgradeOffer& offer);
  static void onEnd(GPid process, gint status, gpointer run);

  std::string folder_;
  FeedStore store_;
  Noted noted_;
  std::map<std::int64_t, std::unique_ptr<PackageCheck>> checks_;
};

}  // namespace sample
