#include <ClientComm/TQHPHelper.h>
#include <ClientComm/platform/bundle.h>

#include <cstdio>

// Prints what the bundle says of itself, then starts the helper as any host does.
int main() {
  const auto& bundle = clientcomm::Bundle::mainBundle();
  for (const char* key :
       {"CFBundleName", "CFBundleIdentifier", "CFBundleVersion", "PID", "A <key> & its",
        "Helper Bundle indentifiter", "Helepr App name", "Helper loaction path"}) {
    std::printf("%s: %s\n", key, bundle.infoString(key).value_or("(nil)").c_str());
  }
  std::printf("notes: %s\n", bundle.pathForResource("Notes", "txt") ? "found" : "missing");
  TQHPHelper::share();
}
