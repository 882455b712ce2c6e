// Message boxes.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "os/types.h"

namespace os {

// Message-box results (IDOK ...).
enum : std::int32_t {
  kIdOk = 1,
  kIdCancel = 2,
  kIdAbort = 3,
  kIdRetry = 4,
  kIdIgnore = 5,
  kIdYes = 6,
  kIdNo = 7,
};

// The members of MSGBOXPARAMSW the program sets.
struct MessageBoxParams {
  std::uint32_t size = 40;
  Handle owner = 0;
  std::u16string_view text;
  std::u16string_view caption;
  std::uint32_t style = 0;  // MB_* flags: buttons (low 4 bits), icon (0x10..0x40), modality
  // The buttons' own words in place of the system's, in the style's order ("Retry", "Cancel"
  // for MB_RETRYCANCEL); a button without one keeps the system's word.
  std::vector<std::u16string_view> labels;
};

// MessageBoxIndirectW: shows a modal box and returns the button pressed (kIdOk ...), or 0
// when no box could be shown.
std::int32_t MessageBoxIndirectW(const MessageBoxParams& params);

}  // namespace os
