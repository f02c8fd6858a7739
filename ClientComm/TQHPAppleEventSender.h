#pragma once

/// @file
/// Sending calls.

#include <span>
#include <string>
#include <string_view>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/async.h"

/// Info dictionary key of the helper's bundle identifier; hosts carry it in exactly this spelling.
inline constexpr const char kHelperBundleId[] = "Helper Bundle indentifiter";

/// Sends remote calls: a class name, a selector with its colons, and strings. For one thread; see
/// TQHPHelper.
///
/// Every send returns the platform's status unchanged. A call without a result returns when the
/// event was handed over; status 0 then says that the target runs, not that it has acted. A call
/// with a result blocks, without limit, until the target has answered or ended.
class CLIENTCOMM_EXPORT TQHPAppleEventSender {
 public:
  /// The one object, made on first use and never destroyed.
  static TQHPAppleEventSender& share();

  TQHPAppleEventSender(const TQHPAppleEventSender&) = delete;
  TQHPAppleEventSender& operator=(const TQHPAppleEventSender&) = delete;

  /// Sends to the helper, without a result.
  /// @param className the class that the target registers.
  /// @param selectName the selector, with a colon for each argument.
  /// @param args the arguments; at most 64 MiB, and 262,144 values with the call's own six.
  /// @return 0 when the event was handed over, else the send's own status: -600 the helper does not
  ///         run, -609 it went away, -1712 it did not take the event in time, -1743 it belongs to
  ///         another user, -108 the event is too large.
  OSErr sendEvnet(std::string_view className, std::string_view selectName,
                  std::span<const std::string> args) noexcept;

  /// Sends to the helper and waits for the reply.
  /// @param className the class that the target registers.
  /// @param selectName the selector, with a colon for each argument.
  /// @param args the arguments; at most 64 MiB, and 262,144 values with the call's own six.
  /// @param result receives the reply's text; nil when there is none, also when the send failed.
  /// @return as of the send without a result.
  OSErr sendEvnet(std::string_view className, std::string_view selectName,
                  std::span<const std::string> args, clientcomm::OptionalString* result) noexcept;

  /// Sends to another application, without a result.
  /// @param bundleID its bundle identifier; nil reaches none.
  /// @param className the class that the target registers.
  /// @param selectName the selector, with a colon for each argument.
  /// @param args the arguments; at most 64 MiB, and 262,144 values with the call's own six.
  /// @return as of the send to the helper.
  OSErr sendEvnet(const clientcomm::OptionalString& bundleID, std::string_view className,
                  std::string_view selectName, std::span<const std::string> args) noexcept;

  /// Sends to another application and waits for the reply.
  /// @param bundleID its bundle identifier; nil reaches none.
  /// @param className the class that the target registers.
  /// @param selectName the selector, with a colon for each argument.
  /// @param args the arguments; at most 64 MiB, and 262,144 values with the call's own six.
  /// @param result receives the reply's text; nil when there is none, also when the send failed.
  /// @return as of the send to the helper.
  OSErr sendEvnet(const clientcomm::OptionalString& bundleID, std::string_view className,
                  std::string_view selectName, std::span<const std::string> args,
                  clientcomm::OptionalString* result) noexcept;

  /// Sends to the helper; `callback` gets the reply. See ClientComm/async.h. An event that the
  /// target's full queue does not take at once may be overtaken by later ones.
  [[nodiscard]] clientcomm::PendingQuery sendEvnetAsync(
      std::string_view className, std::string_view selectName, std::span<const std::string> args,
      clientcomm::QueryCallback<std::string> callback,
      clientcomm::TimeLimit limit = std::nullopt) noexcept;
  /// The same to the application with the bundle identifier `bundleID`.
  [[nodiscard]] clientcomm::PendingQuery sendEvnetAsync(
      const clientcomm::OptionalString& bundleID, std::string_view className,
      std::string_view selectName, std::span<const std::string> args,
      clientcomm::QueryCallback<std::string> callback,
      clientcomm::TimeLimit limit = std::nullopt) noexcept;

 private:
  CLIENTCOMM_LOCAL TQHPAppleEventSender();

  /// The helper's bundle identifier, read once from the host's Info dictionary; nil without it.
  clientcomm::OptionalString helperBundleID_;
};
