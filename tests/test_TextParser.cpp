// Tests of the rule engine: the decisions as rows over plain values, the
// loader as rows of {rule list -> dump} and {malformed list -> message}, the
// result and detail texts, and what failed loads, clearing and cut-off scans
// leave. Documents are compared with an independent engine in
// test_TextParserDiff.cpp.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <map>
#include <tuple>

#include "TextParserLogic.h"
#include "TextParserTestUtil.h"

using namespace qxtest;

// ---------------------------------------------------------------- decisions

TEST(TextParserLogic, SubRuleRelationsOverCountRows) {
    // {relation, minimum, counts of keywords x, y, z (as many as counts),
    //  T or F and the hit words}
    const std::tuple<const char*, int, std::vector<int>, std::string> vRows[] = {
        {"AND", 1, {2, 0, 5}, "F x 2\t"},  // stops at the first zero
        {"AND", 2, {2, 3, 4}, "T x 2\ty 3\tz 4\t"},
        {"AND", 3, {2, 3, 4}, "F x 2\ty 3\tz 4\t"},  // the minimum decides, not the sum
        {"AND", -2, {1, 1, 1}, "T x 1\ty 1\tz 1\t"},
        {"AND", 6502500, {}, "T "},  // no keywords: the start value is the minimum
        {"AND", 6502501, {}, "F "},
        {"OR", 0, {0, 0, 0}, "F "},  // the sum must be positive
        {"OR", 3, {1, 0, 1}, "F x 1\tz 1\t"},
        {"OR", 2, {1, 0, 1}, "T x 1\tz 1\t"},
        {"OR", 1, {INT_MAX, INT_MAX}, "T x 2147483647\ty 2147483647\t"},
        {"NOT", 0, {0, 1, 0}, "F y 1\t"},
        {"NOT", 0, {0, 0, 0}, "T "},
        {"NOT", 3, {1, 1, 0}, "T x 1\ty 1\t"},  // tolerates two, records them
        {"NOT", 3, {1, 1, 1}, "F x 1\ty 1\tz 1\t"},
        {"and", 1, {1, 1, 1}, "F "},
    };
    for (const auto& [sRelation, nMin, viCount, sOutcome] : vRows) {
        std::vector<std::string> vsWord = {"x", "y", "z"};
        vsWord.resize(viCount.size());
        std::string sHit;
        const bool b = DecideSubRule(SubRelationOf(sRelation), vsWord, nMin, viCount, &sHit);
        EXPECT_EQ(sOutcome, (b ? "T " : "F ") + sHit) << sRelation << nMin;
    }
}

TEST(TextParserLogic, RuleRelationsOverOutcomeRows) {
    // {relation, sub-rule outcomes, verdict: T, F or N for "the NEAR distances decide"}
    const std::tuple<const char*, std::vector<bool>, char> vRows[] = {
        {"AND", {}, 'T'},       {"AND", {1, 1}, 'T'},       {"AND", {1, 0, 1}, 'F'},
        {"OR", {}, 'F'},        {"OR", {0, 1}, 'T'},        {"NOT", {0}, 'T'},
        {"NOT", {1}, 'F'},      {"NOT", {1, 0}, 'T'},       {"NOT", {1, 1}, 'F'},
        {"NOT", {0, 0}, 'F'},   {"NOT", {0, 1}, 'F'},       {"NOT", {0, 0, 0}, 'F'},
        {"YES", {1}, 'T'},      {"YES", {1, 1}, 'F'},       {"YES", {0}, 'F'},
        {"and", {1}, 'F'},      {"NEAR", {1}, 'F'},         {"NEAR5", {1, 0}, 'F'},
        {"NEAR5", {1, 1}, 'N'}, {"XNEAR3", {1, 1, 1}, 'N'},
    };
    for (const auto& [sRelation, vbOutcome, cVerdict] : vRows)
        EXPECT_EQ(cVerdict, "FTN"[int(DecideRelation(RuleRelationOf(sRelation), vbOutcome))])
            << sRelation << " over " << vbOutcome.size();
    const std::pair<const char*, int> vDistances[] = {{"NEAR10", 10}, {"NEAR", 0},
                                                      {"10NEAR", 10}, {"NEARNEAR7", 7},
                                                      {"NEAR-3", -3}, {"NEARx", 0}};
    for (const auto& [sRelation, n] : vDistances)
        EXPECT_EQ(n, NearDistanceOf(sRelation)) << sRelation;
}

