// The start procedure and the eject sequence of TvEject.
#pragma once

namespace app {

// Keeps "shell32.dll" loaded, initialises the common controls, then runs the eject sequence.
void Start();

// Releases the "shell32.dll" handle if one is held.
void FreeShellLibrary();

}  // namespace app
