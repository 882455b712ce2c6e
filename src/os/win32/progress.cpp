// Win32 side of the seam: the progress window, a task dialog (TaskDialogIndirect, comctl32
// version 6 as the manifest binds it) run on a thread of its own, so that the caller goes on
// with its work. The dialog's timer brings the caller's latest text and bar to it; its buttons
// are only recorded, and the dialog stays until the caller closes it. TaskDialogIndirect is
// looked up at run time: a program without the manifest (the tests) gets comctl32 version 5,
// which lacks it, and then shows no window rather than failing to load.
#include <windows.h>

#include "os/win32/task_dialog.h"

#include <string>

#include "os/side.h"
#include "os/ui.h"

namespace os::side {
namespace {

constexpr int kCloseNowId = 100;
constexpr int kCancelId = 101;

// SRWLOCK rather than std::mutex: every mingw-w64 thread model has it.
class Guard {
 public:
  explicit Guard(SRWLOCK* lock) : lock_(lock) { ::AcquireSRWLockExclusive(lock_); }
  ~Guard() { ::ReleaseSRWLockExclusive(lock_); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  SRWLOCK* lock_;
};

std::wstring Wide(std::u16string_view text) {
  return std::wstring(text.begin(), text.end());
}

}  // namespace

struct ProgressDialog::Impl {
  SRWLOCK lock = SRWLOCK_INIT;
  std::wstring caption, close_now, cancel, text;
  int percent = 0;
  bool changed = false;
  bool closing = false;
  ProgressPress pressed = ProgressPress::kNone;
  HWND dialog = nullptr;
  HANDLE thread = nullptr;
  HANDLE created = nullptr;  // set once the dialog is up, or has failed to come up

  static HRESULT CALLBACK Callback(HWND window, UINT note, WPARAM wparam, LPARAM, LONG_PTR data) {
    auto* self = reinterpret_cast<Impl*>(data);
    Guard guard(&self->lock);
    switch (note) {
      case TDN_CREATED:
        self->dialog = window;
        ::SendMessageW(window, TDM_SET_PROGRESS_BAR_RANGE, 0, MAKELPARAM(0, 100));
        ::SetEvent(self->created);
        [[fallthrough]];
      case TDN_TIMER:
        if (self->closing) {
          // A click while closing ends it (see TDN_BUTTON_CLICKED).
          ::PostMessageW(window, TDM_CLICK_BUTTON, kCancelId, 0);
        } else if (self->changed) {
          self->changed = false;
          ::SendMessageW(window, TDM_SET_ELEMENT_TEXT, TDE_CONTENT,
                         reinterpret_cast<LPARAM>(self->text.c_str()));
          ::SendMessageW(window, TDM_SET_PROGRESS_BAR_POS, self->percent, 0);
        }
        return S_OK;
      case TDN_BUTTON_CLICKED:
        if (self->closing) return S_OK;
        // Escape and the title bar's close button answer IDCANCEL: both mean Cancel.
        self->pressed = wparam == kCloseNowId ? ProgressPress::kCloseNow : ProgressPress::kCancel;
        return S_FALSE;  // stays open: the caller decides what follows
      case TDN_DESTROYED:
        self->dialog = nullptr;
        return S_OK;
      default:
        return S_OK;
    }
  }

  static DWORD WINAPI Run(void* param) {
    auto* self = reinterpret_cast<Impl*>(param);
    const TaskDialogIndirectFn task_dialog = TaskDialogFunction();
    if (!task_dialog) {
      ::SetEvent(self->created);
      return 1;
    }
    TASKDIALOG_BUTTON buttons[] = {{kCloseNowId, self->close_now.c_str()},
                                   {kCancelId, self->cancel.c_str()}};
    TASKDIALOGCONFIG config{};
    config.cbSize = sizeof config;
    config.dwFlags = TDF_SHOW_PROGRESS_BAR | TDF_CALLBACK_TIMER | TDF_ALLOW_DIALOG_CANCELLATION |
                     TDF_POSITION_RELATIVE_TO_WINDOW;
    config.pszWindowTitle = self->caption.c_str();
    {
      Guard guard(&self->lock);
      config.pszContent = self->text.c_str();
    }
    config.pButtons = buttons;
    config.cButtons = 2;
    config.nDefaultButton = kCancelId;
    config.pfCallback = Callback;
    config.lpCallbackData = reinterpret_cast<LONG_PTR>(self);
    const HRESULT result = task_dialog(&config, nullptr, nullptr, nullptr);
    ::SetEvent(self->created);  // when it failed before TDN_CREATED
    return SUCCEEDED(result) ? 0 : 1;
  }
};

ProgressDialog::ProgressDialog() : impl_(std::make_unique<Impl>()) {}

ProgressDialog::~ProgressDialog() {
  Close();
}

bool ProgressDialog::Show(std::u16string_view caption, std::u16string_view close_now,
                          std::u16string_view cancel) {
  Impl& w = *impl_;
  if (w.thread) return w.dialog != nullptr;
  w.caption = Wide(caption);
  w.close_now = Wide(close_now);
  w.cancel = Wide(cancel);
  w.closing = false;
  w.created = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!w.created) return false;
  w.thread = ::CreateThread(nullptr, 0, Impl::Run, &w, 0, nullptr);
  if (!w.thread) return false;
  // Bounded: a dialog that cannot come up must not hold the closing up.
  ::WaitForSingleObject(w.created, 5000);
  Guard guard(&w.lock);
  return w.dialog != nullptr;
}

void ProgressDialog::Update(std::u16string_view text, std::u16string_view, int percent) {
  Impl& w = *impl_;
  Guard guard(&w.lock);
  w.text = Wide(text);
  w.percent = percent;
  w.changed = true;
}

ProgressPress ProgressDialog::Pressed() {
  Impl& w = *impl_;
  Guard guard(&w.lock);
  const ProgressPress pressed = w.pressed;
  w.pressed = ProgressPress::kNone;
  return pressed;
}

Handle ProgressDialog::Window() {
  Guard guard(&impl_->lock);
  return reinterpret_cast<Handle>(impl_->dialog);
}

void ProgressDialog::Close() {
  Impl& w = *impl_;
  if (!w.thread) return;
  {
    Guard guard(&w.lock);
    w.closing = true;
  }
  // The timer ends the dialog within its period. A dialog that hangs keeps its state: it is
  // left to the process's end rather than freed under it.
  if (::WaitForSingleObject(w.thread, 3000) != WAIT_OBJECT_0) {
    impl_.release();
    impl_ = std::make_unique<Impl>();
    return;
  }
  ::CloseHandle(w.thread);
  ::CloseHandle(w.created);
  w.thread = w.created = nullptr;
}

}  // namespace os::side
