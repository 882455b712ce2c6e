// How the POSIX side of the seam reads the program's Windows-shaped paths.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace os::posix {

// The system path for one of the program's paths, or false with the last error set. "\" and
// "/" both separate; a "\\?\" prefix is dropped; the drive "Z:" stands for "/" (as under Wine);
// any other drive letter has no volume here (3); network paths cannot be reached (53).
bool SystemPath(std::u16string_view path, std::string* out);

// Whether the system takes the names of a path as they are: a POSIX path ("/"-rooted or
// relative) or one marked "\\?\". A drive or network path without the mark goes through Win32's
// name rules, which drop trailing dots (and blanks) from its names.
bool KeepsNames(std::u16string_view path);

// The Windows error for a path that could not be found: 3 when its folder is missing too,
// else 2.
std::uint32_t NotFoundError(const std::string& path);

// For a device path "\\.\X:": the drive letter in upper case, or 0.
char16_t DeviceLetter(std::u16string_view path);

}  // namespace os::posix
