#include "examples/qt/product_window.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>
#include <chrono>
#include <cmath>

namespace sample {
namespace {

constexpr std::chrono::milliseconds kRefresh{250};
constexpr int kWidth = 480;
constexpr int kPageWidth = 460;
constexpr int kPageHeight = 320;
constexpr int kProgressSteps = 1000;

template <typename Widget>
Widget* named(const char* name, Widget* widget) {
  widget->setObjectName(name);
  return widget;
}

// A path is bytes; QFile knows how to read it.
std::string pathOf(const QString& name) { return QFile::encodeName(name).toStdString(); }

}  // namespace

ProductWindow::ProductWindow()
    : model_(*this),
      status_(named("status", new QLabel(this))),
      outcome_(named("outcome", new QLabel(this))),
      uploadText_(named("upload", new QLabel(this))),
      tips_(named("tips", new QCheckBox("Tips", this))),
      uploadBar_(named("progress", new QProgressBar(this))) {
  setWindowTitle("Qt product");
  setMinimumWidth(kWidth);
  uploadBar_->setRange(0, kProgressSteps);
  tips_->setChecked(model_.areTipsOn());
  connect(tips_, &QCheckBox::toggled, this, [this](bool isOn) { model_.setTips(isOn); });
  auto* const content = new QVBoxLayout(this);
  content->addWidget(status_);
  content->addLayout(makeHelperButtons());
  content->addWidget(tips_, 0, Qt::AlignLeft);
  content->addLayout(makeServiceButtons());
  for (QWidget* const part : {static_cast<QWidget*>(uploadText_), static_cast<QWidget*>(uploadBar_),
                              static_cast<QWidget*>(outcome_)}) {
    content->addWidget(part);
  }
  content->addWidget(makeButton("quit", "Quit", &ProductWindow::quit));
  connect(&timer_, &QTimer::timeout, this, [this] { model_.refresh(); });
  timer_.start(kRefresh);
  model_.start();
}

QPushButton* ProductWindow::makeButton(const char* name, const char* text,
                                       void (ProductWindow::*action)()) {
  auto* const button = named(name, new QPushButton(text, this));
  connect(button, &QPushButton::clicked, this, action);
  return button;
}

QLayout* ProductWindow::makeHelperButtons() {
  auto* const row = new QHBoxLayout();
  row->addWidget(makeButton("show", "Show helper", &ProductWindow::showHelper));
  row->addWidget(makeButton("hide", "Hide helper", &ProductWindow::hideHelper));
  row->addStretch();
  return row;
}

QLayout* ProductWindow::makeServiceButtons() {
  auto* const row = new QHBoxLayout();
  row->addWidget(makeButton("choose", "Upload a file…", &ProductWindow::chooseFile));
  row->addWidget(makeButton("upgrade", "Look for an upgrade", &ProductWindow::lookForUpgrade));
  row->addWidget(makeButton("error-page", "Error page", &ProductWindow::fetchErrorPage));
  row->addStretch();
  return row;
}

// As the other dialogs, it runs no event loop of its own, which would hold back the helper's calls.
void ProductWindow::chooseFile() {
  auto* const dialog = new QFileDialog(this, "Choose a file");
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::ExistingFile);
  connect(dialog, &QFileDialog::fileSelected, this,
          [this](const QString& name) { model_.upload(pathOf(name)); });
  dialog->open();
}

void ProductWindow::modelChanged() {
  status_->setText(QString::fromStdString(model_.status()));
  outcome_->setText(QString::fromStdString(model_.outcome()));
  uploadText_->setText(QString::fromStdString(model_.uploadProgress().text));
  uploadBar_->setValue(
      static_cast<int>(std::floor(model_.uploadProgress().fraction * kProgressSteps)));
}

void ProductWindow::askForUpgrade() {
  auto* const question = new QMessageBox(this);
  question->setAttribute(Qt::WA_DeleteOnClose);
  question->setIcon(QMessageBox::Question);
  question->setWindowTitle("Upgrade");
  question->setText("The helper is about to upgrade this product. Is the product ready?");
  auto* const yes = named("yes", question->addButton("Upgrade now", QMessageBox::YesRole));
  named("no", question->addButton("Later", QMessageBox::NoRole));
  connect(question, &QMessageBox::finished, this,
          [this, question, yes] { model_.answerUpgrade(question->clickedButton() == yes); });
  question->open();
}

void ProductWindow::showPage(const std::string& path) {
  auto* const window = new QDialog(this);
  window->setAttribute(Qt::WA_DeleteOnClose);
  auto* const page = named("page", new QTextBrowser(window));
  page->setSource(QUrl::fromLocalFile(QFile::decodeName(path.c_str())));
  auto* const close = named("close-page", new QPushButton("Close", window));
  connect(close, &QPushButton::clicked, window, &QDialog::close);
  auto* const content = new QVBoxLayout(window);
  content->addWidget(page);
  content->addWidget(close);
  window->setWindowTitle(page->documentTitle());
  window->resize(kPageWidth, kPageHeight);
  window->show();
}

}  // namespace sample
