#include "ClientComm/platform/portable/property_list/xml_reader.h"

#include <expat.h>

#include <exception>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "ClientComm/platform/character_encoding.h"
#include "ClientComm/platform/portable/property_list/xml_builder.h"
#include "ClientComm/platform/portable/property_list/xml_text.h"

namespace clientcomm {
namespace {

struct FreeParser {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ScopedParser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

/// One run of expat over a document. No exception passes through expat, which is C: the handlers
/// keep it for the caller of `read`.
class XmlReader {
 public:
  explicit XmlReader(XmlEncoding encoding)
      : parser_(XML_ParserCreate(encoding == XmlEncoding::kUtf8 ? "UTF-8" : nullptr)) {
    if (!parser_) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), &beginElement, &endElement);
    XML_SetCharacterDataHandler(parser_.get(), &addText);
    XML_SetProcessingInstructionHandler(parser_.get(), &takeNote);
    XML_SetEntityDeclHandler(parser_.get(), &refuseEntityDeclaration);
    XML_SetSkippedEntityHandler(parser_.get(), &refuseUnknownEntity);
    XML_SetUnknownEncodingHandler(parser_.get(), &keepEncoding, this);
  }

  std::optional<PropertyListValue> read(std::string_view bytes) {
    const auto status =
        XML_Parse(parser_.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
    if (failure_) std::rethrow_exception(failure_);
    if (status != XML_STATUS_OK || isRefused_) return std::nullopt;
    return builder_.takeList();
  }

  /// The declared encoding, where expat does not know it.
  const std::string& unknownEncoding() const { return unknownEncoding_; }

 private:
  // Runs `step`, which returns whether to go on, and stops the parser otherwise.
  template <typename Step>
  static void handle(void* data, Step step) noexcept {
    auto& reader = *static_cast<XmlReader*>(data);
    // A parser that was stopped may still report the end of an empty element.
    if (reader.isRefused_) return;
    try {
      reader.isRefused_ = !step(reader);
    } catch (...) {
      reader.failure_ = std::current_exception();
      reader.isRefused_ = true;
    }
    if (reader.isRefused_) XML_StopParser(reader.parser_.get(), XML_FALSE);
  }

  static void beginElement(void* data, const XML_Char* name, const XML_Char** /*attributes*/) {
    handle(data, [name](XmlReader& reader) {
      const std::string note = std::exchange(reader.note_, {});
      return reader.builder_.beginElement(name, note);
    });
  }
  static void endElement(void* data, const XML_Char* /*name*/) {
    handle(data, [](XmlReader& reader) { return reader.builder_.endElement(); });
  }
  static void addText(void* data, const XML_Char* text, int length) {
    handle(data, [text, length](XmlReader& reader) {
      return reader.builder_.addText({text, static_cast<std::size_t>(length)});
    });
  }
  static void takeNote(void* data, const XML_Char* target, const XML_Char* text) {
    handle(data, [target, text](XmlReader& reader) {
      if (target == kXmlNoteTarget) reader.note_ = text;
      return true;
    });
  }
  static void refuseEntityDeclaration(void* data, const XML_Char* /*name*/, int /*isParameter*/,
                                      const XML_Char* /*value*/, int /*length*/,
                                      const XML_Char* /*base*/, const XML_Char* /*system*/,
                                      const XML_Char* /*public*/, const XML_Char* /*notation*/) {
    handle(data, [](XmlReader& /*reader*/) { return false; });
  }
  // With a DOCTYPE an entity that is not declared is no error of XML: it may be in the file that
  // the DOCTYPE names.
  static void refuseUnknownEntity(void* data, const XML_Char* /*name*/, int /*isParameter*/) {
    handle(data, [](XmlReader& /*reader*/) { return false; });
  }
  static int keepEncoding(void* data, const XML_Char* name, XML_Encoding* /*encoding*/) {
    handle(data, [name](XmlReader& reader) {
      reader.unknownEncoding_ = name;
      return true;
    });
    return XML_STATUS_ERROR;
  }

  ScopedParser parser_;
  XmlListBuilder builder_;
  std::string note_;  // for the next element
  std::string unknownEncoding_;
  bool isRefused_ = false;
  std::exception_ptr failure_;
};

}  // namespace

std::optional<PropertyListValue> propertyListFromXml(std::string_view bytes, XmlEncoding encoding) {
  XmlReader reader(encoding);
  auto list = reader.read(bytes);
  if (list || reader.unknownEncoding().empty()) return list;
  const auto text = utf8FromEncoding(bytes, reader.unknownEncoding());
  return text ? XmlReader(XmlEncoding::kUtf8).read(*text) : std::nullopt;
}

}  // namespace clientcomm
