// The encoding round trip in the exported calls, on a small hand-made data
// folder: the translator's lifecycle across init, failed loads and exit, the
// caller's record translated in place, results and reports translated back,
// and the last-error text in UTF-8 for code 1 only.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "CodeTran.h"
#include "CodeTranTestUtil.h"
#include "Global.h"
#include "QXClassifier.h"
#include "QXClassifierState.h"
#include "TestUtil.h"

namespace {

using namespace qxtest::trans;

const std::string kClassG = kZhongG + kWenG;  // 中文
const std::string kClassU = kZhongU + kWenU;
const std::string kRules =
    "<certainty>0.6</certainty><rules><rulenum>1</rulenum><rule id=\"0\"><classid>" + kClassG +
    "</classid><toprule>OR</toprule><effectvalue>1.0</effectvalue>"
    "<perfectvsmsim>0.9</perfectvsmsim><imperfectvsmsim>0.5</imperfectvsmsim>"
    "<subrules><subrulenum>1</subrulenum><subrule id=\"1\"><operator>OR/TEXT/1</operator><value>" +
    kClassG + "</value></subrule></subrules></rule></rules>";

std::string Text(const char* s) {
    return s != nullptr ? std::string(s) : std::string("<null>");
}

class RoundTripTest : public ::testing::Test {
  protected:
    RoundTripTest() : m_log(0), m_cwd(m_dir.path()) {
        classifier_exit();
        std::filesystem::create_directory(m_dir.file("Data"));
        WriteFolder(m_dir.file("Data"));
        m_sRules = m_dir.write("rules.txt", kRules);
    }
    ~RoundTripTest() override { classifier_exit(); }

    bool Init(int encode, const std::string& sRules) {
        bool bOk = false;
        qxtest::CaptureStdout(
            [&] { bOk = classifier_init(sRules.c_str(), m_dir.path().c_str(), encode, nullptr); });
        return bOk;
    }

    qxtest::TempDir m_dir;
    qxtest::ScopedLog m_log;
    qxtest::ScopedCwd m_cwd;
    std::string m_sRules;
};

TEST_F(RoundTripTest, TranslatorLivesFromInitToExitAndSurvivesAFailedRuleLoad) {
    ASSERT_TRUE(Init(5, m_sRules));
    CCodeTran* pFirst = g_pCodeTranslator;
    ASSERT_NE(pFirst, nullptr);
    EXPECT_EQ(pFirst->GetEncodeType(), 5);

    // A later init makes a new translator; the rule list failing keeps it.
    EXPECT_FALSE(Init(2, m_dir.file("missing.txt")));
    ASSERT_NE(g_pCodeTranslator, nullptr);
    EXPECT_NE(g_pCodeTranslator, pFirst);
    EXPECT_EQ(g_pCodeTranslator->GetEncodeType(), 2);

    classifier_exit();
    EXPECT_EQ(g_pCodeTranslator, nullptr);

    // Codes outside 1..5 make none; missing resources make init fail.
    ASSERT_TRUE(Init(0, m_sRules));
    EXPECT_EQ(g_pCodeTranslator, nullptr);
    std::filesystem::remove(m_dir.file("Data/UTF2GBK.map"));
    classifier_exit();
    EXPECT_FALSE(Init(5, m_sRules));
    EXPECT_EQ(g_pCodeTranslator, nullptr);
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()),
              m_dir.file("Data") + "/UTF2GBK.map cannot load!\n");
    EXPECT_TRUE(gcTParser.m_vstRules.empty());  // the rule list was not read
}

TEST_F(RoundTripTest, DocumentGoesInAsGbkAndResultsComeBackInTheCallersEncoding) {
    ASSERT_TRUE(Init(5, m_sRules));
    stDoc d;
    d.sTitle = kClassU;
    d.sContent = "x " + kWenU;
    d.sAuthor = kZhongU;
    d.sBoard = "board";
    d.sDatatype = "";
    // The result "中文 1.0000\t" comes back in UTF-8; tabs do not survive
    // the word walk.
    EXPECT_EQ(Text(classifier_exec1(d, 1)), kClassU + " 1.0000");
    EXPECT_EQ(d.sTitle, kClassG);  // the caller's record now holds GBK
    EXPECT_EQ(d.sContent, "x " + kWenG);
    EXPECT_EQ(d.sAuthor, kZhongG);
    EXPECT_EQ(d.sBoard, "board");
    EXPECT_EQ(d.sDatatype, "");

    EXPECT_EQ(Text(classifier_exec(kClassU.c_str(), "", 0)), kClassU);
    EXPECT_EQ(Text(classifier_exec(kZhongU.c_str(), kZhongU.c_str(), 0)), "");
    // The class name is translated in, the report out.
    ASSERT_NE(classifier_exec(kClassU.c_str(), "", 0), nullptr);
    EXPECT_EQ(Text(classifier_detail(kClassU.c_str())), "RULE0:\nSUBRULE1: " + kClassU + " 1\n");
    EXPECT_EQ(Text(classifier_detail(kClassG.c_str())), "");  // a GBK name is not the class
}

// The fields are translated in the order sAuthor, sBoard, sContent,
// sDatatype, sTitle: each holds a word whose missing text is reported, so the
// error file lists them in translation order.
TEST_F(RoundTripTest, FieldsAreTranslatedInTheirFixedOrder) {
    ASSERT_TRUE(Init(5, m_sRules));
    g_bLog = 1;
    stDoc d;
    d.sTitle = "f5";
    d.sContent = "f3";
    d.sAuthor = "f1";
    d.sBoard = "f2";
    d.sDatatype = "f4";
    ASSERT_NE(classifier_exec1(d, 0), nullptr);
    const std::string sErr = m_log.DayFile(".err");
    size_t nAt = 0;
    for (const char* sWord : {"f1", "f2", "f3", "f4", "f5"}) {
        nAt = sErr.find(std::string("Cannot find map info of ") + sWord + "\n", nAt);
        ASSERT_NE(nAt, std::string::npos) << sWord << " out of order in:\n" << sErr;
    }
}

TEST_F(RoundTripTest, LastErrorTextIsUtf8ForCodeOneOnly) {
    for (int encode : {1, 2, 3, 4, 5}) {
        ASSERT_TRUE(Init(encode, m_sRules)) << encode;
        g_sLastErrorMessage = kClassG;
        EXPECT_EQ(Text(classifier_GetLastErrorMsg()), encode == 1 ? kClassU : kClassG);
        classifier_exit();
    }
}

}  // namespace
