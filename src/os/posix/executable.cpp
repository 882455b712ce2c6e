#include "os/entry.h"

namespace os {

// Programs carry no suffix.
const std::u16string_view kExecutableSuffix = u"";

}  // namespace os
