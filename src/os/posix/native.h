// Helpers shared by the POSIX side of the seam: turning the program's UTF-16 paths into the
// system's UTF-8 paths and errno values into Windows error numbers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace os::posix {

// UTF-16 path to a UTF-8 path for the system calls; "\" is read as a separator.
std::string NativePath(std::u16string_view path);

// The Windows error number closest to an errno value.
std::uint32_t ErrorFromErrno(int error_number);

// SetLastError(ErrorFromErrno(errno)).
void SetLastErrorFromErrno();

}  // namespace os::posix
