#include "examples/helper/application.h"

int main(int count, char** arguments) {
  if (!sample::Application::isWanted(count, arguments)) return 0;
  return sample::Application::shared().run();
}
