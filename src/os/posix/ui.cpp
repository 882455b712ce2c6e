// POSIX side of the seam: the message box.
//
// Ways to show a box, tried in this order until one shows it:
//   1. a graphical session (DISPLAY or WAYLAND_DISPLAY set): zenity, kdialog, then xmessage. A
//      dialog program that cannot come up (no usable display, an option it does not know) is
//      told apart from one the user closed, and the next way is tried;
//   2. the controlling terminal: a text box on /dev/tty (the caption, the icon word, the text,
//      the numbered buttons) that reads the answer a line at a time;
//   3. a box with only an OK button, in a process without a controlling terminal whose output
//      still goes to one (the ejector, started in a session of its own from a shell): the box
//      is printed there as a message, and nothing is read, so the shell keeps its input;
//   4. a graphical session again: a terminal window (x-terminal-emulator, xterm) holding the
//      text box;
//   5. nothing left: the box and what was missing to show it go to the log, standard error, the
//      system log and a desktop notification where there is one; the answer is what closing
//      the box gives.
// TVEJECT_TTY names a file to use in place of /dev/tty (a pseudo-terminal's slave, say); when
// it is set no dialog and no window is tried (ways 1 and 4), so tests never raise a real one.
#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/debug_log.h"
#include "base/text.h"
#include "os/posix/spawn.h"
#include "os/side.h"
#include "os/types.h"
#include "os/ui.h"

namespace os {
namespace {

constexpr std::uint32_t kErrorInvalidMessageBoxStyle = 1438;
constexpr std::int32_t kIdTryAgain = 10;
constexpr std::int32_t kIdContinue = 11;

// A button: its answer, the word it shows and its English word (an answer in English is
// understood whatever the box shows).
struct Button {
  std::int32_t id;
  std::string_view name;
  std::string_view english;
};

// The system's words for the buttons, as Windows shows them in these languages, in the order
// OK, Cancel, Abort, Retry, Ignore, Yes, No, Try Again, Continue, then the words that stand for
// the icons (Error, Question, Warning, Information); English for any other language.
using Words = std::array<std::string_view, 13>;
constexpr std::pair<std::string_view, Words> kSystemWords[] = {
    {"en",
     {"OK", "Cancel", "Abort", "Retry", "Ignore", "Yes", "No", "Try Again", "Continue", "Error",
      "Question", "Warning", "Information"}},
    {"de",
     {"OK", "Abbrechen", "Abbrechen", "Wiederholen", "Ignorieren", "Ja", "Nein", "Wiederholen",
      "Weiter", "Fehler", "Frage", "Warnung", "Information"}},
    {"es",
     {"Aceptar", "Cancelar", "Anular", "Reintentar", "Omitir", "S\u00ED", "No", "Reintentar",
      "Continuar", "Error", "Pregunta", "Advertencia", "Informaci\u00F3n"}},
    {"fr",
     {"OK", "Annuler", "Abandonner", "R\u00E9essayer", "Ignorer", "Oui", "Non", "R\u00E9essayer",
      "Continuer", "Erreur", "Question", "Avertissement", "Information"}},
    {"it",
     {"OK", "Annulla", "Interrompi", "Riprova", "Ignora", "S\u00EC", "No", "Riprova", "Continua",
      "Errore", "Domanda", "Avviso", "Informazioni"}},
    {"nl",
     {"OK", "Annuleren", "Afbreken", "Opnieuw", "Negeren", "Ja", "Nee", "Opnieuw", "Doorgaan",
      "Fout", "Vraag", "Waarschuwing", "Informatie"}},
    {"pt",
     {"OK", "Cancelar", "Anular", "Repetir", "Ignorar", "Sim", "N\u00E3o", "Tentar novamente",
      "Continuar", "Erro", "Pergunta", "Aviso", "Informa\u00E7\u00E3o"}}};

// The words in the language of the user's messages (LC_ALL, LC_MESSAGES, then LANG, as the C
// library takes them).
const Words& SystemWords() {
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) {
      locale = value;
      break;
    }
  }
  for (const auto& [language, words] : kSystemWords) {
    if (locale.substr(0, 2) == language &&
        (locale.size() == 2 || !std::isalpha(static_cast<unsigned char>(locale[2]))))
      return words;
  }
  return kSystemWords[0].second;
}

// The buttons of a style, by its low four bits (MB_OK ... MB_CANCELTRYCONTINUE), as places in
// the words above; none for a value Windows refuses.
std::vector<Button> ButtonsOf(std::uint32_t style) {
  static constexpr std::string_view kStyles[] = {"0", "01", "234", "561", "56", "31", "178"};
  static constexpr std::int32_t kIds[] = {kIdOk,  kIdCancel, kIdAbort,    kIdRetry,   kIdIgnore,
                                          kIdYes, kIdNo,     kIdTryAgain, kIdContinue};
  if ((style & 0xF) >= std::size(kStyles)) return {};
  const Words& shown = SystemWords();
  std::vector<Button> buttons;
  for (char place : kStyles[style & 0xF]) {
    const int word = place - '0';
    buttons.push_back({kIds[word], shown[word], kSystemWords[0].second[word]});
  }
  return buttons;
}

