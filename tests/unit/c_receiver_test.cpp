// The receiving half of the C interface.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ClientComm/clientcomm.h"
#include "tests/support/helper_files.h"
#include "tests/support/recording_transport.h"

namespace {

using clientcomm::OptionalString;
using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kOwnIdentifier[] = "com.example.testhost";

std::string valueOf(clientcomm_text text) {
  return text.bytes == nullptr ? "(nil)" : std::string(text.bytes, text.length);
}

/// What a program keeps for its class.
struct Receiver {
  Strings received;
  int destroyed = 0;
  clientcomm_class* registered = nullptr;
  std::function<void(clientcomm_call*)> whenCalled;
};

// Notes the call as "selector(arguments) caller" and answers with the number of arguments.
void receive(void* context, clientcomm_call* call) {
  auto& receiver = *static_cast<Receiver*>(context);
  std::string text = valueOf(clientcomm_call_selector(call)) + "(";
  for (std::size_t i = 0; i < clientcomm_call_count(call); ++i) {
    text += (i == 0 ? "" : ",") + valueOf(clientcomm_call_argument(call, i));
  }
  receiver.received.push_back(text + ") " + valueOf(clientcomm_call_caller(call)));
  const std::string count = std::to_string(clientcomm_call_count(call));
  EXPECT_EQ(clientcomm_call_answer(call, {count.data(), count.size()}), CLIENTCOMM_OK);
  if (receiver.whenCalled) receiver.whenCalled(call);
}

void keepQuiet(void* /*context*/, clientcomm_call* /*call*/) {}

void destroy(void* context) { ++static_cast<Receiver*>(context)->destroyed; }

const clientcomm_method kMethods[] = {{CLIENTCOMM_TEXT("nothing"), receive},
                                      {CLIENTCOMM_TEXT("two::"), receive},
                                      {CLIENTCOMM_TEXT("quiet:"), keepQuiet}};

class CReceiver : public testing::Test {
 protected:
  CReceiver() {
    registerAs("Recorder", receiver_);
    EXPECT_FALSE(recorder_.isReceiving());
    EXPECT_EQ(clientcomm_open_to_calls(), CLIENTCOMM_OK);
  }
  // The library must not have the address of a receiver that is gone.
  ~CReceiver() override { clientcomm_class_release(receiver_.registered); }

  static void registerAs(const char* name, Receiver& receiver) {
    EXPECT_EQ(clientcomm_register_class(clientcomm_text_of(name), kMethods, std::size(kMethods),
                                        &receiver, destroy, &receiver.registered),
              CLIENTCOMM_OK);
  }

