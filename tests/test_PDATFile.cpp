// Dictionary files: a golden file pinning the binary layout, malformed files
// named for what they prove, the import/export text rules
// and FileSegment. Random round trips are in test_PDAT_oracle.cpp.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>

#include "PDAT.h"
#include "TestUtil.h"

namespace {

using qxtest::FromHex;
using qxtest::ReadBytes;

class PdatFileTest : public qxtest::SandboxTest {
  protected:
    std::string Path(const std::string& sName) const { return m_dir.file(sName); }
    std::string Saved(CPDAT& dict, const std::string& sName) {
        EXPECT_TRUE(dict.Save(Path(sName).c_str()));
        return ReadBytes(Path(sName));
    }
};

// The file of {"a", "ab"} in mode 0: a -> dense 0, b -> dense 1; cell 0 is a
// (word end with children at base 1), cell 1 free, cell 2 ab (a leaf).
std::string GoldenFile() {
    std::string sMap;
    for (int c = 0; c < 65536; ++c)
        sMap += c == 'a'   ? FromHex("00000000")
                : c == 'b' ? FromHex("01000000")
                           : "\xFF\xFF\xFF\xFF";
    return sMap + FromHex("02000000 02000000") +                         // bound 2, 2 words
           FromHex("FFFFFFFF FEFFFFFF 00000000") +                       // cell 0: -1, -2, 0
           FromHex("FFFFFFFF FFFFFFFF FFFFFFFF") +                       // cell 1: free
           FromHex("FEFFFFFF 00000000 01000000") + FromHex("00000000");  // cell 2; mode 0
}

TEST_F(PdatFileTest, GoldenFilePinsTheLayout) {
    const std::string sGolden = GoldenFile();
    EXPECT_EQ(sGolden, Saved(*qxtest::MakeDict({"a", "ab"}), "built.pdat"));
    CPDAT loaded(2);
    ASSERT_TRUE(loaded.Load(m_dir.write("golden.pdat", sGolden).c_str()));
    EXPECT_EQ(2u, loaded.GetItemCount());
    EXPECT_EQ(-1, loaded.AddWord("c", false));  // loaded means read-only
    EXPECT_EQ(sGolden, Saved(loaded, "again.pdat"));

    CPDAT empty(1);
    empty.AddWordComplete();
    EXPECT_EQ(262156u, Saved(empty, "empty.pdat").size());  // no cells at all
    ASSERT_TRUE(loaded.Load(Path("empty.pdat").c_str()));
    EXPECT_EQ(-1, loaded.Find("a"));
    EXPECT_EQ(ReadBytes(Path("empty.pdat")), Saved(loaded, "empty2.pdat"));
}

TEST_F(PdatFileTest, MalformedFilesAreRejectedAndLeaveTheDictionaryAlone) {
    const std::string sGolden = GoldenFile();
    auto patched = [&](size_t nAt, const char* sHex) {
        const std::string sBytes = FromHex(sHex);
        return sGolden.substr(0, nAt) + sBytes + sGolden.substr(nAt + sBytes.size());
    };
    // what it proves, file bytes (the bound at byte 262144) -> part of the message
    const std::tuple<const char*, std::string, const char*> kCases[] = {
        {"EmptyFileIsRejected", "", "file of 0 bytes is shorter than the 262156 bytes"},
        {"TruncatedFileIsRejected", sGolden.substr(0, sGolden.size() - 1),
         "lower bound 2 needs 262192 bytes"},
        {"TrailingBytesAreRejected", sGolden + "x", "the file has 262193"},
        {"BoundBeyondTheCellsIsRejected", patched(262144, "10270000"), "lower bound 10000 needs"},
        {"NegativeBoundIsRejected", patched(262144, "FEFFFFFF"), "negative lower bound -2"},
        {"CellsOfAnEmptyFileAreRejected", patched(262144, "00000000"),
         "lower bound 0 needs 262168"},
        {"DenseCodeTooLargeIsRejected", patched(4 * 7, "00000100"),
         "character 7 has dense code 65536"},
        {"DenseCodeBelowMinusOneIsRejected", patched(0, "FEFFFFFF"),
         "character 0 has dense code -2"},
        {"UnknownModeIsRejected", patched(sGolden.size() - 4, "03000000"), "unknown mode 3"},
    };
    auto dict = qxtest::MakeDict({"xy", "xyz", "\xC4\xE3\xBA\xC3" /* 你好 */});
    const std::string sBefore = Saved(*dict, "before.pdat");
    for (const auto& [proves, bytes, why] : kCases) {
        const std::string sPath = m_dir.write("bad.pdat", bytes);
        EXPECT_FALSE(dict->Load(sPath.c_str())) << proves;
        EXPECT_EQ(0u, g_sLastErrorMessage.find("Cannot load dictionary " + sPath + ": ")) << proves;
        EXPECT_NE(std::string::npos, g_sLastErrorMessage.find(why)) << g_sLastErrorMessage;
        EXPECT_EQ(sBefore, Saved(*dict, "after.pdat")) << proves;
    }
    EXPECT_FALSE(dict->Load(m_dir.path().c_str()));  // a directory
    EXPECT_NE(std::string::npos, g_sLastErrorMessage.find("not a regular file"));
    EXPECT_FALSE(dict->Load(Path("missing.pdat").c_str()));
    EXPECT_EQ("Fail read file " + Path("missing.pdat"), g_sLastErrorMessage);
    EXPECT_NE(std::string::npos, m_log.DayFile(".err").find("Fail read file "));
    EXPECT_FALSE(dict->Load(nullptr));
    EXPECT_EQ(1, dict->Find("xyz"));
    EXPECT_FALSE(dict->Save(Path("no/such/dir.pdat").c_str()));
}

TEST_F(PdatFileTest, ImportReadsBracketsAndUnderscoresAndExportSpellsTheWordsBack) {
    const std::string sIn = m_dir.write("words.txt",
                                        "[ab cd]\nab_cd more tokens\n\n  \t \r\n\xEF\xBB\xBFxy\n"
                                        "  [open_end\r\n\xC4\xE3\xBA\xC3\nskip\n");  // 你好
    CPDAT dict(0);
    EXPECT_EQ(5, dict.Import(sIn.c_str(), qxtest::MakeDict({"skip"}).get()));
    EXPECT_EQ("[[ab cd]\n[ab cd]\nxy\n[[open end]\n\xC4\xE3\xBA\xC3\nskip\n",
              ReadBytes(sIn + "_export.txt"));
    EXPECT_EQ(-1, dict.Find("skip"));

    // A fresh object spells the words back in cell order; the object that
    // built them spells over an empty character range: empty lines, each
    // logged as not looking up to its handle.
    ASSERT_TRUE(dict.Save(Path("d.pdat").c_str()));
    CPDAT loaded(0);
    ASSERT_TRUE(loaded.Load(Path("d.pdat").c_str()));
    ASSERT_TRUE(loaded.Export(Path("out.txt").c_str()));
    EXPECT_EQ("[ab cd\nab cd\nxy\n\xC4\xE3\xBA\xC3\n[open end\n", ReadBytes(Path("out.txt")));
    EXPECT_EQ(std::string::npos, m_log.DayFile(".log").find("handle error"));
    ASSERT_TRUE(dict.Export(Path("same.txt").c_str()));
    EXPECT_EQ(std::string(5, '\n'), ReadBytes(Path("same.txt")));
    EXPECT_NE(std::string::npos, m_log.DayFile(".log").find("]\t handle error\n"));

    EXPECT_EQ(0, dict.Import(Path("missing.txt").c_str(), nullptr));
    EXPECT_FALSE(std::filesystem::exists(Path("missing.txt_export.txt")));
    EXPECT_FALSE(dict.Export(Path("no/dir.txt").c_str()));
}

TEST_F(PdatFileTest, FileSegmentWritesTabSeparatedSegments) {
    auto dict = qxtest::MakeDict({"ab", "abc"});
    const std::string sIn = m_dir.write("in.txt", "abc ab");
    EXPECT_GT(dict->FileSegment(sIn.c_str(), Path("out.txt").c_str()), 0.0f);
    EXPECT_EQ("abc\t \tab\t\n", ReadBytes(Path("out.txt")));
    EXPECT_EQ(0.0f, dict->FileSegment(Path("missing.txt").c_str(), Path("o2.txt").c_str()));
    EXPECT_EQ(0.0f, dict->FileSegment(sIn.c_str(), Path("no/dir.txt").c_str()));
}

}  // namespace
