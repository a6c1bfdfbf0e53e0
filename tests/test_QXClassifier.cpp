// Tests of the exported calls: lifecycle, thresholds, file classification,
// result ownership and reports. Each test runs in a fresh temporary working
// directory with logging off, and starts and ends with classifier_exit.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

#include "BufferManager.h"
#include "Global.h"
#include "QXClassifier.h"
#include "QXClassifierState.h"
#include "TestUtil.h"
#include "global_linux.h"

namespace {

namespace fs = std::filesystem;

// 体育 / 足球 / 篮球 / 财经 / 股市 / 天气 / 台风
const std::string kSport = "\xCC\xE5\xD3\xFD";
const std::string kFootball = "\xD7\xE3\xC7\xF2";
const std::string kBasketball = "\xC0\xBA\xC7\xF2";
const std::string kFinance = "\xB2\xC6\xBE\xAD";
const std::string kStocks = "\xB9\xC9\xCA\xD0";
const std::string kWeather = "\xCC\xEC\xC6\xF8";
const std::string kTyphoon = "\xCC\xA8\xB7\xE7";

std::string Rule(int id, const std::string& sClass, const std::string& sOperator,
                 const std::string& sKeywords) {
    const std::string sId = std::to_string(id);
    return "<rule id=\"" + sId + "\"><classid>" + sClass +
           "</classid><toprule>OR</toprule><effectvalue>1.0</effectvalue>"
           "<perfectvsmsim>0.9</perfectvsmsim><imperfectvsmsim>0.5</imperfectvsmsim>"
           "<subrules><subrulenum>1</subrulenum><subrule id=\"1\"><operator>" +
           sOperator + "</operator><value>" + sKeywords + "</value></subrule></subrules></rule>";
}

// Two rules: 体育 on 足球/篮球 anywhere, 财经 on 股市 in the title.
const std::string kSportFinanceRules = "<certainty>0.6</certainty><rules><rulenum>2</rulenum>" +
                                       Rule(0, kSport, "OR/TEXT/1", kFootball + " " + kBasketball) +
                                       Rule(1, kFinance, "OR/TITLE/1", kStocks) + "</rules>";

// One rule: 天气 on 台风 anywhere.
const std::string kWeatherRules = "<certainty>0.6</certainty><rules><rulenum>1</rulenum>" +
                                  Rule(0, kWeather, "OR/TEXT/1", kTyphoon) + "</rules>";

std::string Text(const char* s) {
    return s != nullptr ? std::string(s) : std::string("<null>");
}

class ClassifierApiTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_nOldLog = g_bLog;
        g_bLog = 0;
        m_oldCwd = fs::current_path();
        fs::current_path(m_dir.path());
        classifier_exit();
    }
    void TearDown() override {
        classifier_exit();
        fs::current_path(m_oldCwd);
        g_bLog = m_nOldLog;
    }

    std::string WriteFile(const std::string& sName, const std::string& sBytes) {
        qxtest::WriteBytes(m_dir.file(sName), sBytes);
        return m_dir.file(sName);
    }

    // classifier_init with the loader's progress lines kept off the output.
    bool Init(const char* conf, const char* sDir = nullptr, int encode = 0) {
        bool bOk = false;
        qxtest::CaptureStdout([&] { bOk = classifier_init(conf, sDir, encode, nullptr); });
        return bOk;
    }
    bool InitWith(const std::string& sRules) {
        return Init(WriteFile("rules.txt", sRules).c_str());
    }

    qxtest::TempDir m_dir;
    fs::path m_oldCwd;
    unsigned char m_nOldLog = 1;
};

TEST_F(ClassifierApiTest, InitRecordsDataDirectoryAndEncodingWithoutTranslator) {
    const std::string sConf = WriteFile("rules.txt", kSportFinanceRules);
    const std::string sCwd = fs::current_path().string();
    const struct {
        const char* sDir;
        int encode;
        std::string sExpectedDir;
    } kCases[] = {{nullptr, 0, sCwd}, {"", 6, sCwd}, {"/var/qxdata/", -1, "/var/qxdata/"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.encode);
        ASSERT_TRUE(Init(sConf.c_str(), c.sDir, c.encode));
        EXPECT_EQ(g_sDefaultDir, c.sExpectedDir);
        EXPECT_EQ(g_nEncodeType, c.encode);
        EXPECT_EQ(g_pCodeTranslator, nullptr);
        classifier_exit();
    }
}

