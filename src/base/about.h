// What the program says about itself: its title and its version (the run time's application
// object). The version numbers come from the build (project version in CMakeLists.txt).
#pragma once

#include <cstdint>
#include <string_view>

namespace app {

inline constexpr std::u16string_view kTitle = u"Tarvel USB Eject";

inline constexpr std::int32_t kVersionMajor = TVEJECT_VERSION_MAJOR;
inline constexpr std::int32_t kVersionMinor = TVEJECT_VERSION_MINOR;
inline constexpr std::int32_t kVersionRevision = TVEJECT_VERSION_PATCH;

}  // namespace app
