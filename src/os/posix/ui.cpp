// POSIX side of the seam: the message box.
//
// Three ways to show a box, tried in this order:
//   1. a graphical session (DISPLAY or WAYLAND_DISPLAY set) with zenity or kdialog on PATH:
//      a real dialog, its answer mapped back to the button code;
//   2. a terminal: a text box on /dev/tty (the caption, the icon word, the text, the numbered
//      buttons) that reads the answer a line at a time;
//   3. neither: the box is logged and the answer is what closing the box gives.
// TVEJECT_TTY names a file to use in place of /dev/tty (a pseudo-terminal's slave, say); when
// it is set only the text box on that file is tried, so tests never raise a real dialog.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/debug_log.h"
#include "base/text.h"
#include "os/fault.h"
#include "os/posix/spawn.h"
#include "os/types.h"
#include "os/ui.h"

namespace os {
namespace {

constexpr std::uint32_t kErrorInvalidMessageBoxStyle = 1438;
constexpr std::int32_t kIdTryAgain = 10;
constexpr std::int32_t kIdContinue = 11;

struct Button {
  std::int32_t id;
  std::string_view name;
};

// The buttons of a style, by its low four bits (MB_OK ... MB_CANCELTRYCONTINUE); none for a
// value Windows refuses.
std::vector<Button> ButtonsOf(std::uint32_t style) {
  switch (style & 0xF) {
    case 0:
      return {{kIdOk, "OK"}};
    case 1:
      return {{kIdOk, "OK"}, {kIdCancel, "Cancel"}};
    case 2:
      return {{kIdAbort, "Abort"}, {kIdRetry, "Retry"}, {kIdIgnore, "Ignore"}};
    case 3:
      return {{kIdYes, "Yes"}, {kIdNo, "No"}, {kIdCancel, "Cancel"}};
    case 4:
      return {{kIdYes, "Yes"}, {kIdNo, "No"}};
    case 5:
      return {{kIdRetry, "Retry"}, {kIdCancel, "Cancel"}};
    case 6:
      return {{kIdCancel, "Cancel"}, {kIdTryAgain, "Try Again"}, {kIdContinue, "Continue"}};
    default:
      return {};
  }
}

// The word that stands for the icon in a text box ("" for none).
std::string_view IconWord(std::uint32_t style) {
  switch (style & 0xF0) {
    case 0x10:
      return "Error";
    case 0x20:
      return "Question";
    case 0x30:
      return "Warning";
    case 0x40:
      return "Information";
    default:
      return "";
  }
}

// What closing the box answers: Cancel where there is a Cancel button, OK for OK alone. A
// Yes/No or Abort/Retry/Ignore box cannot be closed on Windows without a choice; there the
// answer is 0, as for a box that could not be shown.
std::int32_t CloseAnswer(const std::vector<Button>& buttons) {
  for (const Button& b : buttons) {
    if (b.id == kIdCancel) return kIdCancel;
  }
  if (buttons.size() == 1) return buttons[0].id;
  return 0;
}

// The button an empty answer picks: the first, or the one MB_DEFBUTTON2..4 names.
std::size_t DefaultButton(std::uint32_t style, std::size_t count) {
  std::size_t index = (style >> 8) & 0xF;
  return index < count ? index : 0;
}

// Line breaks of the text as the terminal and the dialogs want them: CR LF and lone CR
// become LF.
std::string Utf8Lines(std::u16string_view text) {
  std::string out = base::Narrow(text);
  std::string lines;
  lines.reserve(out.size());
  for (std::size_t i = 0; i < out.size(); ++i) {
    if (out[i] == '\r') {
      lines += '\n';
      if (i + 1 < out.size() && out[i + 1] == '\n') ++i;
    } else {
      lines += out[i];
    }
  }
  return lines;
}

std::string Trim(std::string_view s) {
  std::size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r' || s[b] == '\n')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r' || s[e - 1] == '\n'))
    --e;
  return std::string(s.substr(b, e - b));
}

bool SameNoCase(std::string_view a, std::string_view b) {
  return base::EqualNoCase(base::Widen(a), base::Widen(b));
}

