// The translator on a small hand-made data folder: the resource table and its
// load order, the failure message, the word walk (conversion, "^^" runs,
// ASCII, unmapped words), the line and byte-order-mark rules and the file forms.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CodeTran.h"
#include "Global.h"
#include "CodeTranTestUtil.h"
#include "TestUtil.h"

namespace {

using qxtest::ReadBytes;
using qxtest::SandboxTest;
using qxtest::TempDir;
using namespace qxtest::trans;

class CodeTranTest : public SandboxTest {
  protected:
    void SetUp() override { WriteFolder(m_dir); }
    std::string ToGBK(CCodeTran& tran, const std::string& s) {
        std::string r;
        const char* p = tran.CodeToGBK(s.c_str(), r);
        EXPECT_EQ(p, r.c_str());
        return r;
    }
    std::string ToCode(CCodeTran& tran, const std::string& s) {
        std::string r;
        const char* p = tran.GBKToCode(s.c_str(), r);
        EXPECT_EQ(p, r.c_str());
        return r;
    }
};

TEST_F(CodeTranTest, CodesOutsideTheTableLoadAndReportNothing) {
    for (int nCode : {0, 6, -1}) {
        CCodeTran tran(m_dir.path().c_str(), nCode);
        EXPECT_EQ(tran.GetStatus(), 0);
        EXPECT_EQ(tran.GetEncodeType(), 0);
        std::string r = "old";
        EXPECT_STREQ(tran.CodeToGBK((kZhongU + "a").c_str(), r), "");  // nothing loaded
        EXPECT_STREQ(tran.GBKToCode(kZhongG.c_str(), r), "");
    }
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);
    EXPECT_EQ(m_log.DayFile(".err"), "");
}

// Removing the k-th file of a row and every later one makes the load fail at
// the k-th: the message names it, so the names and their order are pinned
// (row 4 takes its maps the other way round from row 1).
TEST_F(CodeTranTest, EachRowLoadsItsSixFilesInOrder) {
    const std::vector<std::vector<std::string>> rows = {
        {"GBKA.pdat", "GBKA.wordlist", "UTF8.pdat", "UTF8.wordlist", "UTF2GBKA.map",
         "GBKA2UTF.map"},
        {"GBK.pdat", "GBK.wordlist", "BIG5.pdat", "BIG5.wordlist", "BIG2GBK.map", "GBK2BIG.map"},
        {"GBK.pdat", "GBK.wordlist", "GBKA.pdat", "GBKA.wordlist", "GBKA2GBK.map", "GBK2GBKA.map"},
        {"GBKA.pdat", "GBKA.wordlist", "UTF8.pdat", "UTF8.wordlist", "GBKA2UTF.map",
         "UTF2GBKA.map"},
        {"GBK.pdat", "GBK.wordlist", "UTF8.pdat", "UTF8.wordlist", "UTF2GBK.map", "GBK2UTF.map"},
    };
    for (int nCode = 1; nCode <= 5; ++nCode) {
        const auto& names = rows[nCode - 1];
        {
            CCodeTran tran(m_dir.path().c_str(), nCode);
            EXPECT_EQ(tran.GetStatus(), 1) << nCode;
            EXPECT_EQ(tran.GetEncodeType(), nCode);
        }
        for (size_t k = 0; k < names.size(); ++k) {
            TempDir partial;
            WriteFolder(partial);
            for (size_t j = k; j < names.size(); ++j) std::remove(partial.file(names[j]).c_str());
            CCodeTran tran(partial.path().c_str(), nCode);
            EXPECT_EQ(tran.GetStatus(), 0);
            EXPECT_EQ(tran.GetEncodeType(), 0);
            EXPECT_EQ(g_sLastErrorMessage, partial.file(names[k]) + " cannot load!\n")
                << "code " << nCode << " file " << k;
        }
    }
    EXPECT_NE(m_log.DayFile(".err").find("GBK.wordlist cannot load!\n"), std::string::npos);
}

