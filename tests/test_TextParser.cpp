// Tests of the rule engine: the decisions as rows over plain values, the
// loader as rows of {rule list -> dump} and {malformed list -> message}, the
// result and detail texts, and what loads, failed loads and clearing leave.
// Everything a document goes through is also compared with an independent
// engine in test_TextParserDiff.cpp.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <map>
#include <functional>

#include "TextParserLogic.h"
#include "TextParserTestUtil.h"

using namespace qxtest;

// ---------------------------------------------------------------- decisions

TEST(TextParserLogic, SubRuleRelationsOverCountRows) {
    struct Row {
        const char* sRelation;
        int nMin;
        std::vector<int> viCount;  // keywords x, y, z (as many as counts)
        bool bHolds;
        const char* sHit;
    };
    const Row vRows[] = {
        {"AND", 1, {2, 0, 5}, false, "x 2\t"},  // stops at the first zero
        {"AND", 2, {2, 3, 4}, true, "x 2\ty 3\tz 4\t"},
        {"AND", 3, {2, 3, 4}, false, "x 2\ty 3\tz 4\t"},  // the minimum decides, not the sum
        {"AND", -2, {1, 1, 1}, true, "x 1\ty 1\tz 1\t"},
        {"AND", 6502500, {}, true, ""},  // no keywords: the start value is the minimum
        {"AND", 6502501, {}, false, ""},
        {"OR", 0, {0, 0, 0}, false, ""},  // the sum must be positive
        {"OR", 3, {1, 0, 1}, false, "x 1\tz 1\t"},
        {"OR", 2, {1, 0, 1}, true, "x 1\tz 1\t"},
        {"OR", 1, {INT_MAX, INT_MAX}, true, "x 2147483647\ty 2147483647\t"},
        {"NOT", 0, {0, 1, 0}, false, "y 1\t"},
        {"NOT", 0, {0, 0, 0}, true, ""},
        {"NOT", 3, {1, 1, 0}, true, "x 1\ty 1\t"},  // tolerates two, records them
        {"NOT", 3, {1, 1, 1}, false, "x 1\ty 1\tz 1\t"},
        {"and", 1, {1, 1, 1}, false, ""},
    };
    for (const Row& row : vRows) {
        std::vector<std::string> vsWord = {"x", "y", "z"};
        vsWord.resize(row.viCount.size());
        std::string sHit;
        EXPECT_EQ(row.bHolds,
                  DecideSubRule(SubRelationOf(row.sRelation), vsWord, row.nMin, row.viCount, &sHit))
            << row.sRelation << row.nMin;
        EXPECT_EQ(row.sHit, sHit) << row.sRelation << row.nMin;
    }
}

TEST(TextParserLogic, RuleRelationsOverOutcomeRows) {
    struct Row {
        const char* sRelation;
        std::vector<bool> vbOutcome;
        char cVerdict;  // 'T', 'F', or 'N' for "the NEAR distances decide"
    };
    const Row vRows[] = {
        {"AND", {}, 'T'},       {"AND", {1, 1}, 'T'},       {"AND", {1, 0, 1}, 'F'},
        {"OR", {}, 'F'},        {"OR", {0, 1}, 'T'},        {"NOT", {0}, 'T'},
        {"NOT", {1}, 'F'},      {"NOT", {1, 0}, 'T'},       {"NOT", {1, 1}, 'F'},
        {"NOT", {0, 0}, 'F'},   {"NOT", {0, 1}, 'F'},       {"NOT", {0, 0, 0}, 'F'},
        {"YES", {1}, 'T'},      {"YES", {1, 1}, 'F'},       {"YES", {0}, 'F'},
        {"and", {1}, 'F'},      {"NEAR", {1}, 'F'},         {"NEAR5", {1, 0}, 'F'},
        {"NEAR5", {1, 1}, 'N'}, {"XNEAR3", {1, 1, 1}, 'N'},
    };
    for (const Row& row : vRows) {
        const Verdict v = DecideRelation(RuleRelationOf(row.sRelation), row.vbOutcome);
        EXPECT_EQ(row.cVerdict, "FTN"[static_cast<int>(v)])
            << row.sRelation << " over " << row.vbOutcome.size();
    }
    const std::pair<const char*, int> vDistances[] = {{"NEAR10", 10}, {"NEAR", 0},
                                                      {"10NEAR", 10}, {"NEARNEAR7", 7},
                                                      {"NEAR-3", -3}, {"NEARx", 0}};
    for (const auto& d : vDistances) EXPECT_EQ(d.second, NearDistanceOf(d.first)) << d.first;
}

