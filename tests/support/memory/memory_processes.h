#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/apple_event_transport.h"

namespace support {

/// A process of an application. It keeps the identity that its bundle had when it started.
struct MemoryProcess {
  std::int32_t pid = 0;
  std::uint32_t number = 0;  ///< Another for every process, also of the same ID.
  std::string bundlePath;
  std::string executable;  ///< Moves with the file.
  clientcomm::OptionalString identifier;
  clientcomm::OptionalString name;
  /// Takes the events that are sent to it; empty while it takes none.
  clientcomm::AppleEventTransport::Receiver receiver;
  bool isStopped = false;  ///< Takes events and does not look at them.
};

/// The processes of the system in memory, this one among them.
class MemoryProcesses {
 public:
  using Table = std::map<std::int32_t, MemoryProcess>;

  const Table& all() const { return all_; }
  /// The process; null when there is none.
  MemoryProcess* find(std::int32_t pid);
  /// The first process with this identifier that takes events; null when there is none.
  MemoryProcess* receiverFor(std::string_view identifier);

  /// Starts the application at `bundlePath`. @return its process ID.
  std::int32_t start(const std::string& bundlePath);
  /// Starts it under this process ID.
  void start(const std::string& bundlePath, std::int32_t pid);
  void end(std::int32_t pid) { all_.erase(pid); }

  /// Follows a file or a folder that was moved.
  void follow(const std::string& from, const std::string& to);

  /// The bundles that were launched by the workspace, in their order.
  std::vector<std::string> launched;

 private:
  Table all_;
  std::uint32_t lastNumber_ = 0;
};

}  // namespace support
