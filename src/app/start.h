// The start procedure and the eject sequence of TvEject: confirm, have TvAppsClose close the
// drive's applications, read back how many still run, then either say so and cancel, or start
// TvDiskEjector.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace app {

// Keeps "shell32.dll" loaded, initialises the common controls, then runs the eject sequence.
void Start();

// The eject sequence; every path through it ends by releasing the shell library.
void RunEject();

// Releases the "shell32.dll" handle if one is held.
void FreeShellLibrary();

// The count of applications still running read from the closer's result text: the value of its
// leading number (blanks skipped; no number gives 0), rounded half to even.
std::int32_t ParseCount(std::u16string_view text);

}  // namespace app
