#include "tests/support/peer_build.h"

#include <cstdlib>
#include <filesystem>

#include "tests/support/test_sandbox.h"

namespace support {
namespace {

constexpr char kApplicationProgram[] = "CLIENTCOMM_TEST_APPLICATION_PROGRAM";

}  // namespace

std::string inPeerBuild(const std::string& path) {
  const char* const peer = std::getenv("CLIENTCOMM_TEST_PEER_BUILD");
  if (peer == nullptr) return path;
  return std::filesystem::path(peer) / std::filesystem::relative(path, CLIENTCOMM_BUILD_DIR);
}

std::string applicationProgram() {
  const char* const program = std::getenv(kApplicationProgram);
  return program != nullptr ? program : hostBundlePath() + "/Contents/Linux/TestHost";
}

void setTestProgram(const std::string& program) {
  if (std::getenv("CLIENTCOMM_TEST_PEER_BUILD") == nullptr) return;
  setenv(kApplicationProgram, inPeerBuild(program).c_str(), 1);
}

}  // namespace support
