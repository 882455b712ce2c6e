#include "os/entry.h"

namespace os {

const std::u16string_view kExecutableSuffix = u".exe";

}  // namespace os