// The word that stands for the icon in a text box ("" for none).
std::string_view IconWord(std::uint32_t style) {
  const std::uint32_t icon = (style & 0xF0) >> 4;
  return icon >= 1 && icon <= 4 ? SystemWords()[8 + icon] : std::string_view();
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

// The button an answer names: its number, its word (or its English one) or its first letter
// (when no other button starts with that letter), without regard to case.
std::optional<std::size_t> ButtonFromAnswer(const std::string& answer,
                                            const std::vector<Button>& buttons) {
  if (!answer.empty() && answer.size() <= 2 &&
      answer.find_first_not_of("0123456789") == std::string::npos) {
    std::size_t n = static_cast<std::size_t>(std::stoi(answer));
    if (n >= 1 && n <= buttons.size()) return n - 1;
    return std::nullopt;
  }
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    if (SameNoCase(answer, buttons[i].name) || SameNoCase(answer, buttons[i].english)) return i;
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

// The box as text: the caption underlined, the icon word and the text.
std::string BoxText(const MessageBoxParams& params) {
  std::string caption = Utf8Lines(params.caption);
  std::string out = "\n" + caption + "\n" + std::string(base::Widen(caption).size(), '-') + "\n";
  std::string_view icon = IconWord(params.style);
  if (!icon.empty()) out += "(" + std::string(icon) + ") ";
  out += Utf8Lines(params.text);
  out += "\n";
  return out;
}

// The text box: shows the box on fd and reads answers until one names a button.
std::int32_t TerminalBox(int fd, const MessageBoxParams& params,
                         const std::vector<Button>& buttons) {
  std::string out = BoxText(params) + "\n";
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
  std::string err;
};

// Waits up to limit_ms for a child; one still running then is killed. Its exit code, or -1.
int WaitBounded(pid_t pid, int limit_ms) {
  for (int waited = 0;; waited += 20) {
    int status = 0;
    pid_t r = waitpid(pid, &status, WNOHANG);
    if (r == pid) return posix::ExitCodeFromStatus(status);
    if (r < 0 && errno != EINTR) return -1;
    if (waited >= limit_ms) {
      kill(pid, SIGKILL);
      posix::WaitForExit(pid);
      return -1;
    }
    usleep(20000);
  }
}

// Runs a dialog program, collecting its standard output and error; exit_code -1 when it did
// not start.
// GTK and Xt read their arguments in the user's locale; where the C library lacks it (a
// "pt_BR.UTF-8" that was never generated) they fall back to ASCII and refuse or blank any
// other text. Such a user's dialogs run in the C library's UTF-8 locale instead.
std::vector<std::string> DialogEnvironment() {
  if (locale_t user = newlocale(LC_ALL_MASK, "", static_cast<locale_t>(0))) {
    freelocale(user);
    return {};
  }
  return {"LC_ALL=C.UTF-8"};
}

ToolOutput RunTool(const std::vector<std::string>& argv) {
  ToolOutput result;
  int out_pipe[2];
  int err_pipe[2];
  if (pipe2(out_pipe, O_CLOEXEC) != 0) return result;
  if (pipe2(err_pipe, O_CLOEXEC) != 0) {
    close(out_pipe[0]);
    close(out_pipe[1]);
    return result;
  }
  posix::SpawnOptions options;
  options.stdout_fd = out_pipe[1];
  options.stderr_fd = err_pipe[1];
  options.environment = DialogEnvironment();
  posix::SpawnResult spawned = posix::Spawn(argv, options);
  close(out_pipe[1]);
  close(err_pipe[1]);
  if (spawned.pid >= 0) {
    pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
    std::string* into[2] = {&result.out, &result.err};
    int open_count = 2;
    while (open_count > 0) {
      if (poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || fds[i].revents == 0) continue;
        char buf[512];
        ssize_t n = read(fds[i].fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
          fds[i].fd = -1;  // poll skips it from now on
          --open_count;
        } else if (into[i]->size() < 65536) {
          into[i]->append(buf, static_cast<std::size_t>(n));
        }
      }
    }
    result.exit_code = posix::WaitForExit(spawned.pid);
  }
  close(out_pipe[0]);
  close(err_pipe[0]);
  return result;
}

// What GTK, Qt and Xt say when they cannot reach the display. zenity exits with 1 then, as
// when the user closes its box, so its words are what tells the two apart.
bool CouldNotOpenDisplay(const std::string& err) {
  std::string lower = err;
  for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return lower.find("open display") != std::string::npos ||
         lower.find("connect to display") != std::string::npos;
}

// zenity's question dialog with its own buttons suppressed (--switch): one extra button per
// box button, whose label zenity prints when pressed (exit 1). Closing prints nothing and exits
// with 1 as well, a time-out with 5; any other code (255 for an option it does not know, 128+
// for a signal) or a display it could not open means no box came up.
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
  std::string label = Trim(run.out);
  for (const Button& b : buttons) {
    if ((run.exit_code == 0 || run.exit_code == 1) && label == b.name) return b.id;
  }
  if (run.exit_code == 5) return CloseAnswer(buttons);
  if (run.exit_code == 1 && label.empty() && !CouldNotOpenDisplay(run.err))
    return CloseAnswer(buttons);
  return std::nullopt;
}

