#include "app/disk_ejector.h"

#include <algorithm>

#include "app/companion_log.h"
#include "app/companion_text.h"
#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/apps.h"
#include "os/files.h"
#include "os/process.h"
#include "os/program_env.h"
#include "sys/app_closer.h"
#include "sys/file_utils.h"
#include "sys/paths.h"
#include "text/msgbox.h"

namespace app {
namespace {

constexpr std::u16string_view kCopyPrefix = u"TvDiskEjector-";
constexpr std::int32_t kInFront = 0x10000 | 0x40000;  // MB_SETFOREGROUND | MB_TOPMOST

bool IsOption(std::u16string_view arg, std::u16string_view name) {
  return arg.size() == name.size() + 1 && (arg[0] == u'/' || arg[0] == u'-') &&
         base::EqualNoCase(arg.substr(1), name);
}

std::u16string FileName(std::u16string_view path) {
  const std::size_t slash = path.find_last_of(u"\\/");
  return std::u16string(slash == std::u16string_view::npos ? path : path.substr(slash + 1));
}

// ".exe" on Windows, "" on Linux: the copy keeps the original's.
std::u16string Extension(std::u16string_view path) {
  const std::u16string name = FileName(path);
  const std::size_t dot = name.rfind(u'.');
  return dot == std::u16string::npos || dot == 0 ? std::u16string() : name.substr(dot);
}

bool SameVolume(std::u16string_view a, std::u16string_view b) {
  const std::u16string va = os::GetVolumePathNameW(a);
  return !va.empty() && base::EqualNoCase(va, os::GetVolumePathNameW(b));
}

// Copies left by earlier runs that could not delete themselves (Windows refuses while a copy
// runs; a run cut short leaves its copy). A copy that still runs refuses and is kept.
void SweepOldCopies(const std::u16string& temp) {
  std::vector<std::u16string> old;
  for (auto name = mFileUtils::FindFile(sys::ChildPath(temp, kCopyPrefix) + u"*", 0); !name.empty();
       name = mFileUtils::FindFile(u"", 0))
    old.push_back(sys::ChildPath(temp, name));
  for (const auto& file : old) {
    if (os::DeleteFileW(file.c_str())) DebugLog(u"Old copy deleted: " + file);
  }
}

// Starts a copy of the ejector from the temporary folder; true when it runs.
bool StartCopy(const std::vector<std::u16string>& args, std::u16string_view own_path,
               const EjectorOps& ops) {
  std::u16string temp = ops.temp_folder.empty() ? os::GetTempPathW() : ops.temp_folder;
  if (temp.empty()) {
    DebugLog(u"No temporary folder: the ejector works from the drive");
    return false;
  }
  if (SameVolume(temp, own_path))
    DebugLog(u"The temporary folder " + temp + u" is on the drive itself");
  SweepOldCopies(temp);

  const std::uint32_t self = os::GetCurrentProcessId();
  const std::u16string copy =
      sys::ChildPath(temp, std::u16string(kCopyPrefix) + base::ToText(self) + Extension(own_path));
  if (!os::CopyFileW(std::u16string(own_path).c_str(), copy.c_str(), false)) {
    DebugLog(u"The ejector could not be copied to " + copy + u" (error " +
             base::ToText(os::GetLastError()) + u"): it works from the drive");
    return false;
  }
  std::vector<std::u16string> copy_args = args;
  copy_args.insert(copy_args.end(),
                   {u"/from", std::u16string(own_path), u"/wait", base::ToText(self)});
  // The program that started the ejector (TvEject, beside it) ends right after: the copy waits
  // for it as well. Any other parent (a shell, a file manager) is none of its business.
  const std::uint32_t parent = os::ParentProcessId(self);
  const std::u16string parent_image = parent ? os::ProcessImagePath(parent) : u"";
  if (!parent_image.empty() &&
      sys::PathIsUnder(parent_image, sys::ParentFolder(own_path), os::PathsIgnoreCase()))
    copy_args.insert(copy_args.end(), {u"/wait", base::ToText(parent)});

  const std::u16string parameters = JoinArguments(copy_args);
  const std::intptr_t started =
      ops.start ? ops.start(copy, parameters, temp)
                : os::ShellExecuteW(0, u"", copy.c_str(), parameters.c_str(), temp.c_str(), 1);
  if (started <= 32) {
    DebugLog(u"The copy " + copy + u" could not be started (" + base::ToText(started) +
             u"): the ejector works from the drive");
    os::DeleteFileW(copy.c_str());
    return false;
  }
  DebugLog(u"Continuing from " + copy + u" " + parameters);
  return true;
}

void WaitForProcesses(const std::vector<std::uint32_t>& pids, std::uint32_t limit_ms) {
  const std::uint32_t start = os::TimeGetTime();
  for (;;) {
    const bool any = std::any_of(pids.begin(), pids.end(),
                                 [](std::uint32_t pid) { return os::IsProcessRunning(pid); });
    if (!any) return;
    if (os::TimeGetTime() - start >= limit_ms) {
      DebugLog(u"Still waiting after " + base::ToText(limit_ms) + u" ms: ejecting anyway");
      return;
    }
    os::Sleep(100);
  }
}

std::u16string Programs(const sys::EjectReport& report) {
  std::u16string out;
  for (const auto& p : report.blockers) {
    if (!out.empty()) out += u"\r\n";
    out += (p.image.empty() ? u"?" : p.image) + u" (" + base::ToText(p.pid) + u")";
  }
  // Windows names the application itself when it is one that vetoes.
  if (out.empty() && report.answer.veto_type == os::kVetoWindowsApp) out = report.answer.veto_name;
  return out;
}

}  // namespace

EjectorCommand ParseEjectorArguments(const std::vector<std::u16string>& args) {
  EjectorCommand command;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const bool has_value = i + 1 < args.size();
    if (IsOption(args[i], u"retry")) {
      command.retry = true;
    } else if (IsOption(args[i], u"from") && has_value) {
      command.from = args[++i];
    } else if (IsOption(args[i], u"wait") && has_value) {
      const std::string digits = base::Narrow(args[++i]);
      if (!digits.empty() && digits.size() <= 10 &&
          digits.find_first_not_of("0123456789") == std::string::npos) {
        const unsigned long long pid = std::stoull(digits);
        if (pid > 0 && pid <= 0xFFFFFFFFull)
          command.wait_pids.push_back(static_cast<std::uint32_t>(pid));
      }
    }
  }
  return command;
}