TEST(TextParserLogic, NearDistancesInBytes) {
    // {text, keyword b, keyword a, distance, near}
    const std::tuple<std::string, std::string, std::string, int, bool> vRows[] = {
        {kJia + "-----" + kBing, kBing, kJia, 5, true},  // ka before kb
        {kJia + "------" + kBing, kBing, kJia, 5, false},
        {kBing + "-----" + kJia, kBing, kJia, 5, true},  // ka after kb
        {kBing + "------" + kJia, kBing, kJia, 5, false},
        {kJia + kBing, kBing, kJia, 0, true},
        {"--" + kBing + kDot + kJia + kBing, kBing, kJia, 0, true},  // only a later pair is near
        {"xab", "ab", "xab", -2, true},                              // overlapping: a negative gap
        {"xab", "ab", "xab", -3, false},
        {kJia, kBing, kJia, 100, false},
    };
    for (const auto& [sText, kb, ka, nDistance, bNear] : vRows)
        EXPECT_EQ(bNear, OccurrencesNear(sText, kb, ka, nDistance)) << sText << " " << nDistance;
    std::string sNormal = "a" + kSep + "b\nc";
    NormaliseNearText(sNormal);  // the separator counts 20 bytes, a line break 10
    EXPECT_EQ("a" + std::string(20, ' ') + "b" + std::string(10, ' ') + "c", sNormal);
}

// ---------------------------------------------------------------- loader

// Tables, certainty, dictionary and the rule numbers the classic call prints.
TEST_F(EngineTest, LoaderBuildsTheTablesAndTheDictionary) {
    const TRule rSample{"s", "AND", {{"OR/TEXT/1", kJia + " b d"}, {"NOT/TITLE/1", "w"}},
                        "",  "1.0", "0.9"};
    const TRule rDup = OneSub("s", "AND/TITLE/-2", "j  j");  // a doubled blank, a keyword twice
    // Metadata keywords are not entered; metadata sub-rules count as non-NOT.
    const TRule rNear{"f", "NEAR7", {{"AND/AUTHOR/1", "a b"}, {"AND/BOARD/1", "c"}}};
    const TRule rHuge{"s", "AND", {{"OR/TEXT/99999999999999999999", "j"}}, "1x"};
    const TRule rNone{"f", "AND", {{"OR/TEXT/1", "b"}}, "-5"};
    // {rule list, dump, progress lines, certainty}
    const std::tuple<std::string, std::string, std::string, float> vRows[] = {
        {RuleList("0.6", {rSample}),  // keys in byte order
         "R0 s AND 1/0.9/0.5 0,1\nS0 OR/TEXT/1 " + kJia +
             "|b|d\nS1 NOT/TITLE/1 w\nK b:0\nK d:0\nK w:1\nK " + kJia + ":0\n",
         "0\n", 0.6f},
        {RuleList("0.5", {rDup, rNear}),
         "R0 s AND 1/33333/0.5 0\nR1 f NEAR7 1/33333/0.5 1,2\nS0 AND/TITLE/-2 j|j\n"
         "S1 AND/AUTHOR/1 a|b\nS2 AND/BOARD/1 c\nK j:0,0\n",
         "0\n1\n", 0.5f},
        {RuleList("1e999", {rHuge, rNone}),  // (int)LONG_MAX is -1, as glibc's atoi
         "R0 s AND 1/33333/0.5 0\nR1 f AND 1/33333/0.5 \nS0 OR/TEXT/-1 j\nK j:0\n", "0\n1\n",
         INFINITY},
        {RuleList("0.7", {rSample}, "0"), "", "", 0.7f},
        {RuleList("0.7", {rSample}, "-3"), "", "", 0.7f},
    };
    for (const auto& [sList, sDump, sProgress, fCertainty] : vRows) {
        CTextParser t;
        const std::string sPath = m_cTemp.write("rules.xml", sList);
        bool bOk = false;
        EXPECT_EQ(sProgress, CaptureStdout([&] { bOk = t.fn_bInit("", sPath.c_str()); }));
        ASSERT_TRUE(bOk) << sList;
        EXPECT_EQ(sDump, Dump(t));
        EXPECT_EQ(fCertainty, t.m_fCertainty);
        for (const auto& kv : t.m_mslKeywords) EXPECT_GE(t.m_pDat->Find(kv.first.c_str()), 0);
        EXPECT_GE(t.m_pDat->Find(kSep.c_str()), 0);
        EXPECT_EQ(kUntouched, g_sLastErrorMessage);
    }
}