// kdialog has fixed dialog kinds: a message box for one button, yes/no for two, yes/no/cancel
// for three, with the labels replaced. Where the box has a Cancel button it takes kdialog's
// cancel place, so closing the dialog answers Cancel. Qt aborts when it cannot reach the
// display (134); codes above 2 mean no box came up.
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
  if (run.exit_code < 0 || run.exit_code > 2 || CouldNotOpenDisplay(run.err)) return std::nullopt;
  return by_exit[static_cast<std::size_t>(run.exit_code)];
}

// xmessage (x11-utils), the plainest X dialog: each button exits with its own code, 101 for the
// first and so on; 1 is its error code. It has no icon, so the icon word leads the text as in
// the text box. Without a default button the window manager's close only rings the bell: a
// choice must be made.
std::optional<std::int32_t> XmessageBox(const std::string& xmessage, const MessageBoxParams& params,
                                        const std::vector<Button>& buttons) {
  std::string labels;
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    if (i > 0) labels += ",";
    labels += std::string(buttons[i].name) + ":" + std::to_string(101 + i);
  }
  std::string text = Utf8Lines(params.text);
  std::string_view icon = IconWord(params.style);
  if (!icon.empty()) text = "(" + std::string(icon) + ") " + text;
  // "international" lets Xaw draw the UTF-8 text through a font set.
  ToolOutput run = RunTool({xmessage, "-xrm", "*international: true", "-center", "-title",
                            Utf8Lines(params.caption), "-buttons", labels, text});
  int index = run.exit_code - 101;
  if (index < 0 || static_cast<std::size_t>(index) >= buttons.size()) return std::nullopt;
  return buttons[static_cast<std::size_t>(index)].id;
}

bool HasGraphicalSession() {
  const char* display = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (display && *display) || (wayland && *wayland);
}

std::optional<std::int32_t> DialogBox(const MessageBoxParams& params,
                                      const std::vector<Button>& buttons) {
  using Shower = std::optional<std::int32_t> (*)(const std::string&, const MessageBoxParams&,
                                                 const std::vector<Button>&);
  const std::pair<const char*, Shower> dialogs[] = {
      {"zenity", ZenityBox}, {"kdialog", KdialogBox}, {"xmessage", XmessageBox}};
  for (const auto& [name, show] : dialogs) {
    std::string program = posix::FindOnPath(name);
    if (program.empty()) continue;
    if (auto chosen = show(program, params, buttons)) return chosen;
    DebugLog(u"The dialog program " + base::Widen(program) + u" could not show the box");
  }
  return std::nullopt;
}

