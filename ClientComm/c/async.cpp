#include "ClientComm/c/async.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "ClientComm/c/call_description.h"
#include "ClientComm/c/context.h"
#include "ClientComm/c/handles.h"
#include "ClientComm/c/started_host.h"

using clientcomm::atBorder;
using clientcomm::Context;
using clientcomm::PendingQuery;
using clientcomm::QueryCallback;
using clientcomm::TimeLimit;

namespace {

using Host = TQHPHelperCommunicate;

struct HeldQuery final : clientcomm::Handled {
  static constexpr Kind kKind = Kind::kQuery;
  HeldQuery() noexcept : Handled(kKind) {}
  PendingQuery pending;
};

TimeLimit limitOf(std::int64_t milliseconds) {
  if (milliseconds < 0) throw clientcomm::Refusal{CLIENTCOMM_BAD_ARGUMENT};
  if (milliseconds == CLIENTCOMM_NO_LIMIT) return std::nullopt;
  return std::chrono::milliseconds(milliseconds);
}

clientcomm_status outcome(OSErr status, bool hasValue) {
  return status == clientcomm::noErr && !hasValue ? CLIENTCOMM_NO_VALUE
                                                  : static_cast<clientcomm_status>(status);
}

void deliver(clientcomm_text_answer answer, void* context, OSErr status,
             const clientcomm::OptionalString& value) {
  answer(context, outcome(status, value.has_value()),
         value ? clientcomm::textOf(*value) : clientcomm_text{nullptr, 0});
}

void deliver(clientcomm_flag_answer answer, void* context, OSErr status,
             const std::optional<bool>& value) {
  answer(context, outcome(status, value.has_value()), value.value_or(false));
}

void deliver(clientcomm_suite_answer answer, void* context, OSErr status,
             const std::optional<TQHPSuiteInfo>& value) {
  const bool hasPage = value && value->URL();
  answer(context, outcome(status, hasPage),
         hasPage ? clientcomm::textOf(*value->URL()) : clientcomm_text{nullptr, 0},
         hasPage ? value->width() : 0, hasPage ? value->height() : 0);
}

using Kept = std::shared_ptr<Context>;

/// Begins the query that `ask` sends, and hands it out. All queries share this, so that each form
/// costs next to nothing.
clientcomm_status beginQuery(PendingQuery (*ask)(const void* data, const Kept& kept),
                             const void* data, void* context, clientcomm_destroy destroy,
                             clientcomm_query** query) noexcept {
  if (query != nullptr) *query = nullptr;
  return atBorder([=] {
    const auto kept = std::make_shared<Context>(context, destroy);
    auto held = std::make_unique<HeldQuery>();
    held->pending = ask(data, kept);
    if (!held->pending.isPending()) return CLIENTCOMM_OUT_OF_RESOURCES;
    if (query == nullptr) {
      held->pending.detach();
    } else {
      *query = static_cast<clientcomm_query*>(clientcomm::Handles::add(*held));
      static_cast<void>(held.release());  // the table has it
    }
    kept->takeOver();
    return CLIENTCOMM_OK;
  });
}

/// A call-back that hands the outcome to `answer`.
template <typename Value, typename Answer>
QueryCallback<Value> callbackFor(Answer answer, const Kept& kept) {
  clientcomm::required(answer);
  return [answer, kept](OSErr status, const std::optional<Value>& value) {
    deliver(answer, kept->data(), status, value);
  };
}

template <typename Ask>
clientcomm_status begin(const Ask& ask, void* context, clientcomm_destroy destroy,
                        clientcomm_query** query) noexcept {
  return beginQuery(
      [](const void* data, const Kept& kept) { return (*static_cast<const Ask*>(data))(kept); },
      &ask, context, destroy, query);
}

/// The same for a query of the controller.
template <typename Value, typename Answer>
clientcomm_status begin(PendingQuery (Host::*form)(QueryCallback<Value>, TimeLimit),
                        std::int64_t limit, Answer answer, void* context,
                        clientcomm_destroy destroy, clientcomm_query** query) noexcept {
  return begin(
      [=](const Kept& kept) {
        return (clientcomm::startedHost().*form)(callbackFor<Value>(answer, kept), limitOf(limit));
      },
      context, destroy, query);
}

}  // namespace

clientcomm_status clientcomm_start_async(clientcomm_started started, void* context,
                                         clientcomm_destroy destroy) {
  return atBorder([=] {
    const Kept kept = std::make_shared<Context>(context, destroy);
    clientcomm::startHostAsync([=](OSErr status) {
      if (started != nullptr) started(kept->data(), static_cast<clientcomm_status>(status));
    });
    kept->takeOver();
  });
}

clientcomm_status clientcomm_ask_client_id_async(int64_t limit, clientcomm_text_answer answer,
                                                 void* context, clientcomm_destroy destroy,
                                                 clientcomm_query** query) {
  return begin(&Host::clientIDFormHelperAsync, limit, answer, context, destroy, query);
}

clientcomm_status clientcomm_collect_status_async(int64_t limit, clientcomm_flag_answer answer,
                                                  void* context, clientcomm_destroy destroy,
                                                  clientcomm_query** query) {
  return begin(&Host::productCollectStatusAsync, limit, answer, context, destroy, query);
}

clientcomm_status clientcomm_register_suite_async(int64_t limit, clientcomm_suite_answer answer,
                                                  void* context, clientcomm_destroy destroy,
                                                  clientcomm_query** query) {
  return begin(&Host::regSuiteInfoAsync, limit, answer, context, destroy, query);
}

clientcomm_status clientcomm_unregister_suite_async(int64_t limit, clientcomm_suite_answer answer,
                                                    void* context, clientcomm_destroy destroy,
                                                    clientcomm_query** query) {
  return begin(&Host::unRegSuiteInfoAsync, limit, answer, context, destroy, query);
}

clientcomm_status clientcomm_network_error_page_async(int64_t limit, clientcomm_text_answer answer,
                                                      void* context, clientcomm_destroy destroy,
                                                      clientcomm_query** query) {
  return begin(&Host::netErrorPagePathAsync, limit, answer, context, destroy, query);
}

clientcomm_status clientcomm_ask_async(clientcomm_text application, clientcomm_text class_name,
                                       clientcomm_text selector, const clientcomm_text* arguments,
                                       size_t count, int64_t limit, clientcomm_text_answer answer,
                                       void* context, clientcomm_destroy destroy,
                                       clientcomm_query** query) {
  return begin(
      [&](const Kept& kept) {
        const clientcomm::CallDescription call =
            clientcomm::describeCall(application, class_name, selector, arguments, count);
        return TQHPAppleEventSender::share().sendEvnetAsync(
            call.application, call.className, call.selector, call.arguments,
            callbackFor<std::string>(answer, kept), limitOf(limit));
      },
      context, destroy, query);
}

clientcomm_status clientcomm_query_release(clientcomm_query* query) {
  return atBorder([=] {
    if (query != nullptr) clientcomm::Handles::release(query, HeldQuery::kKind);
  });
}
