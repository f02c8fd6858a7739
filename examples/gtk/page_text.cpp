#include "examples/gtk/page_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

namespace sample {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kEntities{
    {{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&amp;", "&"}}};

bool isBlank(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

/// What the first element `name` holds; empty without one.
std::string contentOf(const std::string& page, const std::string& name) {
  const auto tag = page.find('<' + name);
  const auto begin = tag == std::string::npos ? tag : page.find('>', tag);
  if (begin == std::string::npos) return "";
  const auto end = page.find("</" + name, begin);
  return page.substr(begin + 1, end == std::string::npos ? end : end - begin - 1);
}

// What stands in the place of a tag.
std::string_view textFor(std::string_view tag) {
  if (tag.starts_with("li")) return "\n• ";
  const bool isBlock = tag.starts_with("p") || tag.starts_with("h") || tag.starts_with("br");
  return isBlock ? "\n" : "";
}

void decodeEntities(std::string& text) {
  for (const auto& [entity, character] : kEntities) {
    for (auto at = text.find(entity); at != std::string::npos;
         at = text.find(entity, at + character.size())) {
      text.replace(at, entity.size(), character);
    }
  }
}

std::string withoutTags(std::string_view html) {
  std::string text;
  while (!html.empty()) {
    if (html.front() == '<') {
      const auto end = std::min(html.find('>'), html.size() - 1);
      text += textFor(html.substr(1, end));
      html.remove_prefix(end + 1);
      continue;
    }
    if (!isBlank(html.front())) {
      text += html.front();
    } else if (!text.empty() && !isBlank(text.back())) {
      text += ' ';
    }
    html.remove_prefix(1);
  }
  decodeEntities(text);
  const auto begin = std::find_if_not(text.begin(), text.end(), isBlank);
  return {begin, text.end()};
}

}  // namespace

PageText readPage(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  const std::string page = bytes.str();
  PageText text{withoutTags(contentOf(page, "title")), withoutTags(contentOf(page, "body"))};
  if (text.title.empty()) text.title = "Page";
  if (text.body.empty()) text.body = "The page " + path + " cannot be read.";
  return text;
}

}  // namespace sample
