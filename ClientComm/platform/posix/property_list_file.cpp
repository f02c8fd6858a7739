#include "ClientComm/platform/posix/property_list_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/strings_file.h"

namespace clientcomm {

namespace {

/// The dictionaries that were read last, each valid as long as its file has not changed: a start
/// reads the host's Info dictionary six times.
class RecentDictionaries {
 public:
  /// @return whether the file at `path`, which has this signature, has been read before.
  bool find(const std::string& path, const FileSignature& signature,
            std::optional<PropertyListDictionary>& dictionary) {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find_if(entries_, [&](const auto& recent) {
      return recent && recent->path == path && recent->signature == signature;
    });
    if (entry == entries_.end()) return false;
    dictionary = (*entry)->dictionary;
    return true;
  }

  void keep(const std::string& path, const FileSignature& signature,
            const PropertyListDictionary& dictionary) {
    const std::lock_guard lock(mutex_);
    entries_[next_++ % entries_.size()] = Entry{path, signature, dictionary};
  }

 private:
  struct Entry {
    std::string path;
    FileSignature signature;
    PropertyListDictionary dictionary;
  };

  std::mutex mutex_;  // TQHPProcessList is for any thread
  std::array<std::optional<Entry>, 4> entries_;
  std::size_t next_ = 0;
};

RecentDictionaries& recentDictionaries() {
  static RecentDictionaries& dictionaries = *new RecentDictionaries;
  return dictionaries;
}

}  // namespace

Status readDictionaryFile(const std::string& path,
                          std::optional<PropertyListDictionary>& dictionary) {
  constexpr std::size_t kLargestKept = std::size_t{64} << 10;
  dictionary.reset();
  const auto signature = FileSignature::ofFile(path);
  const bool isSettled = signature && signature->isSettled();
  if (isSettled && recentDictionaries().find(path, *signature, dictionary)) return {};
  std::string bytes;
  if (Status read = readSettingsFile(path, bytes); !read.isOk()) {
    const bool isMissing = read.code() == ENOENT || read.code() == ENOTDIR;
    if (!isMissing) read.report(DiagnosticCause::kPropertyListUnreadable);
    return read;
  }
  auto value = propertyListFromBytes(bytes);
  if (!value || value->dictionary() == nullptr) {
    report(DiagnosticCause::kPropertyListMalformed, path);
    return {};
  }
  dictionary = std::move(*value->dictionary());
  if (isSettled && bytes.size() <= kLargestKept) {
    recentDictionaries().keep(path, *signature, *dictionary);
  }
  return {};
}

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  std::optional<PropertyListDictionary> dictionary;
  readDictionaryFile(path, dictionary).ignore();  // the caller takes it like a malformed file
  return dictionary;
}

Status writeDictionaryFile(const PropertyListDictionary& dictionary, const std::string& path,
                           WriteForm form, mode_t modeOfNew) {
  // A file that cannot be read again would be lost.
  const bool isReadable = std::ranges::all_of(
      dictionary, [](const auto& entry) { return isNestedWithinLimit(entry.second, 1); });
  if (!isReadable) return Status::ofFile(EFBIG, "isNestedWithinLimit", path);
  const std::string xml = xmlPropertyList(dictionary);
  if (xml.size() > kMaximumSettingsFileSize) {
    return Status::ofFile(EFBIG, "xmlPropertyList", path);
  }
  return writeSettingsFile(path, xml, form, modeOfNew);
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path) {
  return writeDictionaryFile(dictionary, path, WriteForm::kInPlace, 0666)
      .report(DiagnosticCause::kSettingsNotWritten);
}

Status writeTextToFileAsUTF16(std::string_view text, const std::string& path) {
  const std::string bytes = utf16FromUtf8(text);
  if (bytes.size() > kMaximumSettingsFileSize) return Status::ofFile(EFBIG, "utf16FromUtf8", path);
  return writeSettingsFile(path, bytes, WriteForm::kInPlace, 0666);
}

}  // namespace clientcomm
