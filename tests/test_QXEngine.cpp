// The reentrant engine against the classic one on the bundled examples: the
// same result texts from a shared rule set (GBK or UTF-8 list), from one
// thread and from several at once, and a failed load that reports through
// diagnostics only.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Iconv.h"
#include "QXEngine.h"
#include "TestUtil.h"

namespace {

const std::string kExamples = std::string(QX_SOURCE_DIR) + "/examples";

// The classes of the examples' list whose detail reports are compared (GBK):
// 体育, 财经, 科技, 天气.
const char* const kClasses[] = {"\xCC\xE5\xD3\xFD", "\xB2\xC6\xBE\xAD", "\xBF\xC6\xBC\xBC",
                                "\xCC\xEC\xC6\xF8"};

// Every example document, its first line as title and the rest as content,
// once more with the content as title, so that NEAR meets the separator.
std::vector<_stDoc> ExampleDocs() {
    std::vector<_stDoc> v;
    for (const auto& e : std::filesystem::directory_iterator(kExamples + "/docs")) {
        const std::string s = qxtest::ReadBytes(e.path().string());
        const size_t n = s.find('\n');
        _stDoc d;
        d.sTitle = s.substr(0, n);
        d.sContent = n == std::string::npos ? "" : s.substr(n + 1);
        v.push_back(d);
        std::swap(d.sTitle, d.sContent);
        v.push_back(d);
    }
    return v;
}

// The classic engine's texts for iType 0 and 1, document after document.
std::vector<std::string> ClassicTexts(const std::vector<_stDoc>& vDocs) {
    CTextParser t;
    EXPECT_TRUE(t.fn_bInit("", (kExamples + "/rules.txt").c_str(), nullptr));
    std::vector<std::string> v;
    for (_stDoc d : vDocs) {
        for (int iType : {0, 1}) v.push_back(t.fn_bClassify(d, iType) ? t.m_sClassifyResult : "!");
        for (const char* sClass : kClasses) t.fn_vGetDetail(sClass), v.push_back(t.m_sDetail);
    }
    return v;
}

std::vector<std::string> MatcherTexts(qx::Matcher& m, const std::vector<_stDoc>& vDocs) {
    std::vector<std::string> v;
    for (const _stDoc& d : vDocs) {
        for (int iType : {0, 1}) v.push_back(m.Classify(d, iType) ? m.Result() : "!");
        std::string sNames;  // the structured results name what the text names
        for (const _stResult& r : m.Results()) sNames += r.sClassName + "\t";
        EXPECT_EQ(sNames, v[v.size() - 2] == "!" ? "" : v[v.size() - 2]);
        for (const char* sClass : kClasses) v.push_back(m.Detail(sClass));
    }
    return v;
}

TEST(QXEngineConcurrent, SharedRuleSetsGiveTheClassicTextsFromManyThreads) {
    qxtest::ScopedLog log(0);
    const auto vDocs = ExampleDocs();
    const auto vWant = ClassicTexts(vDocs);
    for (const char* sList : {"/rules.txt", "/src/rules.utf8.txt"}) {
        std::vector<qx::Diagnostic> vDiags;
        const auto pRules =
            qx::RuleSet::FromFile(kExamples + sList, qx::RuleEncoding::kAuto, vDiags);
        ASSERT_NE(pRules, nullptr) << qx::FormatDiagnostics(vDiags);
        EXPECT_EQ(pRules->RuleCount(), 28u);
        qx::Matcher one(pRules);
        EXPECT_EQ(MatcherTexts(one, vDocs), vWant) << sList;
        std::vector<std::vector<std::string>> vGot(4);
        std::vector<std::thread> vThreads;
        for (auto& vOut : vGot) {
            vThreads.emplace_back([&pRules, &vDocs, &vOut] {
                qx::Matcher m(pRules);
                for (int k = 0; k < 5; ++k) vOut = MatcherTexts(m, vDocs);
            });
        }
        for (auto& th : vThreads) th.join();
        for (const auto& vOut : vGot) EXPECT_TRUE(vOut == vWant) << sList;
    }
}

// Two threads classify without pause while the engine is reloaded 100 times,
// alternating two lists: every result is the one its generation's list gives
// (odd generations the examples' list, even ones a one-rule list), and each
// thread sees the generations in order.
TEST(QXEngineConcurrent, ReloadUnderLoadGivesEachResultItsGenerationsText) {
    const auto vDocs = ExampleDocs();
    const std::string sA = qxtest::ReadBytes(kExamples + "/rules.txt");
    const std::string sB =
        "<certainty>0.5</certainty><rules><rulenum>1</rulenum><rule id=\"0\"><classid>b</classid>"
        "<toprule>OR</toprule><effectvalue>1</effectvalue><imperfectvsmsim>0.5</imperfectvsmsim>"
        "<subrules><subrulenum>1</subrulenum><subrule id=\"1\"><operator>OR/TEXT/1</operator>"
        "<value>\xB5\xC4</value></subrule></subrules></rule></rules>";  // 的
    std::vector<qx::Diagnostic> vDiags;
    std::vector<std::string> vWant[2];
    for (int k = 0; k < 2; ++k) {
        qx::Matcher m(qx::RuleSet::FromText(k ? sB : sA, "x", qx::RuleEncoding::kGbk, vDiags));
        for (const _stDoc& d : vDocs) vWant[k].push_back(m.Classify(d, 1) ? m.Result() : "!");
    }
    ASSERT_NE(vWant[0], vWant[1]);
    const auto pEngine = qx::Engine::FromText(sA, "a", qx::RuleEncoding::kGbk, vDiags);
    std::atomic<bool> bStop{false};
    std::vector<std::string> vProblems[2];
    std::vector<std::thread> vThreads;
    for (auto& vOut : vProblems) {
        vThreads.emplace_back([&] {
            qx::Matcher m(*pEngine);
            for (uint64_t nLast = 0; !bStop.load();) {
                for (size_t i = 0; i < vDocs.size(); ++i) {
                    const std::string s = m.Classify(vDocs[i], 1) ? m.Result() : "!";
                    if (m.Generation() < nLast || s != vWant[(m.Generation() + 1) % 2][i])
                        vOut.push_back(std::to_string(m.Generation()) + " doc " +
                                       std::to_string(i));
                    nLast = m.Generation();
                }
            }
        });
    }
    for (int k = 0; k < 100; ++k) {
        ASSERT_TRUE(pEngine->Reload(k % 2 ? sA : sB, "r", qx::RuleEncoding::kGbk, vDiags));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    bStop = true;
    for (auto& th : vThreads) th.join();
    EXPECT_EQ(pEngine->Generation(), 101u);
    EXPECT_TRUE(vProblems[0].empty() && vProblems[1].empty()) << vProblems[0].size();
    EXPECT_FALSE(pEngine->Reload("<rules>", "bad", qx::RuleEncoding::kGbk, vDiags));
    EXPECT_EQ(pEngine->Generation(), 101u);
}

// UTF-8 and GB18030 documents (iconv's forms of the GBK examples, plus a
// character GBK lacks) classify as their GBK form and answer in their own
// encoding.
TEST(QXEngine, DocumentsInUtf8AndGb18030AnswerInTheirEncoding) {
    std::vector<qx::Diagnostic> vDiags;
    const auto pRules =
        qx::RuleSet::FromFile(kExamples + "/rules.txt", qx::RuleEncoding::kGbk, vDiags);
    qx::Matcher gbk(pRules), other(pRules);
    for (const auto& [eEnc, sName] : {std::pair{qx::TextEncoding::kUtf8, "UTF-8"},
                                      std::pair{qx::TextEncoding::kGb18030, "GB18030"}}) {
        CIconv to(sName, "GBK");
        for (_stDoc d : ExampleDocs()) {
            ASSERT_TRUE(gbk.Classify(d, 1));
            std::string sWant;
            to.Convert(gbk.Result(), sWant);
            for (std::string* p : {&d.sTitle, &d.sContent}) {
                std::string s;
                ASSERT_TRUE(to.Convert(*p, s));
                *p =
                    s + (eEnc == qx::TextEncoding::kUtf8 ? "\xF0\x9F\x98\x80" : "\x95\x32\x82\x36");
            }
            ASSERT_TRUE(other.Classify(d, 1, eEnc));
            EXPECT_EQ(other.Result(), sWant) << sName;
        }
    }
}

TEST(QXEngine, FailedLoadsReportThroughDiagnosticsOnly) {
    qxtest::ScopedLog log(1);  // logging on: nothing may reach the day's files
    std::vector<qx::Diagnostic> vDiags;
    EXPECT_EQ(qx::RuleSet::FromText("<certainty>0.5</certainty><rules><rulenum>1</rulenum>"
                                    "</rules>",
                                    "list", qx::RuleEncoding::kAuto, vDiags),
              nullptr);
    // The classic loader's message, in UTF-8: ... 不存在或其ClassID值不能为空.
    EXPECT_EQ(qx::FormatDiagnostics(vDiags),
              "list: error: Rule[rule id=\"0\".classid]\xE4\xB8\x8D\xE5\xAD\x98\xE5\x9C\xA8\xE6\x88"
              "\x96\xE5\x85\xB6"
              "ClassID\xE5\x80\xBC\xE4\xB8\x8D\xE8\x83\xBD\xE4\xB8\xBA\xE7\xA9\xBA.\n");
    const std::string sList = qxtest::ReadBytes(kExamples + "/rules.txt");
    const std::string sWith = sList.substr(0, sList.find("<value>") + 7) + "\xA1\xFE" +
                              sList.substr(sList.find("<value>") + 7);  // 〓 in a keyword
    EXPECT_EQ(qx::RuleSet::FromText(sWith, "ph", qx::RuleEncoding::kGbk, vDiags), nullptr);
    EXPECT_EQ(vDiags.back().sMessage.substr(0, 27), "a keyword holds the placeho");
    EXPECT_EQ(sWith.rfind('\n', sWith.find("\xA1\xFE")) + 1 + vDiags.back().nColumn - 1,
              sWith.find("\xA1\xFE"));
    EXPECT_EQ(qx::RuleSet::FromFile("/no/such/list", qx::RuleEncoding::kGbk, vDiags), nullptr);
    EXPECT_EQ(qx::FormatDiagnostic(vDiags.back()), "/no/such/list: error: cannot read the file");
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);
    EXPECT_EQ(log.DayFile(".err") + log.DayFile(".log"), "");
}

}  // namespace
