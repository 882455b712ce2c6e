// TvAppsClose, the closing companion: closes the applications started from the drive the suite
// stands on, waits for them, and tells how many still run.
//
//   TvAppsClose [/now] [/out]
//
// "/now" closes without asking first; without it a message box lists the applications and asks.
// "/out" writes the count still running, as a plain decimal number, to TvAppsClose.out in the
// closer's own folder. Its settings come from TvAppsClose.xml beside it:
//
//   <TvAppsClose>
//   	<GraceSeconds>10</GraceSeconds>   how long applications get to close (may ask to save)
//   	<ForceClose>0</ForceClose>        1: end by force what still runs after that
//   </TvAppsClose>
//
// Exit code: 0 when nothing is left running, 1 when something is (or the user declined), 2 when
// the running processes could not be listed (then nothing was touched and nothing is written).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "companions/apps_close/app_closer.h"

namespace app {

struct AppsCloseSettings {
  std::uint32_t grace_ms = sys::kDefaultGraceMs;
  bool force = false;
};

// The settings file's contents; defaults for a missing or foreign file and for values that are
// missing or not numbers. The grace period is capped at an hour.
AppsCloseSettings LoadAppsCloseSettings(std::u16string_view file);

struct AppsCloseCommand {
  bool now = false;
  bool out = false;
};

// "/now" and "/out" in any case, also with "-"; anything else is ignored.
AppsCloseCommand ParseAppsCloseArguments(const std::vector<std::u16string>& args);

// One run of the closer standing at own_path; returns the exit code.
int RunAppsClose(const std::vector<std::u16string>& args, std::u16string_view own_path,
                 const sys::ProcessOps& ops = sys::SystemProcessOps());

// The program's run from its entry point: args are the arguments it was started with, its own
// file comes from the system.
int AppsCloseMain(const std::vector<std::u16string>& args);

}  // namespace app
