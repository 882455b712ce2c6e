// The configuration beside a program file "TvEject" in a temporary folder; boxes are answered
// through the seam and recorded.
#include "sys/config.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/fault.h"
#include "os/ui.h"
#include "support/temp_dir.h"
#include "sys/program.h"

namespace {

struct ConfigTest : ::testing::Test {
  ConfigTest() {
    mGlobal::SetProgramFile(dir_.u16(u"TvEject.exe"));
    os::fault::SetMessageBoxAnswer([this](const os::MessageBoxParams& p) {
      boxes_.emplace_back(p.text);
      return os::kIdOk;
    });
  }
  ~ConfigTest() override {
    os::fault::Reset();
    mGlobal::SetProgramFile(u"");
  }
  // Loads bytes as the configuration (none when nullptr); the file as it is afterwards.
  std::string Load(const std::string* bytes) {
    if (bytes) dir_.Write(u"TvEject.xml", *bytes);
    boxes_.clear();
    loaded_ = mGlobal::LoadConfig();
    return dir_.Read(u"TvEject.xml");
  }

  testing_support::TempDir dir_;
  std::vector<std::u16string> boxes_;
  bool loaded_ = false;
};

TEST_F(ConfigTest, BadFilesAreRefusedAndNeverRewritten) {
  Load(nullptr);  // a missing file is refused too, and not made
  EXPECT_FALSE(loaded_ || dir_.Exists(u"TvEject.xml"));
  EXPECT_EQ(boxes_.size(), 1u);
  std::string deep;
  for (int i = 0; i < 350000; ++i) deep += "<a>";
  const std::string rows[] = {
      "",
      std::string("\x00\x01\x02\xFF\xFE\x00\x10", 7),
      std::string("\xFE\xFF\x00<\x00T\x00a\x00r", 8),              // UTF-16 big-endian
      "<tarvelusbeject><Language>en</Language></tarvelusbeject>",  // the root in other case
      "<TarvelUSBEject><Language>en</Lang",                        // truncated
      deep,                                                        // a megabyte of nesting
  };
  for (const auto& bytes : rows) {
    SCOPED_TRACE(bytes.substr(0, 40));
    EXPECT_EQ(Load(&bytes), bytes);
    EXPECT_FALSE(loaded_);
    EXPECT_EQ(boxes_, std::vector<std::u16string>{u"Invalid configuration file"});
    mGlobal::SaveConfig();
    EXPECT_EQ(dir_.Read(u"TvEject.xml"), bytes);
  }
}

TEST_F(ConfigTest, AccessorsWalkDottedPathsAndMarkChanges) {
  const std::string file =
      "\xEF\xBB\xBF<TarvelUSBEject><Language file=\"x.xml\">en</Language><Other k=\"v\"/>"
      "</TarvelUSBEject>";
  Load(&file);
  ASSERT_TRUE(loaded_);
  EXPECT_TRUE(boxes_.empty());
  const XmlNodePtr& tree = mGlobal::ConfigTree();
  EXPECT_EQ(mGlobal::GetConfigValue(u"Language"), u"en");
  EXPECT_EQ(mGlobal::GetConfigValue(u"language"), u"en");  // names without regard to case
  EXPECT_EQ(mGlobal::GetConfigAttribute(u"Language", u"file"), u"x.xml");
  EXPECT_EQ(mGlobal::GetConfigValue(u"Language.Missing"), u"");
  EXPECT_EQ(mGlobal::GetConfigAttribute(u"Nope", u"file"), u"");
  mGlobal::SaveConfig();  // unchanged: the file is not rewritten
  EXPECT_EQ(dir_.Read(u"TvEject.xml"), file);

  EXPECT_EQ(mGlobal::SetConfigAttribute(u"Nope.Deeper", u"a", u"1"), u"");
  EXPECT_EQ(tree->ItemData, 0) << "a missing path changes nothing";
  mGlobal::SetConfigValue(u"A.B", u"deep");
  EXPECT_EQ(tree->ItemData, 1);
  EXPECT_EQ(mGlobal::GetConfigValue(u"A.B"), u"deep");
  mGlobal::SaveConfig();
  EXPECT_EQ(tree->ItemData, 0);
  // UTF-8 without a mark, the whole tree written back with the new elements last.
  EXPECT_EQ(dir_.Read(u"TvEject.xml"),
            "<TarvelUSBEject>\r\n\t<Language file=\"x.xml\">en</Language>\r\n\t<Other k=\"v\"/>\r\n"
            "\t<A>\r\n\t\t<B>deep</B>\r\n\t</A>\r\n</TarvelUSBEject>");
  EXPECT_FALSE(dir_.Exists(u"TvEject.xml.001.tmp"));
}

TEST_F(ConfigTest, AnInterruptedSaveIsPutBackBeforeLoading) {
  dir_.Write(u"TvEject.xml.001.tmp",
             "<TarvelUSBEject><UserLanguage>de</UserLanguage></TarvelUSBEject>");
  const std::string pulled = "<TarvelUSBEject><UserLang";  // what the pulled stick left
  Load(&pulled);
  EXPECT_TRUE(loaded_);
  EXPECT_EQ(mGlobal::GetConfigValue(u"UserLanguage"), u"de");
  EXPECT_FALSE(dir_.Exists(u"TvEject.xml.001.tmp"));
}

}  // namespace
