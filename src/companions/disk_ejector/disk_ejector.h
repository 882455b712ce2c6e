// TvDiskEjector, the ejecting companion: ejects the drive the suite stands on and tells the user
// the outcome in a message box.
//
//   TvDiskEjector [/retry]
//
// "/retry" tries a refused eject again (5 tries, 1 s apart). The program stands on the drive it
// ejects, and a program running from a drive holds it: so it first copies itself into a new
// folder that only the user may write to, in the first place off the drive where the copy can be
// made and started (os::ScratchFolders, the temporary folder first), and starts the copy,
// working from that folder, with its own arguments and
//
//   /from "<the original file>" /wait <pid> ...
//
// then ends. The copy waits for the original (and for the program that started it, when that
// one also runs from the drive) to end, ejects, shows the outcome and has its own file and
// folder deleted. Where no place takes a copy, the ejector works from the drive, and a refused
// eject is explained as what it then is: the ejector holding the drive.
// A refusal's box (Retry / Cancel) names each program holding the drive and what it holds
// there; "Retry" asks those of the user's own programs that may be closed to close
// (os::HeldProcess), waits a moment for them and tries the eject again, as often as the
// user asks. "Cancel" leaves everything as it is.
// Exit code: 0 when the drive may be removed, 1 otherwise.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/disk_ejector/drive_eject.h"

namespace app {

struct EjectorCommand {
  bool retry = false;
  std::u16string from;                   // set in the copy: the original file on the drive
  std::vector<std::uint32_t> wait_pids;  // processes the copy waits for before it ejects
};

// "/retry" in any case, also with "-"; "/from PATH" and "/wait PID" as the original passes them.
EjectorCommand ParseEjectorArguments(const std::vector<std::u16string>& args);

// A parameter text that the system splits back into exactly these arguments
// (CommandLineToArgvW): blanks and quotes quoted, backslashes before a quote doubled.
std::u16string JoinArguments(const std::vector<std::u16string>& args);

// What the user is told: a box's text and style flags.
struct EjectorMessage {
  std::u16string text;
  std::int32_t flags = 0;
  std::vector<std::u16string> buttons;  // the buttons' own words; none for the system's
};

// The message for an eject's outcome, in the installed language (see companion_text.h). folder
// is the suite folder the eject was asked for.
EjectorMessage DescribeEject(const sys::EjectReport& report, std::u16string_view folder);

// What the ejector does around the eject, replaceable in tests.
struct EjectorOps {
  sys::DriveOps drive = sys::SystemDriveOps();
  // Starts the copy (ShellExecuteW: file, parameters, working folder); the platform's result.
  std::function<std::intptr_t(const std::u16string&, const std::u16string&, const std::u16string&)>
      start;
  // Where a copy may go, the preferred first; none = the system's (os::ScratchFolders). A place
  // on the drive's own volume (drive.volume_root) is passed over.
  std::vector<std::u16string> places;
  std::uint32_t wait_limit_ms = 20000;  // how long the copy waits for the processes it names
  // Asks a process holding the drive to close (os::HeldProcess), after the user chose
  // "Retry" in a refusal's box; and how long the closed ones are waited for before the new try.
  std::function<int(std::uint32_t)> close;
  std::uint32_t close_wait_ms = 10000;
};

// One run of the ejector standing at own_path; returns the exit code.
int RunDiskEjector(const std::vector<std::u16string>& args, std::u16string_view own_path,
                   const EjectorOps& ops = EjectorOps{});

// The program's run from its entry point: args are the arguments it was started with, its own
// file comes from the system.
int DiskEjectorMain(const std::vector<std::u16string>& args);

}  // namespace app
