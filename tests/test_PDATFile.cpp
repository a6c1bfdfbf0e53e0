// Dictionary files and segmentation: a golden file pinning the binary
// layout, save/load round trips of random dictionaries (with a fixed,
// printed seed), malformed files, the import/export text rules and the
// segmentation cases of forward maximum matching.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

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
    ASSERT_EQ(262156u + 12 * 3, sGolden.size());
    EXPECT_EQ(sGolden, Saved(*qxtest::MakeDict({"a", "ab"}), "built.pdat"));

    CPDAT loaded(2);  // the mode comes from the file
    ASSERT_TRUE(loaded.Load(m_dir.write("golden.pdat", sGolden).c_str()));
    EXPECT_EQ(0, loaded.Find("A"));  // mode 0 folds capitals
    EXPECT_EQ(1, loaded.Find("ab"));
    EXPECT_EQ(-1, loaded.Find("b"));
    EXPECT_EQ(2, loaded.GetLowerBound());
    EXPECT_EQ(2u, loaded.GetItemCount());
    EXPECT_EQ(-1, loaded.AddWord("c", false));  // loaded means read-only

    CPDAT empty(1);
    empty.AddWordComplete();
    EXPECT_EQ(262156u, Saved(empty, "empty.pdat").size());  // no cells at all
    CPDAT reloaded(0);
    ASSERT_TRUE(reloaded.Load(Path("empty.pdat").c_str()));
    EXPECT_EQ(-1, reloaded.Find("a"));
    EXPECT_EQ(ReadBytes(Path("empty.pdat")), Saved(reloaded, "empty2.pdat"));
}

// ---- Round trips of random dictionaries ----

std::string RandomWord(std::mt19937& rng, const std::vector<std::string>& alphabet) {
    std::string w;
    for (int n = 1 + rng() % 5; n > 0; --n) w += alphabet[rng() % alphabet.size()];
    return w;
}

std::vector<std::string> Alphabet() {
    std::vector<std::string> a = {
        "a", "b", "A", "1", " ", ",", "_", "\xA3\xAC" /* ， */, "\xA3\xC1" /* Ａ */, "\xB1"};
    for (int k = 0; k < 40; ++k) a.push_back({char(0xB0 + k / 10), char(0xA1 + k % 10)});
    return a;
}

TEST_F(PdatFileTest, RandomDictionariesRoundTripToTheSameAnswersAndBytes) {
    const unsigned kSeed = 20240612;
    std::mt19937 rng(kSeed);
    const std::vector<std::string> alphabet = Alphabet();
    CPDAT reused(1);  // loads every dictionary in turn: the scan index must follow
    for (int round = 0; round < 36; ++round) {
        const std::string sWhere =
            "seed " + std::to_string(kSeed) + " round " + std::to_string(round);
        CPDAT dict(round % 3);
        std::vector<std::string> words;
        for (int k = 0, n = round % 9 == 0 ? 0 : rng() % 400; k < n; ++k) {
            words.push_back(RandomWord(rng, alphabet));
            if (rng() % 10 == 0)
                dict.AddWord(words.back().c_str(), -2 - static_cast<int>(rng() % 3), false);
            else if (rng() % 10 == 0)
                dict.AddFilterWord(words.back().c_str());
            else
                dict.AddWord(words.back().c_str(), rng() % 2 == 0);
        }
        dict.AddWordComplete();
        if (round % 12 == 11) dict.SetEmpty();  // cells kept, bound 0
        const std::string sFile = Saved(dict, "r.pdat");
        const size_t nCells = dict.GetStates() ? dict.GetLowerBound() + 1 : 0;
        ASSERT_EQ(262156 + 12 * nCells, sFile.size()) << sWhere;

        CPDAT fresh((round + 1) % 3);
        ASSERT_TRUE(fresh.Load(Path("r.pdat").c_str())) << sWhere << g_sLastErrorMessage;
        ASSERT_TRUE(reused.Load(Path("r.pdat").c_str())) << sWhere;
        EXPECT_EQ(sFile, Saved(fresh, "again.pdat")) << sWhere;
        for (size_t k = 0; k < words.size(); ++k) {
            const std::string sText = words[k] + words[(k * 7) % words.size()] +
                                      "\xD6\xD0"
                                      "ab1";
            ASSERT_EQ(dict.Find(words[k].c_str()), fresh.Find(words[k].c_str())) << sWhere;
            const std::string sScan = dict.MMFullScan(sText.c_str());
            ASSERT_EQ(sScan, fresh.MMFullScan(sText.c_str())) << sWhere << " text " << sText;
            ASSERT_EQ(sScan, reused.MMFullScan(sText.c_str())) << sWhere << " text " << sText;
        }
    }
}