TEST(TextParserLogic, NearDistancesInBytes) {
    struct Row {
        std::string sText, kb, ka;
        int nDistance;
        bool bNear;
    };
    const Row vRows[] = {
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
    for (const Row& row : vRows)
        EXPECT_EQ(row.bNear, OccurrencesNear(row.sText, row.kb, row.ka, row.nDistance))
            << row.sText << " " << row.nDistance;
    std::string sText = "a" + kSep + "b\nc";
    NormaliseNearText(sText);  // the separator counts 20 bytes, a line break 10
    EXPECT_EQ("a" + std::string(20, ' ') + "b" + std::string(10, ' ') + "c", sText);
    const NearSide a{false, {"a"}}, b{false, {"q", "b"}}, c{false, {"c"}}, no{true, {"x"}};
    auto holds = [](const std::vector<NearSide>& v, int d) { return NearSidesHold("a-b-c", v, d); };
    EXPECT_TRUE(holds({a, no, b}, 1));   // the NOT side takes no part
    EXPECT_FALSE(holds({a, no, b}, 0));  // a and b are 1 apart
    EXPECT_TRUE(holds({a, no}, 0));      // fewer than two sides take part
    EXPECT_FALSE(holds({a, b, c}, 1));   // every pair must be near: a and c are 3 apart
    EXPECT_TRUE(holds({a, b, c}, 3));
    EXPECT_FALSE(holds({a, {false, {}}}, 9));  // a side without hit keywords
}

// ---------------------------------------------------------------- loader

TEST_F(EngineTest, LoaderBuildsTheTablesAndTheDictionary) {
    TRule rSample = OneSub(kSport, "OR/TEXT/1", kJia + " " + kBing + " " + kDing);
    rSample.sPerfect = "0.9";
    rSample.vSubs.push_back({"NOT/TITLE/1", kWu});
    TRule rDup = OneSub(kSport, "AND/TITLE/-2", kJia + "  " + kJia);  // doubled blank, twice
    TRule rNear = OneSub(kFinance, "AND/AUTHOR/1", "a b");  // metadata keywords not entered
    rNear.sTop = "NEAR7";
    rNear.vSubs.push_back({"AND/BOARD/1", "c"});  // metadata sub-rules count as non-NOT
    TRule rHuge = OneSub(kSport, "OR/TEXT/99999999999999999999", kJia);
    rHuge.sSubNum = "1x";
    TRule rNone = OneSub(kFinance, "OR/TEXT/1", kBing);
    rNone.sSubNum = "-5";
    struct Row {
        std::string sList, sDump, sProgress;
        float fCertainty;
    };
    const Row vRows[] = {
        {RuleList("0.6", {rSample}),
         "R0 " + kSport + " AND 1/0.9/0.5 0,1\nS0 OR/TEXT/1 " + kJia + "|" + kBing + "|" + kDing +
             "\nS1 NOT/TITLE/1 " + kWu + "\nK " + kBing + ":0\nK " + kDing + ":0\nK " + kJia +
             ":0\nK " + kWu + ":1\n",  // keys in byte order
         "0\n", 0.6f},
        {RuleList("0.5", {rDup, rNear}),
         "R0 " + kSport + " AND 1/33333/0.5 0\nR1 " + kFinance + " NEAR7 1/33333/0.5 1,2\n" +
             "S0 AND/TITLE/-2 " + kJia + "|" + kJia + "\nS1 AND/AUTHOR/1 a|b\nS2 AND/BOARD/1 c\n" +
             "K " + kJia + ":0,0\n",
         "0\n1\n", 0.5f},
        {RuleList("1e999", {rHuge, rNone}),  // (int)LONG_MAX is -1, as glibc's atoi
         "R0 " + kSport + " AND 1/33333/0.5 0\nR1 " + kFinance + " AND 1/33333/0.5 \n" +
             "S0 OR/TEXT/-1 " + kJia + "\nK " + kJia + ":0\n",
         "0\n1\n", INFINITY},
        {RuleList("0.7", {rSample}, "0"), "", "", 0.7f},
        {RuleList("0.7", {rSample}, "-3"), "", "", 0.7f},
    };
    for (const Row& row : vRows) {
        CTextParser t;
        std::string sProgress;
        ASSERT_TRUE(Load(t, row.sList, &sProgress)) << row.sList;
        EXPECT_EQ(row.sDump, Dump(t));
        EXPECT_EQ(row.sProgress, sProgress);
        EXPECT_EQ(row.fCertainty, t.m_fCertainty);
        for (const auto& kv : t.m_mslKeywords) EXPECT_GE(t.m_pDat->Find(kv.first.c_str()), 0);
        EXPECT_GE(t.m_pDat->Find(kSep.c_str()), 0);
        EXPECT_EQ(kUntouched, g_sLastErrorMessage);
    }
    CTextParser t;  // the classic call prints the rule numbers to standard output
    const std::string sPath = m_cTemp.write("classic.xml", RuleList("0.6", {rSample, rSample}));
    EXPECT_EQ("0\n1\n", CaptureStdout([&] { t.fn_bInit("", sPath.c_str()); }));
}

// Every rule and sub-rule message with its key path, and what the failed load
// leaves: earlier rules and the failing rule's finished sub-rules, no results.
TEST_F(EngineTest, MalformedRuleListsAreRefusedWithTheirMessage) {
    const std::string R = "Rule[rule id=\"1\".", sSub = "rule id=\"1\".subrules.subrule id=\"2\".";
    const std::string O = sSub + "operator", V = sSub + "value";
    const std::string sUnwritten = "\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // 值未书写.
    const std::string sSubNumFor = "subrules.subrulenum]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4";
    const std::string sUnsupported = "\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.";         // 值不支持.
    const std::string sIncomplete = "\xCE\xB4\xCA\xE9\xD0\xB4\xCD\xEA\xD5\xFB.";  // 未书写完整.
    const std::string sWrong = "\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3";                // 书写错误
    const std::string sSymbol = "\xB7\xFB\xBA\xC5" + sWrong + ".";  // 符号书写错误.
    const std::string sBadTop =
        R + "toprule] \xD7\xDC\xB5\xC4\xC2\xDF\xBC\xAD" + sSymbol;  // 总的逻辑
    // ]不存在或其ClassID值不能为空.
    const std::string sNoClass =
        "]\xB2\xBB\xB4\xE6\xD4\xDA\xBB\xF2\xC6\xE4"
        "ClassID\xD6\xB5\xB2\xBB\xC4\xDC\xCE\xAA\xBF\xD5.\n";
    struct Row {
        std::function<void(TRule&)> fnBreak;  // applied to rule 1 (two sub-rules)
        std::string sMessage;
        size_t nSubRules;  // m_vstSubRules afterwards (rule 0 has one)
    };
    const Row vRows[] = {
        {[](TRule& r) { r.sClass = kOmit; }, R + "classid" + sNoClass, 1},
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
        {[](TRule& r) { r.sTop = "NOT", r.sSubNum = "3"; }, R + sSubNumFor + "NOT" + sUnsupported,
         1},
        {[](TRule& r) { r.sTop = "YES"; }, R + sSubNumFor + "YES" + sUnsupported, 1},
        {[](TRule& r) { r.sTop = "NEAR", r.sSubNum = "1"; }, R + sSubNumFor + "NEAR" + sUnsupported,
         1},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND//1"; }, O + sIncomplete, 2},
        {[](TRule& r) { r.sSubNum = "2000000000"; },  // stops at the first missing sub-rule
         "rule id=\"1\".subrules.subrule id=\"3\".operator" + sIncomplete, 3},
        {[](TRule& r) { r.vSubs[1].sOperator = "YES/TITLE/1"; },  // 的逻辑符号书写错误.
         O + "\xB5\xC4\xC2\xDF\xBC\xAD" + sSymbol, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/title/1"; },  // 的域符号书写错误.
         O + "\xB5\xC4\xD3\xF2" + sSymbol, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/TITLE/x"; },  // 的词频书写错误或不能为0.
         O + "\xB5\xC4\xB4\xCA\xC6\xB5" + sWrong +
             "\xBB\xF2\xB2\xBB\xC4\xDC\xCE\xAA"
             "0.",
         2},
        {[](TRule& r) { r.vSubs[1].sValue = "   \t "; },  // 的词个数为0.
         V + "\xB5\xC4\xB4\xCA\xB8\xF6\xCA\xFD\xCE\xAA"
             "0.",
         2},
        // 类名为<class>的规则,其非NOT子规则个数对TopRule的NEAR值不支持.
        {[](TRule& r) { r.sTop = "NEAR5", r.vSubs[1].sOperator = "NOT/TEXT/1"; },
         "\xC0\xE0\xC3\xFB\xCE\xAA" + kFinance +
             "\xB5\xC4\xB9\xE6\xD4\xF2,\xC6\xE4\xB7\xC7NOT\xD7\xD3\xB9\xE6\xD4\xF2\xB8\xF6\xCA\xFD"
             "\xB6\xD4TopRule\xB5\xC4NEAR" +
             sUnsupported,
         3},
    };
    for (const Row& row : vRows) {
        TRule r1 = OneSub(kFinance, "OR/CONTENT/1", kDing + " " + kWu);
        r1.vSubs.push_back({"AND/TITLE/2", kJia});
        row.fnBreak(r1);
        CTextParser t;
        g_sLastErrorMessage.clear();
        EXPECT_FALSE(Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kBing), r1})));
        EXPECT_EQ(row.sMessage, g_sLastErrorMessage);
        EXPECT_EQ(1u, t.m_vstRules.size()) << row.sMessage;
        EXPECT_EQ(row.nSubRules, t.m_vstSubRules.size()) << row.sMessage;
        EXPECT_TRUE(t.m_vstSubRuleResult.empty() && t.m_vstRuleResultInit.empty());
        _stDoc d;
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
    EXPECT_FALSE(t.fn_bLoadRulelist(nullptr, nullptr) || t.fn_bLoadRulelist("", nullptr));
    EXPECT_FALSE(Load(t, "<rules><rulenum>1</rulenum></rules>") ||
                 Load(t, "<certainty>1</certainty>"));
    const std::string sAt = "[2026-11-22 09:34:56]\t";
    const std::string sConfBad = sAt +
                                 "\xB2\xCE\xCA\xFD"
                                 "conf\xCA\xE4\xC8\xEB\xB4\xED\xCE\xF3.\n\n";
    EXPECT_EQ(sAt + "\xBC\xD3\xD4\xD8" + sPath + "\xB3\xC9\xB9\xA6.\n\n" +  // 加载<path>成功.
                  sConfBad + sConfBad +                                   // 参数conf输入错误.
                  sAt + "Certainty\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.\n" +  // Certainty值未书写.
                  sAt + "TotalNum\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.\n",    // TotalNum值未书写.
              m_log.DayFile(".log"));
    EXPECT_EQ("", m_log.DayFile(".err"));
    EXPECT_EQ(kUntouched, g_sLastErrorMessage);
}

