// Arbitrary bytes through StrDataToUnicode with detection, as a loaded file's contents would go.
// The first byte picks the code page for ANSI files and whether a byte-order mark is wanted;
// the rest is the file. Besides crashes, hangs and over-reads, it checks that the vector and
// byte-by-byte paths of the UTF-8 code agree.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/utf8.h"
#include "base/utf8_scan.h"
#include "text/encoding.h"
#include "text/utf8.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const std::uint32_t kCodePages[] = {1252, 1251, 932, 65001};
  const std::uint32_t code_page = kCodePages[data[0] & 3];
  const bool with_bom = (data[0] & 4) != 0;
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);

  std::int32_t encoding = mStringTools::kAutoDetect;
  bool changed = false;
  std::u16string text =
      mStringTools::StrDataToUnicode(bytes, encoding, code_page, with_bom, changed);
  if (!bytes.empty() && (encoding < 1 || encoding > 3)) std::abort();
  if (!text.empty() && with_bom && text[0] != 0xFEFF) std::abort();

  const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
  if (mUTF8::IsUTF8(bytes) != base::utf8_scan::LenientBaseline(s, bytes.size())) std::abort();
  std::size_t units = 0, baseline_units = 0;
  if (base::utf8_scan::Strict(s, bytes.size(), &units) !=
          base::utf8_scan::StrictBaseline(s, bytes.size(), &baseline_units) ||
      units != baseline_units) {
    std::abort();
  }
  // The whole bytes (zeros included) through the fast and the general UTF-8 decoders.
  std::size_t fast_count = 0, careful_count = 0;
  base::Utf8ToUtf16(s, bytes.size(), nullptr, 0, &fast_count);
  base::Utf8ToUtf16Careful(s, bytes.size(), nullptr, 0, &careful_count);
  if (fast_count != careful_count) std::abort();
  std::u16string fast(fast_count, u'\0'), careful(careful_count, u'\0');
  base::Utf8ToUtf16(s, bytes.size(), fast.data(), fast.size(), &fast_count);
  base::Utf8ToUtf16Careful(s, bytes.size(), careful.data(), careful.size(), &careful_count);
  if (fast != careful) std::abort();
  return 0;
}
