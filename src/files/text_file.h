// Whole files in and out of memory, and saves that never lose the previous version.
//
// A save first sets the old file aside — into a rotating set of numbered backups, a dated
// backup kept for some days, or a temporary safety copy — writes the new content, pushes it to
// the device, and only then drops the safety copy. A failed write puts the old file back.
//
//   std::u16string text = mGlobal::LoadTextFile(config_path);          // encoding detected
//   mStringTools::SaveFile(config_path, text, true, 2, false, 1252,     // UTF-8, no mark,
//                          0, false, u"", 0, 5);                        // safety copy only
//
// A save cut short (the stick pulled, the process killed) leaves the previous content in the
// safety copy "name.001.tmp"; RecoverInterruptedSave puts it back before the file is read. A
// save that completed but could not delete its copy (a virus scanner holding it) leaves the
// mark "name.001.tmp.stale" beside it, so that the copy is never put back over newer content.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/date.h"

namespace mGlobal {

// Reads Length bytes (the whole file when Length is 0 or less) from Offset into Data. Returns
// the number of bytes asked for, 0 on any failure. Note: with an Offset and no Length the count
// is still the whole file's size and the tail of Data stays zero; callers pass 0 for both.
std::int32_t LoadFile(std::u16string_view FileName, std::string& Data, std::int32_t Offset = 0,
                      std::int32_t Length = 0);

// The whole file as text. AutoDetect: the encoding is detected (ANSI files read with code page
// 1252) and written to Encoding, the byte-order mark handled as WithBOM asks. Otherwise one
// character per byte of the system's ANSI code page. "" when the file is missing, empty or
// unreadable.
std::u16string LoadTextFile(std::u16string_view FileName, bool AutoDetect, std::int32_t& Encoding,
                            bool& WithBOM, bool& BOMChanged);
// The same with AutoDetect true, the outputs dropped.
std::u16string LoadTextFile(std::u16string_view FileName);

// Asks LoadTextFile for the raw bytes: LoadTextFile(name, mGlobal::kRaw).
struct RawBytes {};
inline constexpr RawBytes kRaw{};
// The whole file's bytes unchanged as a raw byte string, an odd trailing byte included; "" when
// the file is missing, empty or unreadable.
std::string LoadTextFile(std::u16string_view FileName, RawBytes);

}  // namespace mGlobal

namespace mStringTools {

// Writes Data to FileName, keeping the old file as a numbered backup (BackupCount >= 1, in
// BackupFolder when given), a dated backup (BackupDays > 0, at most one per BackupMinutes) or
// a temporary safety copy deleted after success. IsText: Data is text, written in Encoding
// (1 UTF-16LE, 2 UTF-8, 3 the CodePage), with a byte-order mark when WithBOM; otherwise its raw
// bytes. Append adds to the end and sets nothing aside. True when the whole content reached the
// device and no safety copy of an earlier version can be put back over it; on false the
// previous file is back under its name (or its safety copy is put back at the next load).
// A save that finds an interrupted save's copy puts it back first (RecoverInterruptedSave).
bool SaveFile(std::u16string_view FileName, const std::u16string& Data, bool IsText,
              std::int32_t Encoding, bool WithBOM, std::uint32_t CodePage, std::int32_t BackupCount,
              bool Append, std::u16string_view BackupFolder, std::int32_t BackupDays,
              std::int32_t BackupMinutes);
// The same for a raw byte string (a file's bytes as LoadTextFile(name, kRaw) gives them): with
// IsText false the bytes are written as they are, an odd count included; with IsText true they
// are decoded as a file's bytes are (encoding detected) and written in Encoding.
bool SaveFile(std::u16string_view FileName, const std::string& Data, bool IsText,
              std::int32_t Encoding, bool WithBOM, std::uint32_t CodePage, std::int32_t BackupCount,
              bool Append, std::u16string_view BackupFolder, std::int32_t BackupDays,
              std::int32_t BackupMinutes);

// The name to move the current file to in the numbered scheme: BaseName + ".001" + Ext, or the
// first free number; when all MaxCount numbers are taken, 001 is deleted, the others move down
// by one and the last number is returned.
std::u16string BackupFileName(std::u16string_view BaseName, std::int32_t MaxCount,
                              std::u16string_view Ext);

// The dated name for a backup made now ("settings_2026-11-15_05-30-12.xml" for settings.xml
// and the format "yyyy-mm-dd_hh-nn-ss"). Deletes the dated backups older than Days first;
// ConvertOld turns old numbered backups (name.001.bak ...) into dated ones. FileName may be a
// pattern holding "*" where the stamp stands.
std::u16string BackupDateFileName(std::u16string_view FileName, std::int32_t Days,
                                  std::u16string_view Format, bool ConvertOld);

// The date of the newest dated backup of FileName (or of a pattern holding "*"), the zero date
// when there is none.
base::Date LastBackupDate(std::u16string_view FileName, std::u16string_view Format);

// A date read from Text by the positions of the letters y, m, d, h, n, s in Format.
base::Date ParseDate(std::u16string_view Text, std::u16string_view Format);

// Puts back the safety copy that an interrupted save left beside FileName ("name.NNN.tmp" with
// no ".stale" mark), replacing whatever partial file stands under the name, and deletes the
// copies that completed saves marked stale. True when a copy was put back.
bool RecoverInterruptedSave(std::u16string_view FileName);

}  // namespace mStringTools
