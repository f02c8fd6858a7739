#include "ClientComm/platform/runtime.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/platform/object_observer.h"

namespace {

using clientcomm::OptionalString;

/// Callable by name; notes what it was called with.
class Speaker : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls = new clientcomm::Class(
        "Speaker", clientcomm::makeShared<Speaker>,
        {method<&Speaker::silence>("silence"), method<&Speaker::join>("join:with:and:"),
         method<&Speaker::status>("status:"), method<&Speaker::flag>("flag"),
         method<&Speaker::plainText>("plainText"), method<&Speaker::nothing>("nothing"),
         method<&Speaker::byValue>("byValue:"), method<&Speaker::fail>("fail"),
         method<&Speaker::oneForAll>("oneForAll:"), method<&Speaker::plain>("plain:"),
         method<&Speaker::view>("view:"), method<&Speaker::list>("list:"),
         method<&Speaker::reference>("reference")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void silence() { ++invocations; }
  OptionalString join(const OptionalString& a, const OptionalString& b, const OptionalString& c) {
    ++invocations;
    return a.value_or("nil") + "," + b.value_or("nil") + "," + c.value_or("nil");
  }
  clientcomm::OSErr status(const OptionalString& /*unused*/) { return -600; }
  bool flag() const { return true; }
  std::string plainText() const { return "text"; }
  OptionalString nothing() { return std::nullopt; }
  OptionalString byValue(OptionalString text) { return text; }
  static OptionalString oneForAll(const OptionalString& text) { return text; }
  std::string plain(const std::string& text) const { return "<" + text + ">"; }
  static std::string view(std::string_view text) noexcept { return "[" + std::string(text) + "]"; }
  std::vector<std::string> list(const OptionalString& text) { return {text.value_or("nil")}; }
  const OptionalString& reference() const noexcept { return kept_; }
  void fail() { throw std::runtime_error("failed"); }

  int invocations = 0;

 private:
  OptionalString kept_ = "kept";
};

OptionalString perform(Speaker& speaker, std::string_view selector,
                       const std::vector<OptionalString>& arguments = {}) {
  return speaker.performSelector(selector, arguments);
}

TEST(Runtime, AClassIsFoundByNameOnlyOnceItIsRegistered) {
  EXPECT_EQ(clientcomm::classNamed("Speaker"), nullptr);
  clientcomm::registerClass(Speaker::staticClass());
  EXPECT_EQ(clientcomm::classNamed("Speaker"), &Speaker::staticClass());
  EXPECT_EQ(clientcomm::classNamed("speaker"), nullptr);
  EXPECT_EQ(clientcomm::classNamed(""), nullptr);
}

TEST(Runtime, ALaterClassOfTheSameNameTakesThePlace) {
  const clientcomm::Class later("Speaker", clientcomm::makeShared<Speaker>, {});
  clientcomm::registerClass(Speaker::staticClass());
  clientcomm::registerClass(later);
  EXPECT_EQ(clientcomm::classNamed("Speaker"), &later);
  clientcomm::registerClass(Speaker::staticClass());
}

TEST(Runtime, AClassMakesInstancesOfItself) {
  const std::shared_ptr<clientcomm::Object> instance = Speaker::staticClass().makeInstance();
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(&instance->isa(), &Speaker::staticClass());
  EXPECT_NE(Speaker::staticClass().makeInstance(), instance);
}

TEST(Runtime, AMethodKnowsHowManyArgumentsItTakes) {
  const clientcomm::Class& cls = Speaker::staticClass();
  EXPECT_EQ(cls.methodForSelector("silence")->argumentCount, 0U);
  EXPECT_EQ(cls.methodForSelector("status:")->argumentCount, 1U);
  EXPECT_EQ(cls.methodForSelector("join:with:and:")->argumentCount, 3U);
}

TEST(Runtime, SelectorsAreMatchedLetterForLetter) {
  const clientcomm::Class& cls = Speaker::staticClass();
  EXPECT_EQ(cls.methodForSelector("join:with:and"), nullptr);
  EXPECT_EQ(cls.methodForSelector("join"), nullptr);
  EXPECT_EQ(cls.methodForSelector("Silence"), nullptr);
  EXPECT_EQ(cls.methodForSelector(""), nullptr);
}

TEST(Runtime, ArgumentsArriveInOrder) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "join:with:and:", {"1", "2", "3"}), "1,2,3");
}

