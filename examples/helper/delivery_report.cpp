#include "examples/helper/delivery_report.h"

#include <glib.h>

#include <utility>

#include "examples/helper/delivery_in_progress.h"
#include "examples/helper/durable_file.h"
#include "examples/helper/journal.h"
#include "examples/helper/json_text.h"

namespace sample {
namespace {

constexpr std::int64_t kIntervalInMicroseconds = G_USEC_PER_SEC / 5;

}  // namespace

DeliveryReport::DeliveryReport(Journal& journal, std::string path)
    : journal_(journal), path_(std::move(path)) {}

nlohmann::json DeliveryReport::contents(const DeliveryInProgress* current) {
  nlohmann::json all = journal_.latestDeliveries();
  if (current == nullptr) return all;
  for (auto& entry : all) {
    if (entry["name"] != current->delivery().name) continue;
    entry["state"] = "copying";
    entry["copied"] = current->copied();
    entry["size"] = current->size();
  }
  return all;
}

void DeliveryReport::update(const DeliveryInProgress* current, When when) noexcept {
  const std::int64_t now = g_get_monotonic_time();
  if (when == When::kInTurn && now < due_) return;
  due_ = now + kIntervalInMicroseconds;
  try {
    std::string text = jsonText({{"deliveries", contents(current)}});
    if (text == written_) return;
    replaceFile(path_, text);
    written_ = std::move(text);
  } catch (const std::exception& error) {
    g_warning("%s", error.what());
  }
}

}  // namespace sample
