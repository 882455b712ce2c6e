// Paths as both companions read them: Windows ("E:\\Suite\\x.exe", "\\\\server\\share") and POSIX
// ("/media/stick/x") alike, "\\" and "/" both separating. No system call.
#pragma once

#include <string>
#include <string_view>

namespace sys {

// True when path is folder or lies below it, whole components only ("C:\Suite2\a.exe" is not
// under "C:\Suite"). "\" and "/" both separate; a trailing separator on folder is optional.
bool PathIsUnder(std::u16string_view path, std::u16string_view folder, bool ignore_case);

// The folder holding path, without a trailing separator except for a root ("C:\", "/"); ""
// when path has no folder part.
std::u16string ParentFolder(std::u16string_view path);

// folder + a separator + name, the separator being the one folder already uses ("\" when it has
// none); no second separator after a folder that ends with one ("E:\", "/").
std::u16string ChildPath(std::u16string_view folder, std::u16string_view name);

// True for a path that is nothing but a root: "/", "C:\", "C:", "\\server\share\".
bool IsRootPath(std::u16string_view path);

// True when a and b are the same text, separators alike and, with ignore_case, letters in
// either case.
bool SamePath(std::u16string_view a, std::u16string_view b, bool ignore_case);

}  // namespace sys
