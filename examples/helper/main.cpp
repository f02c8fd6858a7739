#include <algorithm>
#include <string_view>

#include "examples/helper/application.h"

// What starts the helper at log-in passes this. A host that launches it does not: a newer helper
// begins while the older one ends.
constexpr std::string_view kUnlessRunning = "--unless-running";

int main(int count, char** arguments) {
  const bool isOptional =
      std::find(arguments + 1, arguments + count, kUnlessRunning) != arguments + count;
  if (isOptional && sample::Application::isRunningAlready()) return 0;
  return sample::Application::shared().run();
}
