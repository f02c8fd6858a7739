#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// Files that are there whole or not at all, also after the power has failed.
namespace sample {

/// What the names of files and folders begin with that are not whole yet.
inline constexpr const char kPartialPrefix[] = ".partial-";

/// Raised when a file of the helper's own could not be written.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Makes the folder at `path` and, where missing, those above it. @throws FileError.
void makeFolder(const std::string& path);

/// Writes `bytes` to the file at `path`, in place of an earlier one. @throws FileError; an earlier
/// file is whole then.
void writeFileDurably(const std::string& path, std::string_view bytes);

/// Like `writeFileDurably`, but does not wait for the disk: for what can be written anew.
/// @throws FileError; an earlier file is whole then.
void replaceFile(const std::string& path, std::string_view bytes);

/// Gives the finished file or folder `from` the name `to` in the same folder. @throws FileError.
void renameDurably(const std::string& from, const std::string& to);

/// Writes all `bytes` to the file open as `descriptor`. @throws FileError.
void writeAll(int descriptor, std::string_view bytes, const std::string& path);

/// Writes what the file or folder open as `descriptor` holds to the disk. @throws FileError.
void flush(int descriptor, const std::string& path);

/// The bytes of the regular file at `path`. @throws FileError.
std::string readFile(const std::string& path);

}  // namespace sample
