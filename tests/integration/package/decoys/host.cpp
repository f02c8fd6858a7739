// A host with functions of its own by the names of the library's. It reaches the library's through
// the dynamic linker, has a helper installed and started, asks it for the client ID, and has it
// exit.
#include <dlfcn.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>

namespace {

using Text = std::optional<std::string>;

// The namespace of the standard library is part of these names.
#ifdef _LIBCPP_VERSION
constexpr char kClientID[] = "_ZN21TQHPHelperCommunicate18clientIDFormHelperEv";
constexpr char kExitHelper[] =
    "_ZN17TQHPHelperControl10exitHelperERKNSt3__18optionalINS0_12basic_stringIcNS0_11char_"
    "traitsIcEENS0_9allocatorIcEEEEEESA_";
#else
constexpr char kClientID[] = "_ZN21TQHPHelperCommunicate18clientIDFormHelperB5cxx11Ev";
constexpr char kExitHelper[] =
    "_ZN17TQHPHelperControl10exitHelperERKSt8optionalINSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEEES9_";
#endif

template <typename Function>
Function* inLibrary(const char* symbol) {
  static void* const library = dlopen("libClientComm.so.1", RTLD_NOW);
  void* const found = library == nullptr ? nullptr : dlsym(library, symbol);
  if (found == nullptr || found == dlsym(RTLD_DEFAULT, symbol)) {
    std::printf("the host has no function of its own for %s\n", symbol);
    std::exit(1);
  }
  return reinterpret_cast<Function*>(found);
}

bool becomesAbsent(void* controller) {
  auto* const isAlive =
      inLibrary<std::int16_t(void*)>("_ZN21TQHPHelperCommunicate13isAliveHelperEv");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < end) {
    if (isAlive(controller) != 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

}  // namespace

int main() {
  inLibrary<void*()>("_ZN10TQHPHelper5shareEv")();
  void* const controller = inLibrary<void*()>("_ZN21TQHPHelperCommunicate5shareEv")();
  const Text clientID = inLibrary<Text(void*)>(kClientID)(controller);
  std::printf("client ID: %s\n", clientID.value_or("(nil)").c_str());
  void* const control = inLibrary<void*()>("_ZN17TQHPHelperControl5shareEv")();
  const Text productID = "P1";
  inLibrary<std::int16_t(void*, const Text&, const Text&)>(kExitHelper)(control, productID,
                                                                        productID);
  std::printf("helper: %s\n", becomesAbsent(controller) ? "ended" : "runs");
}
