// Arbitrary text through Base64_Decode, as a node's "ContentEncoding"="base64" value would go.
// The first byte picks the input and output modes; the rest is the text. Besides crashes, hangs
// and over-reads, it checks that encoding the bytes and decoding them again gives them back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "text/strings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::int32_t input_mode = data[0] % 3;
  const std::int32_t output_mode = (data[0] / 3) % 3;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  const std::string decoded = mStringTools::Base64_Decode(text, input_mode, output_mode);
  if (text.size() % 4 != 0 && !decoded.empty() && input_mode == 1) std::abort();

  const std::string encoded = mStringTools::Base64_Encode(text, 1, 1);
  if (encoded.size() != (text.size() + 2) / 3 * 4) std::abort();
  if (mStringTools::Base64_Decode(encoded, 1, 1) != text) std::abort();
  return 0;
}
