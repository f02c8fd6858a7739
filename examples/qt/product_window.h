#pragma once

#include <QTimer>
#include <QWidget>
#include <string>

#include "examples/windows/product_model.h"

class QCheckBox;
class QLabel;
class QLayout;
class QProgressBar;
class QPushButton;

namespace sample {

/// The product's window.
class ProductWindow final : public QWidget, public ProductModel::View {
 public:
  /// Starts the helper.
  ProductWindow();

 private:
  void modelChanged() override;
  void askForUpgrade() override;
  void showPage(const std::string& path) override;

  QPushButton* makeButton(const char* name, const char* text, void (ProductWindow::*action)());
  QLayout* makeHelperButtons();
  QLayout* makeServiceButtons();
  void showHelper() { model_.showHelper(); }
  void hideHelper() { model_.hideHelper(); }
  void lookForUpgrade() { model_.lookForUpgrade(); }
  void fetchErrorPage() { model_.fetchErrorPage(); }
  void chooseFile();
  void quit() { close(); }

  ProductModel model_;
  QLabel* status_;
  QLabel* outcome_;
  QLabel* uploadText_;
  QCheckBox* tips_;
  QProgressBar* uploadBar_;
  QTimer timer_;
};

}  // namespace sample
