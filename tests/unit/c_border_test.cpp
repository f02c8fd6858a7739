// What all functions of the C interface have in common: threads, handles, texts, exceptions.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "ClientComm/c/border.h"
#include "ClientComm/clientcomm.h"
#include "tests/support/recording_transport.h"

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr clientcomm_text kNil = {nullptr, 0};

std::string_view viewOf(clientcomm_text text) { return {text.bytes, text.length}; }

class CBorder : public testing::Test {
 protected:
  static clientcomm_string* newString(const std::string& pid = "P300") {
    EXPECT_EQ(clientcomm_set_collect_pid(clientcomm_text_of(pid.c_str())), CLIENTCOMM_OK);
    clientcomm_string* string = nullptr;
    EXPECT_EQ(clientcomm_collect_pid(&string), CLIENTCOMM_OK);
    return string;
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

class StartedCBorder : public CBorder {
 protected:
  StartedCBorder() {
    EXPECT_EQ(clientcomm_start(), CLIENTCOMM_OK);
    recorder_.forget();
  }
};

// Every function but those that say so themselves, with arguments that it takes.
std::map<std::string, std::function<clientcomm_status()>> hostFunctions() {
  static const clientcomm_text text = CLIENTCOMM_TEXT("/text");
  static bool flag = false;
  static clientcomm_string* string = nullptr;
  static clientcomm_suite_info info{};
  static clientcomm_upgrade_delegate* delegate = nullptr;
  return {
      {"restart_helper", clientcomm_restart_helper},
      {"start_helper", clientcomm_start_helper},
      {"stop_helper", clientcomm_stop_helper},
      {"is_helper_alive", clientcomm_is_helper_alive},
      {"show_helper", clientcomm_show_helper},
      {"hide_helper", clientcomm_hide_helper},
      {"is_helper_server_open", [] { return clientcomm_is_helper_server_open(&flag); }},
      {"extract_helper", clientcomm_extract_helper},
      {"launch_helper", clientcomm_launch_helper},
      {"ask_client_id", [] { return clientcomm_ask_client_id(&string); }},
      {"client_id", [] { return clientcomm_client_id(&string); }},
      {"first_start_pid", [] { return clientcomm_first_start_pid(&string); }},
      {"upload_log", [] { return clientcomm_upload_log(text, text, text, text); }},
      {"upload_user_file", [] { return clientcomm_upload_user_file(text, text, text, text); }},
      {"upload_product_file",
       [] { return clientcomm_upload_product_file(text, text, text, text); }},
      {"check_for_messages", clientcomm_check_for_messages},
      {"customer_service", [] { return clientcomm_customer_service(text, text); }},
      {"count_use", [] { return clientcomm_count_use(text, text); }},
      {"count_use_of_new", [] { return clientcomm_count_use_of_new(text, text); }},
      {"collect_string", [] { return clientcomm_collect_string(text, text); }},
      {"upload_usage", clientcomm_upload_usage},
      {"set_collect_status", [] { return clientcomm_set_collect_status(true); }},
      {"collect_status", [] { return clientcomm_collect_status(&flag); }},
      {"set_collect_pid", [] { return clientcomm_set_collect_pid(text); }},
      {"collect_pid", [] { return clientcomm_collect_pid(&string); }},
      {"set_collect_folder", [] { return clientcomm_set_collect_folder(text); }},
      {"register_suite", [] { return clientcomm_register_suite(&info); }},
      {"unregister_suite", [] { return clientcomm_unregister_suite(&info); }},
      {"network_error_page", [] { return clientcomm_network_error_page(&string); }},
      {"set_tips_enabled", [] { return clientcomm_set_tips_enabled(true); }},
      {"set_ad_enabled", [] { return clientcomm_set_ad_enabled(true); }},
      {"upgrade_product", clientcomm_upgrade_product},
      {"ready_to_upgrade", [] { return clientcomm_ready_to_upgrade(true); }},
      {"set_upgrade_delegate",
       [] {
         return clientcomm_set_upgrade_delegate([](void*, const clientcomm_error*) {}, nullptr,
                                                nullptr, &delegate);
       }},
  };
}

void ignoreProcess(void* /*context*/, const clientcomm_process* /*process*/) {}

std::map<std::string, std::function<clientcomm_status()>> otherFunctions() {
  static const clientcomm_text text = CLIENTCOMM_TEXT("text");
  static bool flag = false;
  static int descriptor = 0;
  static clientcomm_string* string = nullptr;
  return {
      {"start", clientcomm_start},
      {"open_event_loop", [] { return clientcomm_open_event_loop(&descriptor); }},
      {"run_event_loop", clientcomm_run_event_loop},
      {"send", [] { return clientcomm_send(text, text, text, nullptr, 0); }},
      {"ask", [] { return clientcomm_ask(text, text, text, nullptr, 0, &string); }},
      {"application_is_running",
       [] { return clientcomm_application_is_running(text, text, &flag); }},
      {"process_info", [] { return clientcomm_process_info(1, text, &string); }},
      {"each_process", [] { return clientcomm_each_process(ignoreProcess, nullptr); }},
      {"register_class",
       [] { return clientcomm_register_class(text, nullptr, 0, nullptr, nullptr, nullptr); }},
      {"class_release", [] { return clientcomm_class_release(nullptr); }},
      {"open_to_calls", clientcomm_open_to_calls},
      {"close_to_calls", clientcomm_close_to_calls},
      {"set_server_open", [] { return clientcomm_set_server_open(true); }},
      {"call_answer", [] { return clientcomm_call_answer(nullptr, text); }},
      {"string_release", [] { return clientcomm_string_release(nullptr); }},
      {"upgrade_delegate_release", [] { return clientcomm_upgrade_delegate_release(nullptr); }},
  };
}

// --- Start ---

TEST_F(CBorder, RefusesEachServiceBeforeTheStart) {
  for (const auto& [name, function] : hostFunctions()) {
    EXPECT_EQ(function(), CLIENTCOMM_NOT_STARTED) << name;
  }
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_FALSE(recorder_.isReceiving());
}

TEST_F(StartedCBorder, StartsOnce) {
  EXPECT_EQ(clientcomm_start(), CLIENTCOMM_OK);
  EXPECT_TRUE(recorder_.calls().empty());
}

// --- Threads ---

TEST_F(StartedCBorder, RefusesEachFunctionOnAnotherThread) {
  clientcomm_string* const string = newString();
  std::thread([&] {
    for (const auto& functions : {hostFunctions(), otherFunctions()}) {
      for (const auto& [name, function] : functions) {
        EXPECT_EQ(function(), CLIENTCOMM_WRONG_THREAD) << name;
      }
    }
    EXPECT_EQ(clientcomm_string_text(string).bytes, nullptr);
    EXPECT_EQ(clientcomm_string_release(string), CLIENTCOMM_WRONG_THREAD);
    EXPECT_EQ(clientcomm_call_count(nullptr), 0U);
    EXPECT_STREQ(clientcomm_status_text(CLIENTCOMM_WRONG_THREAD),
                 "The library belongs to another thread.");
  }).join();
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_EQ(viewOf(clientcomm_string_text(string)), "P300");
  EXPECT_EQ(clientcomm_string_release(string), CLIENTCOMM_OK);
}

// --- Texts ---

TEST_F(StartedCBorder, CarriesEveryByteAndNilAsEmpty) {
  const std::string odd("a\0b\xff\xfe", 5);
  EXPECT_EQ(clientcomm_collect_string({odd.data(), odd.size()}, kNil), CLIENTCOMM_OK);
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3", "5", odd, "", ""}));
}

TEST_F(StartedCBorder, RefusesLengthsThatCannotBeCarriedBeforeAByteIsRead) {
  const auto* const nowhere = reinterpret_cast<const char*>(1);
  const clientcomm_text text = CLIENTCOMM_TEXT("text");
  for (const std::size_t length : {std::size_t{CLIENTCOMM_MAXIMUM_LENGTH} + 1, SIZE_MAX}) {
    EXPECT_EQ(clientcomm_collect_string(text, {nowhere, length}), CLIENTCOMM_TOO_LARGE);
    EXPECT_EQ(clientcomm_set_collect_pid({nowhere, length}), CLIENTCOMM_TOO_LARGE);
  }
  const auto* const texts = reinterpret_cast<const clientcomm_text*>(8);
  EXPECT_EQ(clientcomm_send(text, text, text, texts, 262145), CLIENTCOMM_TOO_LARGE);
  EXPECT_EQ(clientcomm_send(text, text, text, texts, SIZE_MAX), CLIENTCOMM_TOO_LARGE);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(StartedCBorder, RefusesALengthWithoutBytesAndNilWhereATextMustBe) {
  const clientcomm_text text = CLIENTCOMM_TEXT("text");
  EXPECT_EQ(clientcomm_collect_string({nullptr, 1}, text), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_set_collect_pid(kNil), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_set_collect_pid(clientcomm_text_of("")), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_set_collect_folder(kNil), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_set_collect_folder(clientcomm_text_of("relative")), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_send(kNil, text, text, nullptr, 0), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_send(text, kNil, text, nullptr, 0), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_send(text, text, kNil, nullptr, 0), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_send(text, text, text, nullptr, 1), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(StartedCBorder, RefusesNullForAResultBeforeItAsks) {
  EXPECT_EQ(clientcomm_ask_client_id(nullptr), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_collect_status(nullptr), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_is_helper_server_open(nullptr), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_register_suite(nullptr), CLIENTCOMM_BAD_ARGUMENT);
  const clientcomm_text text = CLIENTCOMM_TEXT("text");
  EXPECT_EQ(clientcomm_ask(text, text, text, nullptr, 0, nullptr), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_open_event_loop(nullptr), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_run_event_loop(), CLIENTCOMM_LOOP_NOT_OPEN);
  EXPECT_EQ(clientcomm_each_process(nullptr, nullptr), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(CBorder, TextOfNullIsNil) {
  EXPECT_EQ(clientcomm_text_of(nullptr).bytes, nullptr);
  EXPECT_EQ(viewOf(clientcomm_text_of("text")), "text");
}

// --- Handles ---

TEST_F(StartedCBorder, TellsEachUseOfAReleasedHandle) {
  clientcomm_string* const released = newString();
  EXPECT_EQ(clientcomm_string_release(released), CLIENTCOMM_OK);
  clientcomm_string* const other = newString("P400");
  EXPECT_EQ(clientcomm_string_release(released), CLIENTCOMM_STALE_HANDLE);
  EXPECT_EQ(clientcomm_string_text(released).bytes, nullptr);
  EXPECT_EQ(viewOf(clientcomm_string_text(other)), "P400");
  EXPECT_EQ(clientcomm_string_release(other), CLIENTCOMM_OK);
}

TEST_F(StartedCBorder, TellsAHandleOfAnotherKindAndAnAddressThatIsNone) {
  clientcomm_string* const string = newString();
  EXPECT_EQ(clientcomm_class_release(reinterpret_cast<clientcomm_class*>(string)),
            CLIENTCOMM_STALE_HANDLE);
  int local = 0;
  EXPECT_EQ(clientcomm_string_release(reinterpret_cast<clientcomm_string*>(&local)),
            CLIENTCOMM_STALE_HANDLE);
  EXPECT_EQ(viewOf(clientcomm_string_text(string)), "P300");
}

TEST_F(StartedCBorder, TakesNullForAHandle) {
  EXPECT_EQ(clientcomm_string_release(nullptr), CLIENTCOMM_OK);
  EXPECT_EQ(clientcomm_string_text(nullptr).bytes, nullptr);
  EXPECT_EQ(clientcomm_call_count(nullptr), 0U);
  EXPECT_EQ(clientcomm_call_argument(nullptr, 0).bytes, nullptr);
}

TEST_F(StartedCBorder, EndsAStringWithANul) {
  clientcomm_string* const string = newString();
  EXPECT_STREQ(clientcomm_string_text(string).bytes, "P300");
}

// --- Exceptions and statuses ---

TEST_F(CBorder, LetsNoExceptionOut) {
  EXPECT_EQ(clientcomm::atBorder([] { throw std::runtime_error("any"); }),
            CLIENTCOMM_OUT_OF_RESOURCES);
}

TEST_F(CBorder, HasASentenceForEachStatusAndForAnyOtherNumber) {
  std::map<std::string, int> sentences;
  const int statuses[] = {0, 1, 10, -50, -108, -600, -609, -1708, -1712, -1743};
  for (const int status : statuses) {
    ++sentences[clientcomm_status_text(static_cast<clientcomm_status>(status))];
  }
  for (int status = CLIENTCOMM_NO_VALUE; status <= CLIENTCOMM_NOT_WRITTEN; ++status) {
    ++sentences[clientcomm_status_text(static_cast<clientcomm_status>(status))];
  }
  ++sentences[clientcomm_status_text(static_cast<clientcomm_status>(-42))];
  EXPECT_EQ(sentences.size(), std::size(statuses) + 10U);
}

}  // namespace
