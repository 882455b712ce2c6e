#include "files/text_file.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "files/file_utils.h"
#include "files/paths.h"
#include "os/files.h"
#include "os/process.h"
#include "text/encoding.h"
#include "text/utf8.h"
#include "xml/node.h"

namespace {

using base::ToText;

base::Date Now() {
  os::SystemTime t = os::GetLocalTime();
  return base::MakeDate(t.year, t.month, t.day, t.hour, t.minute, t.second);
}

// The folder part of a path, or "" for a bare name (unlike FilePathOnly, which hands a bare
// name back unchanged).
std::u16string FolderOf(std::u16string_view path) {
  std::size_t cut = path.find_last_of(u"\\/");
  return cut == std::u16string_view::npos ? std::u16string() : std::u16string(path.substr(0, cut));
}

// A file name without its extension, and the extension (without the dot).
std::u16string WithoutExtension(std::u16string_view name) {
  std::u16string ext = mFileUtils::FileExtention(name);
  if (ext.empty()) {
    // A name ending in a dot has an empty extension but still loses the dot.
    std::size_t slash = name.find_last_of(u"\\/");
    std::size_t start = slash == std::u16string_view::npos ? 0 : slash + 1;
    if (name.size() > start && name.back() == u'.')
      return std::u16string(name.substr(0, name.size() - 1));
    return std::u16string(name);
  }
  return std::u16string(name.substr(0, name.size() - ext.size() - 1));
}

// The search pattern for every dated backup of a file: settings.xml -> settings_*.xml. A name
// without an extension keeps the dot (name -> name_*.), as the existing backups are named.
std::u16string DatedPattern(std::u16string_view file_name) {
  return WithoutExtension(file_name) + u"_*." + mFileUtils::FileExtention(file_name);
}

// Numbers formatted with the pattern "000": three digits at least, more when needed.
std::u16string ThreeDigits(std::int32_t n) {
  std::u16string digits = ToText(n);
  while (digits.size() < 3) digits.insert(digits.begin(), u'0');
  return digits;
}

// Lists the names (without folder) that match a pattern, closing the listing before returning,
// so that files can be moved or deleted afterwards without disturbing it.
std::vector<std::u16string> ListFiles(std::u16string_view pattern) {
  std::vector<std::u16string> names;
  for (std::u16string name = mFileUtils::FindFile(pattern, 0); !name.empty();
       name = mFileUtils::FindFile(u"", 0)) {
    names.push_back(std::move(name));
  }
  return names;
}

// The stamp of a dated backup's name: the Format-long text where "*" stands in the pattern.
std::u16string StampOf(std::u16string_view name, std::u16string_view pattern_name,
                       std::size_t stamp_length) {
  std::size_t star = pattern_name.find(u'*');
  if (star == std::u16string_view::npos || star >= name.size()) return std::u16string();
  return std::u16string(name.substr(star, stamp_length));
}

// The lenient numeric value of a field of digits (no digits: 0).
int FieldValue(std::u16string_view text) {
  int value = 0;
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') break;
    value = value * 10 + (c - u'0');
  }
  return value;
}

}  // namespace

namespace mGlobal {

std::int32_t LoadFile(std::u16string_view FileName, std::string& Data, std::int32_t Offset,
                      std::int32_t Length) {
  return base::Trap(base::DansFunction(u"mglobal.LoadFile"), std::int32_t{0}, [&] {
    if (!mFileUtils::FileExists(FileName)) return std::int32_t{0};
    const std::u16string name(FileName);
    const os::File file =
        os::CreateFileW(name.c_str(), os::kGenericRead, os::kFileShareRead, os::kOpenExisting, 0);
    if (!file) return std::int32_t{0};
    double count = Length;
    if (Length < 1) {
      std::uint32_t high = 0;
      std::uint32_t low = os::GetFileSize(file, &high);
      count = static_cast<double>(high) * 4294967296.0 + low;
    }
    if (count > 2147483647.0) base::Raise(base::kOverflow);
    if (Offset > 0) os::SetFilePointer(file, Offset, nullptr, os::kFileBegin);
    const auto n = static_cast<std::int32_t>(count);
    if (n > 0) {
      Data.assign(static_cast<std::size_t>(n), '\0');
      std::uint32_t done = 0;
      if (!os::ReadFile(file, Data.data(), static_cast<std::uint32_t>(n), &done)) {
        return std::int32_t{0};
      }
    }
    return n;
  });
}

std::u16string LoadTextFile(std::u16string_view FileName, bool AutoDetect, std::int32_t& Encoding,
                            bool& WithBOM, bool& BOMChanged) {
  std::string bytes;
  if (LoadFile(FileName, bytes) == 0) return std::u16string();
  if (AutoDetect) {
    Encoding = 0;
    std::u16string text =
        mStringTools::StrDataToUnicode(bytes, Encoding, 1252, WithBOM, BOMChanged);
    DebugLog(u"Loaded text file as " + mStringTools::EncodingName(Encoding) + u" (auto) : " +
             std::u16string(FileName));
    return text;
  }
  DebugLog(u"Loaded file : " + std::u16string(FileName));
  return mStringTools::AnsiBytesToStr(bytes);
}

std::u16string LoadTextFile(std::u16string_view FileName) {
  std::int32_t encoding = 0;
  bool with_bom = false;
  bool bom_changed = false;
  return LoadTextFile(FileName, true, encoding, with_bom, bom_changed);
}

std::string LoadTextFile(std::u16string_view FileName, RawBytes) {
  std::string bytes;
  if (LoadFile(FileName, bytes) == 0) return std::string();
  return bytes;
}

}  // namespace mGlobal

