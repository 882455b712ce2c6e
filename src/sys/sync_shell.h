// mSyncShell: starting other programs through the shell, and starting one and waiting for it.
//
//   std::u16string error;
//   if (!mSyncShell::SyncShell(closer, u"/now /out", std::nullopt, 1, error, 2000000000, u""))
//     ...  // not started, or still running after the time-out
//
// Texts that may be absent (parameters, folder, verb) are NullableText: std::nullopt reaches
// the shell as a null pointer, "" as an empty text (as a verb, the default verb).
// Show modes are the program's own numbers: 0 hidden, 1 normal, 2 minimised, 3 maximised,
// 4 normal without focus, 6 minimised without focus; any other value starts hidden.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "os/process.h"
#include "os/types.h"

namespace mSyncShell {

using NullableText = std::optional<std::u16string_view>;

// The platform's show command (SW_*) for a show mode.
int ShowCommand(std::int32_t show_mode);

// Starts file through the shell's simple call and does not wait. result receives the shell's
// answer; true when it is 33 or more.
bool ShellExec(std::u16string_view file, std::int32_t show_mode, NullableText parameters,
               NullableText folder, NullableText verb, os::Handle owner, std::int32_t& result);

// Starts file through the shell's extended call and does not wait. process receives the
// process handle (none when there is none), closed when the caller lets it go; true when the
// handle, read as a signed 32-bit number, is 33 or more.
bool ShellExecEx(std::u16string_view file, std::int32_t show_mode, NullableText parameters,
                 NullableText folder, NullableText verb, os::Handle owner, os::Process& process);

// Starts file and waits for it, polling every 10 ms and letting the thread's messages run.
// True when it started and ended (with any exit code) within timeout_ms. On failure
// error_text says why ("The process has timed out.", a run-time error's description), except
// when the shell refused the start: then it is left as it was. A program that outlives the
// time-out is left running. Note the argument order, unlike the two starters'.
bool SyncShell(std::u16string_view file, NullableText parameters, NullableText folder,
               std::int32_t show_mode, std::u16string& error_text, std::int32_t timeout_ms,
               NullableText verb);

}  // namespace mSyncShell
