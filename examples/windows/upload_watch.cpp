#include "examples/windows/upload_watch.h"

#include <glib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/bundle.h"

namespace sample {
namespace {

using nlohmann::json;

// To the microsecond, so that no two uploads have the same title.
std::string timeOfDay() {
  const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> now(g_date_time_new_now_local(),
                                                                     &g_date_time_unref);
  const std::unique_ptr<gchar, decltype(&g_free)> text(g_date_time_format(now.get(), "%H:%M:%S.%f"),
                                                       &g_free);
  return text.get();
}

/// The entry of the list `list` of the file at `path` whose member `key` is `value`; null without
/// one, or where the file says something else.
json entryOf(const std::string& path, const char* list, const char* key, const std::string& value) {
  std::ifstream file(path);
  const json all = json::parse(file, nullptr, false);
  if (!all.is_object() || !all.contains(list) || !all[list].is_array()) return nullptr;
  for (const json& entry : all[list]) {
    if (entry.is_object() && entry.contains(key) && entry[key] == value) return entry;
  }
  return nullptr;
}

std::string textIn(const json& entry, const char* key) {
  return entry.contains(key) && entry[key].is_string() ? entry[key].get<std::string>() : "";
}

double fractionOf(const json& entry, const char* part) {
  if (!entry.contains(part) || !entry[part].is_number()) return 0;
  if (!entry.contains("size") || !entry["size"].is_number()) return 0;
  const double size = entry["size"].get<double>();
  return size > 0 ? entry[part].get<double>() / size : 1;
}

}  // namespace

UploadWatch::UploadWatch()
    : folder_(std::string(g_get_user_data_dir()) + "/" +
              clientcomm::Bundle::mainBundle().infoString(kHelperBundleId).value_or("")) {}

std::string UploadWatch::begin(const std::string& path) {
  title_ = std::filesystem::path(path).filename().string() + ", " + timeOfDay();
  return title_;
}

void UploadWatch::giveUp() { title_.clear(); }

UploadProgress UploadWatch::look() const {
  if (title_.empty()) return {};
  const json delivery = entryOf(folder_ + "/Deliveries.json", "deliveries", "title", title_);
  if (delivery.is_null()) return {"Waiting for the helper", 0};
  const std::string state = textIn(delivery, "state");
  if (state == "copying") return {"The helper copies the file", fractionOf(delivery, "copied")};
  if (state != "done") return {"The helper has other work before", 0};
  const json upload =
      entryOf(folder_ + "/Uploads.json", "uploads", "name", textIn(delivery, "name"));
  if (upload.is_null()) return {"In the helper's outbox", 1};
  if (textIn(upload, "state") == "done") return {"On the server", 1};
  return {"On its way to the server", fractionOf(upload, "sent")};
}

}  // namespace sample
