// Tests of the exported calls: lifecycle, thresholds, file classification,
// result ownership and reports. Each test runs in a fresh temporary working
// directory with logging off, and starts and ends with classifier_exit.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>

#include "BufferManager.h"
#include "Global.h"
#include "QXClassifier.h"
#include "QXClassifierState.h"
#include "TestUtil.h"
#include "global_linux.h"

namespace {

using namespace qxtest::gbk;
const std::string kFinance = "\xB2\xC6\xBE\xAD";  // 财经
const std::string kStocks = "\xB9\xC9\xCA\xD0";   // 股市
const std::string kWeather = "\xCC\xEC\xC6\xF8";  // 天气
const std::string kTyphoon = "\xCC\xA8\xB7\xE7";  // 台风

std::string Rule(int id, const std::string& sClass, const std::string& sOp,
                 const std::string& sKeywords) {
    return "<rule id=\"" + std::to_string(id) + "\"><classid>" + sClass +
           "</classid><toprule>OR</toprule><effectvalue>1.0</effectvalue>"
           "<perfectvsmsim>0.9</perfectvsmsim><imperfectvsmsim>0.5</imperfectvsmsim>"
           "<subrules><subrulenum>1</subrulenum><subrule id=\"1\"><operator>" +
           sOp + "</operator><value>" + sKeywords + "</value></subrule></subrules></rule>";
}

// 体育 on 足球/篮球 anywhere, 财经 on 股市 in the title; 天气 on 台风 anywhere.
const std::string kSportFinanceRules = "<certainty>0.6</certainty><rules><rulenum>2</rulenum>" +
                                       Rule(0, kSport, "OR/TEXT/1", kFootball + " " + kBasketball) +
                                       Rule(1, kFinance, "OR/TITLE/1", kStocks) + "</rules>";
const std::string kWeatherRules = "<certainty>0.6</certainty><rules><rulenum>1</rulenum>" +
                                  Rule(0, kWeather, "OR/TEXT/1", kTyphoon) + "</rules>";

std::string Text(const char* s) {
    return s != nullptr ? std::string(s) : std::string("<null>");
}

class ClassifierApiTest : public ::testing::Test {
  protected:
    ClassifierApiTest() : m_log(0), m_cwd(m_dir.path()) { classifier_exit(); }
    ~ClassifierApiTest() override { classifier_exit(); }

    // classifier_init with the loader's progress lines kept off the output.
    bool Init(const char* conf, const char* sDir = nullptr, int encode = 0) {
        bool bOk = false;
        qxtest::CaptureStdout([&] { bOk = classifier_init(conf, sDir, encode, nullptr); });
        return bOk;
    }
    bool InitWith(const std::string& sRules, const char* sName = "rules.txt") {
        return Init(m_dir.write(sName, sRules).c_str());
    }

    qxtest::TempDir m_dir;
    qxtest::ScopedLog m_log;
    qxtest::ScopedCwd m_cwd;
};

TEST_F(ClassifierApiTest, InitRecordsDirectoryAndEncodingAndNeedsTranslatorData) {
    const std::string sConf = m_dir.write("rules.txt", kSportFinanceRules);
    const std::string sCwd = std::filesystem::current_path().string();
    const std::tuple<const char*, int, std::string> kCases[] = {
        {nullptr, 0, sCwd}, {"", 6, sCwd}, {"/var/qxdata/", -1, "/var/qxdata/"}};
    for (const auto& [sDir, encode, sExpectedDir] : kCases) {
        ASSERT_TRUE(Init(sConf.c_str(), sDir, encode)) << encode;
        EXPECT_EQ(g_sDefaultDir, sExpectedDir);
        EXPECT_EQ(g_nEncodeType, encode);
        classifier_exit();
    }
    // 1..5 need the translator's resources, which are not there.
    for (int encode = 1; encode <= 5; ++encode) {
        EXPECT_FALSE(Init(sConf.c_str(), m_dir.path().c_str(), encode)) << encode;
        EXPECT_EQ(g_pCodeTranslator, nullptr);
        EXPECT_EQ(g_sLastErrorMessage, m_dir.path() + "/Data/" +
                                           (encode == 1 || encode == 4 ? "GBKA" : "GBK") +
                                           ".pdat cannot load!\n");
        EXPECT_TRUE(gcTParser.m_vstRules.empty());
        EXPECT_EQ(classifier_exec("t", "c", 1), nullptr);
    }
}

TEST_F(ClassifierApiTest, SecondInitAppendsAndAFailedOneKeepsTheRules) {
    // Before any successful init there is nothing to classify with.
    EXPECT_FALSE(Init(nullptr));
    EXPECT_EQ(g_sLastErrorMessage, "Cannot open  file ");
    EXPECT_EQ(classifier_exec(kFootball.c_str(), "", 1), nullptr);
    EXPECT_EQ(g_sLastErrorMessage, "Classifier not initialised");
    EXPECT_EQ(classifier_detail(kSport.c_str()), nullptr);

    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const std::string sMissing = m_dir.file("missing.txt");
    EXPECT_FALSE(Init(sMissing.c_str()));
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()), "Cannot open  file " + sMissing);
    // The rules stay and the library stays usable, but the failed load left a
    // fresh, empty dictionary behind, so nothing is found until a good load.
    EXPECT_EQ(gcTParser.m_vstRules.size(), 2u);
    EXPECT_EQ(Text(classifier_exec(kFootball.c_str(), "", 1)), "");
    ASSERT_TRUE(InitWith(kWeatherRules, "weather.txt"));
    EXPECT_EQ(gcTParser.m_vstRules.size(), 3u);
    const std::string sContent = kFootball + " " + kTyphoon;
    EXPECT_EQ(Text(classifier_exec("", sContent.c_str(), 0)), kSport + "\t" + kWeather + "\t");
}

