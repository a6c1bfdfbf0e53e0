// The exported calls: lifecycle, thresholds, file classification, result
// ownership and reports in GBK (code 0); then the encoding round trip with the
// translator's hand-made folder (test_CodeTran.cpp) under "Data". Each test
// runs in a fresh working directory with logging off, between two
// classifier_exit calls.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "CodeTran.h"
#include "Global.h"
#include "QXClassifier.h"
#include "QXClassifierState.h"
#include "TestUtil.h"
#include "global_linux.h"

namespace qxtest {
void WriteTranslatorFolder(const std::string& sDir);  // test_CodeTran.cpp
}

namespace {

const std::string kSport = "\xCC\xE5\xD3\xFD";              // 体育
const std::string kFootball = "\xD7\xE3\xC7\xF2";           // 足球
const std::string kBasketball = "\xC0\xBA\xC7\xF2";         // 篮球
const std::string kFinance = "\xB2\xC6\xBE\xAD";            // 财经
const std::string kStocks = "\xB9\xC9\xCA\xD0";             // 股市
const std::string kWeather = "\xCC\xEC\xC6\xF8";            // 天气
const std::string kTyphoon = "\xCC\xA8\xB7\xE7";            // 台风
const std::string kZhongWenG = "\xD6\xD0\xCE\xC4";          // 中文 in GBK
const std::string kZhongWenU = "\xE4\xB8\xAD\xE6\x96\x87";  // 中文 in UTF-8

// A rule list of one-sub-rule rules {class, operator, keywords}.
std::string Rules(const std::vector<std::tuple<std::string, std::string, std::string>>& rules) {
    std::string s =
        "<certainty>0.6</certainty><rules><rulenum>" + std::to_string(rules.size()) + "</rulenum>";
    for (size_t i = 0; i < rules.size(); ++i) {
        const auto& [sClass, sOp, sKeywords] = rules[i];
        s += "<rule id=\"" + std::to_string(i) + "\"><classid>" + sClass +
             "</classid><toprule>OR</toprule><effectvalue>1.0</effectvalue>"
             "<perfectvsmsim>0.9</perfectvsmsim><imperfectvsmsim>0.5</imperfectvsmsim>"
             "<subrules><subrulenum>1</subrulenum><subrule id=\"1\"><operator>" +
             sOp + "</operator><value>" + sKeywords + "</value></subrule></subrules></rule>";
    }
    return s + "</rules>";
}

// 体育 on 足球/篮球 anywhere, 财经 on 股市 in the title.
const std::string kSportFinanceRules = Rules(
    {{kSport, "OR/TEXT/1", kFootball + " " + kBasketball}, {kFinance, "OR/TITLE/1", kStocks}});

std::string Text(const char* s) {
    return s != nullptr ? std::string(s) : std::string("<null>");
}

class ClassifierApiTest : public ::testing::Test {
  protected:
    ClassifierApiTest() : m_log(0), m_cwd(m_dir.path()) { classifier_exit(); }
    ~ClassifierApiTest() override { classifier_exit(); }
    bool Init(const std::string& sRules, int encode = 0, const char* sDir = nullptr) {
        return classifier_init(m_dir.write("rules.txt", sRules).c_str(), sDir, encode, nullptr);
    }

