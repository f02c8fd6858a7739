#include "examples/event_loops/product.h"

#include <ClientComm/TQHPHelper.h>

#include <cstdio>

namespace sample {

Product::Product() {
  TQHPHelper::share();
  TQHPHelperCommunicate::share().setProductUpgradeDelegate(this);
  std::printf("upgrade asked for, status %d\n", TQHPHelperCommunicate::share().productUpgrade());
  std::fflush(stdout);
}

Product::~Product() { TQHPHelperCommunicate::share().setProductUpgradeDelegate(nullptr); }

void Product::productWillUpgrade(const clientcomm::Error* error) {
  std::puts(error == nullptr ? "the helper is about to upgrade the product" : "no upgrade");
  std::fflush(stdout);
  TQHPHelperCommunicate::share().productReadyToUpgrade(error == nullptr);
}

}  // namespace sample
