#include "examples/helper/suite_pages.h"

#include <glib.h>

#include <nlohmann/json.hpp>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_manager.h"
#include "examples/helper/application.h"
#include "examples/helper/durable_file.h"
#include "examples/helper/text.h"

namespace sample {
namespace {

clientcomm::OptionalString pageIn(const std::string& path, const char* kind) {
  if (!clientcomm::fileExistsAtPath(path)) return std::nullopt;
  try {
    const auto pages = nlohmann::json::parse(readFile(path));
    const auto& page = pages.at(kind);
    return page.at("url").get<std::string>() + "###" +
           std::to_string(page.at("width").get<std::int32_t>()) + "###" +
           std::to_string(page.at("height").get<std::int32_t>());
  } catch (const std::exception& error) {
    g_warning("suite page in %s: %s", path.c_str(), error.what());
    return std::nullopt;
  }
}

}  // namespace

clientcomm::OptionalString suitePage(const std::string& productID, const char* kind) {
  const std::string folder = Application::shared().dataFolder() + "/SuiteInfo/";
  if (auto page = pageIn(folder + fileNameFor(productID) + ".json", kind)) return page;
  const auto general = clientcomm::Bundle::mainBundle().pathForResource("SuiteInfo", "json");
  return general ? pageIn(*general, kind) : std::nullopt;
}

}  // namespace sample
