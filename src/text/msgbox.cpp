#include "text/msgbox.h"

#include <string>

#include "base/about.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/ui.h"

namespace mUnicodePatch {
namespace {

constexpr std::uint32_t kTaskModal = 0x2000;  // MB_TASKMODAL

// The caption of a box without a title: the program's title and its version.
std::u16string DefaultCaption() {
  return std::u16string(app::kTitle) + u" v" + base::ToText(app::kVersionMajor) + u"." +
         base::ToText(app::kVersionMinor) + u"." + base::ToText(app::kVersionRevision);
}

// The owner window for -1: the active form's window unless it is a menu form, else the main
// form's. The program has no forms, so the answer is always no owner.
os::Handle AutomaticOwner() {
  return 0;
}

std::int32_t Show(std::u16string_view prompt, std::int32_t buttons, std::u16string_view title,
                  os::Handle owner, bool task_modal, const std::vector<std::u16string>& labels) {
  return base::Trap(base::DansFunction(u"mUnicodePatch.MsgBox"), std::int32_t{0}, [&] {
    os::MessageBoxParams params;
    params.size = 40;
    params.style = static_cast<std::uint32_t>(buttons);
    if (task_modal) params.style |= kTaskModal;
    if (owner == -1) owner = AutomaticOwner();
    params.owner = owner == -1 ? 0 : owner;
    std::u16string caption = title.empty() ? DefaultCaption() : std::u16string(title);
    params.caption = caption;
    params.text = prompt;
    params.labels.assign(labels.begin(), labels.end());
    return os::MessageBoxIndirectW(params);
  });
}

}  // namespace

std::int32_t MsgBox(std::u16string_view prompt, std::int32_t buttons, std::u16string_view title,
                    std::u16string_view help_file, std::int32_t context, os::Handle owner,
                    bool task_modal) {
  return Show(prompt, buttons, title, owner, task_modal, {});
}

std::int32_t MsgBoxWithButtons(std::u16string_view prompt, std::int32_t buttons,
                               const std::vector<std::u16string>& labels) {
  return Show(prompt, buttons, u"", -1, true, labels);
}

}  // namespace mUnicodePatch
