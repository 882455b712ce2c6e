// The language file shipped beside the program (packaging/TvEject_lng.xml): written as the
// program's own writer writes files, with every message of the eject sequence in each language.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string ReadShippedFile() {
  auto path =
      std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "packaging" / "TvEject_lng.xml";
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (;;) {
    std::size_t end = text.find("\r\n", start);
    lines.push_back(text.substr(start, end - start));
    if (end == std::string::npos) return lines;
    start = end + 2;
  }
}

// One language of the file: its "name" attribute and its texts by dotted key.
struct Language {
  std::string name;
  std::map<std::string, std::string> texts;
};

// Reads the writer's layout: one element per line, indented by its depth in tabs, each either
// an opening tag, a closing tag, an element with its text, or an empty element "<a/>".
// Problems go to `errors`; languages are the children of the root.
std::map<std::string, Language> ReadLanguages(const std::string& text,
                                              std::vector<std::string>& errors) {
  std::map<std::string, Language> languages;
  std::vector<std::string> open;  // element names from the root down
  int number = 0;
  for (const std::string& line : Lines(text)) {
    ++number;
    std::string where = "line " + std::to_string(number) + ": ";
    std::size_t depth = line.find_first_not_of('\t');
    if (depth == std::string::npos || line[depth] != '<' || line.back() != '>') {
      errors.push_back(where + "not one element");
      continue;
    }
    std::string tag = line.substr(depth);
    bool closing = tag.compare(0, 2, "</") == 0;
    if (depth != open.size() - (closing ? 1 : 0)) errors.push_back(where + "indentation");
    if (closing) {
      if (open.empty() || tag != "</" + open.back() + ">") errors.push_back(where + "mismatch");
      if (!open.empty()) open.pop_back();
      continue;
    }
    std::size_t name_end = tag.find_first_of(" />", 1);
    std::string name = tag.substr(1, name_end - 1);
    std::size_t text_end = tag.rfind("</");
    if (tag.compare(tag.size() - 2, 2, "/>") == 0) {
      errors.push_back(where + "empty element " + name);
    } else if (text_end != std::string::npos && text_end > 0) {
      if (tag.substr(text_end) != "</" + name + ">") errors.push_back(where + "mismatch");
      std::string key;
      for (std::size_t i = 2; i < open.size(); ++i) key += open[i] + ".";
      std::size_t text_start = tag.find('>') + 1;
      if (open.size() >= 2) {
        languages[open[1]].texts[key + name] = tag.substr(text_start, text_end - text_start);
      }
    } else {
      if (open.size() == 1) {
        std::size_t at = tag.find(" name=\"");
        if (at != std::string::npos) {
          at += 7;
          languages[name].name = tag.substr(at, tag.find('"', at) - at);
        }
      }
      open.push_back(name);
    }
  }
  if (!open.empty()) errors.push_back("elements left open");
  return languages;
}

TEST(ShippedLanguageFile, IsWrittenAsTheProgramWritesFiles) {
  std::string bytes = ReadShippedFile();
  ASSERT_FALSE(bytes.empty()) << "packaging/TvEject_lng.xml not found";
  EXPECT_NE(bytes.compare(0, 3, "\xEF\xBB\xBF"), 0) << "no byte-order mark";
  EXPECT_EQ(bytes.compare(0, 12, "<Languages>\r"), 0);
  EXPECT_EQ(bytes.substr(bytes.size() - 12), "</Languages>") << "no line break at the end";
  std::size_t lf = 0;
  while ((lf = bytes.find('\n', lf + 1)) != std::string::npos) {
    EXPECT_EQ(bytes[lf - 1], '\r') << "bare line feed at byte " << lf;
  }
  std::vector<std::string> errors;
  ReadLanguages(bytes, errors);
  for (const auto& error : errors) ADD_FAILURE() << error;
}

// Every text of the program and its companions, by dotted key.
const char* const kKeys[] = {
    "Messages.Intro",
    "Messages.Errors.TvAppsCloseRunError",
    "Message.AppStillRunning",
    "Messages.Errors.TvDiskEjectorRunError",
    "TvAppsClose.Messages.Confirm",
    "TvAppsClose.Messages.StillRunning",
    "TvDiskEjector.Messages.Ejected",
    "TvDiskEjector.Messages.NotRemovable",
    "TvDiskEjector.Messages.SystemDisk",
    "TvDiskEjector.Messages.Unidentified",
    "TvDiskEjector.Messages.Refused",
    "TvDiskEjector.Messages.RefusedBy",
    "TvDiskEjector.Messages.Failed",
    "TvDiskEjector.Messages.RunsFromDrive",
};

