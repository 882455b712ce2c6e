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

// Whether a path is a POSIX path ("/"-rooted or relative), whose names the system takes as
// they are, trailing dots and blanks included; not a path of Windows shape (drive, network,
// "\\?\"), which goes through the Windows rules for names.
bool KeepsNames(std::u16string_view path);

// The Windows error for a path that could not be found: 3 when its folder is missing too,
// else 2.
std::uint32_t NotFoundError(const std::string& path);

// For a device path "\\.\X:": the drive letter in upper case, or 0.
char16_t DeviceLetter(std::u16string_view path);

}  // namespace os::posix
