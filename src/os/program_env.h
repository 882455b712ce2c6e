// What surrounds the running program: its arguments, its environment, the working folder, the
// temporary folders, and copies of its own file. The ejecting companion needs them to leave the
// drive it ejects: it copies itself into a private folder off the drive, continues from there
// with a working folder off the drive, and has the copy and its folder deleted once it has ended.
//
//   std::u16string folder = os::CreatePrivateFolder(os::ScratchFolders()[0], u"TvDiskEjector-");
//   std::u16string copy = folder + u"\\TvDiskEjector.exe";
//   if (!folder.empty() && os::CopyFileW(own.c_str(), copy.c_str(), true)) ...
//   ...
//   os::DeleteProgramFileAfterExit(copy, true);  // the copy, as its last act
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

// The folders where the program may keep files of its own for a while, the preferred first, each
// with a trailing separator; a place that is not an existing folder is left out, and none is
// named twice. Windows: the temporary folder (GetTempPathW), the user's local application data
// (FOLDERID_LocalAppData), the system's temporary folder (the Windows folder's "Temp").
// POSIX: $XDG_RUNTIME_DIR, the temporary folder (GetTempPathW), ~/.cache.
std::vector<std::u16string> ScratchFolders();

// Creates a new folder in parent, named prefix followed by random characters, that only the user
// the program runs as (and the system) may enter, list or write: mkdtemp, mode 0700; on Windows
// an access list of the user and SYSTEM alone, not inherited from parent. Never takes over a name
// that exists, whatever stands there (a folder, a file, a link). Returns the folder's path
// without a trailing separator; "" with the last error set on failure.
std::u16string CreatePrivateFolder(std::u16string_view parent, std::u16string_view prefix);

// What stands at a path, a link at its end not followed (lstat; a reparse point on Windows).
struct PathFacts {
  bool exists = false;
  bool link = false;    // a symbolic link, a junction or another reparse point
  bool folder = false;  // a folder itself, not a link to one
  bool own = false;     // owned by the user the program runs as
  // A folder in which other users may rename or delete what the user creates: writable by
  // others without the sticky bit. (Windows grants that right per entry: never set there.)
  bool others_may_move = false;
};
PathFacts GetPathFacts(std::u16string_view path);

// SetCurrentDirectoryW.
bool SetCurrentDirectoryW(const char16_t* path);

// CopyFileW: copies a file with its contents and attributes (an executable stays executable).
// With fail_if_exists an existing destination is refused with 80 (ERROR_FILE_EXISTS), otherwise
// it is replaced. False with the last error set on failure.
bool CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists);

// Has the file of the running program (a copy of itself it runs from) deleted once it has
// ended, and with folder_too its folder as well when that is then empty. Windows refuses to
// delete a running image: a hidden command processor from the system folder is started that
// waits a moment and deletes the file, and where it cannot be started the file is marked for
// deletion at the next restart (MOVEFILE_DELAY_UNTIL_REBOOT). POSIX deletes it at once: the
// running image stays with the process. True when the file's deletion was done or arranged.
bool DeleteProgramFileAfterExit(std::u16string_view path, bool folder_too = false);

}  // namespace os
