// Win32 side of the seam: the message box.
#include "os/win32/task_dialog.h"

#include <windows.h>

#include <string>
#include <vector>

#include "os/side.h"
#include "os/types.h"
#include "os/ui.h"

namespace os {
namespace {

const wchar_t* W(const std::u16string& s) {
  return reinterpret_cast<const wchar_t*>(s.c_str());
}

// The buttons of a style, by its low four bits, in the order the box shows them.
std::vector<int> ButtonIds(std::uint32_t style) {
  switch (style & 0xF) {
    case MB_OKCANCEL:
      return {IDOK, IDCANCEL};
    case MB_ABORTRETRYIGNORE:
      return {IDABORT, IDRETRY, IDIGNORE};
    case MB_YESNOCANCEL:
      return {IDYES, IDNO, IDCANCEL};
    case MB_YESNO:
      return {IDYES, IDNO};
    case MB_RETRYCANCEL:
      return {IDRETRY, IDCANCEL};
    case MB_CANCELTRYCONTINUE:
      return {IDCANCEL, IDTRYAGAIN, IDCONTINUE};
    default:
      return {IDOK};
  }
}

// A task dialog sizes its buttons to their words, which a message box does not.
HRESULT CALLBACK OnTaskDialog(HWND window, UINT note, WPARAM, LPARAM, LONG_PTR style) {
  if (note == TDN_CREATED && (style & (MB_TOPMOST | MB_SETFOREGROUND))) {
    ::SetWindowPos(window, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    ::SetForegroundWindow(window);
  }
  return S_OK;
}

std::int32_t LabelledBox(const MessageBoxParams& params, const std::u16string& text,
                         const std::u16string& caption) {
  const side::TaskDialogIndirectFn task_dialog = side::TaskDialogFunction();
  if (!task_dialog) return -1;
  const std::vector<int> ids = ButtonIds(params.style);
  std::vector<std::u16string> words;
  std::vector<TASKDIALOG_BUTTON> buttons;
  words.reserve(ids.size());
  bool cancel = false;
  for (std::size_t i = 0; i < ids.size(); ++i) {
    cancel = cancel || ids[i] == IDCANCEL;
    const std::u16string_view label = i < params.labels.size() ? params.labels[i] : u"";
    static const char16_t* const kSystem[] = {u"",      u"OK",     u"Cancel", u"Abort",
                                              u"Retry", u"Ignore", u"Yes",    u"No"};
    words.emplace_back(!label.empty()         ? std::u16string(label)
                       : ids[i] < 8           ? std::u16string(kSystem[ids[i]])
                       : ids[i] == IDTRYAGAIN ? u"Try Again"
                                              : u"Continue");
    buttons.push_back({ids[i], W(words.back())});
  }
  TASKDIALOGCONFIG config{};
  config.cbSize = sizeof(config);
  config.hwndParent = reinterpret_cast<HWND>(params.owner);
  config.dwFlags = cancel ? TDF_ALLOW_DIALOG_CANCELLATION : 0;
  config.pszWindowTitle = W(caption);
  config.pszContent = W(text);
  switch (params.style & 0xF0) {
    case MB_ICONERROR:
      config.pszMainIcon = TD_ERROR_ICON;
      break;
    case MB_ICONWARNING:
      config.pszMainIcon = TD_WARNING_ICON;
      break;
    case MB_ICONINFORMATION:
    case MB_ICONQUESTION:
      config.pszMainIcon = TD_INFORMATION_ICON;
      break;
    default:
      break;
  }
  config.cButtons = static_cast<UINT>(buttons.size());
  config.pButtons = buttons.data();
  const std::size_t first = (params.style >> 8) & 0xF;
  config.nDefaultButton = ids[first < ids.size() ? first : 0];
  config.pfCallback = OnTaskDialog;
  config.lpCallbackData = static_cast<LONG_PTR>(params.style);
  int pressed = 0;
  if (FAILED(task_dialog(&config, &pressed, nullptr, nullptr))) return -1;
  return pressed;
}

}  // namespace

std::int32_t side::MessageBoxIndirectW(const MessageBoxParams& params) {
  // The texts must end with a NUL for the API.
  std::u16string text(params.text);
  std::u16string caption(params.caption);
  // Buttons with words of their own: a task dialog, where the system has one.
  if (!params.labels.empty()) {
    const std::int32_t pressed = LabelledBox(params, text, caption);
    if (pressed >= 0) return pressed;
  }
  // The program's record says 40 bytes, the size of the 32-bit MSGBOXPARAMSW it was written
  // against; the 64-bit structure is 80 bytes, and that is what the API is given. The
  // program's number stays in its own record.
  MSGBOXPARAMSW box{};
  box.cbSize = sizeof(box);
  box.hwndOwner = reinterpret_cast<HWND>(params.owner);
  box.lpszText = W(text);
  box.lpszCaption = W(caption);
  box.dwStyle = params.style;
  return ::MessageBoxIndirectW(&box);
}

namespace side {

TaskDialogIndirectFn TaskDialogFunction() {
  // The name alone: the manifest's activation context picks version 6 from the system's
  // side-by-side store, where asking for the loaded module's handle may not.
  static const TaskDialogIndirectFn function = [] {
    HMODULE comctl = ::LoadLibraryW(L"comctl32.dll");
    return comctl ? reinterpret_cast<TaskDialogIndirectFn>(
                        reinterpret_cast<void*>(::GetProcAddress(comctl, "TaskDialogIndirect")))
                  : nullptr;
  }();
  return function;
}

}  // namespace side

}  // namespace os
