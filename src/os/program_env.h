// What surrounds the running program: its arguments, its environment, the working folder, the
// temporary folder, and copies of its own file. The ejecting companion needs them to leave the
// drive it ejects: it copies itself to the temporary folder, continues from there with a
// working folder off the drive, and has the copy deleted once it has ended.
//
//   std::u16string copy = os::GetTempPathW() + u"TvDiskEjector-42.exe";
//   if (os::CopyFileW(own.c_str(), copy.c_str(), false)) ...
//   ...
//   os::DeleteProgramFileAfterExit(copy);  // the copy, as its last act
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace os {

// The arguments the program was started with, its own name left out (CommandLineToArgvW of
// GetCommandLineW; the process's argv elsewhere).
std::vector<std::u16string> ProgramArguments();

// GetEnvironmentVariableW: the variable's value, "" when it is not set.
std::u16string GetEnvironmentVariableW(const char16_t* name);

// GetTempPathW: the user's temporary folder, with a trailing separator; "" on failure.
std::u16string GetTempPathW();

// GetCurrentDirectoryW / SetCurrentDirectoryW.
std::u16string GetCurrentDirectoryW();
bool SetCurrentDirectoryW(const char16_t* path);

// CopyFileW: copies a file with its contents and attributes (an executable stays executable).
// With fail_if_exists an existing destination is refused with 80 (ERROR_FILE_EXISTS), otherwise
// it is replaced. False with the last error set on failure.
bool CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists);

// Has the file of the running program (a copy of itself it runs from) deleted once it has
// ended. Windows refuses to delete a running image: a hidden command processor is started that
// waits a moment and deletes the file, and where it cannot be started the file is marked for
// deletion at the next restart (MOVEFILE_DELAY_UNTIL_REBOOT). POSIX deletes it at once: the
// running image stays with the process. True when the deletion was done or arranged.
bool DeleteProgramFileAfterExit(std::u16string_view path);

}  // namespace os