// ---------------------------------------------------------------- results

TEST_F(EngineTest, ResultTextsAndAutomaticSelection) {
    struct Row {
        float fCertainty;
        std::vector<float> vfWeight;  // classes a, b, c, d
        int iType;
        std::string sResult;
    };
    const Row vRows[] = {
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
    for (const Row& row : vRows) {
        std::map<std::string, float> msf;
        for (size_t i = 0; i < row.vfWeight.size(); ++i)
            msf[std::string(1, char('a' + i))] = row.vfWeight[i];
        t.m_fCertainty = row.fCertainty;
        t.m_sClassifyResult.clear();
        t.fn_vGetClassification(msf, row.iType);
        EXPECT_EQ(row.sResult, t.m_sClassifyResult);
    }
}

TEST_F(EngineTest, DetailListsTheFiredRulesOfOneClass) {
    TRule r2 = OneSub(kSport, "NOT/TITLE/1", kDing);
    r2.vSubs.push_back({"AND/AUTHOR/1", "b"});
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.6", {OneSub(kSport, "OR/TEXT/1", kJia + " " + kBing),
                                         OneSub(kFinance, "OR/TEXT/1", kJia), r2,
                                         OneSub(kSport, "OR/TEXT/1", kWu)})));
    t.m_vstRules[1].fEffecValue = 0.6f;  // equal to the threshold: passes
    t.m_vstRules[2].fEffecValue = 0.5f;  // fires, but scores below the threshold
    EXPECT_EQ(kSport + " 1.0000\t" + kFinance + " 0.6000\t",
              Classify(t, kJia + kDot + kBing, kJia, "b"));
    t.fn_vGetDetail(kSport);  // 作者:b
    EXPECT_EQ("RULE0:\nSUBRULE1: " + kJia + " 2\t" + kBing + " 1\t\n" +
                  "RULE2:\nSUBRULE1: \nSUBRULE2: \xD7\xF7\xD5\xDF:b\nSim: 0.0000\n",
              t.m_sDetail);
    t.fn_vGetDetail(kWu);
    EXPECT_EQ("", t.m_sDetail);
}