    qxtest::TempDir m_dir;
    qxtest::ScopedLog m_log;
    qxtest::ScopedCwd m_cwd;
    qxtest::ScopedProgress m_quiet{false};
};

TEST_F(ClassifierApiTest, InitRecordsDirectoryAndEncodingAndAppendsRules) {
    // Before any successful init there is nothing to classify with.
    EXPECT_FALSE(classifier_init(nullptr, nullptr, 0, nullptr));
    EXPECT_EQ(g_sLastErrorMessage, "Cannot open  file ");
    EXPECT_EQ(classifier_exec(kFootball.c_str(), "", 1), nullptr);
    EXPECT_EQ(g_sLastErrorMessage, "Classifier not initialised");
    EXPECT_EQ(classifier_detail(kSport.c_str()), nullptr);
    for (const auto& [sDir, encode, sExpectedDir] :
         {std::tuple{"", 6, m_dir.path()}, {"/var/qxdata/", -1, std::string("/var/qxdata/")}}) {
        ASSERT_TRUE(Init(kSportFinanceRules, encode, sDir)) << encode;
        EXPECT_EQ(std::filesystem::path(g_sDefaultDir), std::filesystem::path(sExpectedDir));
        EXPECT_EQ(g_nEncodeType, encode);
        classifier_exit();
    }
    // Codes 1..5 need the translator's resources, which are not here.
    EXPECT_FALSE(Init(kSportFinanceRules, 4, m_dir.path().c_str()));
    EXPECT_EQ(g_sLastErrorMessage, m_dir.path() + "/Data/GBKA.pdat cannot load!\n");
    EXPECT_TRUE(gcTParser.m_vstRules.empty());

    ASSERT_TRUE(Init(kSportFinanceRules));
    classifier_setsimthresh(0.5f);  // stored in every rule; values at most 0 are ignored
    classifier_setsimthresh(0.0f);
    classifier_setsimthresh(-1.0f);
    for (const auto& stRule : gcTParser.m_vstRules) EXPECT_EQ(stRule.fPerfectVSMSim, 0.5f);
    const std::string sMissing = m_dir.file("missing.txt");
    EXPECT_FALSE(classifier_init(sMissing.c_str(), nullptr, 0, nullptr));
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()), "Cannot open  file " + sMissing);
    // The rules stay and the library stays usable, but the failed load left a
    // fresh, empty dictionary behind, so nothing is found until a good load.
    EXPECT_EQ(gcTParser.m_vstRules.size(), 2u);
    EXPECT_EQ(Text(classifier_exec(kFootball.c_str(), "", 1)), "");
    ASSERT_TRUE(Init(Rules({{kWeather, "OR/TEXT/1", kTyphoon}})));  // 天气 on 台风
    EXPECT_EQ(gcTParser.m_vstRules.size(), 3u);
    const std::string sContent = kFootball + " " + kTyphoon;
    EXPECT_EQ(Text(classifier_exec("", sContent.c_str(), 0)), kSport + "\t" + kWeather + "\t");
    classifier_exit();
    classifier_exit();  // twice is harmless
    EXPECT_TRUE(gcTParser.m_vstRules.empty());
    EXPECT_EQ(classifier_exec(kFootball.c_str(), "", 1), nullptr);
    // Without a buffer manager the message copy is still the library's.
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()), "Classifier not initialised");
}

TEST_F(ClassifierApiTest, ResultsReportsAndFilesLeaveTheDocumentUnchanged) {
    ASSERT_TRUE(Init(kSportFinanceRules));
    stDoc d;
    d.sTitle = kStocks;
    d.sContent = kFootball + "\n" + kFootball;
    d.sAuthor = "a";
    for (const auto& [iType, sExpected] : {std::pair{0, kFinance + "\t" + kSport + "\t"},
                                           {1, kFinance + " 1.0000\t" + kSport + " 1.0000\t"},
                                           {2, std::string()}}) {
        const char* sResult = classifier_exec1(d, iType);
        EXPECT_EQ(Text(sResult), sExpected);
        EXPECT_NE(sResult, gcTParser.m_sClassifyResult.c_str());  // a copy of its own
        EXPECT_EQ(d.sTitle + d.sContent + d.sAuthor + d.sBoard, kStocks + d.sContent + "a");
    }
    const char* sFirst = classifier_exec(kStocks.c_str(), "", 1);
    EXPECT_EQ(Text(classifier_exec(nullptr, nullptr, 1)), "");
    EXPECT_EQ(Text(sFirst), kFinance + " 1.0000\t");

    const std::string sContent = kFootball + kBasketball + kFootball;
    ASSERT_NE(classifier_exec(kStocks.c_str(), sContent.c_str(), 1), nullptr);
    for (const auto& [sClass, sExpected] :
         {std::pair{kSport.c_str(),
                    "RULE0:\nSUBRULE1: " + kFootball + " 2\t" + kBasketball + " 1\t\n"},
          {kFinance.c_str(), "RULE1:\nSUBRULE1: " + kStocks + " 1\t\n"},
          {kWeather.c_str(), std::string()},
          {nullptr, std::string()}})
        EXPECT_EQ(Text(classifier_detail(sClass)), sExpected) << Text(sClass);

    // A file's body is classified with the name as given (here holding 股市)
    // as the title; a UTF-8 name finds the file under its GBK name.
    const std::string sEmpty = m_dir.write("empty.txt", "");
    for (const std::string& sPath : {sEmpty, m_dir.file("missing.txt"), std::string()}) {
        EXPECT_EQ(classifier_execFile(sPath.empty() ? nullptr : sPath.c_str(), 1), nullptr);
        EXPECT_EQ(g_sLastErrorMessage, "Failed read file " + sPath);
    }
    const std::string sNamed = m_dir.write(kStocks + ".txt", kBasketball);
    EXPECT_EQ(Text(classifier_execFile(sNamed.c_str(), 0)), kFinance + "\t" + kSport + "\t");
    const std::string sUTF8Name = m_dir.file("\xE8\x82\xA1\xE5\xB8\x82.txt");  // 股市.txt
    EXPECT_EQ(Text(classifier_execFile(sUTF8Name.c_str(), 0)), kSport + "\t");
}