TEST_F(ClassifierApiTest, TranslatorCodesFailWithoutTheirResources) {
    const std::string sConf = WriteFile("rules.txt", kSportFinanceRules);
    for (int encode = 1; encode <= 5; ++encode) {
        SCOPED_TRACE(encode);
        EXPECT_FALSE(Init(sConf.c_str(), m_dir.path().c_str(), encode));
        EXPECT_EQ(g_pCodeTranslator, nullptr);
        EXPECT_TRUE(gcTParser.m_vstRules.empty());
        EXPECT_EQ(classifier_exec("t", "c", 1), nullptr);
    }
}

TEST_F(ClassifierApiTest, SecondInitAppendsRules) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    ASSERT_TRUE(Init(WriteFile("weather.txt", kWeatherRules).c_str()));
    EXPECT_EQ(gcTParser.m_vstRules.size(), 3u);

    const std::string sContent = kFootball + " " + kTyphoon;
    EXPECT_EQ(Text(classifier_exec("", sContent.c_str(), 0)), kSport + "\t" + kWeather + "\t");
}

TEST_F(ClassifierApiTest, FailedInitReportsPathAndKeepsLoadedState) {
    // Before any successful init there is nothing to classify with.
    EXPECT_FALSE(Init(nullptr));
    EXPECT_EQ(g_sLastErrorMessage, "Cannot open  file ");
    EXPECT_EQ(classifier_exec(kFootball.c_str(), "", 1), nullptr);
    EXPECT_EQ(g_sLastErrorMessage, "Classifier not initialised");
    EXPECT_EQ(classifier_detail(kSport.c_str()), nullptr);

    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const std::string sMissing = m_dir.file("missing.txt");
    EXPECT_FALSE(Init(sMissing.c_str()));
    EXPECT_EQ(g_sLastErrorMessage, "Cannot open  file " + sMissing);
    EXPECT_EQ(Text(classifier_GetLastErrorMsg()), "Cannot open  file " + sMissing);
    // The rules stay and the library stays usable, but the failed load left a
    // fresh, empty dictionary behind, so nothing is found until a good load.
    EXPECT_EQ(gcTParser.m_vstRules.size(), 2u);
    EXPECT_EQ(Text(classifier_exec(kFootball.c_str(), "", 1)), "");
    ASSERT_TRUE(Init(WriteFile("weather.txt", kWeatherRules).c_str()));
    EXPECT_EQ(Text(classifier_exec(kFootball.c_str(), "", 1)), kSport + " 1.0000\t");
}

TEST_F(ClassifierApiTest, ExitTwiceIsHarmlessAndInitWorksAgain) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    classifier_exit();
    classifier_exit();
    EXPECT_TRUE(gcTParser.m_vstRules.empty());
    EXPECT_EQ(g_pBufManager, nullptr);
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
    EXPECT_TRUE(gcTParser.m_vstRules.empty());

    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const float kNaN = std::numeric_limits<float>::quiet_NaN();
    const struct {
        float fSim;
        float fExpected;  // NaN: expect NaN
    } kCases[] = {{0.0f, 0.9f}, {-1.0f, 0.9f}, {0.5f, 0.5f}, {0.0f, 0.5f}, {kNaN, kNaN}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.fSim);
        classifier_setsimthresh(c.fSim);
        for (const auto& stRule : gcTParser.m_vstRules) {
            if (std::isnan(c.fExpected)) {
                EXPECT_TRUE(std::isnan(stRule.fPerfectVSMSim));
            } else {
                EXPECT_FLOAT_EQ(stRule.fPerfectVSMSim, c.fExpected);
            }
            EXPECT_FLOAT_EQ(stRule.fImPerfectVSMSim, 0.5f);
            EXPECT_FLOAT_EQ(stRule.fEffecValue, 1.0f);
        }
    }
}

