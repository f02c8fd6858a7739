#include "ClientComm/platform/portable/localization.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <tuple>
#include <utility>

#include "ClientComm/platform/fixed_text.h"

namespace clientcomm {
namespace {

// A language as a folder or the environment names it, in lower case.
struct LanguageTag {
  std::string language;
  std::string script;
  std::string region;
};

struct Renaming {
  FixedText<19> older;
  FixedText<7> newer;
};

// Names from the time before language codes, and codes that have been replaced.
constexpr std::array kOlderNames = std::to_array<Renaming>({
    {"arabic", "ar"},
    {"chinese", "zh"},
    {"czech", "cs"},
    {"danish", "da"},
    {"dutch", "nl"},
    {"english", "en"},
    {"finnish", "fi"},
    {"french", "fr"},
    {"german", "de"},
    {"greek", "el"},
    {"hebrew", "he"},
    {"hungarian", "hu"},
    {"italian", "it"},
    {"japanese", "ja"},
    {"korean", "ko"},
    {"norwegian", "nb"},
    {"polish", "pl"},
    {"portuguese", "pt"},
    {"russian", "ru"},
    {"simplified chinese", "zh-hans"},
    {"spanish", "es"},
    {"swedish", "sv"},
    {"traditional chinese", "zh-hant"},
    {"turkish", "tr"},
    {"in", "id"},
    {"iw", "he"},
    {"ji", "yi"},
    {"no", "nb"},
});

std::string lowerCased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return result;
}

std::string_view newerName(std::string_view name) {
  const auto found = std::ranges::find_if(
      kOlderNames, [name](const Renaming& entry) { return entry.older == name; });
  return found == kOlderNames.end() ? name : std::string_view(found->newer);
}

// Cuts the part before the first separator off the front of `text`.
std::string_view takePart(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of("-_"), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

// Chinese is written in two ways, which the older names tell by the region alone.
std::string_view impliedScript(const LanguageTag& tag) {
  if (tag.language != "zh") return {};
  const bool isTraditional = tag.region == "tw" || tag.region == "hk" || tag.region == "mo";
  return isTraditional ? "hant" : "hans";
}

std::string_view scriptOfModifier(std::string_view modifier) {
  if (modifier == "latin") return "latn";
  if (modifier == "cyrillic") return "cyrl";
  return {};
}

LanguageTag parsed(std::string_view name) {
  const std::string lower = lowerCased(name);
  std::string_view rest = lower;
  const std::size_t at = std::min(rest.find('@'), rest.size());
  const std::string_view modifier = rest.substr(std::min(at + 1, rest.size()));
  rest = newerName(rest.substr(0, at));
  LanguageTag tag;
  tag.language = newerName(takePart(rest));
  while (!rest.empty()) {
    const std::string_view part = takePart(rest);
    if (part.size() == 4 && tag.script.empty()) tag.script = part;
    if ((part.size() == 2 || part.size() == 3) && tag.region.empty()) tag.region = part;
  }
  if (tag.script.empty()) tag.script = scriptOfModifier(modifier);
  if (tag.script.empty()) tag.script = impliedScript(tag);
  return tag;
}

// How well the localisation serves a user of the language; nothing when it does not.
std::optional<int> closeness(const LanguageTag& localization, const LanguageTag& wanted) {
  if (localization.language != wanted.language) return std::nullopt;
  const bool namesScript = !localization.script.empty() && !wanted.script.empty();
  if (namesScript && localization.script != wanted.script) return std::nullopt;
  const int scriptPoints = localization.script == wanted.script ? 1 : 0;
  if (localization.region == wanted.region) return 4 + scriptPoints;
  return (localization.region.empty() ? 2 : 0) + scriptPoints;
}

std::string_view languagePart(std::string_view name) {
  return name.substr(0, std::min(name.find_first_of("-_@"), name.size()));
}

// Orders the folders that serve one language: the smallest is the best.
struct Rank {
  int distance;
  bool isNamedOtherwise;  ///< Not by the language's own name.
  bool isOlderName;
  std::string folder;

  bool operator<(const Rank& other) const {
    return std::tie(distance, isNamedOtherwise, isOlderName, folder) <
           std::tie(other.distance, other.isNamedOtherwise, other.isOlderName, other.folder);
  }
};

std::optional<Rank> rankOf(const std::string& folder, const std::string& language) {
  const auto points = closeness(parsed(folder), parsed(language));
  if (!points) return std::nullopt;
  const std::string name = lowerCased(folder);
  const std::string_view code = languagePart(name);
  return Rank{-*points, code != languagePart(lowerCased(language)),
              newerName(name) != name || newerName(code) != code, folder};
}

void appendLanguage(std::vector<std::string>& languages, std::string_view locale) {
  const std::size_t codeset = std::min(locale.find('.'), locale.size());
  const std::size_t modifier = std::min(locale.find('@'), locale.size());
  std::string language(locale.substr(0, std::min(codeset, modifier)));
  if (language.empty() || language == "C" || language == "POSIX") return;
  language += locale.substr(modifier);
  if (std::ranges::find(languages, language) == languages.end()) {
    languages.push_back(std::move(language));
  }
}

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

std::vector<std::string> userLanguages() {
  std::vector<std::string> languages;
  for (std::string_view list = environment("LANGUAGE"); !list.empty();) {
    const std::size_t end = std::min(list.find(':'), list.size());
    appendLanguage(languages, list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const std::string_view locale = environment(name);
    if (locale.empty()) continue;
    appendLanguage(languages, locale);
    break;
  }
  return languages;
}

std::vector<std::string> matchingLocalizations(const std::vector<std::string>& folders,
                                               const std::vector<std::string>& languages) {
  std::vector<std::string> matches;
  for (const std::string& language : languages) {
    std::vector<Rank> candidates;
    for (const std::string& folder : folders) {
      if (std::ranges::find(matches, folder) != matches.end()) continue;
      if (auto rank = rankOf(folder, language)) candidates.push_back(*std::move(rank));
    }
    std::sort(candidates.begin(), candidates.end());
    for (Rank& candidate : candidates) matches.push_back(std::move(candidate.folder));
  }
  return matches;
}

}  // namespace clientcomm
