#include "lzma/entry_layout.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "support/temp_dir.h"

using namespace velzip;

TEST(EntryLayout, ClassifiesByModeThenSlashThenCompanionName) {
  const unsigned long link = 0120777ul << 16, dir = 040755ul << 16, file = 0100644ul << 16;
  EXPECT_EQ(classifyEntry("a/b", link), EntryKind::kLink);
  EXPECT_EQ(classifyEntry("a/b/", link), EntryKind::kLink) << "the mode wins over the slash";
  EXPECT_EQ(classifyEntry("a/b/", 0), EntryKind::kDirectory);
  EXPECT_EQ(classifyEntry("a/b/", file), EntryKind::kDirectory);
  EXPECT_EQ(classifyEntry("__MACOSX/a/._b", file), EntryKind::kCompanion);
  EXPECT_EQ(classifyEntry("__MACOSX/._b", 0), EntryKind::kCompanion);
  EXPECT_EQ(classifyEntry("__MACOSX/a/._", file), EntryKind::kRegular);
  EXPECT_EQ(classifyEntry("__MACOSX/a/b", file), EntryKind::kRegular);
  EXPECT_EQ(classifyEntry("x/__MACOSX/._b", file), EntryKind::kRegular);
  EXPECT_EQ(classifyEntry("a", dir), EntryKind::kRegular) << "folders are told by their slash";
}

TEST(EntryLayout, CompanionNamesRoundTrip) {
  EXPECT_EQ(companionEntryName("dir/file"), "__MACOSX/dir/._file");
  EXPECT_EQ(companionEntryName("file"), "__MACOSX/._file");
  EXPECT_EQ(companionEntryName("/f"), "__MACOSX//._f");
  EXPECT_EQ(companionTargetName("__MACOSX/dir/._file"), "dir/file");
  EXPECT_EQ(companionTargetName("__MACOSX/._file"), "file");
  EXPECT_EQ(companionTargetName("__MACOSX/dir/file"), "");
  for (const char* name : {"a/b/c", "x", "sp ace/\xC3\xA9"})
    EXPECT_EQ(companionTargetName(companionEntryName(name)), name);
}

TEST(EntryLayout, SizeTextAndItsParsing) {
  EXPECT_EQ(sizeExtraField(0), std::string("0\0", 2));
  EXPECT_EQ(sizeExtraField(5000000000ull), std::string("5000000000\0", 11));
  long long size = -1;
  EXPECT_FALSE(parseSizeExtraField("12", 0, size));
  EXPECT_TRUE(parseSizeExtraField("1234", 2, size)) << "not terminated: only len bytes count";
  EXPECT_EQ(size, 12);
  EXPECT_TRUE(parseSizeExtraField("77\0 99", 6, size));
  EXPECT_EQ(size, 77);
  EXPECT_TRUE(parseSizeExtraField("junk", 4, size));
  EXPECT_EQ(size, 0);
}

TEST(EntryLayout, FileInfoFromLstat) {
  velzip_test::TempDir dir;
  velzip_test::writeFile(dir / "f", "x");
  chmod((dir / "f").c_str(), 0640);
  ASSERT_EQ(symlink("f", (dir / "l").c_str()), 0);
  zip_fileinfo zi;
  struct stat st;
  ASSERT_TRUE(fillZipFileInfo((dir / "f").c_str(), zi, &st));
  EXPECT_EQ(zi.external_fa, static_cast<uLong>(0100640) << 16);
  EXPECT_EQ(zi.internal_fa, 0u);
  EXPECT_EQ(zi.dosDate, 0u);
  struct tm local;
  localtime_r(&st.st_mtime, &local);
  EXPECT_EQ(zi.tmz_date.tm_year, static_cast<uInt>(local.tm_year + 1900));
  EXPECT_EQ(zi.tmz_date.tm_mon, static_cast<uInt>(local.tm_mon));
  EXPECT_EQ(zi.tmz_date.tm_sec, static_cast<uInt>(local.tm_sec));

  ASSERT_TRUE(fillZipFileInfo((dir / "l").c_str(), zi));
  EXPECT_EQ(entryMode(zi.external_fa) & kModeTypeMask, kModeTypeLink) << "the link, not its target";

  zi.external_fa = 99;
  EXPECT_FALSE(fillZipFileInfo((dir / "missing").c_str(), zi));
  EXPECT_EQ(zi.external_fa, 0u);
  EXPECT_EQ(zi.tmz_date.tm_year, 0u);
}
