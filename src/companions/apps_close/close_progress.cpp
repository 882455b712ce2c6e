#include "companions/apps_close/close_progress.h"

#include <algorithm>

#include "base/text.h"
#include "companions/common/companion_text.h"

namespace app {
namespace {

// "name (title)", or the name alone when the window has no title or its title is the name.
std::u16string Label(const ClosingApp& app) {
  if (app.title.empty() || app.title == app.name) return app.name;
  return app.name + u" (" + app.title + u")";
}

std::u16string Join(const std::vector<ClosingApp>& apps, std::u16string_view separator) {
  std::u16string out;
  for (const auto& a : apps) {
    if (!out.empty()) out += separator;
    out += Label(a);
  }
  return out;
}

}  // namespace

ProgressView ViewProgress(const ProgressState& state) {
  ProgressView view;
  if (state.apps.empty() || (!state.shown && (state.ended || state.elapsed_ms < kProgressDelayMs)))
    return view;
  view.show = true;
  const std::uint32_t elapsed = std::min(state.elapsed_ms, state.grace_ms);
  // Whole seconds, rounded up: "0 s" only once the time is really out.
  const std::uint32_t left_ms = state.ended ? 0 : state.grace_ms - elapsed;
  const std::u16string seconds = base::ToText(static_cast<std::int64_t>((left_ms + 999) / 1000));
  view.percent = state.ended || state.grace_ms == 0
                     ? 100
                     : static_cast<int>(std::uint64_t{elapsed} * 100 / state.grace_ms);
  if (state.ended) {
    view.text =
        CompanionText(u"TvAppsClose.Messages.Remain", {{u"%list%", Join(state.apps, u"\r\n")}});
    view.line =
        CompanionText(u"TvAppsClose.Messages.Remain", {{u"%list%", Join(state.apps, u", ")}});
  } else {
    view.text = CompanionText(u"TvAppsClose.Messages.Closing",
                              {{u"%list%", Join(state.apps, u"\r\n")}, {u"%seconds%", seconds}});
    view.line = CompanionText(u"TvAppsClose.Messages.ClosingLine",
                              {{u"%list%", Join(state.apps, u", ")}, {u"%seconds%", seconds}});
  }
  // One line for a terminal: each run of the language file's line breaks becomes one space.
  std::u16string line;
  for (const char16_t c : view.line) {
    const bool brk = c == u'\r' || c == u'\n';
    if (!brk)
      line += c;
    else if (!line.empty() && line.back() != u' ')
      line += u' ';
  }
  view.line = std::move(line);
  return view;
}

sys::WaitChoice ChoiceForPress(os::ProgressPress press, const std::function<bool()>& confirm) {
  switch (press) {
    case os::ProgressPress::kCancel:
      return sys::WaitChoice::kStop;
    case os::ProgressPress::kCloseNow:
      return confirm && confirm() ? sys::WaitChoice::kCloseNow : sys::WaitChoice::kWait;
    default:
      return sys::WaitChoice::kWait;
  }
}

}  // namespace app
