// Starting programs, waiting for them, the program's own file, time and the message loop.
// Functions that have A/W variants in Win32 keep the W name, so that windows.h macros cannot
// rename them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/types.h"

namespace os {

// ShellExecuteW: starts `file` (a program or a document) with the verb (null or "" for the
// default), parameters and working folder (null for the caller's), and the show command
// (SW_* value). Returns the platform's result: above 32 on success, otherwise an error code
// (2 file not found, 3 path not found, 5 access denied, 31 no association, ...).
std::intptr_t ShellExecuteW(Handle owner, const char16_t* verb, const char16_t* file,
                            const char16_t* parameters, const char16_t* directory,
                            int show_command);

namespace detail {
void CloseProcess(Handle process);
}  // namespace detail

// A started process's handle, closed (CloseHandle) when it goes; 0 when none.
using Process = Owned<&detail::CloseProcess, 0>;

inline constexpr std::uint32_t kSeeMaskNoCloseProcess = 0x40;
inline constexpr std::uint32_t kSeeMaskFlagNoUi = 0x400;

// The extended start record (SHELLEXECUTEINFOW), reduced to the members the program sets.
struct ShellExecuteInfo {
  std::uint32_t size = 60;
  std::uint32_t mask = 0;
  Handle owner = 0;
  const char16_t* verb = nullptr;
  const char16_t* file = nullptr;
  const char16_t* parameters = nullptr;
  const char16_t* directory = nullptr;
  int show = 0;
  std::intptr_t inst_app = 0;  // out: result code as ShellExecuteW would give it
  Process process;             // out: process handle with kSeeMaskNoCloseProcess, none if none
};

// ShellExecuteExW. Returns the platform's success flag.
bool ShellExecuteExW(ShellExecuteInfo& info);

inline constexpr std::uint32_t kStillActive = 259;

// GetExitCodeProcess: kStillActive while the process runs, its exit code once it ended.
bool GetExitCodeProcess(Handle process, std::uint32_t* exit_code);

// One pass of the thread's message loop (PeekMessage / DispatchMessage until empty).
void PumpMessages();

// Sleep, in milliseconds.
void Sleep(std::uint32_t milliseconds);

// timeGetTime: a millisecond clock that wraps around at 2^32.
std::uint32_t TimeGetTime();

// GetLocalTime: the wall-clock date and time in the user's time zone.
struct SystemTime {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};
SystemTime GetLocalTime();

// The full path of the running program file.
std::u16string ModuleFileName();

// Has every library loaded from now on come from the system folder only, never from the program's
// folder or the working folder (SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32)); each
// program calls it first. Nothing to do where a program's folder is never searched (POSIX).
void RestrictLibrarySearch();

namespace detail {
void FreeLibrary(Handle module);
}  // namespace detail

// A loaded library, freed (FreeLibrary) when it goes.
using Library = Owned<&detail::FreeLibrary, 0>;

// LoadLibraryW (the program keeps "shell32.dll" loaded for its run).
Library LoadLibraryW(const char16_t* name);

// InitCommonControlsEx with the structure size and class set given; returns its result.
bool InitCommonControls(std::uint32_t size, std::uint32_t classes);

}  // namespace os
