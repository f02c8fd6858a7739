#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/integration/sample_helper_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/virtual_display.h"

/// A product with a window and its helper, both as they are built, on an X server without a screen.
/// The test clicks what the windows' reports name; see examples/windows/window_report.h.
class WindowFixture : public SampleHelperFixture {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Makes a copy of the product `built` with an identity and an install folder of this test's own.
  void prepareProduct(const std::string& built);
  /// Makes such a copy and runs it.
  void runProduct(const std::string& built);
  const std::string& productBundle() const { return productBundle_; }
  std::string productIdentifier() const;
  support::ChildProcess& product() { return *product_; }
  /// Takes the helper's bundles away, the installed one and the product's, and puts them back.
  void hideHelperBundles();
  void bringBackHelperBundles();
  /// As its base's, for a machine under the load of many toolkits.
  static bool waitForState(const std::function<bool(const Json&)>& condition);
  /// The helper's process ID; 0 when none answers.
  static pid_t runningHelper();

  /// What the report of the application says of the window; null without it.
  static Json windowOf(const std::string& application, const std::string& title);
  /// The process that has written the report of the application; 0 without a report.
  static pid_t reporterOf(const std::string& application);
  /// The text of the widget; nothing where there is no such widget, or no such window.
  std::optional<std::string> textOf(const std::string& application, const std::string& title,
                                    const std::string& widget) const;
  /// Waits until the widget's text holds `text`.
  bool waitForText(const std::string& application, const std::string& title,
                   const std::string& widget, const std::string& text) const;
  bool waitForWindow(const std::string& application, const std::string& title) const;
  bool waitForNoWindow(const std::string& application, const std::string& title) const;

  /// Clicks the middle of the widget, once it is on the display.
  void click(const std::string& application, const std::string& title, const std::string& widget);
  /// Gives the window the keyboard, types `text` and Enter.
  void typeInto(const std::string& title, const std::string& text);

  /// Keeps a picture of the display in the build folder, which must show more than a blank screen.
  void keepScreenshot() const;
  /// The window as X knows it, moved to a place of its own; "" when it is not on the display.
  std::string visibleWindow(const std::string& title);

 private:
  std::vector<std::string> helperBundles() const;
  static Json reportOf(const std::string& application);

  support::VirtualDisplay display_;
  std::string productBundle_;
  std::string helperName_;
  std::unique_ptr<support::ChildProcess> product_;
  std::vector<std::string> placed_;
};
