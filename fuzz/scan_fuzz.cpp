// The XML reader's one-pass structure against its rules as written: for any text, the index
// (TagIndex, ScanElement, ChildCursor) must find the elements the rules find, DeleteRems in one
// pass must cut what the rule cuts, and every "<" must be paired as FindTagEnd pairs it.
// Each input byte is one UTF-16 code unit (so Latin-1 letters exercise the case folding).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "xml/comment_cut.h"
#include "xml/scan.h"
#include "xml_structure.h"

namespace {

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "MISMATCH: %s\n", what.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 4096) return 0;  // the rules as written are quadratic; keep each run short
  const std::u16string text(data, data + size);

  if (xml::DeleteRemsOnePass(text, u"<!--", u"-->") != xml::DeleteRems(text, u"<!--", u"-->"))
    Fail("DeleteRems in one pass differs from the rule");

  for (bool full : {false, true}) {
    testing_support::ReadMode mode;
    mode.full_parse = full;
    const auto reference = testing_support::ReferenceStructure(text, mode);
    const auto indexed = testing_support::IndexedStructure(text, mode);
    if (auto diff = testing_support::CompareStructures(reference, indexed))
      Fail(*diff + (full ? " (full parse)" : " (element parse)"));
    if (!full) {
      if (auto diff = testing_support::CompareClosings(reference.prepared)) Fail(*diff);
      // Attribute reading on every tag's attribute text: names come trimmed, values hold no
      // double quote, and the list view and the visitor agree.
      for (const auto& e : reference.elements) {
        if (!e.has_attributes) continue;
        const auto list = xml::GetTagAttribs(e.attributes);
        std::size_t k = 0;
        xml::ForEachTagAttrib(
            e.attributes, [&](std::u16string_view name, std::u16string_view value) {
              if (k >= list.size() || list[k].name != name || list[k].value != value)
                Fail("GetTagAttribs and ForEachTagAttrib differ");
              if (xml::xTrim(name) != name || value.find(u'"') != std::u16string_view::npos)
                Fail("an attribute read with a blank-edged name or a quote in its value");
              ++k;
            });
        if (k != list.size()) Fail("GetTagAttribs and ForEachTagAttrib differ in length");
      }
    }
  }
  return 0;
}
