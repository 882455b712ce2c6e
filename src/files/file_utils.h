// mFileUtils, the file system: existence with size and date, attributes, deletion with
// retries, directory listing one name per call, moving, folder creation and the system's error
// texts.
//
//   mFileUtils::KillFile(folder + u"TvAppsClose.out", 20);   // up to 21 attempts, ~4 s
//   for (auto name = mFileUtils::FindFile(u"C:\\data\\*.xml", 0); !name.empty();
//        name = mFileUtils::FindFile(u"", 0)) { ... }
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/date.h"

namespace mFileUtils {

// True when a file (not a folder) of that name exists. size and date (last write, UTC) are
// filled whenever an entry is found, a folder included; a name with "*" or "?" is tested
// against its first match. "" is false and leaves the outputs alone.
bool FileExists(std::u16string_view name, double& size, base::Date& date);
bool FileExists(std::u16string_view name);

// The attribute bits of a file or folder (made absolute and long-path marked first). Raises a
// run-time error carrying the system's error number and text when the system cannot read them.
std::uint32_t ReadAttributes(std::u16string_view path);
// Sets the attribute bits; raises like ReadAttributes.
void WriteAttributes(std::u16string_view path, std::uint32_t attributes);

// Deletes a file, clearing its hidden and read-only attributes first and retrying every 200 ms
// while the system refuses: at most retry_count + 1 attempts. True when the file is gone; a
// missing file counts as deleted, unless retry_count is 0 or less (then one failed attempt is
// false, even for a missing file).
bool KillFile(std::u16string_view name, std::int16_t retry_count);

// The system's text for an error number (with its line end), or "".
std::u16string SystemErrorText(std::uint32_t error);

// A directory listing one name per call. A pattern starts a new search (closing the previous
// one) and returns its first name; "" continues it. Hidden entries (2), system entries (4) and
// folders (16) are skipped unless the filter has their bit. "" when there are no more names.
// The filter 8 exactly returns the volume label of the pattern's drive instead.
std::u16string FindFile(std::u16string_view pattern, std::uint32_t filter);

// Moves a file with one call of the system (no replacing of an existing destination).
bool MoveFileTo(std::u16string_view source, std::u16string_view destination);

// Creates a folder and every missing folder above it; accepts drive, network and "\\?\"
// paths. True when the folder exists at the end.
bool CreateFolder(std::u16string_view path);

}  // namespace mFileUtils
