#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What the fuzzers share. A fuzzer is one source that defines LLVMFuzzerTestOneInput; it is linked
/// with libFuzzer to search for inputs, and with a driver of its own to replay the corpus.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the process, which the fuzzer takes for a finding, unless `holds`.
void require(bool holds, const char* what, const char* file = __builtin_FILE(),
             int line = __builtin_LINE());

/// A private folder, which is also the home, the folder of configuration and the runtime folder of
/// this process; removed when the process ends in good order. The first call must come before the
/// library is used.
const std::string& privateFolder();

/// Writes `bytes` to the file at `path`, whose folder exists.
void writeFile(const std::string& path, std::string_view bytes);

/// The input, cut into parts from its front. A part that is not there any more reads as 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return rest_.empty(); }
  std::uint8_t takeByte();
  std::uint32_t takeNumber();  ///< Of four bytes, the lowest first.
  /// A line, without its end.
  std::string_view takeLine();
  std::string_view take(std::size_t length);
  std::string_view takeRest();

 private:
  std::string_view rest_;
};

}  // namespace fuzz