// ---- The encoding round trip ------------------------------------------------

// The translator's folder under "Data" and a rule list classing 中文 as 中文.
class RoundTripTest : public ClassifierApiTest {
  protected:
    RoundTripTest() {
        std::filesystem::create_directory(m_dir.file("Data"));
        qxtest::WriteTranslatorFolder(m_dir.file("Data"));
    }
    bool Init(int encode) {
        return ClassifierApiTest::Init(Rules({{kZhongWenG, "OR/TEXT/1", kZhongWenG}}), encode,
                                       m_dir.path().c_str());
    }
};

TEST_F(RoundTripTest, TranslatorLivesFromInitToExitAndSurvivesAFailedRuleLoad) {
    ASSERT_TRUE(Init(5));
    CCodeTran* pFirst = g_pCodeTranslator;
    ASSERT_NE(pFirst, nullptr);
    // A later init makes a new translator; the rule list failing keeps it.
    EXPECT_FALSE(classifier_init(m_dir.file("missing.txt").c_str(), nullptr, 2, nullptr));
    ASSERT_NE(g_pCodeTranslator, nullptr);
    EXPECT_NE(g_pCodeTranslator, pFirst);
    EXPECT_EQ(g_pCodeTranslator->GetEncodeType(), 2);
    classifier_exit();
    EXPECT_EQ(g_pCodeTranslator, nullptr);
    ASSERT_TRUE(Init(0));  // codes outside 1..5 make none
    EXPECT_EQ(g_pCodeTranslator, nullptr);
}

// The fields go into GBK in the order sAuthor, sBoard, sContent, sDatatype,
// sTitle: the words "f1" to "f5" have map targets without text, so the error
// file lists them in translation order. Results and reports come back in
// UTF-8 (tabs do not survive the word walk); class names go in as GBK.
TEST_F(RoundTripTest, DocumentGoesInAsGbkAndResultsComeBackInTheCallersEncoding) {
    ASSERT_TRUE(Init(5));
    g_bLog = 1;
    stDoc d;
    d.sTitle = "f5";
    d.sContent = "f3 " + kZhongWenU;
    d.sAuthor = "f1";
    d.sBoard = "f2";
    d.sDatatype = "f4";
    EXPECT_EQ(Text(classifier_exec1(d, 1)), kZhongWenU + " 1.0000");
    EXPECT_EQ(d.sContent, "f3 " + kZhongWenG);  // the caller's record now holds GBK
    const std::string sErr = m_log.DayFile(".err");
    size_t nAt = 0;
    for (const char* sWord : {"f1", "f2", "f3", "f4", "f5"}) {
        nAt = sErr.find(std::string("Cannot find map info of ") + sWord + "\n", nAt);
        ASSERT_NE(nAt, std::string::npos) << sWord << " out of order in:\n" << sErr;
    }
    EXPECT_EQ(Text(classifier_exec("\xE4\xB8\xAD", "", 0)), "");  // 中 alone
    ASSERT_EQ(Text(classifier_exec(kZhongWenU.c_str(), "", 0)), kZhongWenU);
    EXPECT_EQ(Text(classifier_detail(kZhongWenU.c_str())),
              "RULE0:\nSUBRULE1: " + kZhongWenU + " 1\n");
    EXPECT_EQ(Text(classifier_detail(kZhongWenG.c_str())), "");
}

TEST_F(RoundTripTest, LastErrorTextIsUtf8ForCodeOneOnly) {
    for (int encode : {1, 2, 3, 4, 5}) {
        ASSERT_TRUE(Init(encode)) << encode;
        g_sLastErrorMessage = kZhongWenG;
        EXPECT_EQ(Text(classifier_GetLastErrorMsg()), encode == 1 ? kZhongWenU : kZhongWenG);
        classifier_exit();
    }
}

}  // namespace
