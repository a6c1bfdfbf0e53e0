// The translator on a small hand-made data folder: the resource table and its
// load order, the word walk as rows of {code, direction, text -> translation},
// the reports. The folder also serves the exported calls'
// round trip (test_QXClassifier.cpp).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "CodeTran.h"
#include "Global.h"
#include "IDMaps.h"
#include "PDAT.h"
#include "TestUtil.h"
#include "WordList.h"

namespace {

const std::string kZhongU = "\xE4\xB8\xAD";  // 中 in UTF-8
const std::string kWenU = "\xE6\x96\x87";    // 文
const std::string kGuoU = "\xE5\x9B\xBD";    // 国
const std::string kShuU = "\xE4\xB9\xA6";    // 书
const std::string kHaoU = "\xE5\xA5\xBD";    // 好 (in no dictionary)
const std::string kZhongG = "\xD6\xD0";      // 中 in GBK
const std::string kWenG = "\xCE\xC4";        // 文
const std::string kGuoG = "\xB9\xFA";        // 国
const std::string kBom = "\xEF\xBB\xBF";

}  // namespace

namespace qxtest {
// The same small pair of sides under every file name of the table: the code
// side is UTF-8 (mode 1), the GBK side GBK (mode 0). 中, 文 and 中文 map both
// ways; 国 is in both dictionaries but mapped in neither direction; 书 and
// the ASCII words "f1" to "f5" map to GBK id 9, which has no text (each
// occurrence is reported, naming the word).
void WriteTranslatorFolder(const std::string& sDir) {
    const std::vector<std::string> code = {
        kZhongU, kWenU, kZhongU + kWenU, kGuoU, kShuU, "f1", "f2", "f3", "f4", "f5"};
    const std::vector<std::string> gbk = {kZhongG, kWenG, kZhongG + kWenG, kGuoG};
    for (const auto& [sName, nMode, words] :
         {std::tuple{"UTF8", 1, code}, {"BIG5", 1, code}, {"GBK", 0, gbk}, {"GBKA", 0, gbk}}) {
        CPDAT dict(nMode);
        CWordList list(true, nullptr);
        for (size_t i = 0; i < words.size(); ++i) {
            dict.AddWord(words[i].c_str(), int(i), false);
            list.AddWord(words[i].c_str(), int(i));
        }
        dict.AddWordComplete();
        ASSERT_TRUE(dict.Save((sDir + "/" + sName + ".pdat").c_str()));
        ASSERT_TRUE(list.Save((sDir + "/" + sName + ".wordlist").c_str()));
    }
    for (const char* sName : {"UTF2GBKA", "UTF2GBK", "BIG2GBK", "GBKA2GBK", "GBKA2UTF", "GBK2UTF",
                              "GBK2BIG", "GBK2GBKA"}) {
        const bool bToGbk = std::string(sName).find("2GBK") != std::string::npos;
        CIDMaps map;
        for (int h = 0; h < (bToGbk ? 10 : 3); ++h)
            if (h != 3) map.MapAdd(h, h < 3 ? h : 9);
        map.MapComplete(nullptr);
        ASSERT_TRUE(map.Save((sDir + "/" + sName + ".map").c_str()));
    }
}
}  // namespace qxtest

namespace {

class CodeTranTest : public qxtest::SandboxTest {
  protected:
    void SetUp() override { qxtest::WriteTranslatorFolder(m_dir.path()); }
};

// Without the k-th file of a row the load fails there, naming it: the names
// and their order are pinned (row 4 takes its maps the other way round from
// row 1). Codes outside the table load and report nothing.
TEST_F(CodeTranTest, EachRowLoadsItsSixFilesInOrder) {
    // code 1..5: its GBK side, its code side, the map into GBK, the map out of it
    const std::string rows[5][4] = {{"GBKA", "UTF8", "UTF2GBKA", "GBKA2UTF"},
                                    {"GBK", "BIG5", "BIG2GBK", "GBK2BIG"},
                                    {"GBK", "GBKA", "GBKA2GBK", "GBK2GBKA"},
                                    {"GBKA", "UTF8", "GBKA2UTF", "UTF2GBKA"},
                                    {"GBK", "UTF8", "UTF2GBK", "GBK2UTF"}};
    for (int nCode : {0, 6, -1}) {
        CCodeTran tran(m_dir.path().c_str(), nCode);
        std::string r = "old";
        EXPECT_EQ(tran.GetStatus() + tran.GetEncodeType(), 0);
        EXPECT_STREQ(tran.CodeToGBK(kZhongU.c_str(), r), "");
    }
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);
    for (int nCode = 1; nCode <= 5; ++nCode) {
        CCodeTran tran(m_dir.path().c_str(), nCode);
        EXPECT_EQ(tran.GetStatus() * 10 + tran.GetEncodeType(), 10 + nCode);
        const auto& row = rows[nCode - 1];
        for (const std::string& sName : {row[0] + ".pdat", row[0] + ".wordlist", row[1] + ".pdat",
                                         row[1] + ".wordlist", row[2] + ".map", row[3] + ".map"}) {
            const std::string sPath = m_dir.file(sName);
            std::rename(sPath.c_str(), (sPath + ".away").c_str());
            CCodeTran broken(m_dir.path().c_str(), nCode);
            std::rename((sPath + ".away").c_str(), sPath.c_str());
            EXPECT_EQ(broken.GetStatus() + broken.GetEncodeType(), 0);
            EXPECT_EQ(g_sLastErrorMessage, sPath + " cannot load!\n") << nCode;
        }
    }
    EXPECT_NE(m_log.DayFile(".err").find("GBK.wordlist cannot load!\n"), std::string::npos);
}