// Every rule and sub-rule message with its key path, and what the failed load
// leaves: earlier rules and the failing rule's finished sub-rules, no results.
TEST_F(EngineTest, MalformedRuleListsAreRefusedWithTheirMessage) {
    const std::string R = "Rule[rule id=\"1\".", O = "rule id=\"1\".subrules.subrule id=\"2\".";
    // 的, 未书写, 书写错误, 符号书写错误., 值未书写., 值不支持., 为0.
    const std::string sOf = "\xB5\xC4", sNotWritten = "\xCE\xB4\xCA\xE9\xD0\xB4",
                      sWrong = "\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3",
                      sSymbol = "\xB7\xFB\xBA\xC5" + sWrong + ".",
                      sUnwritten = "\xD6\xB5" + sNotWritten + ".",
                      sUnsupported = "\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.",
                      sIsZero = "\xCE\xAA" + std::string("0.");
    const std::string sSubNumFor =
        R + "subrules.subrulenum]SubRuleNum\xD6\xB5\xB6\xD4TopRule" + sOf;  // 值对TopRule的
    const std::string sBadTop =
        R + "toprule] \xD7\xDC" + sOf + "\xC2\xDF\xBC\xAD" + sSymbol;  // 总的逻辑
    // {change to rule 1 (two sub-rules), message, sub-rules loaded (rule 0 has one)}
    const std::tuple<std::function<void(TRule&)>, std::string, size_t> vRows[] = {
        {[](TRule& r) { r.sClass = kOmit; },  // ]不存在或其ClassID值不能为空.
         R + "classid]\xB2\xBB\xB4\xE6\xD4\xDA\xBB\xF2\xC6\xE4" +
             "ClassID\xD6\xB5\xB2\xBB\xC4\xDC\xCE\xAA\xBF\xD5.\n",
         1},
        {[](TRule& r) { r.sTop = "and"; }, sBadTop, 1},
        {[](TRule& r) { r.sTop = kOmit; }, sBadTop, 1},  // "" is not AND
        {[](TRule& r) { r.sTop = "XNEAR3"; }, sBadTop, 1},
        {[](TRule& r) { r.sEffect = kOmit; }, R + "effectvalue]EffectValue" + sUnwritten, 1},
        {[](TRule& r) { r.sEffect = "0.5"; }, R + "perfectvsmsim]PerfectVSMSim" + sUnwritten, 1},
        {[](TRule& r) { r.sImperfect = kOmit; }, R + "imperfectvsmsim]ImPerfectVSMSim" + sUnwritten,
         1},
        // ] ClassID类"<class>"语料未训练.: no class has a model, perfectvsmsim or not
        {[](TRule& r) { r.sEffect = "0.5", r.sPerfect = "0.9"; },
         R + "imperfectvsmsim] ClassID\xC0\xE0\"" + kFinance +
             "\"\xD3\xEF\xC1\xCF\xCE\xB4\xD1\xB5\xC1\xB7.",
         1},
        {[](TRule& r) { r.sSubNum = kOmit; }, R + "subrules.subrulenum]SubRuleNum" + sUnwritten, 1},
        {[](TRule& r) { r.sTop = "NOT", r.sSubNum = "3"; }, sSubNumFor + "NOT" + sUnsupported, 1},
        {[](TRule& r) { r.sTop = "YES"; }, sSubNumFor + "YES" + sUnsupported, 1},
        {[](TRule& r) { r.sTop = "NEAR", r.sSubNum = "1"; }, sSubNumFor + "NEAR" + sUnsupported, 1},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND//1"; },  // 未书写完整.
         O + "operator" + sNotWritten + "\xCD\xEA\xD5\xFB.", 2},
        {[](TRule& r) { r.sSubNum = "2000000000"; },  // stops at the first missing sub-rule
         "rule id=\"1\".subrules.subrule id=\"3\".operator" + sNotWritten + "\xCD\xEA\xD5\xFB.", 3},
        {[](TRule& r) { r.vSubs[1].sOperator = "YES/TITLE/1"; },  // 的逻辑符号书写错误.
         O + "operator" + sOf + "\xC2\xDF\xBC\xAD" + sSymbol, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/title/1"; },  // 的域符号书写错误.
         O + "operator" + sOf + "\xD3\xF2" + sSymbol, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/TITLE/x"; },  // 的词频书写错误或不能为0.
         O + "operator" + sOf + "\xB4\xCA\xC6\xB5" + sWrong + "\xBB\xF2\xB2\xBB\xC4\xDC" + sIsZero,
         2},
        {[](TRule& r) { r.vSubs[1].sValue = "   \t "; },  // 的词个数为0.
         O + "value" + sOf + "\xB4\xCA\xB8\xF6\xCA\xFD" + sIsZero, 2},
        // 类名为<class>的规则,其非NOT子规则个数对TopRule的NEAR值不支持.
        {[](TRule& r) { r.sTop = "NEAR5", r.vSubs[1].sOperator = "NOT/TEXT/1"; },
         "\xC0\xE0\xC3\xFB\xCE\xAA" + kFinance + sOf +
             "\xB9\xE6\xD4\xF2,"
             "\xC6\xE4\xB7\xC7NOT\xD7\xD3\xB9\xE6\xD4\xF2\xB8\xF6\xCA\xFD\xB6\xD4TopRule" +
             sOf + "NEAR" + sUnsupported,
         3},
    };
    _stDoc d;
    for (const auto& [fnBreak, sMessage, nSubRules] : vRows) {
        TRule r1{kFinance, "AND", {{"OR/CONTENT/1", kDing + " " + kWu}, {"AND/TITLE/2", kJia}}};
        fnBreak(r1);
        CTextParser t;
        g_sLastErrorMessage.clear();
        EXPECT_FALSE(Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kBing), r1})));
        EXPECT_EQ(sMessage, g_sLastErrorMessage);
        EXPECT_EQ(1u, t.m_vstRules.size()) << sMessage;
        EXPECT_EQ(nSubRules, t.m_vstSubRules.size()) << sMessage;
        EXPECT_TRUE(t.m_vstSubRuleResult.empty() && t.m_vstRuleResultInit.empty());
        EXPECT_FALSE(t.fn_bClassify(d, 1));  // the dictionary was never completed
    }
    CTextParser t;
    EXPECT_FALSE(t.fn_bInit("", m_cTemp.file("missing.xml").c_str(), nullptr));
    EXPECT_EQ("\xCE\xC4\xBC\xFE" + m_cTemp.file("missing.xml") + "\xB4\xF2\xB2\xBB\xBF\xAA.\n",
              g_sLastErrorMessage);  // 文件<path>打不开.
}