TEST_F(ClassifierApiTest, ExitTwiceIsHarmlessAndInitWorksAgain) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    classifier_exit();
    classifier_exit();
    EXPECT_TRUE(gcTParser.m_vstRules.empty());
    EXPECT_EQ(classifier_exec(kFootball.c_str(), "", 1), nullptr);
    // Without a buffer manager the message copy is still the library's.
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()), "Classifier not initialised");
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()), "Classifier not initialised");

    ASSERT_TRUE(InitWith(kSportFinanceRules));
    EXPECT_EQ(gcTParser.m_vstRules.size(), 2u);
    EXPECT_EQ(Text(classifier_exec(kFootball.c_str(), "", 1)), kSport + " 1.0000\t");
}

TEST_F(ClassifierApiTest, SetSimThreshStoresOnlyValuesNotAtMostZero) {
    classifier_setsimthresh(0.5f);  // no rules loaded: nothing to change
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const float kNaN = std::numeric_limits<float>::quiet_NaN();
    const std::pair<float, float> kCases[] = {
        {0.0f, 0.9f}, {-1.0f, 0.9f}, {0.5f, 0.5f}, {0.0f, 0.5f}, {kNaN, kNaN}};
    for (const auto& [fSim, fExpected] : kCases) {
        classifier_setsimthresh(fSim);
        for (const auto& stRule : gcTParser.m_vstRules) {
            EXPECT_TRUE(stRule.fPerfectVSMSim == fExpected ||
                        (std::isnan(fExpected) && std::isnan(stRule.fPerfectVSMSim)))
                << fSim;
            EXPECT_FLOAT_EQ(stRule.fImPerfectVSMSim, 0.5f);
            EXPECT_FLOAT_EQ(stRule.fEffecValue, 1.0f);
        }
    }
}

TEST_F(ClassifierApiTest, ExecFileReadsBodyAndRejectsUnreadableFiles) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const std::string sEmpty = m_dir.write("empty.txt", "");
    for (const std::string& sPath : {sEmpty, m_dir.file("missing.txt"), std::string()}) {
        EXPECT_EQ(classifier_execFile(sPath.empty() ? nullptr : sPath.c_str(), 1), nullptr);
        EXPECT_EQ(g_sLastErrorMessage, "Failed read file " + sPath);
    }
    // The body is classified; the name as given (here holding 股市) is the title.
    const std::string sNamed = m_dir.write(kStocks + ".txt", kBasketball);
    EXPECT_EQ(Text(classifier_execFile(sNamed.c_str(), 0)), kFinance + "\t" + kSport + "\t");
    // A UTF-8 name finds the file under its GBK name, but the title stays the
    // caller's UTF-8 text, which holds no GBK keyword.
    const std::string sUTF8Name = m_dir.file("\xE8\x82\xA1\xE5\xB8\x82.txt");  // 股市.txt
    EXPECT_EQ(Text(classifier_execFile(sUTF8Name.c_str(), 0)), kSport + "\t");
}

TEST_F(ClassifierApiTest, ResultsAreSeparateCopiesAndTheDocumentIsLeftUnchanged) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    stDoc d;
    d.sTitle = kStocks;
    d.sContent = kFootball + "\n" + kFootball;
    d.sAuthor = "a";
    d.sBoard = "b";
    d.sDatatype = "c";
    const std::pair<int, std::string> kCases[] = {
        {0, kFinance + "\t" + kSport + "\t"},
        {1, kFinance + " 1.0000\t" + kSport + " 1.0000\t"},
        {2, ""}};
    for (const auto& [iType, sExpected] : kCases) {
        const char* sResult = classifier_exec1(d, iType);
        EXPECT_EQ(Text(sResult), sExpected);
        EXPECT_NE(sResult, gcTParser.m_sClassifyResult.c_str());
        EXPECT_EQ(d.sTitle + d.sContent + d.sAuthor + d.sBoard + d.sDatatype,
                  kStocks + kFootball + "\n" + kFootball + "abc");
    }
    const char* sFirst = classifier_exec(kStocks.c_str(), "", 1);
    const char* sSecond = classifier_exec(nullptr, nullptr, 1);
    EXPECT_EQ(Text(sFirst), kFinance + " 1.0000\t");
    EXPECT_EQ(Text(sSecond), "");
}

TEST_F(ClassifierApiTest, DetailReportsTheFiredRulesOfOneClass) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const std::string sContent = kFootball + kBasketball + kFootball;
    ASSERT_NE(classifier_exec(kStocks.c_str(), sContent.c_str(), 1), nullptr);
    const std::pair<const char*, std::string> kCases[] = {
        {kSport.c_str(), "RULE0:\nSUBRULE1: " + kFootball + " 2\t" + kBasketball + " 1\t\n"},
        {kFinance.c_str(), "RULE1:\nSUBRULE1: " + kStocks + " 1\t\n"},
        {kWeather.c_str(), ""},
        {nullptr, ""}};
    for (const auto& [sClass, sExpected] : kCases)
        EXPECT_EQ(Text(classifier_detail(sClass)), sExpected) << Text(sClass);
}

}  // namespace
