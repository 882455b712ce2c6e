// Message boxes.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "os/types.h"

namespace os {

namespace side {
class ProgressDialog;
}

// Message-box results (IDOK ...).
enum : std::int32_t {
  kIdOk = 1,
  kIdCancel = 2,
  kIdAbort = 3,
  kIdRetry = 4,
  kIdIgnore = 5,
  kIdYes = 6,
  kIdNo = 7,
};

// The members of MSGBOXPARAMSW the program sets.
struct MessageBoxParams {
  std::uint32_t size = 40;
  Handle owner = 0;
  std::u16string_view text;
  std::u16string_view caption;
  std::uint32_t style = 0;  // MB_* flags: buttons (low 4 bits), icon (0x10..0x40), modality
  // The buttons' own words in place of the system's, in the style's order ("Retry", "Cancel"
  // for MB_RETRYCANCEL); a button without one keeps the system's word.
  std::vector<std::u16string_view> labels;
};

// MessageBoxIndirectW: shows a modal box and returns the button pressed (kIdOk ...), or 0
// when no box could be shown.
std::int32_t MessageBoxIndirectW(const MessageBoxParams& params);

// A button of the progress window.
enum class ProgressPress { kNone, kCloseNow, kCancel };

// A small window that shows how a long task goes: a text, a progress bar and two buttons, not
// modal, so that the caller goes on working and asks now and then which button was pressed.
// Windows: a task dialog (comctl32 version 6) on a thread of its own. POSIX: a zenity progress
// dialog on a desktop, else one line redrawn in place on standard error when that is a
// terminal, else nothing. Nothing here ever blocks the caller.
//
//   os::ProgressWindow window;
//   if (window.Show(u"Closing", u"Close now", u"Cancel")) window.Update(text, line, 40);
//   if (window.Pressed() == os::ProgressPress::kCancel) ...
class ProgressWindow {
 public:
  ProgressWindow();
  ~ProgressWindow();  // closes it
  ProgressWindow(const ProgressWindow&) = delete;
  ProgressWindow& operator=(const ProgressWindow&) = delete;

  // Puts the window on screen (again, after a button closed a dialog that cannot stay);
  // false when there is no way to show one.
  bool Show(std::u16string_view caption, std::u16string_view close_now, std::u16string_view cancel);
  // The text (line: the same on one line, for a terminal) and the bar, 0..100.
  void Update(std::u16string_view text, std::u16string_view line, int percent);
  // The button pressed since the last call; kNone when none was.
  ProgressPress Pressed();
  // The window on screen, to own a box asked about it (so that the box stands above it and the
  // window waits for the answer); 0 when it has none (a terminal line, zenity, nothing shown).
  Handle Window();
  // Takes the window off the screen (a terminal keeps its last line).
  void Close();

 private:
  std::unique_ptr<side::ProgressDialog> dialog_;
  ProgressPress answered_ = ProgressPress::kNone;  // a test's answer (os::fault)
};

}  // namespace os