// A missing conf, certainty or rulenum and the success line are only logged.
TEST_F(EngineTest, HeaderProblemsAndSuccessAreOnlyLogged) {
    g_bLog = 1;
    CTextParser t;
    const std::string sPath = m_cTemp.write("ok.xml", RuleList("0.6", {}, "-1"));
    EXPECT_TRUE(t.fn_bLoadRulelist(sPath.c_str(), nullptr));
    EXPECT_FALSE(t.fn_bLoadRulelist(nullptr, nullptr) || t.fn_bLoadRulelist("", nullptr) ||
                 Load(t, "<rules><rulenum>1</rulenum></rules>") ||
                 Load(t, "<certainty>1</certainty>"));
    const std::string sAt = "[2026-11-22 09:34:56]\t",
                      sUnwritten = "\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.\n";
    const std::string sConfBad =
        sAt + "\xB2\xCE\xCA\xFD" + "conf\xCA\xE4\xC8\xEB\xB4\xED\xCE\xF3.\n\n";
    // 加载<path>成功. 参数conf输入错误. (twice) Certainty值未书写. TotalNum值未书写.
    EXPECT_EQ(sAt + "\xBC\xD3\xD4\xD8" + sPath + "\xB3\xC9\xB9\xA6.\n\n" + sConfBad + sConfBad +
                  sAt + "Certainty" + sUnwritten + sAt + "TotalNum" + sUnwritten,
              m_log.DayFile(".log"));
    EXPECT_EQ("", m_log.DayFile(".err"));
    EXPECT_EQ(kUntouched, g_sLastErrorMessage);
}

// ---------------------------------------------------------------- results

TEST_F(EngineTest, ResultTextsAndAutomaticSelection) {
    // {certainty, weights of classes a, b, c, d, result type, result}
    const std::tuple<float, std::vector<float>, int, std::string> vRows[] = {
        {-1, {0.9f, 0.7f, 0.2f}, 0, "a\t"},  // gap 0.2 > 0.15 and 0.7 < 0.8
        {-1, {0.95f, 0.85f, 0.6f}, 0, "a\tb\t"},
        {-1, {0.9f, 0.9f, 0.9f, 0.9f}, 0, "a\tb\tc\t"},  // never a fourth
        {-1, {0.9f, 0.9f, 0.45f}, 0, "a\tb\t"},          // below 0.5 stops
        {-1, {0.3f}, 1, "a 0.3000\t"},
        {0.5f, {0.9f, 0.9f, 0.2f, 1.0f}, 1, "d 1.0000\ta 0.9000\tb 0.9000\tc 0.2000\t"},
        {0.5f, {0.0f, std::nanf("")}, 1, "a 0.0000\tb nan\t"},
        {0.5f, {0.9f}, 2, ""},
        {-1, {}, 1, ""},
    };
    CTextParser t;
    for (const auto& [fCertainty, vfWeight, iType, sResult] : vRows) {
        std::map<std::string, float> msf;
        for (size_t i = 0; i < vfWeight.size(); ++i)
            msf[std::string(1, char('a' + i))] = vfWeight[i];
        t.m_fCertainty = fCertainty;
        t.m_sClassifyResult.clear();
        t.fn_vGetClassification(msf, iType);
        EXPECT_EQ(sResult, t.m_sClassifyResult);
    }
}

