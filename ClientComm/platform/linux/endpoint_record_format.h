#pragma once

#include <string_view>

#include "ClientComm/platform/process_manager.h"

/// The constants of the endpoint record in docs/files.md, which has a `kBundlePathKey` too.
namespace clientcomm {

/// Begins the name; that of the socket follows.
inline constexpr std::string_view kEndpointRecordPrefix = "endpoint.";

/// `st_dev` and `st_ino` of the socket file.
inline constexpr char kSocketDeviceKey[] = "SocketDevice";
inline constexpr char kSocketInodeKey[] = "SocketInode";

}  // namespace clientcomm
