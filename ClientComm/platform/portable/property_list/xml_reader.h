#pragma once

#include <optional>
#include <string_view>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// Which encoding an XML document has: the one that it declares, or UTF-8 whatever it declares.
enum class XmlEncoding { kDeclared, kUtf8 };

/// Reads an XML property list, or nothing.
///
/// The list is refused whole where any of it is malformed: the XML itself, an unknown element, a
/// key without a value, a value whose text is not of its element's form, a value nested too deep. A
/// DOCTYPE is accepted, its internal subset included, and is never fetched. No entity can be
/// declared, and none is known but the five of XML.
std::optional<PropertyListValue> propertyListFromXml(std::string_view bytes, XmlEncoding encoding);

}  // namespace clientcomm
