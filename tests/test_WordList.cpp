// The word list and its scrambler: the file bytes (golden, plain and
// scrambled), GetWord's edges, round trips, rejected files;
// the scrambler's forms against the repeating-key definition.
#include "WordList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Global.h"
#include "PDAT.h"
#include "TestUtil.h"
#include "VQTEncript.h"

namespace {

using qxtest::FromHex;
using qxtest::ReadBytes;
using WordListTest = qxtest::SandboxTest;

// Handles 2 -> "ab" and 0 -> "你" (C4 E3); handle 1 has no word. The block
// "ab\0你\0" is stored as is, or XORed with the key's first bytes CE C4 B1 BE B7 D6.
const char kGoldenPlain[] =
    "02000000 03000000 03000000 00000000 00000000 00000000 06000000 616200C4E300";
const char kGoldenScrambled[] =
    "02000000 03000000 03000000 00000000 00000000 00000000 06000000 AFA6B17A54D6";

// GetWord for every handle from -1 to the bound, inclusive.
std::vector<std::string> AllWords(const CWordList& list) {
    std::vector<std::string> vec;
    for (int h = -1; h <= list.GetBound(); ++h) vec.push_back(list.GetWord(h));
    return vec;
}

TEST_F(WordListTest, GoldenFilesPinTheLayoutAndRoundTripsKeepEveryWord) {
    for (bool bScrambled : {false, true}) {
        SCOPED_TRACE(bScrambled);
        const std::string sGolden = FromHex(bScrambled ? kGoldenScrambled : kGoldenPlain);
        CWordList built(bScrambled, nullptr), loaded(bScrambled, nullptr);
        built.AddWord("ab", 2);
        built.AddWord("\xC4\xE3", 0);  // 你
        ASSERT_TRUE(built.Save(m_dir.file("built").c_str()));
        EXPECT_EQ(sGolden, ReadBytes(m_dir.file("built")));
        EXPECT_EQ("ab", std::string(built.GetWord(2)));  // plain again after a scrambled save
        ASSERT_TRUE(loaded.Load(m_dir.write("golden", sGolden).c_str()));
        EXPECT_EQ(2, loaded.GetItemCount());
        // Handle 1 without a word reads the first text.
        EXPECT_EQ((std::vector<std::string>{"", "\xC4\xE3", "ab", "ab", ""}), AllWords(loaded));

        CWordList list(bScrambled, nullptr), reloaded(bScrambled, nullptr);
        std::vector<std::string> vecWant(213);  // handles -1 to the bound 211
        for (int i = 0; i < 400; ++i) {  // repeats (the later text wins), GBK and empty texts
            const int h = (i * 7919) % 211;
            vecWant[h + 1] = i % 5 == 0 ? "" : "\xC4\xE3" + std::to_string(i * i);
            list.AddWord(vecWant[h + 1].c_str(), h);
        }
        ASSERT_TRUE(list.Save(m_dir.file("a").c_str()));
        ASSERT_TRUE(reloaded.Load(m_dir.file("a").c_str()));
        EXPECT_EQ(400, reloaded.GetItemCount());
        EXPECT_EQ(vecWant, AllWords(reloaded));
        ASSERT_TRUE(reloaded.Save(m_dir.file("b").c_str()));
        EXPECT_EQ(ReadBytes(m_dir.file("a")), ReadBytes(m_dir.file("b")));
    }
    // Loaded without unscrambling, the block's bytes come back as stored; the
    // last text has no NUL of its own and still ends inside the list.
    CWordList raw(false, nullptr);
    ASSERT_TRUE(raw.Load(m_dir.write("scrambled", FromHex(kGoldenScrambled)).c_str()));
    EXPECT_EQ("\xAF\xA6\xB1\x7A\x54\xD6", std::string(raw.GetWord(2)));
}

TEST_F(WordListTest, MalformedFilesAreRejectedAndLeaveTheListAlone) {
    const std::string sGolden = FromHex(kGoldenPlain);
    const std::pair<const char*, std::string> rows[] = {
        {"header_cut", FromHex("020000000300")},
        {"negative_bound", FromHex("02000000 FFFFFFFF 00000000 00000000")},
        {"bound_beyond_file", FromHex("02000000 E8030000 00000000 00000000")},
        {"trailing_byte", sGolden + "x"},
        {"text_cut", sGolden.substr(0, 33)},
        {"offset_at_text_end", FromHex("02000000 03000000 06000000") + sGolden.substr(12)},
        {"negative_offset", FromHex("02000000 03000000 FDFFFFFF") + sGolden.substr(12)},
        {"count_above_text", FromHex("07000000") + sGolden.substr(4)},
    };
    CWordList list(false, nullptr);
    list.AddWord("kept", 1);
    list.AddWordComplete();
    std::vector<std::string> vecPaths = {m_dir.file("missing")};
    for (const auto& [sName, sBytes] : rows) vecPaths.push_back(m_dir.write(sName, sBytes));
    for (const std::string& sPath : vecPaths) {
        g_sLastErrorMessage.clear();
        EXPECT_FALSE(list.Load(sPath.c_str()));
        EXPECT_EQ(0u, g_sLastErrorMessage.find("Cannot load word list " + sPath + ": ")) << sPath;
        EXPECT_EQ((std::vector<std::string>{"", "kept", "kept", ""}), AllWords(list));
        EXPECT_EQ(1, list.GetItemCount());
    }
}

// Byte i meets key byte i mod the key length (136 bytes, ends pinned), from
// key byte 0 at every call, in the buffer, string, file and stream forms.
TEST_F(WordListTest, ScramblerFormsXorWithTheRepeatingKey) {
    const std::string kKey(g_sWordListKey);
    ASSERT_EQ(136u, kKey.size());
    EXPECT_EQ("\xCE\xC4\xB1\xBE", kKey.substr(0, 4));     // 文本
    EXPECT_EQ("\xD6\xA7\xB3\xD6S", kKey.substr(112, 5));  // 支持S
    EXPECT_EQ("Sample-Key-0123-ABCD", kKey.substr(116));
    const auto scramble = [&kKey](std::string s) {
        for (size_t i = 0; i < s.size(); ++i) s[i] ^= kKey[i % kKey.size()];
        return s;
    };
    std::string sPlain(300, '\0');  // every byte value
    for (size_t i = 0; i < sPlain.size(); ++i) sPlain[i] = static_cast<char>(i * 37 + 11);
    const std::string sWant = scramble(sPlain);
    CVQTEncript cEnc(g_sWordListKey);
    std::string sBuf = sPlain, sText = sPlain;
    ASSERT_EQ(1, cEnc.Encrypt(&sBuf[0], 137) * cEnc.Encrypt(&sBuf[137], 163) * cEnc.Encrypt(sText));
    EXPECT_EQ(scramble(sPlain.substr(0, 137)) + scramble(sPlain.substr(137)), sBuf);
    EXPECT_EQ(sWant, sText);
    const std::string sSrc = m_dir.write("src", sPlain), sDst = m_dir.file("dst");
    FILE* fp = std::fopen(sSrc.c_str(), "rb");
    std::fseek(fp, 100, SEEK_SET);  // a stream is read from its start
    EXPECT_EQ(1, cEnc.Encrypt(fp, sDst.c_str()));
    std::fclose(fp);
    EXPECT_EQ(sWant, ReadBytes(sDst));
    ASSERT_EQ(1, cEnc.Encrypt(sSrc.c_str(), sSrc.c_str(), 0));  // a file, in place
    EXPECT_EQ(sWant, ReadBytes(sSrc));
    EXPECT_EQ(qxtest::kUntouched, g_sLastErrorMessage);
    // Failures report and leave the data alone.
    EXPECT_EQ(0, CVQTEncript("").Encrypt(sText));
    EXPECT_EQ("Cannot scramble: the key is empty", g_sLastErrorMessage);
    EXPECT_EQ(0, cEnc.Encrypt(m_dir.file("missing").c_str(), sDst.c_str(), 0));
    EXPECT_EQ("Cannot open file " + m_dir.file("missing") + " for reading", g_sLastErrorMessage);
    EXPECT_EQ(0, cEnc.Encrypt(sSrc.c_str(), m_dir.file("no/dir").c_str(), 0));
    EXPECT_EQ(sWant, sText);
    EXPECT_EQ(sWant, ReadBytes(sDst));
}

}  // namespace
