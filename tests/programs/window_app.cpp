// A small Windows application with one window, for the tests that close applications politely.
//
//   window_app [--ready FILE] [--close-delay MS] [--life SECONDS] [--ignore-close] [--windowless]
//
// It shows one top-level window and ends when the window is closed (WM_CLOSE); with
// --close-delay it takes that long first, like an application that saves its work. --ready FILE
// is written once the window is shown; --life ends it by itself after that long (120 s by
// default). --ignore-close: WM_CLOSE is ignored. --windowless: like a tray application, its only
// window stays hidden; it ends on WM_CLOSE or at the end of the session (WM_ENDSESSION).
// Elsewhere an application is asked to close by SIGTERM, and the sleeper, which takes the same
// options, is built under this name.
#include <windows.h>

#include <filesystem>
#include <fstream>

#include "options.h"

namespace {

struct Options {
  helper::Options given;
  std::filesystem::path ready = given.Text(u"--ready");
  long close_delay_ms = given.Number(u"--close-delay", 0);
  long life_s = given.Number(u"--life", 120);
  bool ignore_close = given.Has(u"--ignore-close");
  bool windowless = given.Has(u"--windowless");
};

Options options;

// A close is ignored, or waits for the timer of its delay; the end of the session, the close's
// timer and the life's end it.
LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM w, LPARAM l) {
  const bool close = message == WM_CLOSE && !options.ignore_close;
  if (message == WM_QUERYENDSESSION) return TRUE;
  if (close && options.close_delay_ms > 0)
    SetTimer(window, 1, static_cast<UINT>(options.close_delay_ms), nullptr);
  else if (close || message == WM_TIMER || (message == WM_ENDSESSION && w))
    DestroyWindow(window);
  else if (message == WM_DESTROY)
    PostQuitMessage(0);
  else if (message != WM_CLOSE && message != WM_ENDSESSION)
    return DefWindowProcW(window, message, w, l);
  return 0;
}
}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
  const WNDCLASSW wc{0,       WindowProc, 0,       0,       instance,
                     nullptr, nullptr,    nullptr, nullptr, L"TvEjectTestWindow"};
  RegisterClassW(&wc);
  HWND window = CreateWindowW(wc.lpszClassName, L"window_app", WS_OVERLAPPEDWINDOW, 10, 10, 240,
                              120, nullptr, nullptr, instance, nullptr);
  if (!window) return 1;
  if (!options.windowless) ShowWindow(window, SW_SHOWNORMAL);
  SetTimer(window, 2, static_cast<UINT>(options.life_s * 1000), nullptr);
  if (!options.ready.empty()) std::ofstream(options.ready) << "ready\n";
  MSG msg;
  while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
  return 0;
}
