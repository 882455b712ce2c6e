#include "sys/app_closer.h"

#include <algorithm>

#include "base/text.h"
#include "base/trap.h"
#include "os/process.h"

namespace sys {
namespace {

bool IsSeparator(char16_t c) {
  return c == u'\\' || c == u'/';
}

bool SameChar(char16_t a, char16_t b, bool ignore_case) {
  if (IsSeparator(a) && IsSeparator(b)) return true;
  return ignore_case ? base::LowerChar(a) == base::LowerChar(b) : a == b;
}

// "E:" at the start of a path.
bool HasDriveLetter(std::u16string_view p) {
  return p.size() >= 2 && p[1] == u':' &&
         ((p[0] >= u'A' && p[0] <= u'Z') || (p[0] >= u'a' && p[0] <= u'z'));
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

bool SamePath(std::u16string_view a, std::u16string_view b, bool ignore_case) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (!SameChar(a[i], b[i], ignore_case)) return false;
  return true;
}

std::u16string List(const std::vector<os::ProcessEntry>& processes) {
  std::u16string out;
  for (const auto& p : processes) {
    if (!out.empty()) out += u", ";
    out += ProgramName(p.image) + u" (" + base::ToText(p.pid) + u")";
  }
  return out;
}

std::vector<os::ProcessEntry> StillRunning(const CloseScope& scope, const Spared& spared,
                                           const ProcessOps& ops) {
  auto now = SelectProcessesToClose(ops.enumerate(), scope, spared, ops.ignore_case);
  std::erase_if(now, [&](const os::ProcessEntry& p) { return !ops.running(p.pid); });
  return now;
}

// Waits until none of the processes runs or the time is up.
void WaitForExit(const std::vector<os::ProcessEntry>& processes, std::uint32_t limit_ms,
                 std::uint32_t poll_ms, const ProcessOps& ops) {
  const std::uint32_t start = ops.now();
  for (;;) {
    bool any = std::any_of(processes.begin(), processes.end(),
                           [&](const os::ProcessEntry& p) { return ops.running(p.pid); });
    if (!any) return;
    const std::uint32_t elapsed = ops.now() - start;  // unsigned: right across a wrap
    if (elapsed >= limit_ms) return;
    ops.sleep(std::max<std::uint32_t>(1, std::min(poll_ms, limit_ms - elapsed)));
  }
}

}  // namespace

bool PathIsUnder(std::u16string_view path, std::u16string_view folder, bool ignore_case) {
  std::size_t len = folder.size();
  while (len > 0 && IsSeparator(folder[len - 1])) --len;
  if (len == 0) return !folder.empty() && !path.empty() && IsSeparator(path[0]);
  if (path.size() < len) return false;
  for (std::size_t i = 0; i < len; ++i)
    if (!SameChar(path[i], folder[i], ignore_case)) return false;
  return path.size() == len || IsSeparator(path[len]);
}

std::u16string ParentFolder(std::u16string_view path) {
  std::size_t end = path.size();
  while (end > 1 && IsSeparator(path[end - 1])) --end;
  std::u16string_view p = path.substr(0, end);
  std::size_t slash = p.find_last_of(u"\\/");
  if (slash == std::u16string_view::npos) return std::u16string();
  std::size_t keep = slash;
  while (keep > 0 && IsSeparator(p[keep - 1])) --keep;
  if (keep == 0) return std::u16string(p.substr(0, 1));                       // "/x" -> "/"
  if (keep == 2 && HasDriveLetter(p)) return std::u16string(p.substr(0, 3));  // "E:\x" -> "E:\"
  return std::u16string(p.substr(0, keep));
}

std::u16string ChildPath(std::u16string_view folder, std::u16string_view name) {
  std::u16string path(folder);
  if (path.empty() || !IsSeparator(path.back())) {
    const std::size_t last = path.find_last_of(u"\\/");
    path += last == std::u16string::npos ? u'\\' : path[last];
  }
  return path + std::u16string(name);
}

bool IsRootPath(std::u16string_view p) {
  if (p.empty()) return false;
  if (std::all_of(p.begin(), p.end(), IsSeparator)) return true;  // "/", and "//" too
  if (HasDriveLetter(p)) return p.size() == 2 || (p.size() == 3 && IsSeparator(p[2]));
  // "\\server\share" with at most a trailing separator.
  if (p.size() > 2 && IsSeparator(p[0]) && IsSeparator(p[1])) {
    std::u16string_view rest = p.substr(2);
    if (IsSeparator(rest.back())) rest.remove_suffix(1);
    const std::size_t sep = rest.find_first_of(u"\\/");
    return sep != std::u16string_view::npos && sep > 0 && sep + 1 < rest.size() &&
           rest.find_first_of(u"\\/", sep + 1) == std::u16string_view::npos;
  }
  return false;
}

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
                                                     bool ignore_case) {
  std::vector<os::ProcessEntry> out;
  if (scope.folder.empty()) return out;
  for (const auto& p : all) {
    if (p.pid == 0 || p.image.empty()) continue;
    if (!PathIsUnder(p.image, scope.folder, ignore_case) &&
        std::none_of(scope.other_volumes.begin(), scope.other_volumes.end(),
                     [&](const std::u16string& v) { return PathIsUnder(p.image, v, ignore_case); }))
      continue;
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
  ops.request_close = [](std::uint32_t pid) { return os::RequestProcessClose(pid); };
  ops.running = [](std::uint32_t pid) { return os::IsProcessRunning(pid); };
  ops.terminate = [](std::uint32_t pid) { return os::TerminateProcessById(pid); };
  ops.now = [] { return os::TimeGetTime(); };
  ops.sleep = [](std::uint32_t ms) { os::Sleep(ms); };
  ops.ignore_case = os::PathsIgnoreCase();
  return ops;
}

CloseReport CloseApplications(const CloseScope& scope, const CloseOptions& options,
                              const ProcessOps& ops) {
  CloseReport failed;
  failed.scope = scope;
  failed.reason = u"the applications could not be closed";
  return base::Trap(base::InFunction(u"mAppsClose.CloseApplications"), failed, [&] {
    CloseReport report;
    report.scope = scope;
    if (scope.folder.empty()) {
      report.outcome = CloseOutcome::kNoScope;
      report.reason = scope.reason;
      return report;
    }
    Spared spared;
    const std::uint32_t self = os::GetCurrentProcessId();
    spared.pids = {self, os::ParentProcessId(self)};
    spared.pids.insert(spared.pids.end(), options.spare_pids.begin(), options.spare_pids.end());
    spared.images = {options.own_path.empty() ? os::ModuleFileName() : options.own_path};
    spared.names = options.spare_names;

    const auto all = ops.enumerate();
    if (all.empty()) {
      report.outcome = CloseOutcome::kFailed;
      report.reason = u"the list of running processes could not be read";
      return report;
    }
    const auto targets = SelectProcessesToClose(all, scope, spared, ops.ignore_case);
    if (targets.empty()) {
      report.outcome = CloseOutcome::kNothingToClose;
      report.reason = u"no application runs from " + scope.folder;
      return report;
    }
    for (const auto& t : targets) {
      const int sent = ops.request_close(t.pid);
      if (sent > 0) report.asked.push_back(t);
      if (sent == 0) report.without_window.push_back(t);
    }
    WaitForExit(targets, options.grace_ms, options.poll_ms, ops);
    report.still_running = StillRunning(scope, spared, ops);

    if (options.force && !report.still_running.empty()) {
      for (const auto& p : report.still_running)
        if (ops.terminate(p.pid)) report.killed.push_back(p);
      WaitForExit(report.killed, 5000, options.poll_ms, ops);
      report.still_running = StillRunning(scope, spared, ops);
    }
    report.outcome =
        report.still_running.empty() ? CloseOutcome::kAllClosed : CloseOutcome::kStillRunning;
    report.reason =
        report.still_running.empty()
            ? base::ToText(static_cast<std::int64_t>(targets.size())) + u" application(s) closed"
            : base::ToText(static_cast<std::int64_t>(report.still_running.size())) +
                  u" application(s) still running after " + base::ToText(options.grace_ms) +
                  u" ms: " + List(report.still_running);
    return report;
  });
}

}  // namespace sys
