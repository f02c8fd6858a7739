#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/platform/recycled_table.h"
#include "ClientComm/platform/types.h"

/// Apple events as values: typed descriptors, lists, and the event record.
namespace clientcomm {

using FourCharCode = std::uint32_t;
using DescType = FourCharCode;
using AEKeyword = FourCharCode;
using AEEventClass = FourCharCode;
using AEEventID = FourCharCode;
using AEReturnID = std::int16_t;
using AETransactionID = std::int32_t;
using AESendMode = std::int32_t;

/// The code written as four characters, as in fourCharCode("aevt").
consteval FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (int i = 0; i < 4; ++i) code = (code << 8) | static_cast<unsigned char>(text[i]);
  return code;
}

inline constexpr DescType typeNull = fourCharCode("null");
inline constexpr DescType typeUnicodeText = fourCharCode("utxt");
inline constexpr DescType typeUTF8Text = fourCharCode("utf8");
inline constexpr DescType typeChar = fourCharCode("TEXT");
inline constexpr DescType typeSInt32 = fourCharCode("long");
inline constexpr DescType typeBoolean = fourCharCode("bool");
inline constexpr DescType typeAEList = fourCharCode("list");
inline constexpr DescType typeAppleEvent = fourCharCode("aevt");
inline constexpr DescType typeApplicationBundleID = fourCharCode("bund");
inline constexpr DescType typeProcessSerialNumber = fourCharCode("psn ");

inline constexpr AEKeyword keyDirectObject = fourCharCode("----");
inline constexpr AEKeyword keyAddressAttr = fourCharCode("addr");

inline constexpr AEReturnID kAutoGenerateReturnID = -1;
inline constexpr AETransactionID kAnyTransactionID = 0;

/// Texts of a list, some of which may be nil.
using TextTable = std::vector<OptionalString, RecyclingAllocator<OptionalString>>;

inline constexpr AESendMode kAENoReply = 1;    ///< Hand over and return.
inline constexpr AESendMode kAEWaitReply = 3;  ///< Block until the answer is there.

inline constexpr std::int32_t kAEDefaultTimeout = -1;  ///< The carrier's own limit.
inline constexpr std::int32_t kNoTimeOut = -2;         ///< Wait without limit.
inline constexpr std::int32_t kTicksPerSecond = 60;    ///< Unit of any other time-out.

/// A descriptor: a type code with bytes, a list of descriptors, or an event record with parameters
/// and attributes by keyword. A value: a copy is independent of its original.
class AppleEventDescriptor {
 public:
  /// The null descriptor: type 'null', no data.
  AppleEventDescriptor() noexcept;
  AppleEventDescriptor(DescType type, std::string data) noexcept;
  AppleEventDescriptor(const AppleEventDescriptor& other);
  AppleEventDescriptor(AppleEventDescriptor&& other) noexcept;
  AppleEventDescriptor& operator=(const AppleEventDescriptor& other);
  AppleEventDescriptor& operator=(AppleEventDescriptor&& other) noexcept;
  ~AppleEventDescriptor();

  /// A Unicode text descriptor of `text`, whose bytes are held as they stand.
  static AppleEventDescriptor descriptorWithString(std::string text);
  static AppleEventDescriptor listDescriptor();
  static AppleEventDescriptor appleEvent(AEEventClass eventClass, AEEventID eventID,
                                         AppleEventDescriptor target, AEReturnID returnID,
                                         AETransactionID transactionID);

  /// Makes this a descriptor of `type`, neither a list nor an event, that holds a copy of `data`.
  void assign(DescType type, std::string_view data);

  DescType descriptorType() const noexcept { return type_; }
  /// The bytes of a simple descriptor; empty for null, a list or an event.
  const std::string& data() const noexcept { return data_; }

  /// The text of the descriptor, coerced where its type is another; nil where there is no such
  /// coercion (null, a list of none or several items, an event, raw bytes).
  OptionalString stringValue() const&;
  /// The same; takes the text out of the descriptor where no coercion is needed.
  OptionalString stringValue() &&;

  /// The descriptor as one of `type`; nothing where there is no such coercion.
  std::optional<AppleEventDescriptor> coerceToDescriptorType(DescType type) const;

  /// Number of items of a list; 0 for anything else.
  std::size_t numberOfItems() const noexcept;
  /// Item `index` (1-based) of a list; null when there is none. A list of texts makes its items
  /// when it is asked for the first, also a const one: not from two threads at once, and it throws
  /// std::bad_alloc where memory runs out.
  const AppleEventDescriptor* descriptorAtIndex(std::size_t index) const;
  AppleEventDescriptor* descriptorAtIndex(std::size_t index);
  /// Puts `item` at `index` (1-based): replaces the item there; an index beyond the last, or 0,
  /// appends. Makes a null descriptor a list; does nothing to any other type.
  void insertDescriptor(AppleEventDescriptor item, std::size_t index);
  /// Adds a null descriptor to the end of a list, to be filled in place; only for a list.
  AppleEventDescriptor& addItem();
  /// Makes room for `count` items.
  void reserveItems(std::size_t count) { items_.reserve(count); }

  /// A list of texts, none of them nil, each of type 'utxt'. Takes less memory and time than one
  /// descriptor for each, which are made when an item is asked for.
  static AppleEventDescriptor listOfTexts(TextTable texts);
  /// The `stringValue` of each item of a list, taken out of it; empty for anything else.
  TextTable takeTexts();

  // The event record. All are 0 or empty for a descriptor that is no event.
  AEEventClass eventClass() const noexcept;
  AEEventID eventID() const noexcept;
  AEReturnID returnID() const noexcept;
  AETransactionID transactionID() const noexcept;
  /// The address of the target; the null descriptor when the event has none.
  const AppleEventDescriptor& target() const noexcept;

  const AppleEventDescriptor* paramDescriptorForKeyword(AEKeyword keyword) const noexcept;
  AppleEventDescriptor* paramDescriptorForKeyword(AEKeyword keyword) noexcept;
  const AppleEventDescriptor* attributeDescriptorForKeyword(AEKeyword keyword) const noexcept;
  /// Set a parameter or an attribute, replacing one of the same keyword. Do nothing to a
  /// descriptor that is no event.
  void setParamDescriptor(AppleEventDescriptor value, AEKeyword keyword);
  void setAttributeDescriptor(AppleEventDescriptor value, AEKeyword keyword);

  using KeyedDescriptors = std::vector<std::pair<AEKeyword, AppleEventDescriptor>>;
  /// All parameters, all attributes, in the order set; empty for a descriptor that is no event.
  const KeyedDescriptors& parameters() const noexcept;
  const KeyedDescriptors& attributes() const noexcept;

 private:
  struct Record;

  // A descriptor that was moved from has no record.
  bool isEvent() const noexcept { return type_ == typeAppleEvent && record_ != nullptr; }
  static std::unique_ptr<Record> copyOf(const Record* record);
  void makeItems() const;

  DescType type_;
  std::string data_;
  mutable std::vector<AppleEventDescriptor> items_;
  /// Of an event; also of a list of texts, until one of its `items_` is asked for.
  mutable std::unique_ptr<Record> record_;
};

}  // namespace clientcomm
