#include "companions/apps_close/apps_close.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <utility>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "companions/apps_close/close_progress.h"
#include "companions/common/companion_log.h"
#include "companions/common/companion_text.h"
#include "files/paths.h"
#include "files/text_file.h"
#include "os/apps.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/ui.h"
#include "text/msgbox.h"
#include "xml/node.h"

namespace app {
namespace {

constexpr std::uint32_t kMaxGraceMs = 3600 * 1000;

// A list of applications for a box, one per line: the program's file name.
std::u16string ListForBox(const std::vector<os::ProcessEntry>& processes) {
  std::u16string out;
  for (const auto& p : processes) {
    if (!out.empty()) out += u"\r\n";
    out += mFileUtils::FileNameOnly(p.image);
  }
  return out;
}

bool WriteCount(std::u16string_view own_folder, std::size_t count) {
  const std::u16string file = sys::ChildPath(own_folder, u"TvAppsClose.out");
  // UTF-8 without a mark, no backups: the program reads the number and deletes the file.
  const bool saved = mStringTools::SaveFile(file, base::ToText(static_cast<std::int64_t>(count)),
                                            true, 2, false, 1252, 0, false, u"", 0, 5);
  DebugLog((saved ? u"Count " : u"Count not written: ") +
           base::ToText(static_cast<std::int64_t>(count)) + u" -> " + file);
  return saved;
}

std::u16string FileName(std::u16string_view path) {
  const std::size_t slash = path.find_last_of(u"\\/");
  return std::u16string(slash == std::u16string_view::npos ? path : path.substr(slash + 1));
}

// Shows the grace period as it goes in the progress window (what it shows is decided by
// ViewProgress; the seam's window only draws) and turns its buttons into the closer's choices.
class ProgressWatcher {
 public:
  explicit ProgressWatcher(std::function<void(std::uint32_t)> sleep) : sleep_(std::move(sleep)) {}

  sys::WaitChoice operator()(const sys::WaitProgress& wait) {
    if (unavailable_) return sys::WaitChoice::kWait;
    const ProgressView view =
        ViewProgress({Apps(wait.running), wait.elapsed_ms, wait.grace_ms, false, shown_});
    if (!view.show) return sys::WaitChoice::kWait;
    window_.Update(view.text, view.line, view.percent);
    if (!shown_ && !Show()) return sys::WaitChoice::kWait;
    const os::ProgressPress press = window_.Pressed();
    const sys::WaitChoice choice = ChoiceForPress(press, [&] { return Confirm(wait.running); });
    if (press != os::ProgressPress::kNone)
      DebugLog(choice == sys::WaitChoice::kStop       ? u"Cancel pressed: the wait stops"
               : choice == sys::WaitChoice::kCloseNow ? u"Close now pressed and confirmed"
                                                      : u"Close now pressed, not confirmed");
    // A dialog that a press took away comes back while the wait goes on.
    if (press != os::ProgressPress::kNone && choice == sys::WaitChoice::kWait) Show();
    return choice;
  }

  // The end of the wait: a window on screen says which applications remain before it goes.
  void Finish(const std::vector<os::ProcessEntry>& remain) {
    if (!shown_) return;
    const ProgressView view = ViewProgress({Apps(remain), 0, 0, true, true});
    if (view.show) {
      window_.Update(view.text, view.line, view.percent);
      // A dialog that the Cancel button took away comes back to say it.
      if (window_.Show(CompanionText(u"TvAppsClose.Messages.Caption"),
                       CompanionText(u"TvAppsClose.Messages.CloseNow"),
                       CompanionText(u"TvAppsClose.Messages.Cancel")))
        sleep_(kRemainShownMs);
    }
    window_.Close();
  }

 private:
  static constexpr std::uint32_t kRemainShownMs = 2500;

  bool Show() {
    shown_ = window_.Show(CompanionText(u"TvAppsClose.Messages.Caption"),
                          CompanionText(u"TvAppsClose.Messages.CloseNow"),
                          CompanionText(u"TvAppsClose.Messages.Cancel"));
    unavailable_ = !shown_;
    if (unavailable_) DebugLog(u"No progress window can be shown");
    return shown_;
  }

  // The box is owned by the progress dialog, which runs on a thread of its own: unowned, it
  // could open beneath the dialog, where no click reaches it (an X server without a window
  // manager under Wine does exactly that). Owned, it stands above the dialog, which is disabled
  // until the answer.
  bool Confirm(const std::vector<os::ProcessEntry>& running) {
    const os::Handle owner = window_.Window();
    return mUnicodePatch::MsgBox(CompanionText(u"TvAppsClose.Messages.ConfirmForce",
                                               {{u"%list%", ListForBox(running)}}),
                                 1 | 0x30 | 0x100 | 0x40000, u"", u"", 0, owner,
                                 owner == 0) == os::kIdOk;  // OK/Cancel, Cancel first
  }

  // Titles are asked once per application: a window closing is not a reason to lose its name.
  std::vector<ClosingApp> Apps(const std::vector<os::ProcessEntry>& processes) {
    std::vector<ClosingApp> apps;
    for (const auto& p : processes) {
      auto title = titles_.find(p.pid);
      if (title == titles_.end()) title = titles_.emplace(p.pid, os::WindowTitle(p.pid)).first;
      apps.push_back({FileName(p.image), title->second});
    }
    return apps;
  }

