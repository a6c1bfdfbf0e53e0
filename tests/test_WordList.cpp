// Tests of the word list: the file bytes (golden, plain and scrambled),
// GetWord's edges, round trips, rejected files, and the import and export forms.
#include "WordList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Global.h"
#include "PDAT.h"
#include "TestUtil.h"

namespace {

using qxtest::FromHex;
using qxtest::MakeDict;
using WordListTest = qxtest::SandboxTest;

// Handles 2 -> "ab" and 0 -> "你" (C4 E3); handle 1 has no word. The block
// "ab\0你\0" is stored as is, or XORed with the key's first bytes CE C4 B1 BE B7 D6.
const char kGoldenPlain[] =
    "02000000 03000000 03000000 00000000 00000000 00000000 06000000"
    " 616200C4E300";
const char kGoldenScrambled[] =
    "02000000 03000000 03000000 00000000 00000000 00000000 06000000"
    " AFA6B17A54D6";

// GetWord for every handle from -1 to the bound, inclusive.
std::vector<std::string> AllWords(const CWordList& list) {
    std::vector<std::string> vec;
    for (int h = -1; h <= list.GetBound(); ++h) vec.push_back(list.GetWord(h));
    return vec;
}

TEST_F(WordListTest, GoldenFilesPinTheLayoutAndGetWordEdges) {
    for (bool bScrambled : {false, true}) {
        SCOPED_TRACE(bScrambled);
        const std::string sGolden = FromHex(bScrambled ? kGoldenScrambled : kGoldenPlain);
        CWordList built(bScrambled, nullptr);
        built.AddWord("ab", 2);
        built.AddWord("\xC4\xE3", 0);  // 你
        built.AddWordComplete();
        ASSERT_TRUE(built.Save(m_dir.file("built").c_str()));
        EXPECT_EQ(sGolden, qxtest::ReadBytes(m_dir.file("built")));
        EXPECT_EQ("ab", std::string(built.GetWord(2)));  // plain again after a scrambled save

        CWordList loaded(bScrambled, nullptr);
        ASSERT_TRUE(loaded.Load(m_dir.write("golden", sGolden).c_str()));
        EXPECT_EQ(2, loaded.GetItemCount());
        const std::vector<std::string> vecExpected = {"", "\xC4\xE3", "ab", "ab", ""};
        EXPECT_EQ(vecExpected, AllWords(loaded));  // handle 1 without a word reads the first text
    }
    // Loaded without unscrambling, the block's bytes come back as stored; the
    // last text has no NUL of its own and still ends inside the list.
    CWordList raw(false, nullptr);
    ASSERT_TRUE(raw.Load(m_dir.write("scrambled", FromHex(kGoldenScrambled)).c_str()));
    EXPECT_EQ("\xAF\xA6\xB1\x7A\x54\xD6", std::string(raw.GetWord(2)));
}

TEST_F(WordListTest, RoundTripsKeepEveryWordAndTheBytes) {
    for (bool bScrambled : {false, true}) {
        SCOPED_TRACE(bScrambled);
        CWordList list(bScrambled, nullptr);
        std::vector<std::string> vecWant(213);  // handles -1 to the bound 211
        for (int i = 0; i < 400; ++i) {  // repeats (the later text wins), GBK and empty texts
            const int h = (i * 7919) % 211;
            vecWant[h + 1] = i % 5 == 0 ? "" : "\xC4\xE3" + std::to_string(i * i);
            list.AddWord(vecWant[h + 1].c_str(), h);
        }
        list.AddWordComplete();
        EXPECT_EQ(vecWant, AllWords(list));
        ASSERT_TRUE(list.Save(m_dir.file("a").c_str()));

        CWordList loaded(bScrambled, nullptr);
        ASSERT_TRUE(loaded.Load(m_dir.file("a").c_str()));
        EXPECT_EQ(400, loaded.GetItemCount());
        EXPECT_EQ(vecWant, AllWords(loaded));
        ASSERT_TRUE(loaded.Save(m_dir.file("b").c_str()));
        EXPECT_EQ(qxtest::ReadBytes(m_dir.file("a")), qxtest::ReadBytes(m_dir.file("b")));
    }
}

TEST_F(WordListTest, MalformedFilesAreRejectedAndLeaveTheListAlone) {
    const std::pair<const char*, std::string> rows[] = {
        {"header_cut", FromHex("020000000300")},
        {"negative_bound", FromHex("02000000 FFFFFFFF 00000000 00000000")},
        {"bound_beyond_file", FromHex("02000000 E8030000 00000000 00000000")},
        {"trailing_byte", FromHex(kGoldenPlain) + "x"},
        {"text_cut", FromHex(kGoldenPlain).substr(0, 33)},
        {"offset_past_text", FromHex("02000000 03000000 06000000 00000000 00000000 00000000"
                                     " 06000000 616200C4E300")},
        {"negative_offset", FromHex("02000000 03000000 FDFFFFFF 00000000 00000000 00000000"
                                    " 06000000 616200C4E300")},
        {"count_above_text", FromHex("07000000 03000000 03000000 00000000 00000000 00000000"
                                     " 06000000 616200C4E300")},
    };
    CWordList list(false, nullptr);
    list.AddWord("kept", 1);
    list.AddWordComplete();
    const std::vector<std::string> vecBefore = AllWords(list);
    std::vector<std::string> vecPaths = {m_dir.file("missing")};
    for (const auto& [sName, sBytes] : rows) vecPaths.push_back(m_dir.write(sName, sBytes));
    for (const std::string& sPath : vecPaths) {
        SCOPED_TRACE(sPath);
        g_sLastErrorMessage.clear();
        EXPECT_FALSE(list.Load(sPath.c_str()));
        EXPECT_EQ(0u, g_sLastErrorMessage.find("Cannot load word list " + sPath + ": "));
        EXPECT_EQ(vecBefore, AllWords(list));
        EXPECT_EQ(1, list.GetItemCount());
    }
}

TEST_F(WordListTest, ImportReadsBracketsAndUnderscoresAndWritesTheExportCopy) {
    auto pDict = MakeDict({"xy", "[ab cd", "ab cd", "\xC4\xE3\xBA\xC3"});
    const std::string sPath = m_dir.write("words.txt",
                                          "\xEF\xBB\xBFxy\n[ab cd] tail\n\n \t \nab_cd\n"
                                          "\xC4\xE3\xBA\xC3 extra\nzz\n");
    CWordList list(false, nullptr);
    EXPECT_EQ(4, list.Import(sPath.c_str(), pDict.get()));  // zz is not in the dictionary
    EXPECT_EQ("xy\n[[ab cd]\n[ab cd]\n\xC4\xE3\xBA\xC3\nzz\n",
              qxtest::ReadBytes(sPath + "_wordlist_export.txt"));
    EXPECT_EQ((std::vector<std::string>{"", "xy", "[ab cd", "ab cd", "\xC4\xE3\xBA\xC3", ""}),
              AllWords(list));  // 你好

    std::string sHundred;
    for (int i = 0; i < 100; ++i) sHundred += "xy\n";
    const std::string sHundredPath = m_dir.write("hundred.txt", sHundred);
    EXPECT_EQ("Line 100\r",
              qxtest::CaptureStdout([&] { list.Import(sHundredPath.c_str(), nullptr); }));
    EXPECT_EQ(0, list.Import(m_dir.file("missing").c_str(), nullptr));
}

TEST_F(WordListTest, ImportOfRecordsAndExportWithAFilter) {
    auto pDict = MakeDict({"xy", "\xC4\xE3\xBA\xC3", "ab cd", "\xC4\xE3"});  // 你好, 你
    const std::vector<_stWordRecord> vecRecords = {
        {"ab cd", "AB"}, {"zz", "skipped"}, {"\xC4\xE3\xBA\xC3", "NH"}, {"xy", "XY"}};
    CWordList list(false, nullptr);
    EXPECT_EQ(3, list.Import(vecRecords, pDict.get(), false));
    EXPECT_EQ(4, list.GetBound());  // the dictionary's item count
    EXPECT_EQ((std::vector<std::string>{"", "xy", "\xC4\xE3\xBA\xC3", "ab cd", "ab cd", ""}),
              AllWords(list));  // 你 has no record: the first text
    EXPECT_EQ(3, list.Import(vecRecords, pDict.get(), true));
    EXPECT_EQ((std::vector<std::string>{"", "XY", "NH", "AB", "AB", ""}), AllWords(list));

    // Filtered: non-ASCII dictionary words over 2 bytes (not xy, 你 or the unknown).
    const std::string sFilter =
        m_dir.write("filter.txt", "\xC4\xE3\xBA\xC3 x\n\xC4\xE3\nxy\n\nnone\n");
    EXPECT_EQ(0, list.Export(m_dir.file("out.txt").c_str(), pDict.get(), sFilter.c_str()));
    EXPECT_EQ("XY\nAB\nAB\n", qxtest::ReadBytes(m_dir.file("out.txt")));
    const std::string sBad = m_dir.file("no/such/dir.txt");
    EXPECT_EQ("Error open file " + sBad + ".\n", qxtest::CaptureStdout([&] {
                  EXPECT_EQ(1, list.Export(sBad.c_str(), pDict.get(), nullptr));
              }));
}

}  // namespace
