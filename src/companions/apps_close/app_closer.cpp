#include "companions/apps_close/app_closer.h"

#include <algorithm>
#include <memory>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/files.h"
#include "os/process.h"

namespace sys {
namespace {

bool IsSeparator(char16_t c) {
  return c == u'\\' || c == u'/';
}

// The file name without a final ".exe", for comparing program names across platforms.
std::u16string ProgramName(std::u16string_view path) {
  std::size_t slash = path.find_last_of(u"\\/");
  std::u16string name(slash == std::u16string_view::npos ? path : path.substr(slash + 1));
  if (name.size() > 4 &&
      base::EqualNoCase(std::u16string_view(name).substr(name.size() - 4), u".exe"))
    name.resize(name.size() - 4);
  return name;
}

std::u16string List(const std::vector<os::ProcessEntry>& processes) {
  std::u16string out;
  for (const auto& p : processes) {
    if (!out.empty()) out += u", ";
    out += ProgramName(p.image) + u" (" + base::ToText(p.pid) + u")";
  }
  return out;
}

// The closer and every process above it. Windows may have given the id of an ended parent to
// a process started later, so a loop ends the walk.
std::vector<std::uint32_t> OwnChain() {
  std::vector<std::uint32_t> chain;
  for (std::uint32_t pid = os::GetCurrentProcessId(); pid != 0 && chain.size() < 64;
       pid = os::ParentProcessId(pid)) {
    if (std::find(chain.begin(), chain.end(), pid) != chain.end()) break;
    chain.push_back(pid);
  }
  return chain;
}

std::u16string OwnPath(const CloseOptions& options) {
  return options.own_path.empty() ? os::ModuleFileName() : options.own_path;
}

// True when one of the folders above path is folder. Written apart from PathIsUnder on
// purpose: the check made before anything is closed must not share a fault with the selection.
bool InsideFolder(std::u16string_view path, std::u16string_view folder, bool ignore_case) {
  std::u16string want(folder);
  while (want.size() > 1 && IsSeparator(want.back()) && !IsRootPath(want)) want.pop_back();
  if (want.empty()) return false;
  for (std::u16string up = ParentFolder(path); !up.empty();) {
    if (SamePath(up, want, ignore_case)) return true;
    std::u16string next = ParentFolder(up);
    if (next == up) break;
    up = std::move(next);
  }
  return false;
}

// Why the closer may not touch p whatever chose it; "" when it may.
std::u16string WhyNotClose(const os::ProcessEntry& p, const CloseScope& scope, const Spared& spared,
                           bool ignore_case, const OnDriveTest& on_drive) {
  if (p.pid == 0) return u"no process id";
  if (std::find(spared.pids.begin(), spared.pids.end(), p.pid) != spared.pids.end())
    return u"the closer, a program above it or one it spares";
  if (spared.owner.empty() || p.owner != spared.owner) return u"another user's";
  if (!InsideFolder(p.image, scope.folder, ignore_case) &&
      std::none_of(
          scope.other_volumes.begin(), scope.other_volumes.end(),
          [&](const std::u16string& v) { return InsideFolder(p.image, v, ignore_case); }) &&
      !(scope.whole_drive && on_drive && on_drive(p.image)))
    return u"outside " + scope.folder;
  for (const auto& image : spared.images)
    if (SamePath(p.image, image, ignore_case)) return u"a copy of the closer";
  for (const auto& name : spared.names)
    if (base::EqualNoCase(ProgramName(p.image), ProgramName(name))) return u"spared by name";
  return std::u16string();
}

// The volume test for a whole-drive scope: the volumes of the scope's roots, asked once.
OnDriveTest OnDrive(const CloseScope& scope, const ProcessOps& ops) {
  if (!scope.whole_drive || !ops.volume_of) return nullptr;
  std::vector<std::u16string> ids;
  ids.push_back(ops.volume_of(scope.folder));
  for (const auto& v : scope.other_volumes) ids.push_back(ops.volume_of(v));
  ids.erase(std::remove(ids.begin(), ids.end(), u""), ids.end());
  if (ids.empty()) return nullptr;
  return [ids, volume_of = ops.volume_of](std::u16string_view image) {
    const std::u16string id = volume_of(image);
    return !id.empty() && std::find(ids.begin(), ids.end(), id) != ids.end();
  };
}

// A console's window closes every process attached to the console: it is closed only when
// each of them is one the closer may close, as the system lists them now.
bool WholeConsoleMayClose(const os::ProcessEntry& p, const CloseScope& scope, const Spared& spared,
                          const ProcessOps& ops, std::vector<os::ProcessEntry>* listing) {
  std::vector<std::uint32_t> attached;
  if (!ops.console || !ops.console(p.pid, &attached) || attached.empty()) return false;
  if (listing->empty()) *listing = ops.enumerate();
  for (const std::uint32_t pid : attached) {
    const auto found = std::find_if(listing->begin(), listing->end(),
                                    [&](const os::ProcessEntry& e) { return e.pid == pid; });
    if (found == listing->end() ||
        !WhyNotClose(*found, scope, spared, ops.ignore_case, OnDrive(scope, ops)).empty())
      return false;
  }
  return true;
}

std::vector<os::ProcessEntry> StillRunning(const CloseScope& scope, const Spared& spared,
                                           const ProcessOps& ops) {
  return SelectProcessesToClose(ops.enumerate(), scope, spared, ops.ignore_case,
                                OnDrive(scope, ops));
}

struct Target {
  os::ProcessEntry entry;
  HeldProcess held;
};

// Waits until none of the processes runs or the time is up, telling on_wait (when given) how it
// goes at each look; returns the first choice of on_wait that is not to wait.
WaitChoice WaitForExit(const std::vector<Target*>& targets, std::uint32_t limit_ms,
                       std::uint32_t poll_ms, const ProcessOps& ops,
                       const std::function<WaitChoice(const WaitProgress&)>& on_wait = nullptr) {
  const std::uint32_t start = ops.now();
  for (;;) {
    WaitProgress progress;
    for (const Target* t : targets)
      if (t->held.running()) progress.running.push_back(t->entry);
    if (progress.running.empty()) return WaitChoice::kWait;
    const std::uint32_t elapsed = ops.now() - start;  // unsigned: right across a wrap
    if (on_wait) {
      progress.elapsed_ms = std::min(elapsed, limit_ms);
      progress.grace_ms = limit_ms;
      const WaitChoice choice = on_wait(progress);
      if (choice != WaitChoice::kWait) return choice;
    }
    if (elapsed >= limit_ms) return WaitChoice::kWait;
    ops.sleep(std::max<std::uint32_t>(1, std::min(poll_ms, limit_ms - elapsed)));
  }
}

}  // namespace

CloseScope ChooseCloseScope(std::u16string_view own_path, const EjectPlan* plan) {
  CloseScope scope;
  const std::u16string own_folder = ParentFolder(own_path);
  const std::u16string suite = own_folder.empty() ? std::u16string() : ParentFolder(own_folder);
  if (suite.empty() || suite == own_folder) {
    scope.reason = u"the suite folder of " + std::u16string(own_path) + u" cannot be told";
    return scope;
  }
  if (plan && Ejects(*plan) && !plan->root.empty() &&
      PathIsUnder(own_path, plan->root, os::PathsIgnoreCase())) {
    scope.folder = plan->root;
    scope.whole_drive = true;
    for (const auto& v : plan->volumes)
      if (!SamePath(v, plan->root, os::PathsIgnoreCase())) scope.other_volumes.push_back(v);
    scope.reason = u"the removable drive " + plan->root + u" (" + plan->rule + u")";
    for (const auto& v : scope.other_volumes) scope.reason += u", with " + v;
    return scope;
  }
  // Not a removable drive: only the suite's own folder, and never a whole volume.
  const std::u16string why = plan ? plan->rule : u"the drive could not be identified";
  if (IsRootPath(suite) ||
      (plan && !plan->root.empty() && PathIsUnder(plan->root, suite, os::PathsIgnoreCase()))) {
    scope.reason = u"the suite folder " + suite + u" is the root of a drive that is not " +
                   u"removable (" + why + u"); closing everything on it is refused";
    return scope;
  }
  scope.folder = suite;
  scope.reason = u"the suite folder " + suite + u" (" + why + u")";
  return scope;
}

CloseScope DetermineCloseScope(std::u16string_view own_path) {
  return base::Trap(base::InFunction(u"mAppsClose.DetermineCloseScope"), CloseScope{}, [&] {
    const std::u16string root = os::GetVolumePathNameW(own_path);
    os::StorageDevice device;
    const bool known = !root.empty() && os::QueryStorageDevice(root, &device);
    const EjectPlan plan = known ? PlanEject(device) : EjectPlan{};
    return ChooseCloseScope(own_path, known ? &plan : nullptr);
  });
}

std::vector<os::ProcessEntry> SelectProcessesToClose(const std::vector<os::ProcessEntry>& all,
                                                     const CloseScope& scope, const Spared& spared,
                                                     bool ignore_case,
                                                     const OnDriveTest& on_drive) {
  std::vector<os::ProcessEntry> out;
  if (scope.folder.empty()) return out;
  for (const auto& p : all) {
    if (p.pid == 0 || p.image.empty()) continue;
    if (!PathIsUnder(p.image, scope.folder, ignore_case) &&
        std::none_of(
            scope.other_volumes.begin(), scope.other_volumes.end(),
            [&](const std::u16string& v) { return PathIsUnder(p.image, v, ignore_case); }) &&
        !(scope.whole_drive && on_drive && on_drive(p.image)))
      continue;
    if (spared.owner.empty() || p.owner != spared.owner) continue;
    if (std::find(spared.pids.begin(), spared.pids.end(), p.pid) != spared.pids.end()) continue;
    if (std::any_of(spared.images.begin(), spared.images.end(),
                    [&](const std::u16string& i) { return SamePath(p.image, i, ignore_case); }))
      continue;
    const std::u16string name = ProgramName(p.image);
    if (std::any_of(spared.names.begin(), spared.names.end(), [&](const std::u16string& n) {
          return base::EqualNoCase(name, ProgramName(n));
        }))
      continue;
    out.push_back(p);
  }
  return out;
}

ProcessOps SystemProcessOps() {
  ProcessOps ops;
  ops.enumerate = [] { return os::EnumProcesses(); };
  ops.volume_of = [](std::u16string_view path) { return os::VolumeIdentity(path); };
  ops.folder_windows = [] { return os::ShellFolderWindows(); };
  ops.close_folder_window = [](std::intptr_t window) { return os::CloseShellFolderWindow(window); };
  ops.open = [](const os::ProcessEntry& entry, HeldProcess* held) {
    auto process = std::make_shared<os::HeldProcess>(entry);
    if (!process->valid()) return false;
    held->request_close = [process](bool console_too) {
      return process->RequestClose(console_too);
    };
    held->running = [process] { return process->Running(); };
    held->terminate = [process] { return process->Terminate(); };
    return true;
  };
  ops.own_user = [] { return os::ProcessOwner(os::GetCurrentProcessId()); };
  ops.console = [](std::uint32_t pid, std::vector<std::uint32_t>* pids) {
    return os::ConsoleProcesses(pid, pids);
  };
  ops.now = [] { return os::TimeGetTime(); };
  ops.sleep = [](std::uint32_t ms) { os::Sleep(ms); };
  ops.ignore_case = os::PathsIgnoreCase();
  return ops;
}

Spared SparedFor(const CloseOptions& options, const ProcessOps& ops) {
  Spared spared;
  spared.pids = OwnChain();
  spared.pids.insert(spared.pids.end(), options.spare_pids.begin(), options.spare_pids.end());
  spared.images = {OwnPath(options)};
  spared.names = options.spare_names;
  spared.owner = ops.own_user();
  return spared;
}

ClosePlan PlanClose(const CloseScope& scope, const CloseOptions& options, const ProcessOps& ops) {
  return base::Trap(base::InFunction(u"mAppsClose.PlanClose"), ClosePlan{}, [&] {
    ClosePlan plan;
    if (scope.folder.empty()) return plan;
    const auto all = ops.enumerate();
    plan.listed = !all.empty();
    plan.spared = SparedFor(options, ops);
    plan.chosen =
        SelectProcessesToClose(all, scope, plan.spared, ops.ignore_case, OnDrive(scope, ops));
    return plan;
  });
}

CloseReport CloseSelected(const CloseScope& scope, const ClosePlan& plan,
                          const CloseOptions& options, const ProcessOps& ops) {
  CloseReport failed;
  failed.scope = scope;
  failed.reason = u"the applications could not be closed";
  return base::Trap(base::InFunction(u"mAppsClose.CloseSelected"), failed, [&] {
    CloseReport report;
    report.scope = scope;
    if (scope.folder.empty()) {
      report.outcome = CloseOutcome::kNoScope;
      report.reason = scope.reason;
      return report;
    }
    if (!plan.listed) {
      report.outcome = CloseOutcome::kFailed;
      report.reason = u"the list of running processes could not be read";
      return report;
    }
    if (ops.folder_windows && ops.close_folder_window) {
      for (const auto& w : ops.folder_windows()) {
        const bool ours = !w.folder.empty() &&
                          (PathIsUnder(w.folder, scope.folder, ops.ignore_case) ||
                           std::any_of(scope.other_volumes.begin(), scope.other_volumes.end(),
                                       [&](const std::u16string& v) {
                                         return PathIsUnder(w.folder, v, ops.ignore_case);
                                       }));
        if (ours && ops.close_folder_window(w.window)) {
          report.folders_closed.push_back(w.folder);
          DebugLog(u"Folder window closed: " + w.folder);
        }
      }
    }
    if (plan.chosen.empty()) {
      report.outcome = CloseOutcome::kNothingToClose;
      report.reason = u"no application runs from " + scope.folder;
      return report;
    }
    const Spared& spared = plan.spared;
    const OnDriveTest on_drive = OnDrive(scope, ops);
    std::u16string faults;
    for (const auto& p : plan.chosen) {
      const std::u16string why = WhyNotClose(p, scope, spared, ops.ignore_case, on_drive);
      if (!why.empty()) faults += u"; " + p.image + u" (" + base::ToText(p.pid) + u"): " + why;
    }
    if (!faults.empty()) {
      report.outcome = CloseOutcome::kRefused;
      report.still_running = plan.chosen;
      report.reason =
          u"Nothing closed: the choice holds processes the closer may not touch" + faults;
      DebugLog(report.reason);
      return report;
    }

    // Each process is opened once, and asked and ended through what was opened.
    std::vector<Target> targets;
    targets.reserve(plan.chosen.size());
    for (const auto& p : plan.chosen) {
      Target t{p, {}};
      if (ops.open(p, &t.held))
        targets.push_back(std::move(t));
      else
        DebugLog(u"Left alone, no longer the program chosen: " + p.image + u" (" +
                 base::ToText(p.pid) + u")");
    }
    std::vector<os::ProcessEntry> listing;
    std::vector<Target*> asked;
    for (auto& t : targets) {
      const int sent =
          t.held.request_close(WholeConsoleMayClose(t.entry, scope, spared, ops, &listing));
      if (sent > 0) report.asked.push_back(t.entry);
      if (sent == 0) report.without_window.push_back(t.entry);
      asked.push_back(&t);
    }
    report.choice = WaitForExit(asked, options.grace_ms, options.poll_ms, ops, options.on_wait);
    report.still_running = StillRunning(scope, spared, ops);

    // Cancel stops the waiting and nothing more: what runs then is counted, not ended.
    const bool force = report.choice == WaitChoice::kCloseNow ||
                       (options.force && report.choice != WaitChoice::kStop);
    if (force && !report.still_running.empty()) {
      std::vector<Target*> ended;
      for (auto* t : asked)
        if (t->held.running() && t->held.terminate()) {
          report.killed.push_back(t->entry);
          ended.push_back(t);
        }
      WaitForExit(ended, 5000, options.poll_ms, ops);
      report.still_running = StillRunning(scope, spared, ops);
    }
    report.outcome =
        report.still_running.empty() ? CloseOutcome::kAllClosed : CloseOutcome::kStillRunning;
    report.reason = report.still_running.empty()
                        ? base::ToText(static_cast<std::int64_t>(plan.chosen.size())) +
                              u" application(s) closed"
                        : base::ToText(static_cast<std::int64_t>(report.still_running.size())) +
                              u" application(s) still running after " +
                              base::ToText(options.grace_ms) + u" ms: " +
                              List(report.still_running);
    return report;
  });
}

CloseReport CloseApplications(const CloseScope& scope, const CloseOptions& options,
                              const ProcessOps& ops) {
  return CloseSelected(scope, PlanClose(scope, options, ops), options, ops);
}

}  // namespace sys
