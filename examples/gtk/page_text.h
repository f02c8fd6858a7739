#pragma once

#include <string>

namespace sample {

/// The text of an HTML page.
struct PageText {
  std::string title;
  std::string body;
};

/// Reads the page at `path`: its title, and its body without tags, a paragraph for each block. For
/// a page that cannot be read, a text that says so.
PageText readPage(const std::string& path);

}  // namespace sample
