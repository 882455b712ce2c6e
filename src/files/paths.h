// Path texts: the full form of a path, the long-path mark, and the folder, name and extension
// parts. Both "\" and "/" separate.
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