// The button an answer names: its number, its name or its first letter (when no other button
// starts with that letter), without regard to case.
std::optional<std::size_t> ButtonFromAnswer(const std::string& answer,
                                            const std::vector<Button>& buttons) {
  if (!answer.empty() && answer.size() <= 2 &&
      answer.find_first_not_of("0123456789") == std::string::npos) {
    std::size_t n = static_cast<std::size_t>(std::stoi(answer));
    if (n >= 1 && n <= buttons.size()) return n - 1;
    return std::nullopt;
  }
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    if (SameNoCase(answer, buttons[i].name)) return i;
  }
  if (answer.size() == 1) {
    std::optional<std::size_t> found;
    for (std::size_t i = 0; i < buttons.size(); ++i) {
      if (SameNoCase(answer, buttons[i].name.substr(0, 1))) {
        if (found) return std::nullopt;  // two buttons share the letter
        found = i;
      }
    }
    return found;
  }
  return std::nullopt;
}

void WriteAll(int fd, std::string_view s) {
  while (!s.empty()) {
    ssize_t n = write(fd, s.data(), s.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    s.remove_prefix(static_cast<std::size_t>(n));
  }
}

// Reads one line from fd (without its end); nullopt at end of input. A terminal that hangs up
// (EIO) is the end of input too.
std::optional<std::string> ReadLine(int fd, std::string& pending) {
  for (;;) {
    std::size_t nl = pending.find('\n');
    if (nl != std::string::npos) {
      std::string line = pending.substr(0, nl);
      pending.erase(0, nl + 1);
      return line;
    }
    char buf[256];
    ssize_t n = read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (pending.empty()) return std::nullopt;
      std::string line;
      line.swap(pending);
      return line;
    }
    pending.append(buf, static_cast<std::size_t>(n));
  }
}

// The text box: shows the box on fd and reads answers until one names a button.
std::int32_t TerminalBox(int fd, const MessageBoxParams& params,
                         const std::vector<Button>& buttons) {
  std::string caption = Utf8Lines(params.caption);
  std::string out = "\n" + caption + "\n" + std::string(base::Widen(caption).size(), '-') + "\n";
  std::string_view icon = IconWord(params.style);
  if (!icon.empty()) out += "(" + std::string(icon) + ") ";
  out += Utf8Lines(params.text);
  out += "\n\n";
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    if (i > 0) out += "  ";
    out += "[" + std::to_string(i + 1) + "] " + std::string(buttons[i].name);
  }
  out += "\n> ";
  WriteAll(fd, out);

  std::string pending;
  for (;;) {
    std::optional<std::string> line = ReadLine(fd, pending);
    if (!line) {
      WriteAll(fd, "\n");
      return CloseAnswer(buttons);
    }
    std::string answer = Trim(*line);
    if (answer.empty()) return buttons[DefaultButton(params.style, buttons.size())].id;
    if (auto chosen = ButtonFromAnswer(answer, buttons)) return buttons[*chosen].id;
    WriteAll(fd, "Please answer with a number from 1 to " + std::to_string(buttons.size()) +
                     ", a button's name or its first letter.\n> ");
  }
}

struct ToolOutput {
  int exit_code = -1;
  std::string out;
};

// Runs a dialog program, collecting its standard output; exit_code -1 when it did not start.
ToolOutput RunTool(const std::vector<std::string>& argv) {
  ToolOutput result;
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) return result;
  posix::SpawnOptions options;
  options.stdout_fd = pipe_fds[1];
  options.quiet_stderr = true;  // GTK's warnings are not the user's business
  posix::SpawnResult spawned = posix::Spawn(argv, options);
  close(pipe_fds[1]);
  if (spawned.pid < 0) {
    close(pipe_fds[0]);
    return result;
  }
  char buf[256];
  for (;;) {
    ssize_t n = read(pipe_fds[0], buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    result.out.append(buf, static_cast<std::size_t>(n));
  }
  close(pipe_fds[0]);
  result.exit_code = posix::WaitForExit(spawned.pid);
  return result;
}

