// The operating-system seam: every call the program makes into the platform goes through the
// functions declared by the headers included here.
//
// Each function keeps the Windows contract the program is written against (what the Win32
// call of the same name answers). os/win32/ calls the real API; os/posix/ gives the same
// answers from POSIX, and writes down in os/posix/README.md where it can only come close.
// Tests make seam operations fail on demand through os/fault.h, which the program never includes.
#pragma once

#include "os/apps.h"
#include "os/codepage.h"
#include "os/files.h"
#include "os/locale.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/types.h"
#include "os/ui.h"
#include "os/volume.h"
