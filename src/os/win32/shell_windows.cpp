// Win32 side of the seam: the shell's folder windows. Each entry of the shell's window list
// (IShellWindows) is a browser object; the folder it shows comes from its view (IShellBrowser,
// IFolderView, the folder's PIDL), and Quit closes it. COM is started for the call and ended
// after it, so the caller needs no apartment of its own.
#include <windows.h>

#include <exdisp.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <functional>
#include <string>

#include "os/apps.h"

namespace os {
namespace {

template <class T>
class ComPtr {
 public:
  ComPtr() = default;
  ~ComPtr() {
    if (p_) p_->Release();
  }
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  T** put() { return &p_; }
  void** put_void() { return reinterpret_cast<void**>(&p_); }
  T* operator->() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
};

// The file-system folder a browser object shows; "" for a virtual folder or when it cannot be
// told.
std::u16string FolderOf(IDispatch* item) {
  ComPtr<IServiceProvider> provider;
  if (FAILED(item->QueryInterface(IID_IServiceProvider, provider.put_void()))) return {};
  ComPtr<IShellBrowser> browser;
  if (FAILED(provider->QueryService(SID_STopLevelBrowser, IID_IShellBrowser, browser.put_void())))
    return {};
  ComPtr<IShellView> view;
  if (FAILED(browser->QueryActiveShellView(view.put()))) return {};
  ComPtr<IFolderView> folder_view;
  if (FAILED(view->QueryInterface(IID_IFolderView, folder_view.put_void()))) return {};
  ComPtr<IPersistFolder2> folder;
  if (FAILED(folder_view->GetFolder(IID_IPersistFolder2, folder.put_void()))) return {};
  PIDLIST_ABSOLUTE pidl = nullptr;
  if (FAILED(folder->GetCurFolder(&pidl)) || !pidl) return {};
  wchar_t path[MAX_PATH] = {};
  const bool ok = ::SHGetPathFromIDListW(pidl, path);
  ::CoTaskMemFree(pidl);
  return ok ? std::u16string(reinterpret_cast<const char16_t*>(path)) : std::u16string();
}

// Calls each(browser, hwnd) for every entry of the shell's window list until it returns false.
void ForEachShellWindow(const std::function<bool(IWebBrowserApp*, std::intptr_t)>& each) {
  const HRESULT init = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  {
    ComPtr<IShellWindows> windows;
    if (SUCCEEDED(::CoCreateInstance(CLSID_ShellWindows, nullptr, CLSCTX_ALL, IID_IShellWindows,
                                     windows.put_void()))) {
      long count = 0;
      windows->get_Count(&count);
      for (long i = 0; i < count; ++i) {
        VARIANT index;
        ::VariantInit(&index);
        index.vt = VT_I4;
        index.lVal = i;
        ComPtr<IDispatch> item;
        if (FAILED(windows->Item(index, item.put())) || !item) continue;
        ComPtr<IWebBrowserApp> browser;
        if (FAILED(item->QueryInterface(IID_IWebBrowserApp, browser.put_void()))) continue;
        SHANDLE_PTR hwnd = 0;
        browser->get_HWND(&hwnd);
        if (!each(browser.operator->(), static_cast<std::intptr_t>(hwnd))) break;
      }
    }
  }
  if (SUCCEEDED(init)) ::CoUninitialize();
}

}  // namespace

std::vector<FolderWindow> ShellFolderWindows() {
  std::vector<FolderWindow> out;
  ForEachShellWindow([&](IWebBrowserApp* browser, std::intptr_t hwnd) {
    out.push_back({hwnd, FolderOf(browser)});
    return true;
  });
  return out;
}

bool CloseShellFolderWindow(std::intptr_t window) {
  bool closed = false;
  ForEachShellWindow([&](IWebBrowserApp* browser, std::intptr_t hwnd) {
    if (hwnd != window) return true;
    closed = SUCCEEDED(browser->Quit());
    return false;
  });
  return closed;
}

}  // namespace os
