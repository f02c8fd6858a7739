#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "ClientComm/platform/export.h"
#include "ClientComm/platform/types.h"

/// @file
/// The library without blocking. `TQHPHelper::shareAsync` is the start-up. Each method that waits
/// for the helper's answer has a form whose name ends in `Async`. It returns at once, and a
/// call-back brings the answer:
///
///     query_ = TQHPHelper::share().netErrorPagePathAsync(
///         [this](OSErr status, const clientcomm::OptionalString& path) { show(path); },
///         std::chrono::seconds(2));

class TQHPAppleEventSender;

namespace clientcomm {

/// How long a query may take; after it, the call-back gets errAETimeout. A limit of 0 or less has
/// passed when the event loop runs next. Without a value there is no limit.
using TimeLimit = std::optional<std::chrono::milliseconds>;

/// Takes the outcome of a query, once. It is called by the event loop, never by the function that
/// asks. An exception ends here.
/// @param status 0 when the helper has answered; procNotFound when it does not run;
///        connectionInvalid when it ended before it had answered; errAETimeout when the limit has
///        passed; else as of a query that blocks.
/// @param value nothing unless `status` is 0.
template <typename Value>
using QueryCallback = std::function<void(OSErr status, const std::optional<Value>& value)>;

/// Takes the outcome of a start-up that does not block; see `TQHPHelper::shareAsync`. An exception
/// ends here.
using StartUpCallback = std::function<void(OSErr status)>;

class Query;

/// A query that is under way. Its destruction cancels it, so that a call-back never outlives the
/// object that keeps the handle. For the thread that uses the library; a handle of a query that is
/// over is for any thread.
class CLIENTCOMM_EXPORT PendingQuery {
 public:
  /// A handle of no query.
  PendingQuery() noexcept;
  /// Cancels the query.
  ~PendingQuery();
  /// Takes the query of `other`, which has none afterwards.
  PendingQuery(PendingQuery&& other) noexcept;
  /// Cancels the query that the handle has had.
  PendingQuery& operator=(PendingQuery&& other) noexcept;
  PendingQuery(const PendingQuery&) = delete;
  PendingQuery& operator=(const PendingQuery&) = delete;

  /// Whether the call-back is still to come. False in the call-back, after `cancel`, and from the
  /// beginning where the process is out of memory.
  bool isPending() const noexcept;

  /// Gives the query up: its call-back is destroyed and not called. The helper may carry the query
  /// out all the same. Does nothing where the query is over; may be called from any call-back.
  void cancel() noexcept;

  /// Lets the query go on without the handle; it can no longer be cancelled.
  void detach() noexcept;

 private:
  friend class ::TQHPAppleEventSender;
  explicit CLIENTCOMM_LOCAL PendingQuery(std::shared_ptr<Query> query);

  std::shared_ptr<Query> query_;
};

}  // namespace clientcomm
