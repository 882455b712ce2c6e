// The configuration: one XML file beside the program (program folder + "\" + base name +
// ".xml", root element "TarvelUSBEject"), loaded once at start into a process-wide tree, read
// and written through dotted paths ("Language", "A.B.C"), and written back only when changed.
//
//   if (!mGlobal::LoadConfig()) return;              // said "Invalid configuration file"
//   mGlobal::SetConfigValue(u"UserLanguage", u"de"); // marks the tree changed
//   mGlobal::SaveConfig();                           // UTF-8, previous file kept until safe
#pragma once

#include <string>
#include <string_view>

#include "xml/node.h"

namespace mGlobal {

// The configuration tree, created empty on first use; after a load it is the root element.
const XmlNodePtr& ConfigTree();

// The configuration file's full name, built from the program's own name each time.
std::u16string ConfigFileName();

// Loads the file (putting back the safety copy of an interrupted save first) and checks the
// root's name; on a missing, unreadable or foreign file shows "Invalid configuration file"
// and returns false.
bool LoadConfig();

// Writes the tree back when it was changed (root ItemData 1), then clears the mark.
void SaveConfig();

// The text of the element at path; "" when an element on the way is missing.
std::u16string GetConfigValue(std::u16string_view path);
// Sets the text of the element at path, creating what is missing; marks the tree changed.
void SetConfigValue(std::u16string_view path, std::u16string_view value);
// The attribute of the element at path; "" when an element on the way is missing.
std::u16string GetConfigAttribute(std::u16string_view path, std::u16string_view name);
// Sets the attribute of the element at path and marks the tree changed; nothing when an
// element on the way is missing. Always returns "".
std::u16string SetConfigAttribute(std::u16string_view path, std::u16string_view name,
                                  std::u16string_view value);

}  // namespace mGlobal
