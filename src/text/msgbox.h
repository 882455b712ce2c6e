// mUnicodePatch::MsgBox: a modal message box whose text and caption are full Unicode. Every
// message the user sees goes through it.
//
//   if (mUnicodePatch::MsgBox(question, 1 /* OK, Cancel */) == 1) ...
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "os/types.h"

namespace mUnicodePatch {

// Shows prompt in a box with the style flags `buttons` (MB_* values, passed on unchanged) and
// returns the button pressed (1 OK, 2 Cancel, ...; closing the box answers as Cancel where
// there is one). An empty title gives the program's title and version ("Tarvel USB Eject
// v2.0.12"). help_file and context are accepted and not used. owner -1 picks the owner
// automatically, which in this program, having no forms, is none. task_modal adds
// MB_TASKMODAL. Returns 0 when no box could be shown.
std::int32_t MsgBox(std::u16string_view prompt, std::int32_t buttons = 0,
                    std::u16string_view title = u"", std::u16string_view help_file = u"",
                    std::int32_t context = 0, os::Handle owner = -1, bool task_modal = true);

// MsgBox with the program's title, its buttons saying the words given (in the style's order:
// {"Close them and try again", "Cancel"} for Retry, Cancel) in place of the system's.
std::int32_t MsgBoxWithButtons(std::u16string_view prompt, std::int32_t buttons,
                               const std::vector<std::u16string>& labels);

}  // namespace mUnicodePatch
