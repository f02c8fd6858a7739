#include "tests/support/test_host.h"

#include "ClientComm/platform/path.h"
#include "tests/support/test_sandbox.h"

namespace support {

std::string hostBundlePath() { return sandbox() + "/TestHost.app"; }

std::string helperIdentifier() {
  return "com.example.testhelper." + clientcomm::lastPathComponent(sandbox());
}

clientcomm::PropertyListDictionary defaultHostInfo() {
  return {{"CFBundleIdentifier", "com.example.testhost"},
          {"CFBundleName", "Test Host"},
          {"CFBundleExecutable", "TestHost"},
          {"CFBundleVersion", "1.2.3"},
          {"PID", "P100"},
          {"Helper Bundle indentifiter", helperIdentifier()},
          {"Helepr App name", "Test Helper"},
          {"Helper loaction path", sandbox() + "/install"}};
}

void writeHostInfo(const clientcomm::PropertyListDictionary& info) {
  writeFile(hostBundlePath() + "/Contents/Info.plist", clientcomm::xmlPropertyList(info));
}

}  // namespace support