  OptionalString call(const std::string& selector, const Strings& arguments = {}) {
    return recorder_.call("Recorder", selector, arguments).text;
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  Receiver receiver_;
};

TEST_F(CReceiver, CarriesOutCallsWithArgumentsCallerAndAnswer) {
  EXPECT_EQ(call("two::", {std::string("a\0\xff", 3), "b"}), "2");
  EXPECT_EQ(call("nothing"), "0");
  EXPECT_EQ(call("quiet:", {"a"}), std::nullopt);
  EXPECT_EQ(receiver_.received, (Strings{std::string("two::(a\0\xff,b) ", 13) + kOwnIdentifier,
                                         std::string("nothing() ") + kOwnIdentifier}));
}

TEST_F(CReceiver, ReadsArgumentsThatTheCallerLeftOutAsNil) {
  EXPECT_EQ(call("two::", {"a"}), "2");
  EXPECT_EQ(receiver_.received, Strings{std::string("two::(a,(nil)) ") + kOwnIdentifier});
}

TEST_F(CReceiver, DropsCallsWithMoreArgumentsOrAnotherSelectorOrAnotherClass) {
  EXPECT_EQ(call("two::", {"a", "b", "c"}), std::nullopt);
  EXPECT_EQ(call("three:::", {"a"}), std::nullopt);
  EXPECT_EQ(recorder_.call("Stranger", "nothing").text, std::nullopt);
  EXPECT_TRUE(receiver_.received.empty());
}

TEST_F(CReceiver, DropsCallsOfACallerWithoutIdentity) {
  constexpr pid_t kNoApplication = 1;
  recorder_.call("Recorder", "nothing", {}, kNoApplication);
  EXPECT_TRUE(receiver_.received.empty());
}

TEST_F(CReceiver, KnowsNoArgumentBeyondTheLast) {
  receiver_.whenCalled = [](clientcomm_call* call) {
    EXPECT_EQ(clientcomm_call_argument(call, 2).bytes, nullptr);
    EXPECT_EQ(clientcomm_call_argument(call, SIZE_MAX).bytes, nullptr);
  };
  EXPECT_EQ(call("two::", {"a", "b"}), "2");
}

TEST_F(CReceiver, TakesTheLastAnswerAndRefusesOneThatCannotBeCarried) {
  receiver_.whenCalled = [](clientcomm_call* call) {
    EXPECT_EQ(clientcomm_call_answer(call, clientcomm_text_of("last")), CLIENTCOMM_OK);
    EXPECT_EQ(clientcomm_call_answer(call, {"x", SIZE_MAX}), CLIENTCOMM_TOO_LARGE);
    EXPECT_EQ(clientcomm_call_answer(call, {nullptr, 1}), CLIENTCOMM_BAD_ARGUMENT);
  };
  EXPECT_EQ(call("nothing"), "last");
}

TEST_F(CReceiver, EndsACallWithItsMethod) {
  clientcomm_call* kept = nullptr;
  receiver_.whenCalled = [&](clientcomm_call* call) { kept = call; };
  call("two::", {"a", "b"});
  EXPECT_EQ(clientcomm_call_count(kept), 0U);
  EXPECT_EQ(clientcomm_call_argument(kept, 0).bytes, nullptr);
  EXPECT_EQ(clientcomm_call_caller(kept).bytes, nullptr);
  EXPECT_EQ(clientcomm_call_selector(kept).bytes, nullptr);
  EXPECT_EQ(clientcomm_call_answer(kept, clientcomm_text_of("late")), CLIENTCOMM_STALE_HANDLE);
}

TEST_F(CReceiver, AnswersACallThatCallsTheSameClassAgain) {
  receiver_.whenCalled = [&](clientcomm_call* outer) {
    receiver_.whenCalled = nullptr;
    EXPECT_EQ(call("nothing"), "0");
    EXPECT_EQ(valueOf(clientcomm_call_argument(outer, 1)), "b");
  };
  EXPECT_EQ(call("two::", {"a", "b"}), "2");
}

TEST_F(CReceiver, ReleasedItIsCalledNoMoreAndDestroyedOnce) {
  EXPECT_EQ(clientcomm_class_release(receiver_.registered), CLIENTCOMM_OK);
  EXPECT_EQ(receiver_.destroyed, 1);
  EXPECT_EQ(call("nothing"), std::nullopt);
  EXPECT_EQ(clientcomm_class_release(receiver_.registered), CLIENTCOMM_STALE_HANDLE);
  EXPECT_EQ(receiver_.destroyed, 1);
}

TEST_F(CReceiver, ReleasesItselfInItsMethodAndIsDestroyedAfterwards) {
  int destroyedInside = 0;
  receiver_.whenCalled = [&](clientcomm_call* call) {
    EXPECT_EQ(clientcomm_class_release(receiver_.registered), CLIENTCOMM_OK);
    destroyedInside = receiver_.destroyed;
    EXPECT_EQ(valueOf(clientcomm_call_argument(call, 0)), "a");
  };
  EXPECT_EQ(call("two::", {"a"}), "2");
  EXPECT_EQ(destroyedInside, 0);
  EXPECT_EQ(receiver_.destroyed, 1);
  EXPECT_EQ(call("nothing"), std::nullopt);
}

TEST_F(CReceiver, TakesThePlaceOfAnEarlierClassAndKeepsItWhenThatIsReleased) {
  Receiver next;
  registerAs("Recorder", next);
  EXPECT_EQ(call("nothing"), "0");
  EXPECT_EQ(clientcomm_class_release(receiver_.registered), CLIENTCOMM_OK);
  EXPECT_EQ(call("nothing"), "0");
  EXPECT_EQ(next.received.size(), 2U);
  EXPECT_TRUE(receiver_.received.empty());
  EXPECT_EQ(clientcomm_class_release(next.registered), CLIENTCOMM_OK);
}

TEST_F(CReceiver, GivesNilForAnExceptionOfAMethodAndGoesOn) {
  receiver_.whenCalled = [](clientcomm_call*) { throw std::runtime_error("any"); };
  EXPECT_EQ(call("nothing"), std::nullopt);
  receiver_.whenCalled = nullptr;
  EXPECT_EQ(call("nothing"), "0");
}

TEST_F(CReceiver, RefusesMalformedClasses) {
  const clientcomm_text name = CLIENTCOMM_TEXT("Other");
  const auto status = [&](std::vector<clientcomm_method> methods) {
    return clientcomm_register_class(name, methods.data(), methods.size(), nullptr, nullptr,
                                     nullptr);
  };
  EXPECT_EQ(status({{CLIENTCOMM_TEXT("a"), nullptr}}), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(status({{{nullptr, 0}, receive}}), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(status({{CLIENTCOMM_TEXT(""), receive}}), CLIENTCOMM_BAD_ARGUMENT);
  Receiver other;
  const auto plain = [&](clientcomm_text className, std::size_t count) {
    return clientcomm_register_class(className, nullptr, count, &other, destroy, nullptr);
  };
  EXPECT_EQ(plain({nullptr, 0}, 0), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(plain(clientcomm_text_of(""), 0), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(plain(name, 1), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_register_class(name, kMethods, SIZE_MAX, &other, destroy, nullptr),
            CLIENTCOMM_TOO_LARGE);
  EXPECT_EQ(other.destroyed, 0);
}

TEST_F(CReceiver, ClosesAndOpensAgain) {
  EXPECT_EQ(clientcomm_close_to_calls(), CLIENTCOMM_OK);
  EXPECT_FALSE(recorder_.isReceiving());
  EXPECT_EQ(clientcomm_open_to_calls(), CLIENTCOMM_OK);
  EXPECT_EQ(call("nothing"), "0");
}

TEST_F(CReceiver, WritesWhetherTheServerIsOpen) {
  for (const bool isOpen : {false, true}) {
    EXPECT_EQ(clientcomm_set_server_open(isOpen), CLIENTCOMM_OK);
    EXPECT_EQ(support::hostDefaults().at("TQHPServerClosed").boolValue(), !isOpen);
  }
}

TEST(CReceiverOfAHost, IsCallableAfterTheStart) {
  RecordingTransport& recorder = RecordingTransport::install();
  Receiver receiver;
  EXPECT_EQ(clientcomm_register_class(clientcomm_text_of("Recorder"), kMethods, std::size(kMethods),
                                      &receiver, nullptr, nullptr),
            CLIENTCOMM_OK);
  EXPECT_EQ(clientcomm_start(), CLIENTCOMM_OK);
  EXPECT_EQ(recorder.call("Recorder", "nothing").text, "0");
}

}  // namespace
