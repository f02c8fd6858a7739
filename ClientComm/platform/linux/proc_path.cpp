#include "ClientComm/platform/linux/proc_path.h"

#include <charconv>
#include <cstddef>

namespace clientcomm {

ProcPath ProcPath::ofProcess(pid_t pid, std::string_view name) noexcept {
  ProcPath path;
  path << kProcFolder << "/" << pid << name;
  return path;
}

ProcPath ProcPath::ofThisProcess(std::string_view name) noexcept {
  ProcPath path;
  path << kProcFolder << "/self" << name;
  return path;
}

ProcPath ProcPath::ofDescriptor(int descriptor) noexcept {
  ProcPath path = ofThisProcess("/fd/");
  path << descriptor;
  return path;
}

ProcPath ProcPath::ofDescriptorInfo(int descriptor) noexcept {
  ProcPath path = ofThisProcess("/fdinfo/");
  path << descriptor;
  return path;
}

// The last byte stays 0.
ProcPath& ProcPath::operator<<(std::string_view text) noexcept {
  length_ += text.copy(text_.data() + length_, text_.size() - 1 - length_);
  return *this;
}

ProcPath& ProcPath::operator<<(int number) noexcept {
  char* const end =
      std::to_chars(text_.data() + length_, text_.data() + text_.size() - 1, number).ptr;
  length_ = static_cast<std::size_t>(end - text_.data());
  return *this;
}

}  // namespace clientcomm