// ---------------------------------------------------------------- lifecycle

// A failed load leaves rules without results, which documents leave out;
// clearing keeps the clean copies; a title so dense with keywords that the
// scan output is cut off before the separator gives false and reset tables.
TEST_F(EngineTest, FailedLoadsClearingAndCutOffScansLeaveWhatTheContractsSay) {
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kJia)})));
    TRule rBroken = OneSub(kFinance, "OR/TEXT/1", kBing);
    rBroken.vSubs.push_back({"OR/TEXT", kDing});
    EXPECT_FALSE(Load(t, RuleList("0.5", {rBroken}), nullptr, "broken.xml"));
    ASSERT_TRUE(Load(t, RuleList("0.5", {}, "0"), nullptr, "empty.xml"));
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, kJia + kDot + kBing, kBing));
    EXPECT_EQ(1u, t.m_vstRuleResult.size());
    t.fn_vGetDetail(kSport);
    const std::string sDetail = t.m_sDetail;
    t.fn_vClear();
    EXPECT_EQ("", t.m_sClassifyResult + Dump(t));
    EXPECT_EQ(sDetail, t.m_sDetail);
    EXPECT_TRUE(t.m_msvWordRule.empty() && t.m_vstRuleResult.empty() && t.m_pDat == nullptr);
    EXPECT_EQ(1u, t.m_vstRuleResultInit.size());  // the clean copies stay
    _stDoc d;
    EXPECT_FALSE(t.fn_bClassify(d, 1));  // no dictionary
    std::string sWords;                  // B0, B0B0, ... 10 bytes: every start emits several words
    for (int n = 1; n <= 10; ++n) sWords += (n > 1 ? " " : "") + std::string(n, '\xB0');
    ASSERT_TRUE(Load(t, RuleList("0.5", {OneSub(kSport, "NOT/TEXT/1", sWords)})));
    EXPECT_EQ(kSport + "\t", Classify(t, "", "", "", 0));
    d.sTitle = std::string(100, '\xB0');
    EXPECT_FALSE(t.fn_bClassify(d, 1));
    EXPECT_EQ("", t.m_sClassifyResult);
    EXPECT_FALSE(t.m_vstSubRuleResult[0].bSuccess);  // the reset state, not the NOT default
}
