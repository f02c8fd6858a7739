#include "examples/qt/window_reporter.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QTextBrowser>
#include <chrono>
#include <string>

namespace sample {
namespace {

constexpr std::chrono::milliseconds kInterval{50};

std::string textOf(const QWidget* widget) {
  if (const auto* const label = qobject_cast<const QLabel*>(widget)) {
    return label->text().toStdString();
  }
  if (const auto* const button = qobject_cast<const QAbstractButton*>(widget)) {
    if (button->isCheckable()) return button->isChecked() ? "on" : "off";
    return button->text().toStdString();
  }
  if (const auto* const bar = qobject_cast<const QProgressBar*>(widget)) {
    return std::to_string(static_cast<double>(bar->value()) / bar->maximum());
  }
  if (const auto* const page = qobject_cast<const QTextBrowser*>(widget)) {
    return page->toPlainText().toStdString();
  }
  return "";
}

}  // namespace

WindowReporter::WindowReporter() {
  if (!report_.isWanted()) return;
  QObject::connect(&timer_, &QTimer::timeout, [this] { report(); });
  timer_.start(kInterval);
}

void WindowReporter::report() {
  for (const QWidget* const window : QApplication::topLevelWidgets()) {
    if (!window->isVisible() || window->windowTitle().isEmpty()) continue;
    report_.addWindow(window->windowTitle().toStdString());
    for (const QWidget* const widget : window->findChildren<QWidget*>()) {
      if (widget->objectName().isEmpty() || !widget->isVisible()) continue;
      const QPoint at = widget->mapTo(window, QPoint(0, 0));
      report_.addWidget(widget->objectName().toStdString(), textOf(widget), at.x(), at.y(),
                        widget->width(), widget->height());
    }
  }
  report_.write();
}

}  // namespace sample
