// What TvAppsClose's progress window shows while the applications close, and what its buttons
// lead to: decided here from the state of the wait, so that each platform's window only draws.
//
//   app::ProgressView view = app::ViewProgress({apps, elapsed_ms, grace_ms, false, shown});
//   if (view.show) window.Update(view.text, view.line, view.percent);
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "companions/apps_close/app_closer.h"
#include "os/ui.h"

namespace app {

// The window waits this long before it appears: a close that is over by then shows nothing.
inline constexpr std::uint32_t kProgressDelayMs = 500;

// One application still being closed: its program's file name and the title of its window
// ("" when it has none).
struct ClosingApp {
  std::u16string name;
  std::u16string title;
};

struct ProgressState {
  std::vector<ClosingApp> apps;  // those still running
  std::uint32_t elapsed_ms = 0;
  std::uint32_t grace_ms = 0;
  bool ended = false;  // the wait is over: the apps left are those that remain
  bool shown = false;  // the window is already on screen
};

struct ProgressView {
  bool show = false;    // the window is to be on screen
  std::u16string text;  // the window's text: what is being closed or what remains
  std::u16string line;  // the same on one line, for a terminal
  int percent = 0;      // of the grace period gone, 0..100
};

// The window for a state, its texts from the language (CompanionText).
ProgressView ViewProgress(const ProgressState& state);

// What a press of the window's buttons leads to. "Close now" ends what is left only once
// confirm (asked with the apps still running) says yes; "Cancel" stops the wait.
sys::WaitChoice ChoiceForPress(os::ProgressPress press, const std::function<bool()>& confirm);

}  // namespace app
