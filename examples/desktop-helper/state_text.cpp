#include "examples/desktop-helper/state_text.h"

#include "examples/helper/text.h"

namespace sample {
namespace {

using nlohmann::json;

std::string textIn(const json& entry, const char* key) {
  return entry.contains(key) && entry[key].is_string() ? entry[key].get<std::string>() : "";
}

// What hosts have sent may be any bytes; a window shows text.
void addLine(std::string& lines, const std::string& line) {
  if (!lines.empty()) lines += '\n';
  lines += printableText(line);
}

std::string percent(const json& entry, const char* part) {
  const double size = entry.value("size", 0.0);
  const double share = size > 0 ? entry.value(part, 0.0) / size : 1;
  return ", " + std::to_string(static_cast<int>(100 * share)) + " %";
}

std::string howFar(const json& delivery, const json& uploads) {
  const std::string state = textIn(delivery, "state");
  if (state == "copying") return "copying" + percent(delivery, "copied");
  if (state != "done") return state;
  for (const json& upload : uploads) {
    if (upload["name"] != delivery["name"]) continue;
    return textIn(upload, "state") == "done" ? "on the server" : "sent" + percent(upload, "sent");
  }
  return "in the outbox";
}

}  // namespace

std::string productLines(const json& state) {
  std::string lines;
  for (const json& product : state.value("products", json::array())) {
    addLine(lines, textIn(product, "productID") + " " + textIn(product, "version") + ", " +
                       textIn(product, "bundleIdentifier"));
  }
  return lines;
}

std::string collectedLines(const json& state) {
  std::string lines;
  const json usage = state.value("usage", json::object());
  for (const json& folder : usage) {
    for (const json& counter : folder.value("counters", json::array())) {
      addLine(lines, textIn(counter, "productID") + ": " + textIn(counter, "target") + ", " +
                         textIn(counter, "key") + ": " + std::to_string(counter.value("count", 0)));
    }
    for (const json& text : folder.value("texts", json::array())) {
      addLine(lines, textIn(text, "productID") + ": " + textIn(text, "target") + ": " +
                         textIn(text, "value"));
    }
  }
  return lines;
}

std::string deliveryLines(const json& deliveries, const json& state) {
  const json uploads = state.value("uploads", json::array());
  std::string lines;
  for (const json& delivery : deliveries) {
    addLine(lines, textIn(delivery, "title") + " of " + textIn(delivery, "productID") + ", " +
                       textIn(delivery, "kind") + ": " + howFar(delivery, uploads));
  }
  return lines;
}

}  // namespace sample
