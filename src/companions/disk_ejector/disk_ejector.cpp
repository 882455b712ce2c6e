#include "companions/disk_ejector/disk_ejector.h"

#include <algorithm>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "companions/common/companion_log.h"
#include "companions/common/companion_text.h"
#include "files/file_utils.h"
#include "files/paths.h"
#include "os/apps.h"
#include "os/files.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/ui.h"
#include "text/msgbox.h"

namespace app {
namespace {

constexpr std::u16string_view kCopyPrefix = u"TvDiskEjector-";
constexpr std::int32_t kInFront = 0x10000 | 0x40000;  // MB_SETFOREGROUND | MB_TOPMOST
constexpr std::int32_t kRetryCancel = 0x5;            // MB_RETRYCANCEL

bool IsOption(std::u16string_view arg, std::u16string_view name) {
  return arg.size() == name.size() + 1 && (arg[0] == u'/' || arg[0] == u'-') &&
         base::EqualNoCase(arg.substr(1), name);
}

// The volume of a path: the drive's own answer in tests, the system's otherwise.
std::u16string VolumeOf(std::u16string_view path, const EjectorOps& ops) {
  return ops.drive.volume_root ? ops.drive.volume_root(path) : os::GetVolumePathNameW(path);
}

// Folders left by earlier runs whose copy could not delete itself (Windows refuses while a copy
// runs; a run cut short leaves its copy). Only the user's own folders are touched, never through
// a link: another user may plant anything under a name in a shared folder. A copy that still
// runs refuses its deletion and its folder is kept.
void SweepOldCopies(const std::u16string& place) {
  std::vector<std::u16string> old;
  for (auto name =
           mFileUtils::FindFile(sys::ChildPath(place, kCopyPrefix) + u"*", os::kAttributeDirectory);
       !name.empty(); name = mFileUtils::FindFile(u"", os::kAttributeDirectory)) {
    old.push_back(sys::ChildPath(place, name));
  }
  for (const auto& folder : old) {
    const os::PathFacts facts = os::GetPathFacts(folder);
    if (!facts.folder || facts.link || !facts.own) continue;
    std::vector<std::u16string> files;
    for (auto name = mFileUtils::FindFile(sys::ChildPath(folder, u"*"), 0); !name.empty();
         name = mFileUtils::FindFile(u"", 0)) {
      files.push_back(sys::ChildPath(folder, name));
    }
    for (const auto& file : files) os::DeleteFileW(file.c_str());
    if (os::RemoveDirectoryW(folder.c_str())) DebugLog(u"Old copy deleted: " + folder);
  }
}

// Puts a copy of the ejector into a new private folder in place and starts it from there; true
// when it runs. Otherwise why says what stood in the way, and nothing is left behind.
bool StartCopyIn(const std::u16string& place, const std::vector<std::u16string>& args,
                 std::u16string_view own_path, const EjectorOps& ops, std::u16string& why) {
  const std::u16string volume = VolumeOf(own_path, ops);
  if (!volume.empty() && base::EqualNoCase(VolumeOf(place, ops), volume)) {
    why = u"on the drive itself";
    return false;
  }
  // Where other users may rename folders, the private folder could be swapped for theirs
  // between its creation and the start of the copy.
  if (os::GetPathFacts(place).others_may_move) {
    why = u"other users may replace what is put there";
    return false;
  }
  SweepOldCopies(place);
  const std::u16string folder = os::CreatePrivateFolder(place, kCopyPrefix);
  if (folder.empty()) {
    why =
        u"no private folder could be made there (error " + base::ToText(os::GetLastError()) + u")";
    return false;
  }
  const std::u16string copy = sys::ChildPath(folder, mFileUtils::FileNameOnly(own_path));
  if (!os::CopyFileW(std::u16string(own_path).c_str(), copy.c_str(), true)) {
    why = u"the copy could not be made (error " + base::ToText(os::GetLastError()) + u")";
    os::DeleteFileW(copy.c_str());
    os::RemoveDirectoryW(folder.c_str());
    return false;
  }

  const std::uint32_t self = os::GetCurrentProcessId();
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
      ops.start ? ops.start(copy, parameters, folder)
                : os::ShellExecuteW(0, u"", copy.c_str(), parameters.c_str(), folder.c_str(), 1);
  if (started <= 32) {
    // A policy may forbid running programs from this place: the next one may allow it.
    why = u"the copy could not be started (" + base::ToText(started) + u")";
    os::DeleteFileW(copy.c_str());
    os::RemoveDirectoryW(folder.c_str());
    return false;
  }
  DebugLog(u"Continuing from " + copy + u" " + parameters);
  return true;
}

// Starts a copy of the ejector from the first place off the drive that takes it; true when it
// runs. Otherwise why lists, place by place, what stood in the way.
bool StartCopy(const std::vector<std::u16string>& args, std::u16string_view own_path,
               const EjectorOps& ops, std::u16string& why) {
  const std::vector<std::u16string> places = ops.places.empty() ? os::ScratchFolders() : ops.places;
  if (places.empty()) why = u"There is no temporary folder.";
  for (const auto& place : places) {
    std::u16string reason;
    if (StartCopyIn(place, args, own_path, ops, reason)) return true;
    DebugLog(u"No copy in " + place + u": " + reason);
    if (!why.empty()) why += u"\r\n";
    why += place + u": " + reason;
  }
  DebugLog(u"The ejector works from the drive");
  return false;
}

// Asks a holder to close through one handle (a pidfd) on it, opened and checked once: a number
// handed out again since the search names another program, which is left alone. Its console's
// window is not closed: other programs may be attached to it. Returns the requests sent.
int AskToClose(const os::ProcessEntry& process) {
  os::HeldProcess held(process);
  return held.valid() ? held.RequestClose(false) : -1;
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

// Programs of the system that a user cannot close and that let go of a drive by themselves
// once done with it: search indexers, virus scanners.
bool IsSystemHolder(const os::VolumeHolder& holder) {
  static constexpr std::u16string_view kNames[] = {u"SearchIndexer.exe",
                                                   u"SearchProtocolHost.exe",
                                                   u"SearchFilterHost.exe",
                                                   u"MsMpEng.exe",
                                                   u"MpDefenderCoreService.exe",
                                                   u"NisSrv.exe",
                                                   u"MsSense.exe",
                                                   u"tracker-miner-fs",
                                                   u"tracker-miner-fs-3",
                                                   u"tracker-extract",
                                                   u"tracker-extract-3",
                                                   u"localsearch-3",
                                                   u"baloo_file",
                                                   u"baloo_file_extractor",
                                                   u"updatedb",
                                                   u"updatedb.plocate",
                                                   u"clamd",
                                                   u"clamscan"};
  const std::u16string name = mFileUtils::FileNameOnly(holder.process.image);
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [&](std::u16string_view n) { return base::EqualNoCase(n, name); });
}

// Whether the user's answer may close a holder: one of their own programs, never the system's.
bool MayClose(const os::VolumeHolder& holder) {
  return holder.closable && !IsSystemHolder(holder);
}

// One line per holder: its file name, its window's title, and what it holds on the drive.
std::u16string Programs(const sys::EjectReport& report) {
  static constexpr std::u16string_view kHow[] = {
      u"TvDiskEjector.Messages.HeldProgram", u"TvDiskEjector.Messages.HeldModule",
      u"TvDiskEjector.Messages.HeldFolder", u"TvDiskEjector.Messages.HeldFile",
      u"TvDiskEjector.Messages.HeldStopped"};
  std::u16string out;
  for (const auto& h : report.blockers.processes) {
    std::u16string program =
        h.process.image.empty() ? u"?" : mFileUtils::FileNameOnly(h.process.image);
    // Appended piece by piece: GCC 12 misreads "literal" + string here (-Wrestrict).
    if (!h.title.empty()) program.append(u" \"").append(h.title).append(u"\"");
    program.append(u" (").append(base::ToText(h.process.pid)).append(u")");
    if (!out.empty()) out += u"\r\n";
    out += CompanionText(kHow[static_cast<std::size_t>(h.kind)],
                         {{u"%path%", h.held}, {u"%program%", program}});
    if (IsSystemHolder(h))
      out.append(u" ").append(CompanionText(u"TvDiskEjector.Messages.SystemHolder", {}));
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
    case sys::EjectOutcome::kRefused: {
      // Retry / Cancel, the text saying what each does.
      EjectorMessage refused =
          message(Programs(report).empty() ? u"TvDiskEjector.Messages.Refused"
                                           : u"TvDiskEjector.Messages.RefusedBy",
                  0x30 | kRetryCancel);
      if (report.blockers.uninspected > 0)
        refused.text +=
            u"\r\n\r\n" + CompanionText(u"TvDiskEjector.Messages.Uninspected",
                                        {{u"%count%", base::ToText(report.blockers.uninspected)}});
      const auto& holders = report.blockers.processes;
      const bool closable = std::any_of(holders.begin(), holders.end(), MayClose);
      refused.text += u"\r\n\r\n" + CompanionText(closable ? u"TvDiskEjector.Messages.ChoiceClose"
                                                           : u"TvDiskEjector.Messages.ChoiceRetry",
                                                  {});
      if (closable)
        refused.buttons = {CompanionText(u"TvDiskEjector.Buttons.CloseAndRetry"),
                           CompanionText(u"TvDiskEjector.Buttons.Cancel")};
      return refused;
    }
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
    std::u16string no_copy;  // why the ejector works from the drive
    if (is_copy) {
      // Nothing of this process may stay on the drive: not its file, not its working folder.
      const std::u16string here = sys::ParentFolder(own_path);
      if (!here.empty()) os::SetCurrentDirectoryW(here.c_str());
      WaitForProcesses(command.wait_pids, ops.wait_limit_ms);
    } else {
      if (StartCopy(args, own_path, ops, no_copy)) return 0;
      command.from = std::u16string(own_path);
    }

    const std::u16string folder = sys::ParentFolder(command.from);
    LoadCompanionLanguage(folder);
    sys::EjectOptions options;
    options.tries = command.retry ? sys::kRetryTries : 1;
    sys::EjectReport report = sys::EjectDriveOf(folder, options, ops.drive);
    for (;;) {
      DebugLog(u"Outcome: " + report.reason);
      EjectorMessage message = DescribeEject(report, folder);
      // Working from the drive, the ejector holds it itself: a refusal says so, not who else.
      if (!is_copy && (report.outcome == sys::EjectOutcome::kRefused ||
                       report.outcome == sys::EjectOutcome::kFailed)) {
        const std::u16string drive = report.device.root.empty() ? folder : report.device.root;
        message = {CompanionText(u"TvDiskEjector.Messages.RunsFromDrive",
                                 {{u"%drive%", drive}, {u"%details%", no_copy}}),
                   0x30};
      }
      DebugLog(u"Message: " + message.text);
      // The last word of a program started without a window: in front, or it goes unseen.
      const std::int32_t answer =
          message.buttons.empty() ? mUnicodePatch::MsgBox(message.text, message.flags | kInFront)
                                  : mUnicodePatch::MsgBoxWithButtons(
                                        message.text, message.flags | kInFront, message.buttons);
      if ((message.flags & 0xF) != kRetryCancel || answer != os::kIdRetry) break;
      // Only now, on the user's word: the user's own holders are asked to close as a user
      // would close them, and the eject is asked for again. The box may have stood for long:
      // only a program that still holds the drive, and still is the one named (a pid is handed
      // out again once its process ended), is asked.
      const os::VolumeHolders now = ops.drive.holders(report.plan.volumes);
      std::vector<std::uint32_t> asked;
      for (const os::VolumeHolder& h : now.processes) {
        const std::uint32_t pid = h.process.pid;
        const bool named =
            std::any_of(report.blockers.processes.begin(), report.blockers.processes.end(),
                        [&](const os::VolumeHolder& b) {
                          return b.process.pid == pid && b.process.image == h.process.image;
                        });
        if (!named || !MayClose(h)) continue;
        const int sent = ops.close ? ops.close(pid) : AskToClose(h.process);
        DebugLog(u"Asked " + base::ToText(pid) + u" to close: " + base::ToText(sent));
        if (sent > 0) asked.push_back(pid);
      }
      WaitForProcesses(asked, ops.close_wait_ms);
      report = sys::EjectDriveOf(folder, options, ops.drive);
    }

    if (is_copy) {
      const bool arranged = os::DeleteProgramFileAfterExit(own_path, true);
      DebugLog(
          (arranged ? u"Copy deleted or deletion arranged: " : u"The copy could not be deleted: ") +
          std::u16string(own_path));
    }
    DebugLog(u"Finished");
    return sys::SafeToRemove(report.outcome) ? 0 : 1;
  });
}

int DiskEjectorMain(const std::vector<std::u16string>& args) {
  os::RestrictLibrarySearch();
  CompanionLog log(u"TvDiskEjector");
  DebugLog(u"Started: " + JoinArguments(args));
  return RunDiskEjector(args, os::ModuleFileName());
}

}  // namespace app
