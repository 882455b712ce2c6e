#include "documents.h"

namespace bench_docs {

namespace {

// Texts in several scripts, as UTF-8 (French, German, Russian, Greek, Japanese, Chinese).
const char* const kTexts[] = {
    "\xC3\x89jecter le p\xC3\xA9riph\xC3\xA9rique USB en toute s\xC3\xA9"
    "curit\xC3\xA9",
    "Ger\xC3\xA4t sicher entfernen: alle Anwendungen werden geschlossen",
    "\xD0\x98\xD0\xB7\xD0\xB2\xD0\xBB\xD0\xB5\xD1\x87\xD1\x8C \xD1\x83\xD1\x81\xD1\x82\xD1\x80"
    "\xD0\xBE\xD0\xB9\xD1\x81\xD1\x82\xD0\xB2\xD0\xBE",
    "\xCE\x91\xCF\x83\xCF\x86\xCE\xB1\xCE\xBB\xCE\xAE\xCF\x82 \xCE\xB1\xCF\x86\xCE\xB1\xCE\xAF"
    "\xCF\x81\xCE\xB5\xCF\x83\xCE\xB7",
    "\xE3\x83\x87\xE3\x83\x90\xE3\x82\xA4\xE3\x82\xB9\xE3\x82\x92\xE5\x8F\x96\xE3\x82\x8A\xE5"
    "\xA4\x96\xE3\x81\x99",
    "\xE5\xAE\x89\xE5\x85\xA8\xE5\x88\xA0\xE9\x99\xA4\xE7\xA1\xAC\xE4\xBB\xB6 &amp; "
    "\xE5\xBC\xB9\xE5\x87\xBA",
};
const char* const kSections[] = {"Messages", "Controls", "Menus", "Dialogs"};

void Line(std::string& out, int depth, const std::string& text) {
  out.append(static_cast<std::size_t>(depth), '\t');
  out += text;
  out += "\r\n";
}

std::string Number(std::size_t n) {
  std::string s = std::to_string(n);
  return std::string(s.size() < 4 ? 4 - s.size() : 0, '0') + s;
}

std::string Language(std::size_t bytes, bool comments) {
  std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<Languages>\r\n";
  std::size_t n = 0;
  for (int language = 0; out.size() < bytes; ++language) {
    Line(out, 1,
         "<Language Name=\"L" + std::to_string(language) + "\" Code=\"c" +
             std::to_string(language) + "\">");
    for (int section = 0; section < 4 && out.size() < bytes; ++section) {
      Line(out, 2, std::string("<") + kSections[section] + ">");
      for (int group = 0; group < 20 && out.size() < bytes; ++group) {
        const bool flat = group % 5 == 4;  // some entries sit one level higher
        if (!flat) Line(out, 3, "<Form" + std::to_string(group) + ">");
        for (int item = 0; item < 25; ++item, ++n) {
          const std::string name = "Item" + Number(n % 997);
          const char* text = kTexts[n % std::size(kTexts)];
          if (comments)
            Line(out, flat ? 3 : 4,
                 "<!-- " + name + ": shown when " + std::string(text) + ", keep it short -->");
          Line(out, flat ? 3 : 4,
               "<" + name + (n % 3 == 0 ? " Tip=\"" + std::string(text) + "\"" : "") + ">" + text +
                   " (" + std::to_string(n) + ")</" + name + ">");
        }
        if (!flat) Line(out, 3, "</Form" + std::to_string(group) + ">");
      }
      Line(out, 2, std::string("</") + kSections[section] + ">");
    }
    Line(out, 1, "</Language>");
  }
  out += "</Languages>";
  return out;
}

}  // namespace

std::string Configuration() {
  std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<TarvelUSBEject>\r\n";
  Line(out, 1, "<Language>auto</Language>");
  Line(out, 1, "<LanguageFile>TvEject_lng.xml</LanguageFile>");
  Line(out, 1, "<Options Confirm=\"1\" Retry=\"3\" Delay=\"500\"/>");
  Line(out, 1, "<Companions>");
  Line(out, 2, "<AppsClose Path=\"..\\TvAppsClose\\TvAppsClose.exe\" Args=\"/now /out\"/>");
  Line(out, 2, "<DiskEjector Path=\"TvDiskEjector.exe\" Args=\"/retry\"/>");
  Line(out, 1, "</Companions>");
  Line(out, 1, "<Excluded>");
  for (int i = 0; out.size() < 1900; ++i)
    Line(out, 2,
         "<App Name=\"Application " + std::to_string(i) + "\" Exe=\"app" + std::to_string(i) +
             ".exe\">" + kTexts[i % std::size(kTexts)] + "</App>");
  Line(out, 1, "</Excluded>");
  out += "</TarvelUSBEject>";
  return out;
}

std::string LanguageFile(std::size_t bytes) {
  return Language(bytes, false);
}
std::string CommentHeavy(std::size_t bytes) {
  return Language(bytes, true);
}

std::string Wide(std::size_t siblings) {
  std::string out = "<Root>\r\n";
  out.reserve(siblings * 18);
  for (std::size_t i = 0; i < siblings; ++i) out += "\t<i>" + std::to_string(i) + "</i>\r\n";
  out += "</Root>";
  return out;
}

std::string Deep(std::size_t levels) {
  std::string out;
  out.reserve(levels * 7 + 8);
  for (std::size_t i = 0; i < levels; ++i) out += "<d>";
  out += "deep";
  for (std::size_t i = 0; i < levels; ++i) out += "</d>";
  return out;
}

std::string AttributeHeavy(std::size_t bytes) {
  std::string out = "<Table>\r\n";
  for (std::size_t i = 0; out.size() < bytes; ++i) {
    std::string line = "<Row";
    for (int a = 0; a < 10; ++a)
      line += " a" + std::to_string(a) + "=\"" + std::to_string(i * 10 + a) + " &amp; v\"";
    Line(out, 1, line + "/>");
  }
  out += "</Table>";
  return out;
}

std::string LongText(std::size_t bytes) {
  std::string value;
  for (std::size_t i = 0; value.size() < 256 * 1024; ++i) {
    value += kTexts[i % std::size(kTexts)];
    value += i % 8 == 7 ? "\r\n" : " ";
  }
  std::string out = "<Texts>\r\n";
  for (std::size_t i = 0; out.size() < bytes; ++i)
    Line(out, 1, "<Text Id=\"" + std::to_string(i) + "\">" + value + "</Text>");
  out += "</Texts>";
  return out;
}

}  // namespace bench_docs
