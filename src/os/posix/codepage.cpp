// POSIX side of the seam: code-page conversion and the UTF-16 guess, answering as Windows does.
// Code page 1252 (the ANSI code page here) and UTF-8 are converted by this file; other code pages
// go through iconv.
#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "base/text.h"
#include "base/utf8.h"
#include "os/codepage.h"
#include "os/posix/cp1252.h"
#include "os/types.h"

namespace os {
namespace {

constexpr std::uint32_t kAnsiCodePage = 1252;
constexpr std::uint32_t kOemCodePage = 437;
constexpr std::uint32_t kMacCodePage = 10000;

std::uint32_t Resolve(std::uint32_t code_page) {
  switch (code_page) {
    case 0:  // CP_ACP
    case 3:  // CP_THREAD_ACP
      return kAnsiCodePage;
    case 1:
      return kOemCodePage;
    case 2:
      return kMacCodePage;
    default:
      return code_page;
  }
}

// The iconv name of a Windows code page, or null when iconv is not asked for it.
const char* IconvName(std::uint32_t code_page) {
  switch (code_page) {
    case 437:
      return "CP437";
    case 737:
      return "CP737";
    case 775:
      return "CP775";
    case 850:
      return "CP850";
    case 852:
      return "CP852";
    case 855:
      return "CP855";
    case 857:
      return "CP857";
    case 860:
      return "CP860";
    case 861:
      return "CP861";
    case 862:
      return "CP862";
    case 863:
      return "CP863";
    case 864:
      return "CP864";
    case 865:
      return "CP865";
    case 866:
      return "CP866";
    case 869:
      return "CP869";
    case 874:
      return "CP874";
    case 932:
      return "CP932";
    case 936:
      return "CP936";
    case 949:
      return "CP949";
    case 950:
      return "CP950";
    case 1250:
      return "CP1250";
    case 1251:
      return "CP1251";
    case 1253:
      return "CP1253";
    case 1254:
      return "CP1254";
    case 1255:
      return "CP1255";
    case 1256:
      return "CP1256";
    case 1257:
      return "CP1257";
    case 1258:
      return "CP1258";
    case 1361:
      return "JOHAB";
    case 10000:
      return "MACINTOSH";
    case 20866:
      return "KOI8-R";
    case 21866:
      return "KOI8-U";
    case 28591:
      return "ISO-8859-1";
    case 28592:
      return "ISO-8859-2";
    case 28593:
      return "ISO-8859-3";
    case 28594:
      return "ISO-8859-4";
    case 28595:
      return "ISO-8859-5";
    case 28596:
      return "ISO-8859-6";
    case 28597:
      return "ISO-8859-7";
    case 28598:
      return "ISO-8859-8";
    case 28599:
      return "ISO-8859-9";
    case 28603:
      return "ISO-8859-13";
    case 28605:
      return "ISO-8859-15";
    case 50220:
      return "ISO-2022-JP";
    case 51932:
      return "EUC-JP";
    case 51949:
      return "EUC-KR";
    case 54936:
      return "GB18030";
    case 65000:
      return "UTF-7";
    default:
      return nullptr;
  }
}

int Fail(std::uint32_t error) {
  SetLastError(error);
  return 0;
}

// Collects converted units: counts them, and writes them while the target has room.
template <class Unit>
struct Sink {
  Unit* target;
  std::size_t capacity;  // 0: count only
  std::size_t count = 0;
  bool overflow = false;

  void Put(Unit u) {
    if (capacity) {
      if (count >= capacity) {
        overflow = true;
        return;
      }
      target[count] = u;
    }
    ++count;
  }
};

// ---- UTF-8 --------------------------------------------------------------------------------------

void Utf16ToUtf8(const char16_t* s, std::size_t n, Sink<char>& out) {
  for (char c : base::Narrow(std::u16string_view(s, n))) out.Put(c);
}

// ---- iconv -------------------------------------------------------------------------------

class Iconv {
 public:
  Iconv(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
  ~Iconv() {
    if (ok()) iconv_close(cd_);
  }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;
  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

  // Converts in; calls bad(consumed) for each input unit iconv refuses and skips `step` bytes.
  template <class Emit, class Bad>
  void Run(const char* in, std::size_t size, std::size_t step, Emit emit, Bad bad) {
    char* src = const_cast<char*>(in);
    std::size_t left = size;
    char chunk[1024];
    while (left > 0) {
      char* dst = chunk;
      std::size_t room = sizeof chunk;
      std::size_t r = iconv(cd_, &src, &left, &dst, &room);
      int error = errno;
      emit(chunk, static_cast<std::size_t>(dst - chunk));
      if (r != static_cast<std::size_t>(-1)) break;
      if (error == E2BIG) continue;
      // EILSEQ or EINVAL (a sequence cut by the end): one replacement, then go on.
      std::size_t skip = left < step ? left : step;
      bad(src, skip);
      src += skip;
      left -= skip;
      iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    }
    char* dst = chunk;
    std::size_t room = sizeof chunk;
    iconv(cd_, nullptr, nullptr, &dst, &room);
    emit(chunk, static_cast<std::size_t>(dst - chunk));
  }

 private:
  iconv_t cd_;
};

bool IconvToWide(const char* name, const char* s, std::size_t n, Sink<char16_t>& out) {
  Iconv cd("UTF-16LE", name);
  if (!cd.ok()) return false;
  cd.Run(
      s, n, 1,
      [&](const char* bytes, std::size_t size) {
        for (std::size_t i = 0; i + 1 < size; i += 2) {
          out.Put(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                        (static_cast<unsigned char>(bytes[i + 1]) << 8)));
        }
      },
      [&](const char*, std::size_t) { out.Put(0xFFFD); });
  return true;
}

bool IconvToBytes(const char* name, const char16_t* s, std::size_t n, Sink<char>& out) {
  Iconv cd(name, "UTF-16LE");
  if (!cd.ok()) return false;
  std::string bytes(n * 2, '\0');
  for (std::size_t i = 0; i < n; ++i) {
    bytes[2 * i] = static_cast<char>(s[i] & 0xFF);
    bytes[2 * i + 1] = static_cast<char>(s[i] >> 8);
  }
  cd.Run(
      bytes.data(), bytes.size(), 2,
      [&](const char* b, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) out.Put(b[i]);
      },
      [&](const char*, std::size_t) { out.Put('?'); });
  return true;
}

bool Known(std::uint32_t cp) {
  return cp == 1252 || cp == kCpUtf8 || IconvName(cp) != nullptr;
}

std::size_t Length16(const char16_t* s) {
  std::size_t n = 0;
  while (s[n]) ++n;
  return n;
}

}  // namespace