// Sub-rules appended by a failed load (here followed by an empty one) have no
// results: documents count their keywords but leave them out.
TEST_F(EngineTest, DetailListsTheFiredRulesOfOneClass) {
    const TRule r2{kSport, "AND", {{"NOT/TITLE/1", kDing}, {"AND/AUTHOR/1", "b"}}};
    const TRule rBroken{kFinance, "AND", {{"OR/TEXT/1", kBing}, {"OR/TEXT", kDing}}};
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.6", {OneSub(kSport, "OR/TEXT/1", kJia + " " + kBing),
                                         OneSub(kFinance, "OR/TEXT/1", kJia), r2,
                                         OneSub(kSport, "OR/TEXT/1", kWu)})));
    EXPECT_FALSE(Load(t, RuleList("0.6", {rBroken}), "broken.xml"));
    ASSERT_TRUE(Load(t, RuleList("0.6", {}, "0"), "empty.xml"));
    EXPECT_EQ(t.m_vstSubRules.size(), t.m_vstSubRuleResult.size() + 1);
    t.m_vstRules[1].fEffecValue = 0.6f;  // equal to the threshold: passes
    t.m_vstRules[2].fEffecValue = 0.5f;  // fires, but scores below the threshold
    _stDoc d{kJia + kDot + kBing, kJia, "b", "", ""};
    EXPECT_TRUE(t.fn_bClassify(d, 1));
    EXPECT_EQ(kSport + " 1.0000\t" + kFinance + " 0.6000\t", t.m_sClassifyResult);
    t.fn_vGetDetail(kSport);  // 作者:b
    EXPECT_EQ("RULE0:\nSUBRULE1: " + kJia + " 2\t" + kBing + " 1\t\n" +
                  "RULE2:\nSUBRULE1: \nSUBRULE2: \xD7\xF7\xD5\xDF:b\nSim: 0.0000\n",
              t.m_sDetail);
    t.fn_vGetDetail(kWu);
    EXPECT_EQ("", t.m_sDetail);
}

// ---------------------------------------------------------------- lifecycle

// Clearing empties the tables but keeps the clean copies and the last detail;
// a title so dense with keywords that the scan output is cut off before the
// separator gives false and reset tables.
TEST_F(EngineTest, ClearingAndCutOffScansLeaveWhatTheContractsSay) {
    std::string sWords;  // B0, B0B0, ... 10 bytes: every start emits several words
    for (int n = 1; n <= 10; ++n) sWords += (n > 1 ? " " : "") + std::string(n, '\xB0');
    const std::string sList = RuleList("0.5", {OneSub(kSport, "NOT/TEXT/1", sWords)});
    CTextParser t;
    ASSERT_TRUE(Load(t, sList));
    _stDoc d{"", "", "", "", ""};
    EXPECT_TRUE(t.fn_bClassify(d, 1));
    t.fn_vGetDetail(kSport);
    t.fn_vClear();
    EXPECT_EQ("", t.m_sClassifyResult + Dump(t));
    EXPECT_EQ("RULE0:\nSUBRULE1: \n", t.m_sDetail);
    EXPECT_TRUE(t.m_msvWordRule.empty() && t.m_vstRuleResult.empty() && t.m_pDat == nullptr);
    EXPECT_EQ(1u, t.m_vstRuleResultInit.size());  // the clean copies stay
    EXPECT_FALSE(t.fn_bClassify(d, 1));           // no dictionary
    ASSERT_TRUE(Load(t, sList));
    d.sTitle = std::string(100, '\xB0');
    EXPECT_FALSE(t.fn_bClassify(d, 1));
    EXPECT_EQ("", t.m_sClassifyResult);
    EXPECT_FALSE(t.m_vstSubRuleResult[0].bSuccess);  // the reset state, not the NOT default
}
