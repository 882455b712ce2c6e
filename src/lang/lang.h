// cLang: the texts of one language, looked up by dotted key ("Messages.Errors.X"). A lookup
// that finds no text answers the caller's built-in default and writes that default into the
// language document, so a language file grows the full list of the program's texts the first
// time it is used (mLang::SaveLangFile then writes it).
//
//   std::u16string intro = mLang::Lang().GetString(u"Messages.Intro", u"Tarvel USB Eject ...");
//
// In the document, line breaks are stored as the two characters backslash and "n"; texts
// handed to callers carry CR LF.
#pragma once

#include <string>
#include <string_view>

#include "xml/node.h"

class cLang {
 public:
  // The language node (its name is the language code, its attribute "name" the display name).
  XmlNodePtr Xml() const;
  void Xml(const XmlNodePtr& node);

  // The language code; "" without a node.
  std::u16string LangID() const;
  // The language's display name; "" without a node.
  std::u16string LangName() const;

  // The text under Key, or Default when the language has none; a missing text is stored
  // (with the changed mark set) when Default is not empty.
  std::u16string GetString(std::u16string_view Key, std::u16string_view Default);

  // A value kept once per language as sibling elements ChildName + "." + code: the current
  // language's, else English, else an unsuffixed one (adopted by the current language), else
  // the first of any language.
  std::u16string LocalChildValue(const XmlNodePtr& Node, std::u16string_view ChildName);
  void LocalChildValue(const XmlNodePtr& Node, std::u16string_view ChildName,
                       std::u16string_view Value);

 private:
  XmlNodePtr xml_;
};

namespace mLang {
// The process-wide language object, created on first use.
cLang& Lang();
}  // namespace mLang