std::u16string JoinArguments(const std::vector<std::u16string>& args) {
  std::u16string out;
  for (const auto& arg : args) {
    if (!out.empty()) out += u' ';
    if (!arg.empty() && arg.find_first_of(u" \t\"") == std::u16string::npos) {
      out += arg;
      continue;
    }
    out += u'"';
    std::size_t backslashes = 0;
    for (char16_t c : arg) {
      if (c == u'\\') {
        ++backslashes;
        continue;
      }
      // Backslashes count only before a quote: there they are doubled, and the quote escaped.
      out.append(c == u'"' ? backslashes * 2 + 1 : backslashes, u'\\');
      backslashes = 0;
      out += c;
    }
    out.append(backslashes * 2, u'\\');
    out += u'"';
  }
  return out;
}

EjectorMessage DescribeEject(const sys::EjectReport& report, std::u16string_view folder) {
  const std::u16string drive =
      report.device.root.empty() ? std::u16string(folder) : report.device.root;
  // A drive refused for what it is: the rule that decided says why (a system disk, the device
  // that is not removable); otherwise the report's own words.
  const bool by_rule = report.outcome == sys::EjectOutcome::kNotRemovable ||
                       report.outcome == sys::EjectOutcome::kSystemDisk;
  const std::u16string details =
      by_rule && !report.plan.rule.empty() ? report.plan.rule : report.reason;
  const std::vector<std::pair<std::u16string_view, std::u16string>> values = {
      {u"%drive%", drive},
      {u"%folder%", std::u16string(folder)},
      {u"%details%", details},
      {u"%error%", base::ToText(report.error)},
      {u"%veto%", sys::VetoTypeName(report.answer.veto_type) +
                      (report.answer.veto_name.empty() ? u"" : u": " + report.answer.veto_name)},
      {u"%programs%", Programs(report)},
  };
  auto message = [&](std::u16string_view key, std::int32_t flags) {
    return EjectorMessage{CompanionText(key, values), flags};
  };
  switch (report.outcome) {
    case sys::EjectOutcome::kRemoved:
    case sys::EjectOutcome::kMediaEjected:
    case sys::EjectOutcome::kUnmounted:
      return message(u"TvDiskEjector.Messages.Ejected", 0x40);
    case sys::EjectOutcome::kNotRemovable:
      return message(u"TvDiskEjector.Messages.NotRemovable", 0x30);
    case sys::EjectOutcome::kSystemDisk:
      return message(u"TvDiskEjector.Messages.SystemDisk", 0x30);
    case sys::EjectOutcome::kUnidentified:
      return message(u"TvDiskEjector.Messages.Unidentified", 0x10);
    case sys::EjectOutcome::kRefused:
      return Programs(report).empty() ? message(u"TvDiskEjector.Messages.Refused", 0x30)
                                      : message(u"TvDiskEjector.Messages.RefusedBy", 0x30);
    case sys::EjectOutcome::kFailed:
    default:
      return message(u"TvDiskEjector.Messages.Failed", 0x10);
  }
}

int RunDiskEjector(const std::vector<std::u16string>& args, std::u16string_view own_path,
                   const EjectorOps& ops) {
  return base::Trap(base::InFunction(u"mDiskEjector.RunDiskEjector"), 1, [&] {
    EjectorCommand command = ParseEjectorArguments(args);
    const bool is_copy = !command.from.empty();
    if (is_copy) {
      // Nothing of this process may stay on the drive: not its file, not its working folder.
      const std::u16string here = sys::ParentFolder(own_path);
      if (!here.empty()) os::SetCurrentDirectoryW(here.c_str());
      WaitForProcesses(command.wait_pids, ops.wait_limit_ms);
    } else {
      if (StartCopy(args, own_path, ops)) return 0;
      command.from = std::u16string(own_path);
    }

    const std::u16string folder = sys::ParentFolder(command.from);
    LoadCompanionLanguage(folder);
    sys::EjectOptions options;
    options.tries = command.retry ? sys::kRetryTries : 1;
    const sys::EjectReport report = sys::EjectDriveOf(folder, options, ops.drive);
    DebugLog(u"Outcome: " + report.reason);
    const EjectorMessage message = DescribeEject(report, folder);
    DebugLog(u"Message: " + message.text);
    // The last word of a program started without a window: in front, or it goes unseen.
    mUnicodePatch::MsgBox(message.text, message.flags | kInFront);

    if (is_copy) {
      const bool arranged = os::DeleteProgramFileAfterExit(own_path);
      DebugLog(
          (arranged ? u"Copy deleted or deletion arranged: " : u"The copy could not be deleted: ") +
          std::u16string(own_path));
    }
    DebugLog(u"Finished");
    return sys::SafeToRemove(report.outcome) ? 0 : 1;
  });
}

int DiskEjectorMain() {
  CompanionLog log(u"TvDiskEjector");
  const std::vector<std::u16string> args = os::ProgramArguments();
  DebugLog(u"Started: " + JoinArguments(args));
  return RunDiskEjector(args, os::ModuleFileName());
}

}  // namespace app
