// Path texts: the full form of a path, the long-path mark, the folder, name and extension
// parts, and the tests and joins the companions make on paths. Both "\" and "/" separate;
// nothing here but GetFullPath asks the system.
//
//   mGlobal::GetFullPath(u"..\\TvAppsClose", u"E:\\Apps\\TvEject");  // u"E:\\Apps\\TvAppsClose"
//   mFileUtils::LongPath(u"E:\\Apps\\x.txt");                          // u"\\\\?\\E:\\Apps\\x.txt"
//   mFileUtils::FileExtention(u"archive.tar.gz");                      // u"gz"
#pragma once

#include <string>
#include <string_view>

namespace mGlobal {

// The absolute, normalised path ("." and ".." resolved) as the system gives it, or "". A path
// that is neither a drive path ("C:...") nor a network path ("\\...") is taken relative to
// base when base is not empty, else to the current folder.
// Note: a full path of 260 characters or more is not supported and gives "".
std::u16string GetFullPath(std::u16string_view path, std::u16string_view base = {});

// The folder part, without its trailing separator. A bare file name comes back unchanged. A
// path that holds any "/" comes back with "/" only; otherwise with "\".
std::u16string FilePathOnly(std::u16string_view path);

}  // namespace mGlobal

namespace mFileUtils {

// The path with "\\?\" in front when it is a drive path ("C:..."), so that the system takes
// names as they are (trailing dots and blanks kept); any other path unchanged.
std::u16string LongPath(std::u16string_view path);

// The part after the last separator, or the whole text when there is none.
std::u16string FileNameOnly(std::u16string_view path);

// The extension without its dot, its case kept; "" when there is none, or when the last dot
// belongs to a folder name ("C:\A.B\file").
std::u16string FileExtention(std::u16string_view name);

}  // namespace mFileUtils

// How the program and its companions take paths apart and join them: Windows ("E:\\Suite\\x.exe",
// "\\\\server\\share") and POSIX ("/media/stick/x") alike.
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
