// The task dialog of the common controls of version 6, looked up at run time.
#pragma once

#include <windows.h>
// After windows.h, whose types it needs.
#include <commctrl.h>

namespace os::side {

using TaskDialogIndirectFn = HRESULT(WINAPI*)(const TASKDIALOGCONFIG*, int*, int*, BOOL*);

// TaskDialogIndirect where the manifest binds the common controls of version 6; null elsewhere
// (a program without the manifest, such as the tests, gets version 5, which lacks it, and would
// not even load if it imported the function).
TaskDialogIndirectFn TaskDialogFunction();

}  // namespace os::side
