// How a program of the platform starts and what its file is called. Each program (TvEject and
// the two companions) defines ProgramMain; the seam's entry point (wWinMain of a GUI-subsystem
// program on Windows, main elsewhere) calls it with the arguments the program was started with,
// its own name left out (ProgramArguments), and returns what it returns as the exit code.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace os {

// What a program file's name ends with: ".exe" on Windows, nothing elsewhere.
extern const std::u16string_view kExecutableSuffix;

}  // namespace os

// Defined by each program, called once by the entry point.
int ProgramMain(std::vector<std::u16string> args);