// zenity's question dialog with its own buttons suppressed (--switch): one extra button per
// box button, whose label zenity prints when pressed; closing prints nothing.
std::optional<std::int32_t> ZenityBox(const std::string& zenity, const MessageBoxParams& params,
                                      const std::vector<Button>& buttons) {
  std::vector<std::string> argv = {zenity,
                                   "--question",
                                   "--switch",
                                   "--no-markup",
                                   "--title=" + Utf8Lines(params.caption),
                                   "--text=" + Utf8Lines(params.text)};
  switch (params.style & 0xF0) {
    case 0x10:
      argv.push_back("--icon-name=dialog-error");
      break;
    case 0x20:
      argv.push_back("--icon-name=dialog-question");
      break;
    case 0x30:
      argv.push_back("--icon-name=dialog-warning");
      break;
    case 0x40:
      argv.push_back("--icon-name=dialog-information");
      break;
    default:
      break;
  }
  for (const Button& b : buttons) argv.push_back("--extra-button=" + std::string(b.name));
  ToolOutput run = RunTool(argv);
  if (run.exit_code != 0 && run.exit_code != 1) return std::nullopt;  // no dialog came up
  std::string label = Trim(run.out);
  if (label.empty()) return CloseAnswer(buttons);
  for (const Button& b : buttons) {
    if (label == b.name) return b.id;
  }
  return std::nullopt;
}

// kdialog has fixed dialog kinds: a message box for one button, yes/no for two, yes/no/cancel
// for three, with the labels replaced. Where the box has a Cancel button it takes kdialog's
// cancel place, so closing the dialog answers Cancel.
std::optional<std::int32_t> KdialogBox(const std::string& kdialog, const MessageBoxParams& params,
                                       const std::vector<Button>& buttons) {
  std::uint32_t icon = params.style & 0xF0;
  std::vector<std::string> argv = {kdialog, "--title", Utf8Lines(params.caption)};
  std::vector<std::int32_t> by_exit;  // the button for exit code 0, 1, 2
  std::string text = Utf8Lines(params.text);
  if (buttons.size() == 1) {
    argv.push_back(icon == 0x10 ? "--error" : icon == 0x30 ? "--sorry" : "--msgbox");
    argv.push_back(text);
    by_exit = {buttons[0].id, buttons[0].id, buttons[0].id};
  } else {
    std::vector<Button> order = buttons;
    std::stable_partition(order.begin(), order.end(),
                          [](const Button& b) { return b.id != kIdCancel; });
    bool three = order.size() == 3;
    argv.push_back(std::string(icon == 0x30 ? "--warning" : "--") +
                   (three ? "yesnocancel" : "yesno"));
    argv.push_back(text);
    argv.insert(argv.end(), {"--yes-label", std::string(order[0].name), "--no-label",
                             std::string(order[1].name)});
    if (three) argv.insert(argv.end(), {"--cancel-label", std::string(order[2].name)});
    by_exit = {order[0].id, order[1].id, three ? order[2].id : CloseAnswer(buttons)};
  }
  ToolOutput run = RunTool(argv);
  if (run.exit_code < 0 || run.exit_code > 2) return std::nullopt;
  return by_exit[static_cast<std::size_t>(run.exit_code)];
}

std::optional<std::int32_t> GraphicalBox(const MessageBoxParams& params,
                                         const std::vector<Button>& buttons) {
  const char* display = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  if (!(display && *display) && !(wayland && *wayland)) return std::nullopt;
  std::string zenity = posix::FindOnPath("zenity");
  if (!zenity.empty()) return ZenityBox(zenity, params, buttons);
  std::string kdialog = posix::FindOnPath("kdialog");
  if (!kdialog.empty()) return KdialogBox(kdialog, params, buttons);
  return std::nullopt;
}

}  // namespace

std::int32_t MessageBoxIndirectW(const MessageBoxParams& params) {
  std::int32_t answer = 0;
  if (fault::AnswerMessageBox(params, &answer)) return answer;
  std::vector<Button> buttons = ButtonsOf(params.style);
  if (buttons.empty()) {
    SetLastError(kErrorInvalidMessageBoxStyle);
    return 0;
  }

  const char* tty_hook = std::getenv("TVEJECT_TTY");
  bool hooked = tty_hook && *tty_hook;
  if (!hooked) {
    if (auto chosen = GraphicalBox(params, buttons)) return *chosen;
  }
  int fd = open(hooked ? tty_hook : "/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd >= 0) {
    answer = TerminalBox(fd, params, buttons);
    close(fd);
    return answer;
  }

  DebugLog(u"Message box not shown (no terminal, no graphical dialog): " +
           std::u16string(params.caption) + u": " + std::u16string(params.text));
  return CloseAnswer(buttons);
}

}  // namespace os
