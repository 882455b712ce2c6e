#include "sys/sync_shell.h"

#include "base/trap.h"
#include "os/process.h"

namespace mSyncShell {
namespace {

// A text the shell reads through a pointer: absent stays a null pointer, the rest is copied
// so that it ends with a NUL.
class ShellText {
 public:
  explicit ShellText(NullableText text) {
    if (text) value_.emplace(*text);
  }
  const char16_t* get() const { return value_ ? value_->c_str() : nullptr; }

 private:
  std::optional<std::u16string> value_;
};

// The platform's rule for a successful start, applied to a result or a process handle alike.
bool Started(std::intptr_t value) {
  return static_cast<std::int32_t>(value) >= 33;
}

}  // namespace

int ShowCommand(std::int32_t show_mode) {
  switch (show_mode) {
    case 1:
      return 1;  // SW_SHOWNORMAL
    case 2:
      return 2;  // SW_SHOWMINIMIZED
    case 3:
      return 3;  // SW_SHOWMAXIMIZED
    case 4:
      return 4;  // SW_SHOWNOACTIVATE
    case 6:
      return 7;  // SW_SHOWMINNOACTIVE
    default:
      return 0;  // SW_HIDE, also for 5 and every value the program does not know
  }
}

bool ShellExec(std::u16string_view file, std::int32_t show_mode, NullableText parameters,
               NullableText folder, NullableText verb, os::Handle owner, std::int32_t& result) {
  return base::Trap(base::InFunction(u"mSyncShell.ShellExec"), false, [&] {
    ShellText file_text(file), parameters_text(parameters), folder_text(folder), verb_text(verb);
    std::intptr_t answer =
        os::ShellExecuteW(owner, verb_text.get(), file_text.get(), parameters_text.get(),
                          folder_text.get(), ShowCommand(show_mode));
    result = static_cast<std::int32_t>(answer);
    return Started(answer);
  });
}

bool ShellExecEx(std::u16string_view file, std::int32_t show_mode, NullableText parameters,
                 NullableText folder, NullableText verb, os::Handle owner, os::Process& process) {
  return base::Trap(base::InFunction(u"mSyncShell.ShellExecEx"), false, [&] {
    ShellText file_text(file), parameters_text(parameters), folder_text(folder), verb_text(verb);
    os::ShellExecuteInfo info;
    info.size = 60;
    info.mask = os::kSeeMaskNoCloseProcess | os::kSeeMaskFlagNoUi;
    info.owner = owner;
    info.verb = verb_text.get();
    info.file = file_text.get();
    info.parameters = parameters_text.get();
    info.directory = folder_text.get();
    info.show = ShowCommand(show_mode);
    // The call's own success flag is not looked at: the handle alone tells, by the same rule
    // as the simple call's result.
    os::ShellExecuteExW(info);
    process = std::move(info.process);
    return Started(process.get());
  });
}

bool SyncShell(std::u16string_view file, NullableText parameters, NullableText folder,
               std::int32_t show_mode, std::u16string& error_text, std::int32_t timeout_ms,
               NullableText verb) {
  try {
    os::Process started;
    if (!ShellExecEx(file, show_mode, parameters, folder, verb, 0, started)) return false;
    // The handle stays open on purpose, whatever happens: the program ends soon after and that
    // releases it.
    const os::Handle process = started.release();
    if (process == 0) {
      // Unreachable under the rule of 33 or more; kept for a shell that starts without a handle.
      error_text =
          u"This program could not determine whether the process started."
          u"Please watch the program and check it completes.";
      return false;
    }
    bool result = true;
    const std::int32_t start = static_cast<std::int32_t>(os::TimeGetTime());
    // A failed read leaves the status as it was; starting from 0, that ends the wait.
    std::uint32_t status = 0;
    do {
      os::GetExitCodeProcess(process, &status);
      os::PumpMessages();
      os::Sleep(10);
      std::int32_t elapsed = base::CheckedSub(static_cast<std::int32_t>(os::TimeGetTime()), start);
      if (elapsed > timeout_ms) {
        // The program is left running.
        error_text = u"The process has timed out.";
        result = false;
        status = 0;
      }
    } while (status == os::kStillActive);
    return result;
  } catch (...) {
    error_text = base::ReportTrap(base::InFunction(u"mSyncShell.SyncShell")).Description();
    return false;
  }
}

}  // namespace mSyncShell