TEST_F(ClassifierApiTest, ExecFileReadsBodyAndRejectsUnreadableFiles) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const std::string sEmpty = WriteFile("empty.txt", "");
    const std::string sMissing = m_dir.file("missing.txt");
    for (const std::string& sPath : {sEmpty, sMissing}) {
        EXPECT_EQ(classifier_execFile(sPath.c_str(), 1), nullptr);
        EXPECT_EQ(g_sLastErrorMessage, "Failed read file " + sPath);
    }
    EXPECT_EQ(classifier_execFile(nullptr, 1), nullptr);
    EXPECT_EQ(g_sLastErrorMessage, "Failed read file ");

    // The body is classified; the name as given (here holding 股市) is the title.
    const std::string sNamed = WriteFile(kStocks + ".txt", kBasketball);
    EXPECT_EQ(Text(classifier_execFile(sNamed.c_str(), 0)), kFinance + "\t" + kSport + "\t");

    // A UTF-8 name finds the file under its GBK name, but the title stays the
    // caller's UTF-8 text, which holds no GBK keyword.
    const std::string sUTF8Name = m_dir.file("\xE8\x82\xA1\xE5\xB8\x82.txt");  // 股市.txt
    EXPECT_EQ(Text(classifier_execFile(sUTF8Name.c_str(), 0)), kSport + "\t");
}

TEST_F(ClassifierApiTest, Exec1LeavesDocumentAndEngineTextUnchanged) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    stDoc d;
    d.sTitle = kStocks;
    d.sContent = kFootball + "\n" + kFootball;
    d.sAuthor = "a";
    d.sBoard = "b";
    d.sDatatype = "c";
    const stDoc before = d;

    const struct {
        int iType;
        std::string sExpected;
    } kCases[] = {{0, kFinance + "\t" + kSport + "\t"},
                  {1, kFinance + " 1.0000\t" + kSport + " 1.0000\t"},
                  {2, ""}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.iType);
        const char* sResult = classifier_exec1(d, c.iType);
        ASSERT_NE(sResult, nullptr);
        EXPECT_EQ(std::string(sResult), c.sExpected);
        EXPECT_EQ(std::string(sResult), gcTParser.m_sClassifyResult);
        EXPECT_NE(sResult, gcTParser.m_sClassifyResult.c_str());
        EXPECT_EQ(d.sTitle, before.sTitle);
        EXPECT_EQ(d.sContent, before.sContent);
        EXPECT_EQ(d.sAuthor, before.sAuthor);
        EXPECT_EQ(d.sBoard, before.sBoard);
        EXPECT_EQ(d.sDatatype, before.sDatatype);
    }
}

TEST_F(ClassifierApiTest, ResultsAreSeparateCopiesAndNullTextsAreEmpty) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const char* sFirst = classifier_exec(kStocks.c_str(), "", 1);
    const char* sSecond = classifier_exec("", kBasketball.c_str(), 1);
    const char* sThird = classifier_exec(nullptr, nullptr, 1);
    ASSERT_NE(sFirst, nullptr);
    ASSERT_NE(sSecond, nullptr);
    ASSERT_NE(sThird, nullptr);
    EXPECT_NE(sFirst, sSecond);
    EXPECT_EQ(std::string(sFirst), kFinance + " 1.0000\t");
    EXPECT_EQ(std::string(sSecond), kSport + " 1.0000\t");
    EXPECT_EQ(std::string(sThird), "");
}

TEST_F(ClassifierApiTest, DetailReportsTheFiredRulesOfOneClass) {
    ASSERT_TRUE(InitWith(kSportFinanceRules));
    const std::string sContent = kFootball + kBasketball + kFootball;
    ASSERT_NE(classifier_exec(kStocks.c_str(), sContent.c_str(), 1), nullptr);

    const struct {
        const char* sClass;
        std::string sExpected;
    } kCases[] = {
        {kSport.c_str(), "RULE0:\nSUBRULE1: " + kFootball + " 2\t" + kBasketball + " 1\t\n"},
        {kFinance.c_str(), "RULE1:\nSUBRULE1: " + kStocks + " 1\t\n"},
        {kWeather.c_str(), ""},
        {nullptr, ""}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(Text(c.sClass));
        EXPECT_EQ(Text(classifier_detail(c.sClass)), c.sExpected);
    }
}

}  // namespace