TEST_F(CodeTranTest, WordsConvertOrBecomeMarkedBlanks) {
    const std::tuple<int, bool, std::string, std::string> rows[] = {
        // code, into GBK, text -> translation
        {5, true, "", ""},
        {5, true, kZhongU + kWenU, kZhongG + kWenG},  // the longest word wins
        {5, true, kZhongU + kGuoU + kWenU, kZhongG + "^^ ^^" + kWenG},
        // Words no dictionary knows (here: single bytes of UTF-8) share one
        // pair of markers per run, one blank per word.
        {5, true, kHaoU + kZhongU, "^^   ^^" + kZhongG},
        // A word found but not mapped starts a run of its own.
        {5, true, kGuoU + kGuoU, "^^ ^^^^ ^^"},
        {5, true, kGuoU + kHaoU, "^^    ^^"},
        // ASCII passes through as it is, blanks included; tabs are dropped.
        {5, true, "abc " + kZhongU + " x-1", "abc " + kZhongG + " x-1"},
        {5, true, "a\tb 1.0\t" + kZhongU + "\t", "ab 1.0" + kZhongG},
        // Lines: leading blanks go, each line keeps only the byte that ended it.
        {5, true, "  " + kZhongU + "\r\n\t " + kWenU + "\n\n", kZhongG + "\r" + kWenG + "\n"},
        // A marked run is copied through without its markers.
        {5, true, "a^^" + kHaoU + "^^", "a" + kHaoU},
        // The byte-order mark is skipped for the UTF-8 codes only.
        {1, true, kBom + kZhongU, kZhongG},
        {4, true, kBom + kZhongU, kZhongG},
        {5, true, kBom + kZhongU, kZhongG},
        {2, true, kBom + kZhongU, "^^   ^^" + kZhongG},
        // Out of GBK no markers are written; the byte behind a closing marker
        // ends the marked line and starts the next one, so it comes out twice.
        {5, false, "^^abc^^", "abc"},
        {5, false, kZhongG + kGuoG + "\xB0\xA1" + kWenG, kZhongU + "  " + kWenU},  // 啊
        {5, false, "x " + kZhongG + "\r\n" + kWenG, "x " + kZhongU + "\r" + kWenU},
        {5, false, "^^ab^^cd", "abccd"},
    };
    for (const auto& [nCode, bToGbk, sIn, sOut] : rows) {
        CCodeTran tran(m_dir.path().c_str(), nCode);
        std::string r = "old";
        const char* p = bToGbk ? tran.CodeToGBK(sIn.c_str(), r) : tran.GBKToCode(sIn.c_str(), r);
        EXPECT_EQ(p, r.c_str());
        EXPECT_EQ(r, sOut) << nCode << " " << testing::PrintToString(sIn);
    }
    CCodeTran tran(m_dir.path().c_str(), 5);
    std::string r = kZhongU + kWenU;  // the text may be the result's own
    EXPECT_EQ(std::string(tran.CodeToGBK(r.c_str(), r)), kZhongG + kWenG);
    EXPECT_STREQ(tran.CodeToGBK(nullptr, r), "");
    EXPECT_STREQ(tran.GBKToCode(nullptr, r), "");
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);
    // A map target without text is left untranslated and reported each time.
    EXPECT_EQ(std::string(tran.CodeToGBK((kShuU + kShuU).c_str(), r)), "^^ ^^^^ ^^");
    const std::string sLine = "Cannot find map info of " + kShuU + "\n",
                      sErr = m_log.DayFile(".err");
    EXPECT_NE(sErr.find(sLine, sErr.find(sLine) + 1), std::string::npos);
}

}  // namespace
