#include "tests/windows/window_fixture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <utility>

#include "ClientComm/platform/property_list.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

// Starting a toolkit takes seconds of a loaded machine.
constexpr std::chrono::seconds kLimit{120};

// A place for each window, so that none covers another; the display is 1280 x 800 pixels.
constexpr std::array<std::pair<int, int>, 4> kPlaces{{{0, 0}, {640, 0}, {640, 400}, {0, 400}}};

/// Runs a program to its end. @return what it has written.
std::string outputOf(const std::vector<std::string>& arguments) {
  auto process = support::ChildProcess::spawn(arguments);
  const std::string output = process.readAll();
  process.wait();
  return output;
}

std::string reportFolder() { return support::sandbox() + "/windows"; }

void setEntries(const std::string& bundle,
                const std::vector<std::pair<std::string, std::string>>& entries) {
  const std::string path = bundle + "/Contents/Info.plist";
  auto info = clientcomm::dictionaryWithContentsOfFile(path);
  ASSERT_TRUE(info) << path;
  for (const auto& [key, value] : entries) info->insert_or_assign(key, value);
  ASSERT_TRUE(clientcomm::writeDictionaryToFile(*info, path));
}

}  // namespace

void WindowFixture::SetUp() {
  ASSERT_TRUE(display_.isRunning());
  SampleHelperFixture::SetUp();
  fs::create_directories(reportFolder());
  support::writeFile(support::sandbox() + "/config/gtk-4.0/settings.ini",
                     "[Settings]\ngtk-enable-animations=false\n");
  setenv("SAMPLE_WINDOW_REPORT", reportFolder().c_str(), 1);
}

void WindowFixture::TearDown() {
  if (HasFailure()) keepScreenshot();
}

void WindowFixture::prepareProduct(const std::string& built) {
  productBundle_ = support::sandbox() + "/" + fs::path(built).filename().string();
  fs::copy(built, productBundle_, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  helperName_ = clientcomm::dictionaryWithContentsOfFile(built + "/Contents/Info.plist")
                    .value()
                    .at("Helepr App name")
                    .stringValue()
                    .value();
  setEntries(productBundle_, {{"CFBundleIdentifier", productIdentifier()},
                              {"Helper Bundle indentifiter", identifier()},
                              {"Helper loaction path", support::sandbox() + "/install"}});
  setEntries(helperBundles().front(), {{"CFBundleIdentifier", identifier()}});
}

void WindowFixture::runProduct(const std::string& built) {
  prepareProduct(built);
  product_ = std::make_unique<support::ChildProcess>(support::ChildProcess::spawn(
      {productBundle_ + "/Contents/Linux/" + fs::path(built).stem().string()}));
}

std::vector<std::string> WindowFixture::helperBundles() const {
  return {productBundle_ + "/Contents/Resources/" + helperName_ + ".app",
          support::sandbox() + "/install/" + helperName_ + ".app"};
}

void WindowFixture::hideHelperBundles() {
  for (const std::string& bundle : helperBundles()) fs::rename(bundle, bundle + ".hidden");
}

void WindowFixture::bringBackHelperBundles() {
  for (const std::string& bundle : helperBundles()) fs::rename(bundle + ".hidden", bundle);
}

bool WindowFixture::waitForState(const std::function<bool(const Json&)>& condition) {
  return support::waitUntil(
      [&] {
        const Json now = state();
        return !now.is_null() && condition(now);
      },
      kLimit);
}

std::string WindowFixture::productIdentifier() const {
  return "com.example.product." + fs::path(support::sandbox()).filename().string();
}

pid_t WindowFixture::runningHelper() {
  const Json known = state();
  return known.is_null() ? 0 : known["pid"].get<pid_t>();
}

WindowFixture::Json WindowFixture::reportOf(const std::string& application) {
  const std::string text = support::readFile(reportFolder() + "/" + application + ".json");
  const auto report = Json::parse(text, nullptr, false);
  return report.is_object() ? report : Json();
}

WindowFixture::Json WindowFixture::windowOf(const std::string& application,
                                            const std::string& title) {
  const Json report = reportOf(application);
  if (report.is_null() || !report["windows"].contains(title)) return nullptr;
  return report["windows"][title];
}

pid_t WindowFixture::reporterOf(const std::string& application) {
  const Json report = reportOf(application);
  return report.is_null() ? 0 : report["pid"].get<pid_t>();
}

std::optional<std::string> WindowFixture::textOf(const std::string& application,
                                                 const std::string& title,
                                                 const std::string& widget) const {
  const Json window = windowOf(application, title);
  if (window.is_null() || !window.contains(widget)) return std::nullopt;
  return window[widget]["text"].get<std::string>();
}

bool WindowFixture::waitForText(const std::string& application, const std::string& title,
                                const std::string& widget, const std::string& text) const {
  return support::waitUntil(
      [&] {
        const auto shown = textOf(application, title, widget);
        return shown && shown->find(text) != std::string::npos;
      },
      kLimit);
}

bool WindowFixture::waitForWindow(const std::string& application, const std::string& title) const {
  return support::waitUntil([&] { return !windowOf(application, title).is_null(); }, kLimit);
}

bool WindowFixture::waitForNoWindow(const std::string& application,
                                    const std::string& title) const {
  return support::waitUntil([&] { return windowOf(application, title).is_null(); }, kLimit);
}

std::string WindowFixture::visibleWindow(const std::string& title) {
  std::string window;
  support::waitUntil(
      [&] {
        std::istringstream found(
            outputOf({XDOTOOL, "search", "--onlyvisible", "--name", "^" + title + "$"}));
        for (std::string line; std::getline(found, line);) window = line;
        return !window.empty();
      },
      kLimit);
  if (window.empty() || std::find(placed_.begin(), placed_.end(), window) != placed_.end()) {
    return window;
  }
  const auto& place = kPlaces.at(placed_.size() % kPlaces.size());
  outputOf(
      {XDOTOOL, "windowmove", window, std::to_string(place.first), std::to_string(place.second)});
  placed_.push_back(window);
  return window;
}

void WindowFixture::click(const std::string& application, const std::string& title,
                          const std::string& widget) {
  const std::string window = visibleWindow(title);
  ASSERT_FALSE(window.empty()) << "no window " << title;
  ASSERT_TRUE(waitForText(application, title, widget, "")) << "no widget " << widget;
  const Json at = windowOf(application, title)[widget];
  const int x = at["x"].get<int>() + at["width"].get<int>() / 2;
  const int y = at["y"].get<int>() + at["height"].get<int>() / 2;
  outputOf({XDOTOOL, "windowraise", window, "mousemove", "--window", window, std::to_string(x),
            std::to_string(y), "click", "1"});
}

void WindowFixture::typeInto(const std::string& title, const std::string& text) {
  const std::string window = visibleWindow(title);
  ASSERT_FALSE(window.empty()) << "no window " << title;
  outputOf({XDOTOOL, "windowraise", window, "windowfocus", window, "type", text});
  outputOf({XDOTOOL, "key", "Return"});
}

void WindowFixture::keepScreenshot() const {
  const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(test->test_suite_name()) + "." + test->name();
  std::replace(name.begin(), name.end(), '/', '-');
  fs::create_directories(SCREENSHOT_FOLDER);
  const std::string path = std::string(SCREENSHOT_FOLDER) + "/" + name + ".png";
  outputOf({IMPORT, "-window", "root", path});
  const std::string colours = outputOf({CONVERT, path, "-format", "%k\n", "info:"});
  EXPECT_GT(std::atoi(colours.c_str()), 20) << "nothing to be seen on " << path;
}
