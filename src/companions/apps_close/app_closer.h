// Closing the applications that run from the drive, for the closing companion (TvAppsClose).
//
// Which applications: every process whose executable lies under the close scope. The scope is
// the root of the drive holding the suite when that drive is removable (and not the system's
// own disk), with every other volume the eject takes along (the other partitions, the other
// slots of a card reader); otherwise only the suite folder, the parent of the closer's own folder.
// A scope that would be the root of a fixed drive is refused outright: the closer never sweeps a
// whole system disk. Never closed: the closer itself (and other copies of it), its parent
// (the program that called it), the ejector, and anything outside the scope.
//
// How: politely (WM_CLOSE to each window, SIGTERM), then a grace period for applications that
// ask the user to save, then a count of what still runs. Force is used only when configured or
// asked for. The shell's windows showing a folder of the scope are closed too: they keep the
// drive busy though they are not the drive's programs.
//
//   sys::CloseScope scope = sys::DetermineCloseScope(os::ModuleFileName());
//   sys::CloseReport report = sys::CloseApplications(scope, sys::CloseOptions{});
//   ... report.still_running.size() is the count written to TvAppsClose.out ...
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/common/eject_plan.h"
#include "files/paths.h"
#include "os/apps.h"

namespace sys {

// What the closer may touch.
struct CloseScope {
  std::u16string folder;     // processes whose executable lies under it are closed; "" = none
  bool whole_drive = false;  // folder is the removable drive's root
  std::u16string reason;     // why this scope, or why none
  std::vector<std::u16string> other_volumes;  // whole_drive: the roots ejected along with it
};

// The scope for a closer at own_path, given what the ejector would do with the drive holding
// it (plan null when the drive could not be asked). Pure: no system call.
CloseScope ChooseCloseScope(std::u16string_view own_path, const EjectPlan* plan);

// ChooseCloseScope with the plan made from what the seam says about the drive.
CloseScope DetermineCloseScope(std::u16string_view own_path);

// Processes never to be touched besides those outside the scope.
struct Spared {
  std::vector<std::uint32_t> pids;     // the closer and its parent chain, at least
  std::vector<std::u16string> images;  // full paths (the closer's own file: other copies of it)
  std::vector<std::u16string> names;   // file names with or without ".exe" ("TvDiskEjector")
  std::u16string owner;                // the closer's user: processes of others are not closed
};

// True when an executable lies on the drive under another name than the scope's (a substituted
// letter, a folder the volume is mounted on, a \\?\ path): the volume decides, not the text.
using OnDriveTest = std::function<bool(std::u16string_view image)>;

// The processes of `all` to close: inside the scope (or, for a whole drive, on_drive), with a
// known executable, of the closer's user, not spared. Pure: no system call but on_drive's.
std::vector<os::ProcessEntry> SelectProcessesToClose(const std::vector<os::ProcessEntry>& all,
                                                     const CloseScope& scope, const Spared& spared,
                                                     bool ignore_case,
                                                     const OnDriveTest& on_drive = nullptr);

// One chosen process, opened once for everything the closer does with it (os::HeldProcess).
struct HeldProcess {
  std::function<int(bool console_too)> request_close;
  std::function<bool()> running;
  std::function<bool()> terminate;
};

// The system calls the closer makes, replaceable in tests.
struct ProcessOps {
  std::function<std::vector<os::ProcessEntry>()> enumerate;
  // Opens the process an entry describes; false when it has ended or is no longer the entry's
  // program (its number was given to another).
  std::function<bool(const os::ProcessEntry&, HeldProcess*)> open;
  std::function<std::u16string()> own_user;
  // os::ConsoleProcesses.
  std::function<bool(std::uint32_t, std::vector<std::uint32_t>*)> console;
  std::function<std::uint32_t()> now;  // milliseconds, may wrap
  std::function<void(std::uint32_t)> sleep;
  // os::VolumeIdentity: which volume a file lies on; "" when unknown. May be left empty.
  std::function<std::u16string(std::u16string_view)> volume_of;
  // os::ShellFolderWindows and os::CloseShellFolderWindow. May be left empty.
  std::function<std::vector<os::FolderWindow>()> folder_windows;
  std::function<bool(std::intptr_t)> close_folder_window;
  bool ignore_case = false;
};

// The seam's functions.
ProcessOps SystemProcessOps();

inline constexpr std::uint32_t kDefaultGraceMs = 10000;

// What the one watching the grace period decides each time the wait looks.
enum class WaitChoice {
  kWait,      // keep waiting
  kCloseNow,  // end what still runs by force now
  kStop,      // stop waiting: what still runs is counted as it is
};

// The wait as it stands: how long it has run, of how long, and the applications asked to
// close that still run.
struct WaitProgress {
  std::uint32_t elapsed_ms = 0;
  std::uint32_t grace_ms = 0;
  std::vector<os::ProcessEntry> running;
};

struct CloseOptions {
  std::uint32_t grace_ms = kDefaultGraceMs;  // how long applications get to close
  std::uint32_t poll_ms = 100;               // how often the wait looks
  bool force = false;                        // end what is left by force after the grace period
  std::u16string own_path;                   // the closer's file; "" = the running program
  std::vector<std::uint32_t> spare_pids;     // besides the closer and its parent chain
  std::vector<std::u16string> spare_names = {u"TvDiskEjector"};
  // Told how the grace period goes at each look while something still runs; may be empty.
  std::function<WaitChoice(const WaitProgress&)> on_wait;
};

// The processes to spare for a run with these options: the closer, its parent chain, the
// options' pids, copies of the closer's file, the names spared, and the closer's user.
Spared SparedFor(const CloseOptions& options, const ProcessOps& ops);

// What one run closes, chosen once: the confirmation shows it and the closing closes it,
// sparing the same processes.
struct ClosePlan {
  bool listed = false;                   // the process list could be read
  std::vector<os::ProcessEntry> chosen;  // what the selection chose
  Spared spared;                         // what the selection spared and the check spares
};

// Lists the processes and chooses those to close (SelectProcessesToClose), sparing
// SparedFor(options, ops).
ClosePlan PlanClose(const CloseScope& scope, const CloseOptions& options, const ProcessOps& ops);

enum class CloseOutcome {
  kNothingToClose,  // no application ran in the scope
  kAllClosed,       // every one closed within the grace period (or was ended by force)
  kStillRunning,    // some still run: still_running lists them
  kNoScope,         // the scope was refused: nothing was touched
  kFailed,          // the process list could not be read: nothing was touched
  kRefused,         // the plan held a process the closer may not touch: nothing was touched
};

struct CloseReport {
  CloseOutcome outcome = CloseOutcome::kFailed;
  CloseScope scope;
  std::vector<os::ProcessEntry> asked;           // sent a close request
  std::vector<os::ProcessEntry> without_window;  // had nothing to receive it (Windows consoles)
  std::vector<os::ProcessEntry> killed;          // ended by force
  std::vector<std::u16string> folders_closed;    // the shell's windows on folders of the scope
  std::vector<os::ProcessEntry> still_running;   // in the scope after everything
  WaitChoice choice = WaitChoice::kWait;         // how on_wait ended the grace period
  std::u16string reason;
};

// Closes what the plan chose and counts what still runs. Before anything is closed, the plan
// is checked again as a whole, by rules of its own: one process that is the closer, in its
// parent chain, spared by name, another user's or outside the scope makes the whole plan a
// fault: it is logged and nothing is closed (kRefused, the plan counted as still running).
// A process that is no longer the program the plan saw is left alone.
CloseReport CloseSelected(const CloseScope& scope, const ClosePlan& plan,
                          const CloseOptions& options, const ProcessOps& ops = SystemProcessOps());

// PlanClose, then CloseSelected.
CloseReport CloseApplications(const CloseScope& scope, const CloseOptions& options,
                              const ProcessOps& ops = SystemProcessOps());

}  // namespace sys