TEST(Runtime, MissingArgumentsAreNil) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "join:with:and:", {"1", "2"}), "1,2,nil");
  EXPECT_EQ(perform(speaker, "join:with:and:"), "nil,nil,nil");
}

TEST(Runtime, MoreArgumentsThanTheSelectorTakesRaiseAndNothingIsInvoked) {
  Speaker speaker;
  EXPECT_THROW(perform(speaker, "join:with:and:", {"1", "2", "3", "4"}),
               clientcomm::InvalidArgumentException);
  EXPECT_THROW(perform(speaker, "silence", {"1"}), clientcomm::InvalidArgumentException);
  EXPECT_EQ(speaker.invocations, 0);
}

TEST(Runtime, AnUnknownSelectorYieldsNilAndRaisesNothing) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "shout:", {"1"}), std::nullopt);
  EXPECT_EQ(perform(speaker, "shout:", std::vector<OptionalString>(100, "x")), std::nullopt);
}

TEST(Runtime, OnlyTextComesBackAsAResult) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "plainText"), "text");
  EXPECT_EQ(perform(speaker, "nothing"), std::nullopt);
  EXPECT_EQ(perform(speaker, "silence"), std::nullopt);
  EXPECT_EQ(perform(speaker, "status:", {""}), std::nullopt) << "a status is no object";
  EXPECT_EQ(perform(speaker, "flag"), std::nullopt);
}

TEST(Runtime, NilAndEmptyArgumentsStayApart) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "byValue:", {std::nullopt}), std::nullopt);
  EXPECT_EQ(perform(speaker, "byValue:", {""}), "");
  EXPECT_EQ(perform(speaker, "byValue:", {std::string("a\0b", 3)}), std::string("a\0b", 3));
}

TEST(Runtime, AStaticFunctionOfTheClassIsAMethodToo) {
  Speaker speaker;
  EXPECT_EQ(Speaker::staticClass().methodForSelector("oneForAll:")->argumentCount, 1U);
  EXPECT_EQ(perform(speaker, "oneForAll:", {"text"}), "text");
  EXPECT_EQ(perform(speaker, "oneForAll:"), std::nullopt);
}

TEST(Runtime, NilIsEmptyWhereAParameterCannotBeNil) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "plain:", {"a"}), "<a>");
  EXPECT_EQ(perform(speaker, "plain:"), "<>");
  EXPECT_EQ(perform(speaker, "view:", {std::string("a\0b", 3)}), std::string("[a\0b]", 5));
  EXPECT_EQ(perform(speaker, "view:"), "[]");
}

TEST(Runtime, AResultThatIsNoTextIsNilAndATextIsReadThroughAReference) {
  Speaker speaker;
  EXPECT_EQ(perform(speaker, "list:", {"a"}), std::nullopt);
  EXPECT_EQ(perform(speaker, "reference"), "kept");
}

TEST(Runtime, AnObserverHearsOfEveryObjectThatIsDestroyedWhileItLives) {
  std::vector<const clientcomm::Object*> heard;
  Speaker before;
  {
    const clientcomm::ObjectObserver observer(
        [&heard](const clientcomm::Object& object) { heard.push_back(&object); });
    { const Speaker inside; }
    const auto made = Speaker::staticClass().makeInstance();
    EXPECT_EQ(heard.size(), 1U);
  }
  EXPECT_EQ(heard.size(), 2U);
  { const Speaker after; }
  EXPECT_EQ(heard.size(), 2U);
}

TEST(Runtime, WhatAMethodRaisesPassesThrough) {
  Speaker speaker;
  EXPECT_THROW(perform(speaker, "fail"), std::runtime_error);
}

TEST(Runtime, TheClassNameIsTheNameOfTheRunTimeClass) {
  EXPECT_EQ(Speaker().className(), "Speaker");
}

}  // namespace