// ---- Malformed files ----

TEST_F(PdatFileTest, MalformedFilesAreRejectedAndLeaveTheDictionaryAlone) {
    const std::string sGolden = GoldenFile();
    auto patched = [&](size_t nAt, const std::string& sBytes) {
        return sGolden.substr(0, nAt) + sBytes + sGolden.substr(nAt + sBytes.size());
    };
    const struct {
        const char* name;
        std::string bytes;
        const char* why;
    } kCases[] = {
        {"empty", "", "file of 0 bytes is shorter than the 262156 bytes of an empty dictionary"},
        {"garbage", "garbage\n", "file of 8 bytes is shorter"},
        {"truncated", sGolden.substr(0, sGolden.size() - 1), "lower bound 2 needs 262192 bytes"},
        {"no mode", sGolden.substr(0, sGolden.size() - 4), "lower bound 2 needs 262192 bytes"},
        {"trailing", sGolden + "x", "the file has 262193"},
        {"bound too large", patched(262144, FromHex("10270000")), "lower bound 10000 needs"},
        {"negative bound", patched(262144, FromHex("FEFFFFFF")), "negative lower bound -2"},
        {"cells of empty", patched(262144, FromHex("00000000")), "lower bound 0 needs 262168"},
        {"bad map", patched(4 * 7, FromHex("00000100")), "character 7 has dense code 65536"},
        {"low map", patched(0, FromHex("FEFFFFFF")), "character 0 has dense code -2"},
        {"bad mode", patched(sGolden.size() - 4, FromHex("03000000")), "unknown mode 3"},
    };
    auto dict = qxtest::MakeDict({"xy", "xyz", "\xC4\xE3\xBA\xC3" /* 你好 */});
    const std::string sBefore = Saved(*dict, "before.pdat");
    for (const auto& c : kCases) {
        const std::string sPath = m_dir.write("bad.pdat", c.bytes);
        EXPECT_FALSE(dict->Load(sPath.c_str())) << c.name;
        EXPECT_EQ(0u, g_sLastErrorMessage.find("Cannot load dictionary " + sPath + ": ")) << c.name;
        EXPECT_NE(std::string::npos, g_sLastErrorMessage.find(c.why))
            << c.name << ": " << g_sLastErrorMessage;
        EXPECT_EQ(sBefore, Saved(*dict, "after.pdat")) << c.name;
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

// ---- Import and export ----

TEST_F(PdatFileTest, ImportReadsBracketsAndUnderscoresAndWritesTheExportCopy) {
    const std::string sIn = m_dir.write("words.txt",
                                        "[ab cd]\n"
                                        "ab_cd more tokens\n"
                                        "\n"
                                        "  \t \r\n"
                                        "\xEF\xBB\xBFxy\n"
                                        "  [open_end\r\n"
                                        "\xC4\xE3\xBA\xC3\n"  // 你好
                                        "skip\n");
    auto exclude = qxtest::MakeDict({"skip"});
    CPDAT dict(0);
    EXPECT_EQ(5, dict.Import(sIn.c_str(), exclude.get()));
    EXPECT_EQ("[[ab cd]\n[ab cd]\nxy\n[[open end]\n\xC4\xE3\xBA\xC3\nskip\n",
              ReadBytes(sIn + "_export.txt"));
    for (const char* w : {"[ab cd", "ab cd", "xy", "[open end", "\xC4\xE3\xBA\xC3"})
        EXPECT_GE(dict.Find(w), 0) << w;
    EXPECT_EQ(-1, dict.Find("skip"));

    // A fresh object spells the words back (in cell order); the object that
    // built them spells over an empty character range: empty lines, each
    // logged as not looking up to its handle.
    ASSERT_TRUE(dict.Save(Path("d.pdat").c_str()));
    CPDAT loaded(0);
    ASSERT_TRUE(loaded.Load(Path("d.pdat").c_str()));
    ASSERT_TRUE(loaded.Export(Path("out.txt").c_str()));
    std::vector<std::string> lines;
    std::istringstream exported(ReadBytes(Path("out.txt")));
    for (std::string s; std::getline(exported, s);) lines.push_back(s);
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ((std::vector<std::string>{"[ab cd", "[open end", "ab cd", "xy", "\xC4\xE3\xBA\xC3"}),
              lines);
    EXPECT_EQ(std::string::npos, m_log.DayFile(".log").find("handle error"));
    ASSERT_TRUE(dict.Export(Path("same.txt").c_str()));
    EXPECT_EQ(std::string(5, '\n'), ReadBytes(Path("same.txt")));
    EXPECT_NE(std::string::npos, m_log.DayFile(".log").find("]\t handle error\n"));

    EXPECT_EQ(0, dict.Import(Path("missing.txt").c_str(), nullptr));
    EXPECT_FALSE(std::filesystem::exists(Path("missing.txt_export.txt")));
    EXPECT_FALSE(dict.Export(Path("no/dir.txt").c_str()));
}

TEST_F(PdatFileTest, ImportPrintsAProgressLineEveryHundredWords) {
    std::string sWords;
    for (int k = 0; k < 250; ++k) sWords += "w" + std::to_string(k) + "\n";
    const std::string sIn = m_dir.write("many.txt", sWords + "w5\n");  // a repeat at 250
    CPDAT dict(0);
    int nCount = 0;
    const std::string sOut =
        qxtest::CaptureStdout([&] { nCount = dict.Import(sIn.c_str(), nullptr); });
    EXPECT_EQ(250, nCount);
    EXPECT_EQ("100\tw99 Completed!\r200\tw199 Completed!\r", sOut);
    EXPECT_EQ(187, dict.Find("w187"));
}

// ---- Segmentation ----

TEST(PdatSegment, ForwardMaximumMatching) {
    // zx makes x a known character that starts no word.
    auto dict = qxtest::MakeDict({"ab", "abc", "zx", "\xC4\xE3\xBA\xC3" /* 你好 */});
    const struct {
        const char* text;
        const char* segments;
        std::vector<int> kept;   // handles with bKeepUnknown
        std::vector<int> words;  // handles without
    } kCases[] = {
        {"abcd", "abc/d/", {1, -1}, {1}},
        {"abx", "ab/x/", {0, -1}, {0}},
        {"hello123", "hello123/", {-1}, {}},
        {"hello123,ab-c", "hello123/,/ab/-/c/", {-1, -1, 0, -1, -1}, {0}},
        {"xab1", "xab1/", {-1}, {}},  // a failed ASCII character takes the run
        {"zxabc", "zx/abc/", {2, 1}, {2, 1}},
        {"\xC4\xE3\xBA\xC3\xC2\xF0", "\xC4\xE3\xBA\xC3/\xC2\xF0/", {3, -1}, {3}},  // 你好吗
        {"a", "a/", {-1}, {}},
        {"", "", {}, {}},
    };
    int* pHandles = nullptr;
    char* pResult = nullptr;
    int nHandleCap = 0, nResultCap = 0;
    for (const auto& c : kCases) {
        for (bool bKeep : {true, false}) {
            const int n = dict->MMSegment(c.text, &pHandles, &nHandleCap, &pResult, &nResultCap,
                                          false, bKeep, -1, '/');
            EXPECT_EQ(c.segments, std::string(pResult)) << c.text;
            EXPECT_EQ(bKeep ? c.kept : c.words, std::vector<int>(pHandles, pHandles + n)) << c.text;
            EXPECT_GE(nResultCap, static_cast<int>(std::strlen(c.text)) * 6 + 1);
        }
        EXPECT_EQ(c.segments, std::string(dict->MMSegment(c.text, -1, '/'))) << c.text;
    }
    EXPECT_STREQ("ab/c/", dict->MMSegment("abc", 1, '/'));  // maxLen cuts the walk
    EXPECT_EQ(
        0, dict->MMSegment(nullptr, nullptr, nullptr, &pResult, &nResultCap, false, true, -1, '/'));
    EXPECT_STREQ("", pResult);
    std::free(pHandles);
    std::free(pResult);
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
