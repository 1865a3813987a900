// Tests of the file sets: entries in install order with their package data,
// and the installed path of an entry.
#include <cstring>
#include <string>

#include "engine/test_support.h"
#include "gtest/gtest.h"

namespace {

// Adds an entry to the engine's package table, as loading a package would.
void addPackedFile(Installer& engine, const char* key, uint32_t size, unsigned char digestByte) {
  COMPFILEINFO info;
  std::memset(&info, 0, sizeof info);
  info.fileSize = info.storedSize = size;
  info.size = size;
  std::memset(info.md5, digestByte, sizeof info.md5);
  QUtils::copyText(info.key, key, sizeof info.key);
  engine.package.files.add(info);
}

TEST(FileSets, ReadsEntriesInInstallOrderWithPackageData) {
  TestInstaller engine;
  addPackedFile(engine, "binquill.exe", 1000, 0x11);
  addPackedFile(engine, "readme", 50, 0x22);
  addPackedFile(engine, "datax.bin", 7, 0x33);
  addPackedFile(engine, "readme", 60, 0x44);  // the later record of a key wins
  engine.loadTemplate(
      "<HalvoWorksInstallation><Installation>"
      "<FileSet Desc='no name: dropped'><FN Dest='[ROOT]'>lost.txt</FN></FileSet>"
      "<FileSet name='Core'>"
      "  <FN Dest='[ROOT]/bin' Executable='0' StripExeExt='1'>bin/quill.exe</FN>"
      "  <FN>//data/x.bin</FN>"
      "  <FN Dest='[ROOT]'></FN><fn Dest='[ROOT]'>wrong-case.txt</fn>"
      "  <FN Dest='[ROOT]/doc' Alias='readme' StripExeExt='1'>docs\\README.txt</FN>"
      "</FileSet>"
      "<FileSet Name='Extras'><FN Dest='[ROOT]/extra'>extra/missing.dat</FN></FileSet>"
      "</Installation></HalvoWorksInstallation>");
  EXPECT_EQ(0, engine.readFileSets());
  ASSERT_EQ(2, engine.fileSets.getCount());

  // Within a set the entries stand in reverse document order; entries
  // without text or with another case of FN are gone.
  ASSERT_EQ(4, engine.fileNames.getCount());
  const FILENAMES& readme = engine.fileNames[0];
  const FILENAMES& data = engine.fileNames[1];
  const FILENAMES& exe = engine.fileNames[2];
  const FILENAMES& missing = engine.fileNames[3];

  EXPECT_STREQ("README.txt", readme.fileName);
  EXPECT_EQ(3, readme.packageIndex);
  EXPECT_EQ(60u, readme.size);
  EXPECT_EQ(0x44, readme.md5[15]);
  EXPECT_FALSE(readme.stripExeExt);  // only read together with Executable
  EXPECT_STREQ("datax.bin", data.alias);
  EXPECT_EQ(2, data.packageIndex);
  EXPECT_TRUE(exe.executable && exe.stripExeExt);  // presence counts, whatever the value
  // An entry whose file isn't packed stays, without package data.
  EXPECT_EQ(1, missing.fileSet);
  EXPECT_STREQ("extramissing.dat", missing.alias);
  EXPECT_EQ(-1, missing.packageIndex);
}

TEST(FileSets, InstalledFilePathUsesSystemSeparators) {
  TestInstaller engine;
  engine.loadTemplate(
      "<HalvoWorksInstallation><Installation><FileSet Name='Core'>"
      "  <FN Alias='pkg-only'>images/logo.png</FN>"
      "  <FN Dest='[ROOT]//bin\\' Alias='tool'>sub/dir\\tool.exe</FN>"
      "  <FN Dest='[ROOT]/other' Alias='tool'>second.exe</FN>"
      "</FileSet></Installation></HalvoWorksInstallation>");
  engine.setVariable("ROOT", "C:\\Quill");
  char buffer[1560];
  EXPECT_EQ(-1, engine.getInstalledFilePath("tool", buffer, sizeof buffer));
  const char s = QUtils::kPathSeparator;
  EXPECT_EQ(std::string("C:") + s + "Quill" + s + "bin" + s + "tool.exe", buffer);

  // No Dest, or no such alias: the buffer keeps what it held.
  std::strcpy(buffer, "untouched");
  engine.getInstalledFilePath("pkg-only", buffer, sizeof buffer);
  engine.getInstalledFilePath("Tool", buffer, sizeof buffer);
  EXPECT_STREQ("untouched", buffer);
}

}  // namespace