TEST(ShippedLanguageFile, EveryLanguageHasEveryMessage) {
  std::vector<std::string> errors;
  auto languages = ReadLanguages(ReadShippedFile(), errors);
  const std::map<std::string, std::string> names = {
      {"en", "English"},
      {"de", "Deutsch"},
      {"es", "Espa\xC3\xB1ol"},
      {"it", "Italiano"},
      {"pt", "Portugu\xC3\xAAs"},
      {"nl", "Nederlands"},
      {"fr",
       "Fran\xC3\xA7"
       "ais"},
  };
  for (const auto& [code, name] : names) {
    ASSERT_TRUE(languages.count(code)) << code;
    EXPECT_EQ(languages[code].name, name) << code;
  }
  for (const auto& [code, language] : languages) {
    EXPECT_FALSE(language.name.empty()) << code;
    for (const char* key : kKeys) {
      auto text = language.texts.find(key);
      ASSERT_NE(text, language.texts.end()) << code << " " << key;
      EXPECT_FALSE(text->second.empty()) << code << " " << key;
      // The writer escapes these five; a bare one would not be read back as written.
      EXPECT_EQ(text->second.find_first_of("'\"<>"), std::string::npos) << code << " " << key;
    }
    EXPECT_EQ(language.texts.size(), std::size(kKeys)) << code;
    bool counts = language.texts.at("Message.AppStillRunning").find("%count%") != std::string::npos;
    EXPECT_EQ(counts, code != "fr") << code << ": %count% in the still-running message";
    EXPECT_NE(language.texts.at("Messages.Intro").find("Tarvel USB Eject"), std::string::npos)
        << code;
  }
}

// The companions fill placeholders into their texts: every language has the ones the English
// text has, no more and no fewer, or a value would go missing (or "%drive%" be shown as is).
TEST(ShippedLanguageFile, CompanionTextsKeepTheirPlaceholders) {
  std::vector<std::string> errors;
  auto languages = ReadLanguages(ReadShippedFile(), errors);
  ASSERT_TRUE(languages.count("en"));
  auto placeholders = [](const std::string& text) {
    std::multiset<std::string> found;
    for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
      std::size_t end = text.find('%', at + 1);
      if (end == std::string::npos) break;
      found.insert(text.substr(at, end - at + 1));
      at = end;
    }
    return found;
  };
  int checked = 0;
  for (const char* key : kKeys) {
    if (std::string(key).rfind("Tv", 0) != 0) continue;  // the companions' own section
    const auto expected = placeholders(languages["en"].texts[key]);
    EXPECT_FALSE(expected.empty()) << key;
    for (const auto& [code, language] : languages) {
      auto text = language.texts.find(key);
      if (text == language.texts.end()) continue;  // reported by the test above
      EXPECT_EQ(placeholders(text->second), expected) << code << " " << key;
      ++checked;
    }
  }
  EXPECT_EQ(checked, 10 * 7);
}

// French is the language of the built-in texts: its entry holds them exactly, line breaks as
// backslash-n and the apostrophe escaped as the writer escapes it.
TEST(ShippedLanguageFile, FrenchHoldsTheBuiltInTexts) {
  std::vector<std::string> errors;
  auto languages = ReadLanguages(ReadShippedFile(), errors);
  ASSERT_TRUE(languages.count("fr"));
  const auto& texts = languages["fr"].texts;
  const std::map<std::string, std::string> expected = {
      {"Messages.Intro",
       "Tarvel USB Eject ferme tous les programmes du p\xC3\xA9riph\xC3\xA9rique USB !"},
      {"Messages.Errors.TvAppsCloseRunError",
       "Erreur en ex\xC3\xA9"
       "cutant le programme de fermeture des applications"},
      {"Message.AppStillRunning",
       "Il reste encore des applications en cours d&apos;ex\xC3\xA9"
       "cution.\\n\\n"
       "D\xC3\xA9"
       "connexion USB annul\xC3\xA9"
       "e"},
      {"Messages.Errors.TvDiskEjectorRunError",
       "Erreur en ex\xC3\xA9"
       "cutant le programme d&apos;ejection du disque USB"},
  };
  for (const auto& [key, text] : expected) {
    ASSERT_TRUE(texts.count(key)) << key;
    EXPECT_EQ(texts.at(key), text) << key;
  }
}

}  // namespace
