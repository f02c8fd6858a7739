#pragma once

#include <cstddef>

#include "ClientComm/platform/property_list.h"

/// What can be said of property lists that the fuzzers read.
namespace fuzz {

struct Measure {
  std::size_t count = 0;  ///< Values in all.
  int depth = 0;          ///< Containers and the value within one another.
};
Measure measureOf(const clientcomm::PropertyListValue& value);

/// What is left of `value` when it is written as XML and read: all but what XML has no form for
/// (parts of a second, years of more than four digits); a dictionary that looks like a
/// keyed-archive reference becomes one, and a NaN, which never equals itself, becomes 0.
clientcomm::PropertyListValue asReadFromXml(const clientcomm::PropertyListValue& value);

}  // namespace fuzz