int MultiByteToWideChar(std::uint32_t code_page, const char* source, int source_length,
                        char16_t* target, int target_length) {
  if (!source || source_length == 0 || target_length < 0 || (target_length > 0 && !target)) {
    return Fail(kErrorInvalidParameter);
  }
  const std::uint32_t cp = Resolve(code_page);
  if (!Known(cp)) return Fail(kErrorInvalidParameter);
  const std::size_t n =
      source_length < 0 ? std::strlen(source) + 1 : static_cast<std::size_t>(source_length);
  const auto* s = reinterpret_cast<const unsigned char*>(source);
  const std::size_t capacity = static_cast<std::size_t>(target_length);

  std::size_t count = 0;
  if (cp == kCpUtf8) {
    if (!base::Utf8ToUtf16(s, n, capacity ? target : nullptr, capacity, &count))
      return Fail(kErrorInsufficientBuffer);
  } else {
    Sink<char16_t> out{target, capacity};
    if (cp == 1252) {
      for (std::size_t i = 0; i < n; ++i) out.Put(posix::Cp1252ToUnicode(s[i]));
    } else if (!IconvToWide(IconvName(cp), source, n, out)) {
      return Fail(kErrorInvalidParameter);
    }
    if (out.overflow) return Fail(kErrorInsufficientBuffer);
    count = out.count;
  }
  if (count > 0x7FFFFFFF) return Fail(kErrorInvalidParameter);
  return static_cast<int>(count);
}

int WideCharToMultiByte(std::uint32_t code_page, const char16_t* source, int source_length,
                        char* target, int target_length) {
  if (!source || source_length == 0 || target_length < 0 || (target_length > 0 && !target)) {
    return Fail(kErrorInvalidParameter);
  }
  const std::uint32_t cp = Resolve(code_page);
  if (!Known(cp)) return Fail(kErrorInvalidParameter);
  const std::size_t n =
      source_length < 0 ? Length16(source) + 1 : static_cast<std::size_t>(source_length);
  Sink<char> out{target, static_cast<std::size_t>(target_length)};

  if (cp == kCpUtf8) {
    Utf16ToUtf8(source, n, out);
  } else if (cp == 1252) {
    for (std::size_t i = 0; i < n; ++i) {
      int b = posix::UnicodeToCp1252(source[i]);
      out.Put(b < 0 ? '?' : static_cast<char>(b));
    }
  } else if (!IconvToBytes(IconvName(cp), source, n, out)) {
    return Fail(kErrorInvalidParameter);
  }
  if (out.overflow) return Fail(kErrorInsufficientBuffer);
  if (out.count > 0x7FFFFFFF) return Fail(kErrorInvalidParameter);
  return static_cast<int>(out.count);
}

// The statistics and signature tests (the only ones the program asks for) as the Windows build
// answers them under Wine: only the first 256 units are looked at, a zero last byte is left out
// (so "A" NUL is not UTF-16 "A"), the signature is U+FEFF in the first unit, and the statistics
// test passes when more than half of the units are below U+0100.
bool IsTextUnicode(const void* data, int size, int* tests) {
  const int wanted = tests ? *tests : kIsTextUnicodeStatistics | kIsTextUnicodeSignature;
  int passed = 0;
  if (data && size >= 2) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    const int length = bytes[size - 1] == 0 ? size - 1 : size;
    const int units = std::min(length / 2, 256);
    auto unit = [&](int i) { return char16_t(bytes[2 * i] | (bytes[2 * i + 1] << 8)); };
    if (unit(0) == 0xFEFF) passed |= kIsTextUnicodeSignature;
    int low = 0;
    for (int i = 0; i < units; ++i) low += unit(i) < 0x100;
    if (low > units / 2) passed |= kIsTextUnicodeStatistics;
  }
  passed &= wanted;
  if (tests) *tests = passed;
  return passed != 0;
}

}  // namespace os
