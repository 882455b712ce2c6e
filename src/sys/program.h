// The running program's own file: its folder and its base name, from which the configuration
// and language file names are built.
#pragma once

#include <string>
#include <string_view>

namespace mGlobal {

// The folder of the running program file, without a trailing separator, except at a drive or
// file-system root ("E:\", "/"), which keeps it.
std::u16string ProgramFolder();

// A file in the program folder: the folder, one separator, the name.
std::u16string InProgramFolder(std::u16string_view name);

// The program file's name without its extension ("TvEject").
std::u16string ProgramBaseName();

// Makes the program answer as if it were the file at path ("" goes back to the real one).
// Lets tests build a portable folder around the test binary.
void SetProgramFile(std::u16string_view path);

}  // namespace mGlobal