namespace mStringTools {

namespace {

// Text decoded from bytes (taken as UTF-16 when as is 1, detected when 0) and encoded for a
// save in Encoding 1 (UTF-16), 2 (UTF-8) or 3 (the code page).
std::string Reencode(const std::string& bytes, std::int32_t as, std::int32_t Encoding, bool WithBOM,
                     std::uint32_t CodePage) {
  bool bom_changed = false;
  std::u16string text =
      StrDataToUnicode(bytes, as, CodePage, Encoding == 3 ? false : WithBOM, bom_changed);
  if (Encoding == 1) return StrToBytes(text);
  if (Encoding == 2) return mUTF8::UTF8_Encode(text, true);
  return StrUnicodeToCodePage(text, CodePage);
}

// The bytes a save writes for text held in memory.
std::string BytesToWrite(const std::u16string& Data, bool IsText, std::int32_t Encoding,
                         bool WithBOM, std::uint32_t CodePage) {
  if (!IsText) return StrToBytes(Data);
  // The data in memory is always UTF-16 text here, so it is taken as such rather than guessed
  // at: a guess can misjudge text written only in a non-Latin script and save it as mojibake.
  const std::string utf16 = StrToBytes(Data);
  switch (Encoding) {
    case 1:
    case 2:
    case 3:
      return Reencode(utf16, 1, Encoding, WithBOM, CodePage);
    default:
      if (IsUnicode(utf16)) return StrToAnsiBytes(Data);
      return utf16;
  }
}

// The bytes a save writes for a raw byte string: as they are, or, as text, decoded the way a
// file's bytes are (encoding detected) and written in Encoding.
std::string BytesToWrite(const std::string& Data, bool IsText, std::int32_t Encoding, bool WithBOM,
                         std::uint32_t CodePage) {
  if (!IsText) return Data;
  switch (Encoding) {
    case 1:
    case 2:
    case 3:
      return Reencode(Data, 0, Encoding, WithBOM, CodePage);
    default:
      if (IsUnicode(Data)) return StrToAnsiBytes(BytesToStr(Data));
      return Data;
  }
}

// Restores the old file after a failed write, with the line that says how it went.
bool Restore(std::u16string_view FileName, const std::u16string& backup_name,
             const std::u16string& temp_name) {
  if (!backup_name.empty()) {
    if (mFileUtils::MoveFileTo(backup_name, FileName)) {
      DebugLog(u"Original file restored from backup");
    } else {
      DebugLog(u"Error while trying to restore the original filename: " + backup_name + u" => " +
               std::u16string(FileName));
    }
  } else if (!temp_name.empty()) {
    if (mFileUtils::MoveFileTo(temp_name, FileName)) {
      DebugLog(u"Original file restored from automatic backup");
    } else {
      DebugLog(u"Error while trying to restore the original file: " + temp_name + u" => " +
               std::u16string(FileName));
    }
  }
  return false;
}

// The error number of a failed or short write: a short write reports success with fewer bytes,
// which on a file means the device is full.
std::uint32_t WriteError() {
  std::uint32_t error = os::GetLastError();
  return error == 0 ? os::kErrorDiskFull : error;
}

// ---- Safety copies left beside a file ----------------------------------------------------------

// Appended to a safety copy's name, it names the mark of a completed save: "x.xml.001.tmp.stale".
constexpr std::u16string_view kStaleMark = u".stale";

// FindNextFileW's answer at the end of a listing.
constexpr std::uint32_t kErrorNoMoreFiles = 18;

bool FlushFolderOf(const std::u16string& path) {
  const std::u16string folder = FolderOf(path);
  return folder.empty() || os::FlushFolder(folder.c_str());
}

// The safety copies "name.NNN.tmp" standing beside a file and the marks beside them, from one
// listing of the folder.
struct Leftovers {
  bool listed = false;                   // false: the folder could not be read
  std::vector<std::u16string> unmarked;  // copies no completed save marked, by rising number
  std::vector<std::pair<std::u16string, std::u16string>> stale;  // marked copies, with the mark
  std::vector<std::u16string> lone_marks;                        // marks whose copy is gone
};

Leftovers FindLeftovers(const std::u16string& name) {
  Leftovers found;
  const std::size_t base_size = mFileUtils::FileNameOnly(name).size();
  const std::u16string prefix = base::Lower(mFileUtils::FileNameOnly(name) + u".");
  std::map<std::uint64_t, std::u16string> copies;  // number -> path
  std::map<std::uint64_t, std::u16string> marks;
  os::FindData entry;
  const std::u16string pattern = mFileUtils::LongPath(name + u".*");
  const os::FileSearch search = os::FindFirstFileW(pattern.c_str(), &entry);
  if (!search) {
    const std::uint32_t error = os::GetLastError();
    found.listed = error == os::kErrorFileNotFound || error == os::kErrorPathNotFound;
    return found;
  }
  do {
    if (entry.attributes & os::kAttributeDirectory) continue;
    const std::u16string lower = base::Lower(entry.name);
    if (lower.size() <= prefix.size() || lower.compare(0, prefix.size(), prefix) != 0) continue;
    std::size_t digits_end = prefix.size();
    std::uint64_t number = 0;
    while (digits_end < lower.size() && lower[digits_end] >= u'0' && lower[digits_end] <= u'9' &&
           digits_end - prefix.size() < 18) {
      number = number * 10 + (lower[digits_end] - u'0');
      ++digits_end;
    }
    // Three digits at least, as BackupFileName numbers them.
    if (digits_end - prefix.size() < 3) continue;
    const std::u16string_view tail = std::u16string_view(lower).substr(digits_end);
    // The entry's own spelling after the name: a case-sensitive file system needs it.
    const std::u16string path = name + entry.name.substr(base_size);
    if (tail == u".tmp") {
      copies[number] = path;
    } else if (tail.size() == 4 + kStaleMark.size() && tail.substr(0, 4) == u".tmp" &&
               tail.substr(4) == kStaleMark) {
      marks[number] = path;
    }
  } while (os::FindNextFileW(search, &entry));
  found.listed = os::GetLastError() == kErrorNoMoreFiles;
  for (const auto& [number, copy] : copies) {
    auto mark = marks.find(number);
    if (mark == marks.end()) {
      found.unmarked.push_back(copy);
    } else {
      found.stale.emplace_back(copy, mark->second);
    }
  }
  for (const auto& [number, mark] : marks)
    if (!copies.count(number)) found.lone_marks.push_back(mark);
  return found;
}

// The mark's name for a copy (appended, not concatenated: GCC 12 misreads the latter here).
std::u16string MarkOf(const std::u16string& copy) {
  std::u16string mark = copy;
  mark.append(kStaleMark);
  return mark;
}

// Leaves the mark that makes a safety copy stale, on the device before the caller goes on.
bool MarkStale(const std::u16string& copy) {
  const std::u16string mark = MarkOf(copy);
  {
    const os::File file = os::CreateFileW(mark.c_str(), os::kGenericWrite, 0, os::kCreateAlways,
                                          os::kAttributeNormal);
    if (!file) return false;
    // The mark counts by its presence; the line is for whoever finds it in the folder.
    static constexpr std::string_view kNote =
        "The safety copy next to this mark is older than the file it comes from, which was saved "
        "since: both may be deleted.\r\n";
    std::uint32_t done = 0;
    os::WriteFile(file, kNote.data(), static_cast<std::uint32_t>(kNote.size()), &done);
  }
  return FlushFolderOf(copy);
}

struct RecoveryResult {
  bool restored = false;  // a copy was put back under the name
  bool settled = false;   // no unmarked copy and no lone mark is left
};

// Why a copy standing beside the file is put back or not. A save through the safety copy runs:
//   move file -> copy N (N the first free number) ; write and flush the new file ;
//   delete copy N, or when that fails (a scanner holding it) write the mark "copy N.stale" ;
//   flush the folder ; report success.
// So a copy without a mark belongs to a save that has not reported success: it holds the last
// whole version and is put back (the new file, whole or partial, is dropped). A mark is written
// only once the new content is on the device, so a marked copy is older than the file and is
// only deleted. Three rules keep the marks truthful:
// - a save first settles any unmarked copy (puts it back), so at most one unmarked copy ever
//   stands: the one of the save that was cut, whatever number it had to take beside marked
//   copies that could not be deleted yet;
// - a copy is deleted, and the deletion flushed, before its mark: a cut in between leaves a lone
//   mark, never an unmarked stale copy;
// - a lone mark is removed before any save may create a copy of its number (a save refuses to
//   start while one stands), so an old mark never vouches for a new copy.
// A cut at any point of this recovery leaves a state it handles again: the copy is removed from
// its name only by the move that puts it back.
RecoveryResult Recover(const std::u16string& name) {
  RecoveryResult result;
  Leftovers found = FindLeftovers(name);
  if (!found.listed) return result;
  if (!found.unmarked.empty()) {
    // Several unmarked copies come only from older versions of the program, which left a copy
    // behind after a save that completed: the highest number is the newest. The older ones are
    // marked before anything moves, so that a cut cannot leave one of them to be put back.
    for (std::size_t i = 0; i + 1 < found.unmarked.size(); ++i) {
      if (!MarkStale(found.unmarked[i])) return result;
      found.stale.emplace_back(found.unmarked[i], MarkOf(found.unmarked[i]));
    }
    const std::u16string& copy = found.unmarked.back();
    // Whatever stands under the name is the interrupted save's output.
    if (mFileUtils::FileExists(name) && !mFileUtils::KillFile(name, 20)) return result;
    if (!mFileUtils::MoveFileTo(copy, name)) return result;
    FlushFolderOf(name);
    DebugLog(u"Interrupted save: previous file restored from " + copy);
    result.restored = true;
  }
  std::vector<std::u16string> marks = found.lone_marks;
  for (const auto& [copy, mark] : found.stale) {
    if (mFileUtils::KillFile(copy, 2)) marks.push_back(mark);
  }
  if (marks.size() > found.lone_marks.size()) FlushFolderOf(name);
  result.settled = true;
  for (const auto& mark : marks) {
    if (!mFileUtils::KillFile(mark, 2)) result.settled = false;
  }
  if (!marks.empty()) FlushFolderOf(name);
  return result;
}

// ---- The steps of a save ----------------------------------------------------------------------

// What a save was asked to do.
struct SaveJob {
  std::u16string name;
  std::u16string folder;  // FolderOf(name)
  bool append;
  std::int32_t backup_count;
  std::u16string_view backup_folder;
  std::int32_t backup_days;
  std::int32_t backup_minutes;
};

// Where the old content went when it was set aside: a backup or the safety copy.
struct SetAside {
  std::u16string backup_name;
  std::u16string temp_name;
};

// An interrupted save's copy is put back before anything else: beside it, a second copy would
// leave the next load two to choose from, and once this save completed the older copy would undo
// it.
bool SettleInterruptedSave(const std::u16string& name) {
  const Leftovers found = FindLeftovers(name);
  if (found.listed && found.unmarked.empty() && found.lone_marks.empty()) return true;
  if (Recover(name).settled) return true;
  DebugLog(u"Error while restoring an interrupted save: " + name);
  return false;
}

// The backup the old file becomes: numbered (backup_count), dated (backup_days, at most one each
// backup_minutes), or "" for none. False when the folder of numbered backups cannot be made.
bool ChooseBackup(const SaveJob& job, std::u16string* backup_name) {
  std::u16string target_folder;
  if (!job.backup_folder.empty())
    target_folder = job.folder + u"\\" + std::u16string(job.backup_folder);
  const std::u16string in_target =
      target_folder.empty() ? job.name : target_folder + u"\\" + mFileUtils::FileNameOnly(job.name);
  if (job.backup_count >= 1) {
    if (!target_folder.empty() && !mFileUtils::CreateFolder(target_folder)) return false;
    *backup_name = BackupFileName(in_target, job.backup_count, u".bak");
  } else if (job.backup_days > 0) {
    if (!target_folder.empty() && !mFileUtils::CreateFolder(target_folder)) {
      DebugLog(u"Error while creating backups folder (" + target_folder + u")");
    }
    *backup_name = BackupDateFileName(in_target, job.backup_days, u"yyyy-mm-dd_hh-nn-ss", true);
    if (job.backup_minutes > 0) {
      base::Date last = LastBackupDate(in_target, u"yyyy-mm-dd_hh-nn-ss");
      if (base::MinutesBetween(last, Now()) < job.backup_minutes) {
        DebugLog(u"Skip file backup [" + job.name + u"] (recent backup date: " +
                 base::FormatDate(last, u"yyyy/mm/dd hh:nn:ss") + u")");
        backup_name->clear();
      }
    }
  }
  return true;
}

// Moves the old file out of the way: to its backup, else to the safety copy "name.NNN.tmp" that
// is deleted once the new content is on the device. False when it stays where it is.
bool SetOldFileAside(const SaveJob& job, SetAside& aside) {
  std::u16string backup_name;
  if (!ChooseBackup(job, &backup_name)) return false;
  if (!backup_name.empty()) {
    DebugLog(u"Backup previous file in " + std::u16string(job.backup_folder) + u"\\" +
             mFileUtils::FileNameOnly(backup_name));
    if (!mFileUtils::MoveFileTo(job.name, backup_name)) {
      DebugLog(u"Error while moving file : " + job.name + u" => " + backup_name);
      return false;
    }
    aside.backup_name = backup_name;
    return true;
  }
  const std::u16string temp_name = BackupFileName(job.name, 99999, u".tmp");
  if (!mFileUtils::MoveFileTo(job.name, temp_name)) {
    DebugLog(u"Error while moving file: " + job.name + u" => " + temp_name);
    return false;
  }
  aside.temp_name = temp_name;
  return true;
}

// Opens the file for the new content (at its end when appending); empty when it cannot be.
os::File OpenForWriting(const SaveJob& job) {
  os::File file = os::CreateFileW(job.name.c_str(), os::kGenericWrite, 0, os::kOpenAlways,
                                  std::uint32_t{os::kAttributeNormal} | os::kFileFlagRandomAccess);
  if (!file) return file;
  // OPEN_ALWAYS does not truncate: a file standing under the name here was not set aside (the
  // look for it failed on a flaky device, or it came back meanwhile), and the new bytes would
  // land over its start and leave its tail behind. It is left as it is and the save fails.
  if (!job.append && os::GetLastError() == os::kErrorAlreadyExists) {
    file = os::File();
    DebugLog(u"Error while saving file, the previous file was not set aside: " + job.name);
    return file;
  }
  if (job.append &&
      os::SetFilePointer(file, 0, nullptr, os::kFileEnd) == os::kInvalidSetFilePointer) {
    std::uint32_t error = os::GetLastError();
    DebugLog(u"Error while setting file pointer to FILE_END => " + ToText(error) + u" : " +
             mFileUtils::SystemErrorText(error));
    file = os::File();
    mFileUtils::KillFile(job.name, 20);
  }
  return file;
}

// The content in one pinned block of exactly its size, so that the text is not paged out
// half-way through its one write. Empty when no block could be had.
os::LockedBlock PinnedCopy(const std::string& bytes) {
  os::LockedBlock block(bytes.size());
  if (block) std::memcpy(block.data(), bytes.data(), bytes.size());
  return block;
}

// Writes the content and has it on the device before the old one is let go: 0 when done, else
// the error number.
std::uint32_t WriteAndFlush(const os::File& file, const os::LockedBlock& block, std::size_t size) {
  std::uint32_t written = 0;
  if (size > 0 && !(os::WriteFile(file, block.data(), static_cast<std::uint32_t>(size), &written) &&
                    written == size)) {
    return WriteError();
  }
  return os::FlushFileBuffers(file) ? 0 : WriteError();
}

// Has the folder's entry of the new file on the device: 0 when done, else the error number.
std::uint32_t FlushFolderEntry(const std::u16string& folder) {
  return folder.empty() || os::FlushFolder(folder.c_str()) ? 0 : WriteError();
}

// Lets the safety copy go once the new content is on the device: deleted, or when it cannot be,
// marked stale. False when it can be neither: without its mark the next load would put it back,
// so a save whose copy stays unmarked has not completed.
bool LetSafetyCopyGo(const std::u16string& name, const std::u16string& temp_name) {
  if (temp_name.empty()) return true;
  if (mFileUtils::KillFile(temp_name, 20)) {
    // Gone for good before success is reported, or a power cut could bring it back.
    FlushFolderOf(name);
    return true;
  }
  DebugLog(u"Error while deleting file automatic backup: " + temp_name);
  if (MarkStale(temp_name)) return true;
  DebugLog(u"Error while marking file automatic backup as stale: " + temp_name);
  return false;
}

// The saver behind both forms of SaveFile; make_bytes runs under its trap.
bool Save(std::u16string_view FileName, const std::function<std::string()>& make_bytes, bool IsText,
          std::int32_t Encoding, std::int32_t BackupCount, bool Append,
          std::u16string_view BackupFolder, std::int32_t BackupDays, std::int32_t BackupMinutes) {
  const std::u16string name(FileName);
  const SaveJob job{name,         FolderOf(name), Append,       BackupCount,
                    BackupFolder, BackupDays,     BackupMinutes};
  SetAside aside;
  bool restore_needed = false;
  bool result = false;
  bool completed = base::Trap(base::DansFonction(u"SaveFile"), [&] {
    const std::string bytes = make_bytes();
    if (IsText && !Append) {
      DebugLog(u"Save text file as " + EncodingName(Encoding) + u" : " + name);
    }
    if (!job.folder.empty() && !mFileUtils::CreateFolder(job.folder)) return;
    if (!SettleInterruptedSave(name)) return;
    if (!Append && mFileUtils::FileExists(name) && !SetOldFileAside(job, aside)) return;

    // From here on a failure puts the old file back.
    restore_needed = true;
    std::uint32_t error = 0;
    {
      const os::File file = OpenForWriting(job);
      if (!file) return;
      os::LockedBlock block;
      if (!bytes.empty()) {
        block = PinnedCopy(bytes);
        // Without a block the new, empty file stays under the name: the restore below cannot
        // put the safety copy over it, and the copy is put back at the next load.
        if (!block) return;
      }
      error = WriteAndFlush(file, block, bytes.size());
    }  // the block released, then the file closed
    if (error == 0) error = FlushFolderEntry(job.folder);
    if (error != 0) {
      DebugLog(u"Error WriteFile " + ToText(error) + u" : " + mFileUtils::SystemErrorText(error));
      mFileUtils::KillFile(name, 20);
      return;
    }
    if (!LetSafetyCopyGo(name, aside.temp_name)) {
      mFileUtils::KillFile(name, 20);
      return;
    }
    restore_needed = false;
    result = true;
  });
  if (result) return true;
  if (restore_needed || !completed) Restore(FileName, aside.backup_name, aside.temp_name);
  return false;
}

}  // namespace

bool SaveFile(std::u16string_view FileName, const std::u16string& Data, bool IsText,
              std::int32_t Encoding, bool WithBOM, std::uint32_t CodePage, std::int32_t BackupCount,
              bool Append, std::u16string_view BackupFolder, std::int32_t BackupDays,
              std::int32_t BackupMinutes) {
  return Save(
      FileName, [&] { return BytesToWrite(Data, IsText, Encoding, WithBOM, CodePage); }, IsText,
      Encoding, BackupCount, Append, BackupFolder, BackupDays, BackupMinutes);
}

bool SaveFile(std::u16string_view FileName, const std::string& Data, bool IsText,
              std::int32_t Encoding, bool WithBOM, std::uint32_t CodePage, std::int32_t BackupCount,
              bool Append, std::u16string_view BackupFolder, std::int32_t BackupDays,
              std::int32_t BackupMinutes) {
  return Save(
      FileName, [&] { return BytesToWrite(Data, IsText, Encoding, WithBOM, CodePage); }, IsText,
      Encoding, BackupCount, Append, BackupFolder, BackupDays, BackupMinutes);
}

std::u16string BackupFileName(std::u16string_view BaseName, std::int32_t MaxCount,
                              std::u16string_view Ext) {
  return base::Trap(base::InFunction(u"mStringTools.BackupFileName"), std::u16string(), [&] {
    const std::u16string base_name(BaseName);
    auto numbered = [&](std::int32_t n) {
      return base_name + u"." + ThreeDigits(n) + std::u16string(Ext);
    };
    std::int32_t n = 1;
    std::u16string candidate = numbered(n);
    while (mFileUtils::FileExists(candidate)) {
      ++n;
      if (n == MaxCount + 1) {
        mFileUtils::KillFile(numbered(1), -1);
        for (std::int32_t k = 2; k <= MaxCount; ++k)
          mFileUtils::MoveFileTo(numbered(k), numbered(k - 1));
        return numbered(MaxCount);
      }
      candidate = numbered(n);
    }
    return candidate;
  });
}

std::u16string BackupDateFileName(std::u16string_view FileName, std::int32_t Days,
                                  std::u16string_view Format, bool ConvertOld) {
  return base::Trap(base::InFunction(u"mStringTools.BackupDateFileName"), std::u16string(), [&] {
    std::u16string pattern(FileName);
    if (pattern.find(u'*') == std::u16string::npos) {
      if (ConvertOld) {
        const std::u16string folder = FolderOf(FileName);
        for (const auto& old : ListFiles(std::u16string(FileName) + u".???.bak")) {
          const std::u16string old_path = folder.empty() ? old : folder + u"\\" + old;
          double size = 0;
          base::Date date = 0;
          if (!mFileUtils::FileExists(old_path, size, date)) continue;
          std::u16string dated = DatedPattern(FileName);
          dated.replace(dated.find(u'*'), 1, base::FormatDate(date, Format));
          mFileUtils::MoveFileTo(old_path, dated);
        }
      }
      pattern = DatedPattern(FileName);
    }

    const std::u16string folder = FolderOf(pattern);
    const std::u16string pattern_name = mFileUtils::FileNameOnly(pattern);
    const base::Date now = Now();
    for (const auto& name : ListFiles(pattern)) {
      base::Date stamp = ParseDate(StampOf(name, pattern_name, Format.size()), Format);
      if (base::DaysBetween(stamp, now) > Days) {
        const std::u16string full = folder.empty() ? name : folder + u"\\" + name;
        DebugLog(u"Suppression fichier BAK (plus de " + ToText(Days) + u" jours) => " + full);
        mFileUtils::KillFile(full, 20);
      }
    }
    std::u16string result = pattern;
    result.replace(result.find(u'*'), 1, base::FormatDate(now, Format));
    return result;
  });
}

base::Date LastBackupDate(std::u16string_view FileName, std::u16string_view Format) {
  return base::Trap(base::InFunction(u"mStringTools.LastBackupDate"), base::Date{0}, [&] {
    std::u16string pattern(FileName);
    if (pattern.find(u'*') == std::u16string::npos) pattern = DatedPattern(FileName);
    const std::u16string pattern_name = mFileUtils::FileNameOnly(pattern);

    XmlNodePtr list = cXmlNode::Create();
    for (const auto& name : ListFiles(pattern)) {
      base::Date stamp = ParseDate(StampOf(name, pattern_name, Format.size()), Format);
      XmlNodePtr entry = cXmlNode::Create();
      entry->Name(u"file");
      entry->Attribut(u"date", base::FormatDate(stamp, u"yyyymmddhhnnss"));
      list->AddChild(entry);
    }
    if (list->ChildCount() == 0) return base::Date{0};
    // Descending by stamp: the newest backup comes first.
    list->SortChilds(u"a:date", false, 0, false);
    return ParseDate(list->Child(1)->Attribut(u"date"), u"yyyymmddhhnnss");
  });
}

base::Date ParseDate(std::u16string_view Text, std::u16string_view Format) {
  return base::Trap(base::InFunction(u"mStringTools.ParseDate"), base::Date{0}, [&] {
    const std::u16string format = base::Lower(Format);
    auto field = [&](char16_t letter) {
      std::size_t at = format.find(letter);
      if (at == std::u16string::npos) return 0;
      std::size_t end = at;
      while (end < format.size() && format[end] == letter) ++end;
      if (at >= Text.size()) return 0;
      return FieldValue(Text.substr(at, end - at));
    };
    return base::MakeDate(field(u'y'), field(u'm'), field(u'd'), field(u'h'), field(u'n'),
                          field(u's'));
  });
}

bool RecoverInterruptedSave(std::u16string_view FileName) {
  return Recover(std::u16string(FileName)).restored;
}

}  // namespace mStringTools
