#pragma once

#include <gtk/gtk.h>

#include <string>

#include "examples/windows/product_model.h"

namespace sample {

/// The product's window.
class ProductWindow final : public ProductModel::View {
 public:
  /// Shows the window and starts the helper.
  ProductWindow();
  ~ProductWindow();
  ProductWindow(const ProductWindow&) = delete;
  ProductWindow& operator=(const ProductWindow&) = delete;

  /// Runs the main loop until the user closes the window.
  void run();

 private:
  void modelChanged() override;
  void askForUpgrade() override;
  void showPage(const std::string& path) override;

  GtkWidget* makeContent();
  GtkWidget* makeHelperButtons();
  GtkWidget* makeServiceButtons();
  GtkWidget* makeTipsSwitch();
  void chooseFile();

  ProductModel model_;
  GMainLoop* loop_;
  GtkWidget* window_;
  GtkWidget* status_ = nullptr;
  GtkWidget* outcome_ = nullptr;
  GtkWidget* uploadText_ = nullptr;
  GtkWidget* uploadBar_ = nullptr;
  guint timer_ = 0;
};

}  // namespace sample