  std::function<void(std::uint32_t)> sleep_;
  os::ProgressWindow window_;
  std::map<std::uint32_t, std::u16string> titles_;
  bool shown_ = false;
  bool unavailable_ = false;
};

}  // namespace

AppsCloseSettings LoadAppsCloseSettings(std::u16string_view file) {
  return base::Trap(
      base::InFunction(u"mAppsClose.LoadAppsCloseSettings"), AppsCloseSettings{}, [&] {
        AppsCloseSettings settings;
        XmlNodePtr root = cXmlNode::Create();
        root->XmlData(mGlobal::LoadTextFile(file));
        if (!base::EqualNoCase(root->Name(), u"TvAppsClose")) return settings;
        const std::u16string grace = root->GetChildValue(u"GraceSeconds");
        std::size_t used = 0;
        const double seconds = base::ReadNumber(grace, used);
        if (used > 0 && used == grace.size() && seconds >= 0 && std::isfinite(seconds)) {
          settings.grace_ms = static_cast<std::uint32_t>(
              std::min(seconds * 1000.0, static_cast<double>(kMaxGraceMs)));
        }
        const std::u16string force = root->GetChildValue(u"ForceClose");
        settings.force =
            force == u"1" || base::EqualNoCase(force, u"true") || base::EqualNoCase(force, u"yes");
        return settings;
      });
}

AppsCloseCommand ParseAppsCloseArguments(const std::vector<std::u16string>& args) {
  AppsCloseCommand command;
  for (const auto& arg : args) {
    if (arg.size() < 2 || (arg[0] != u'/' && arg[0] != u'-')) continue;
    const std::u16string_view name = std::u16string_view(arg).substr(1);
    if (base::EqualNoCase(name, u"now")) command.now = true;
    if (base::EqualNoCase(name, u"out")) command.out = true;
  }
  return command;
}

int RunAppsClose(const std::vector<std::u16string>& args, std::u16string_view own_path,
                 const sys::ProcessOps& ops) {
  return base::Trap(base::InFunction(u"mAppsClose.RunAppsClose"), 2, [&] {
    const AppsCloseCommand command = ParseAppsCloseArguments(args);
    const std::u16string own_folder = sys::ParentFolder(own_path);
    const AppsCloseSettings settings =
        LoadAppsCloseSettings(sys::ChildPath(own_folder, u"TvAppsClose.xml"));
    LoadCompanionLanguage(sys::ChildPath(sys::ParentFolder(own_folder), u"TvEject"));

    sys::CloseOptions options;
    options.grace_ms = settings.grace_ms;
    options.force = settings.force;
    options.own_path = std::u16string(own_path);
    const sys::CloseScope scope = sys::DetermineCloseScope(own_path);
    DebugLog(u"Scope: " + scope.reason);

    // Chosen once: what the box names is what is closed.
    const sys::ClosePlan plan = sys::PlanClose(scope, options, ops);
    if (!command.now && !plan.chosen.empty()) {
      const std::u16string text =
          CompanionText(u"TvAppsClose.Messages.Confirm",
                        {{u"%folder%", scope.folder}, {u"%list%", ListForBox(plan.chosen)}});
      if (mUnicodePatch::MsgBox(text, 1 | 0x20) != os::kIdOk) {
        DebugLog(u"Cancelled: nothing was closed");
        if (command.out) WriteCount(own_folder, plan.chosen.size());
        return 1;
      }
    }

    ProgressWatcher watcher(ops.sleep);
    options.on_wait = [&watcher](const sys::WaitProgress& wait) { return watcher(wait); };
    const sys::CloseReport report = sys::CloseSelected(scope, plan, options, ops);
    watcher.Finish(report.still_running);
    for (const auto& p : report.asked)
      DebugLog(u"Asked to close: " + p.image + u" (" + base::ToText(p.pid) + u")");
    for (const auto& p : report.without_window)
      DebugLog(u"Nothing to ask (no window): " + p.image + u" (" + base::ToText(p.pid) + u")");
    for (const auto& p : report.killed)
      DebugLog(u"Ended by force: " + p.image + u" (" + base::ToText(p.pid) + u")");
    DebugLog(report.reason);
    if (report.outcome == sys::CloseOutcome::kFailed) return 2;
    const std::size_t count = report.still_running.size();
    if (command.out) WriteCount(own_folder, count);
    if (!command.now && count > 0) {
      mUnicodePatch::MsgBox(CompanionText(u"TvAppsClose.Messages.StillRunning",
                                          {{u"%list%", ListForBox(report.still_running)}}),
                            0x30 | 0x10000 | 0x40000);  // MB_SETFOREGROUND | MB_TOPMOST: in front
    }
    return count == 0 ? 0 : 1;
  });
}

int AppsCloseMain(const std::vector<std::u16string>& args) {
  os::RestrictLibrarySearch();
  CompanionLog log(u"TvAppsClose");
  std::u16string line = u"Started:";
  for (const auto& a : args) line += u" " + a;
  DebugLog(line);
  const int code = RunAppsClose(args, os::ModuleFileName());
  DebugLog(u"Exit code " + base::ToText(code));
  return code;
}

}  // namespace app