TEST_F(CodeTranTest, WordsConvertOrBecomeMarkedBlanks) {
    CCodeTran tran(m_dir.path().c_str(), 5);
    ASSERT_EQ(tran.GetStatus(), 1);
    struct Case {
        std::string in, out;
    } cases[] = {
        {"", ""},
        {kZhongU + kWenU, kZhongG + kWenG},  // the longest word wins
        {kZhongU + kGuoU + kWenU, kZhongG + "^^ ^^" + kWenG},
        // Words no dictionary knows (here: single bytes of UTF-8) share one
        // pair of markers per run, one blank per word.
        {kHaoU + kZhongU, "^^   ^^" + kZhongG},
        // A word found but not mapped starts a run of its own.
        {kGuoU + kGuoU, "^^ ^^^^ ^^"},
        {kGuoU + kHaoU, "^^    ^^"},
        // ASCII passes through as it is, blanks included.
        {"abc " + kZhongU + " x-1", "abc " + kZhongG + " x-1"},
        // Lines: leading blanks go, each line keeps only the byte that ended it.
        {"  " + kZhongU + "\r\n\t " + kWenU + "\n\n", kZhongG + "\r" + kWenG + "\n"},
        // A marked run is copied through without its markers.
        {"a^^" + kHaoU + "^^", "a" + kHaoU},
    };
    for (const Case& c : cases) EXPECT_EQ(ToGBK(tran, c.in), c.out) << c.in;
    std::string r = "old";
    EXPECT_STREQ(tran.CodeToGBK(nullptr, r), "");
    r = kZhongU + kWenU;  // the text may be the result's own
    EXPECT_EQ(std::string(tran.CodeToGBK(r.c_str(), r)), kZhongG + kWenG);
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);
}

TEST_F(CodeTranTest, OutputDirectionWritesNoMarkers) {
    CCodeTran tran(m_dir.path().c_str(), 5);
    ASSERT_EQ(tran.GetStatus(), 1);
    EXPECT_EQ(ToCode(tran, "^^abc^^"), "abc");
    EXPECT_EQ(ToCode(tran, kZhongG + kGuoG + "\xB0\xA1" + kWenG), kZhongU + "  " + kWenU);
    EXPECT_EQ(ToCode(tran, "x " + kZhongG + "\r\n" + kWenG), "x " + kZhongU + "\r" + kWenU);
    // The byte behind a closing marker ends the marked line and starts the
    // next one, so it comes out twice.
    EXPECT_EQ(ToCode(tran, "^^ab^^cd"), "abccd");
    std::string r = "old";
    EXPECT_STREQ(tran.GBKToCode(nullptr, r), "");
}

TEST_F(CodeTranTest, MapTargetWithoutTextIsReportedAndLeftUntranslated) {
    CCodeTran tran(m_dir.path().c_str(), 5);
    EXPECT_EQ(ToGBK(tran, kShuU + kShuU), "^^ ^^^^ ^^");
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);
    const std::string sErr = m_log.DayFile(".err");
    const std::string sLine = "Cannot find map info of " + kShuU + "\n";
    ASSERT_NE(sErr.find(sLine), std::string::npos);
    EXPECT_NE(sErr.find(sLine, sErr.find(sLine) + 1), std::string::npos);  // each time met
}

TEST_F(CodeTranTest, ByteOrderMarkIsSkippedOnlyForUtf8Codes) {
    const std::string sText = kZhongU + kWenU;
    for (int nCode : {1, 4, 5}) {
        CCodeTran tran(m_dir.path().c_str(), nCode);
        EXPECT_EQ(ToGBK(tran, kBom + sText), ToGBK(tran, sText)) << nCode;
    }
    CCodeTran big5(m_dir.path().c_str(), 2);
    EXPECT_EQ(ToGBK(big5, kBom + sText), "^^   ^^" + kZhongG + kWenG);
}

TEST_F(CodeTranTest, FileFormsHandleTheByteOrderMarkOfCodeOne) {
    CCodeTran utf8(m_dir.path().c_str(), 1);
    const std::string sSrc = m_dir.write("in.txt", kBom + kZhongU + "\n" + kWenU);
    ASSERT_TRUE(utf8.CodeToGBKFile(sSrc.c_str(), m_dir.file("gbk.txt").c_str()));
    EXPECT_EQ(ReadBytes(m_dir.file("gbk.txt")), kZhongG + "\n" + kWenG + "\n");
    ASSERT_TRUE(utf8.GBKToCodeFile(m_dir.file("gbk.txt").c_str(), m_dir.file("back.txt").c_str()));
    EXPECT_EQ(ReadBytes(m_dir.file("back.txt")), kBom + kZhongU + "\n" + kWenU + "\n\n");

    CCodeTran plain(m_dir.path().c_str(), 5);
    ASSERT_TRUE(plain.GBKToCodeFile(m_dir.file("gbk.txt").c_str(), m_dir.file("b5.txt").c_str()));
    EXPECT_EQ(ReadBytes(m_dir.file("b5.txt")), kZhongU + "\n" + kWenU + "\n\n");

    EXPECT_FALSE(plain.CodeToGBKFile(m_dir.file("missing.txt").c_str(), m_dir.file("x").c_str()));
    EXPECT_FALSE(plain.CodeToGBKFile(sSrc.c_str(), m_dir.file("no/such/dir").c_str()));
    EXPECT_FALSE(plain.GBKToCodeFile(nullptr, m_dir.file("x").c_str()));
}

}  // namespace
