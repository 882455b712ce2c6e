// POSIX side of the seam: the progress window. On a desktop, zenity's progress dialog fed
// through a pipe ("40" sets the bar, "# text" the text) with the caller's two buttons: "Cancel"
// is its own cancel button, "Close now" an extra button whose label zenity prints when pressed;
// either press ends zenity, so a window that must stay is shown again. Without a desktop, one
// line on standard error redrawn in place when that is a terminal; else nothing at all.
// TVEJECT_TTY set (tests) means no dialog, as for the message box.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/posix/spawn.h"
#include "os/side.h"
#include "os/ui.h"

extern char** environ;

namespace os::side {
namespace {

bool HasDesktop() {
  const char* display = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return ((display && *display) || (wayland && *wayland)) && !std::getenv("TVEJECT_TTY");
}

// zenity reads its updates a line at a time and ends the text at an escaped line break: a
// break inside the text is sent as U+2028 LINE SEPARATOR, which its label breaks at.
std::string OneLine(std::u16string_view text) {
  std::string out;
  const std::string utf8 = base::Narrow(text);
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    if (utf8[i] == '\r' && i + 1 < utf8.size() && utf8[i + 1] == '\n') continue;
    if (utf8[i] == '\r' || utf8[i] == '\n')
      out += "\xE2\x80\xA8";  // U+2028 in UTF-8
    else
      out += utf8[i];
  }
  return out;
}

void WriteAll(int fd, const std::string& text) {
  // A reader that went away makes the write fail (EPIPE; SIGPIPE is ignored): nothing to do.
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n <= 0) return;
    done += static_cast<std::size_t>(n);
  }
}

}  // namespace

struct ProgressDialog::Impl {
  pid_t zenity = -1;
  int to_zenity = -1;    // its standard input
  int from_zenity = -1;  // its standard output: the extra button's label
  bool terminal = false;
  std::string close_now;  // the extra button's label, as zenity prints it
  std::string last;       // the last update, for a dialog shown again
  int percent = 0;
  ProgressPress pressed = ProgressPress::kNone;

  void Send(const std::string& lines) {
    if (to_zenity >= 0) WriteAll(to_zenity, lines);
  }

  // Reaps zenity once it has ended and tells which button ended it.
  void Reap(bool wait) {
    if (zenity < 0) return;
    int status = 0;
    if (::waitpid(zenity, &status, wait ? 0 : WNOHANG) != zenity) return;
    std::string label;
    char buf[256];
    for (ssize_t n; (n = ::read(from_zenity, buf, sizeof buf)) > 0;) label.append(buf, n);
    while (!label.empty() && (label.back() == '\n' || label.back() == '\r')) label.pop_back();
    if (!wait && WIFEXITED(status) && WEXITSTATUS(status) == 1)
      pressed = label == close_now ? ProgressPress::kCloseNow : ProgressPress::kCancel;
    ::close(to_zenity);
    ::close(from_zenity);
    zenity = to_zenity = from_zenity = -1;
  }

  bool StartZenity(std::u16string_view caption, std::u16string_view cancel) {
    const std::string path = posix::FindOnPath("zenity");
    if (path.empty()) return false;
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0) return false;
    if (::pipe2(out, O_CLOEXEC) != 0) {
      ::close(in[0]);
      ::close(in[1]);
      return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<std::string> args = {path,
                                     "--progress",
                                     "--no-markup",
                                     "--width=420",
                                     "--title=" + base::Narrow(caption),
                                     "--text=" + (last.empty() ? std::string(" ") : last),
                                     "--percentage=" + std::to_string(percent),
                                     "--cancel-label=" + base::Narrow(cancel),
                                     "--extra-button=" + close_now};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    if (error != 0) {
      ::close(in[1]);
      ::close(out[0]);
      return false;
    }
    ::signal(SIGPIPE, SIG_IGN);
    zenity = pid;
    to_zenity = in[1];
    from_zenity = out[0];
    return true;
  }
};

ProgressDialog::ProgressDialog() : impl_(std::make_unique<Impl>()) {}

ProgressDialog::~ProgressDialog() {
  Close();
}

bool ProgressDialog::Show(std::u16string_view caption, std::u16string_view close_now,
                          std::u16string_view cancel) {
  Impl& w = *impl_;
  w.Reap(false);
  if (w.zenity >= 0 || w.terminal) return true;
  w.close_now = base::Narrow(close_now);
  w.pressed = ProgressPress::kNone;
  if (HasDesktop() && w.StartZenity(caption, cancel)) return true;
  w.terminal = ::isatty(2) == 1;
  return w.terminal;
}

void ProgressDialog::Update(std::u16string_view text, std::u16string_view line, int percent) {
  Impl& w = *impl_;
  w.last = OneLine(text);
  w.percent = percent < 100 ? percent : 99;  // 100 would make zenity's OK button the way out
  if (w.zenity >= 0) {
    w.Send(std::to_string(w.percent) + "\n# " + w.last + "\n");
  } else if (w.terminal) {
    // Carriage return and erase-to-end-of-line: the line is redrawn where it stands.
    const int filled = (percent < 0 ? 0 : percent > 100 ? 100 : percent) / 5;
    WriteAll(2, "\r\033[K[" + std::string(filled, '#') + std::string(20 - filled, '.') + "] " +
                    base::Narrow(line));
  }
}

ProgressPress ProgressDialog::Pressed() {
  Impl& w = *impl_;
  w.Reap(false);
  const ProgressPress pressed = w.pressed;
  w.pressed = ProgressPress::kNone;
  return pressed;
}

Handle ProgressDialog::Window() {
  return 0;  // zenity's window is another program's
}

void ProgressDialog::Close() {
  Impl& w = *impl_;
  if (w.zenity >= 0) {
    ::kill(w.zenity, SIGTERM);
    w.Reap(true);
  }
  if (w.terminal) WriteAll(2, "\n");
  w.terminal = false;
}

}  // namespace os::side