// A terminal window holding the text box. The terminal runs a small shell script that writes
// the name of its terminal to a file, then stays until the box is answered (or this process
// ends); the box is shown on that terminal from here. A user who closes the window hangs its
// terminal up: that is the box being closed.
std::optional<std::int32_t> TerminalWindowBox(const MessageBoxParams& params,
                                              const std::vector<Button>& buttons) {
  std::string terminal = posix::FindOnPath("x-terminal-emulator");
  if (terminal.empty()) terminal = posix::FindOnPath("xterm");
  if (terminal.empty()) return std::nullopt;
  const char* tmp = std::getenv("TMPDIR");
  std::string folder = std::string(tmp && *tmp ? tmp : "/tmp") + "/tveject-box.XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return std::nullopt;
  const std::string name_file = folder + "/tty";
  const std::string done_file = folder + "/done";
  const std::string script =
      "tty >\"$1.new\" && mv \"$1.new\" \"$1\"; "
      "while [ ! -e \"$2\" ] && kill -0 \"$3\" 2>/dev/null; do sleep 0.2; done";
  posix::SpawnOptions options;
  options.quiet_stderr = true;
  options.environment = DialogEnvironment();
  // x-terminal-emulator takes -T and -e (Debian's rule for the alternative), as xterm does.
  posix::SpawnResult spawned =
      posix::Spawn({terminal, "-T", Utf8Lines(params.caption), "-e", "/bin/sh", "-c", script, "sh",
                    name_file, done_file, std::to_string(getpid())},
                   options);
  std::optional<std::int32_t> answer;
  if (spawned.pid >= 0) {
    // Some terminals hand the window to a server and end at once (with 0); an early end with
    // any other code means no window.
    bool ended = false;
    int fd = -1;
    for (int waited = 0; waited < 30000 && fd < 0; waited += 50) {
      std::string tty_name;
      std::string pending;
      int name_fd = open(name_file.c_str(), O_RDONLY | O_CLOEXEC);
      if (name_fd >= 0) {
        if (auto line = ReadLine(name_fd, pending)) tty_name = Trim(*line);
        close(name_fd);
        if (tty_name.rfind("/dev/", 0) != 0) break;
        fd = open(tty_name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        break;
      }
      int status = 0;
      if (!ended && waitpid(spawned.pid, &status, WNOHANG) == spawned.pid) {
        ended = true;
        if (posix::ExitCodeFromStatus(status) != 0) break;
      }
      usleep(50000);
    }
    if (fd >= 0) {
      answer = TerminalBox(fd, params, buttons);
      close(fd);
    }
    int done = open(done_file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (done >= 0) close(done);
    if (!ended) WaitBounded(spawned.pid, 2000);
  }
  unlink(name_file.c_str());
  unlink(done_file.c_str());
  rmdir(folder.c_str());
  return answer;
}

// The terminal this process writes to without owning it: standard error, else standard
// output. A terminal that was hung up answers neither.
int OutputTerminal() {
  for (int fd : {2, 1}) {
    if (isatty(fd)) return fd;
  }
  return -1;
}

// No way was left to show the box: everywhere the user or an administrator may look.
void NotShown(const MessageBoxParams& params) {
  const std::string missing =
      HasGraphicalSession()
          ? "no dialog program could show it: install zenity, kdialog or xmessage (x11-utils), "
            "or a terminal (xterm)"
          : "no display and no terminal to show it";
  DebugLog(u"Message box not shown (" + base::Widen(missing) + u"): " +
           std::u16string(params.caption) + u": " + std::u16string(params.text));
  const std::string caption = Utf8Lines(params.caption);
  const std::string text = Utf8Lines(params.text);
  WriteAll(2, BoxText(params) + "(This message box was not shown: " + missing + ".)\n");
  openlog(nullptr, LOG_PID, LOG_USER);
  syslog(LOG_NOTICE, "%s: %s (message box not shown: %s)", caption.c_str(), text.c_str(),
         missing.c_str());
  closelog();
  std::string notify = posix::FindOnPath("notify-send");
  if (HasGraphicalSession() && !notify.empty()) {
    posix::SpawnOptions options;
    options.quiet_stderr = true;
    options.environment = DialogEnvironment();
    posix::SpawnResult spawned = posix::Spawn({notify, caption, text}, options);
    if (spawned.pid >= 0) WaitBounded(spawned.pid, 3000);
  }
}

}  // namespace

std::int32_t side::MessageBoxIndirectW(const MessageBoxParams& params) {
  std::vector<Button> buttons = ButtonsOf(params.style);
  if (buttons.empty()) {
    SetLastError(kErrorInvalidMessageBoxStyle);
    return 0;
  }
  std::vector<std::string> words(buttons.size());
  for (std::size_t i = 0; i < buttons.size() && i < params.labels.size(); ++i) {
    words[i] = Utf8Lines(params.labels[i]);
    if (!words[i].empty()) buttons[i].name = words[i];
  }

  const char* tty_hook = std::getenv("TVEJECT_TTY");
  bool hooked = tty_hook && *tty_hook;
  if (!hooked && HasGraphicalSession()) {
    if (auto chosen = DialogBox(params, buttons)) return *chosen;
  }
  int fd = open(hooked ? tty_hook : "/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd >= 0) {
    const std::int32_t answer = TerminalBox(fd, params, buttons);
    close(fd);
    return answer;
  }
  int out = OutputTerminal();
  if (out >= 0 && buttons.size() == 1) {
    // Printed from its own line; the shell's prompt, shown before, stays the shell's.
    WriteAll(out, "\r" + BoxText(params));
    return buttons[0].id;
  }
  if (hooked) {
    DebugLog(u"Message box not shown (" + base::Widen(tty_hook) + u" does not open): " +
             std::u16string(params.caption) + u": " + std::u16string(params.text));
    return CloseAnswer(buttons);
  }
  if (HasGraphicalSession()) {
    if (auto chosen = TerminalWindowBox(params, buttons)) return *chosen;
  }
  NotShown(params);
  return CloseAnswer(buttons);
}

}  // namespace os
