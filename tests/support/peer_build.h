#pragma once

#include <string>

/// A second build of the same sources, of another word size for example, from which the tests take
/// the applications that they run. CLIENTCOMM_TEST_PEER_BUILD names its folder; without it the
/// applications come from the tests' own build.
namespace support {

/// The file of the second build that corresponds to `path`, a file of this build; `path` without a
/// second build.
std::string inPeerBuild(const std::string& path);

/// The program that the tests' applications run: this test program, in the second build where there
/// is one.
std::string applicationProgram();

/// Hands `program`, this test program, to the tests, which run from a copy of it.
void setTestProgram(const std::string& program);

}  // namespace support
