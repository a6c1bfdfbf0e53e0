// Tests of the rule engine: loader messages and state, counting by field,
// sub-rule and rule relations, NEAR distances, scores, result texts, the
// detail report and robustness against malformed input.
#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <functional>
#include <random>

#include "TextParserTestUtil.h"

using namespace qxtest;

namespace {

// Rule with one sub-rule on field `field` over the given keywords.
TRule OneSub(const std::string& sClass, const std::string& sOperator, const std::string& sValue) {
    TRule r;
    r.sClass = sClass;
    r.vSubs = {{sOperator, sValue}};
    return r;
}

// The sample of the format description: sport, OR over TEXT, NOT over TITLE.
std::string SampleList() {
    TRule r = OneSub(kSport, "OR/TEXT/1", kJia + " " + kBing + " " + kDing);
    r.sPerfect = "0.9";
    r.vSubs.push_back({"NOT/TITLE/1", kWu});
    return RuleList("0.6", {r});
}

time_t FixedClock() {
    return 86400 * 365;
}  // 1971-01-01

}  // namespace

// ---------------------------------------------------------------- loading

TEST_F(EngineTest, FreshEngineIsEmpty) {
    CTextParser t;
    EXPECT_FLOAT_EQ(0.8f, t.m_fCertainty);
    EXPECT_EQ("", t.m_sClassifyResult);
    EXPECT_EQ(nullptr, t.m_pDat);
    EXPECT_EQ(nullptr, t.m_hMVRDRAP);
    EXPECT_TRUE(t.m_vstRules.empty());
}

TEST_F(EngineTest, SampleListBuildsTablesAndDictionary) {
    CTextParser t;
    std::string sOut;
    ASSERT_TRUE(Load(t, SampleList(), &sOut));
    EXPECT_EQ("0\n", sOut);
    EXPECT_FLOAT_EQ(0.6f, t.m_fCertainty);
    EXPECT_EQ("R0 " + kSport + " AND eff=1 perf=0.9 imperf=0.5 subs=0,1\n" + "S0 OR/TEXT/1 [" +
                  kJia + "|" + kBing + "|" + kDing + "]\n" + "S1 NOT/TITLE/1 [" + kWu + "]\n",
              DumpRules(t));
    // Byte order of the keys: B1FB < B6A1 < BCD7 < CEEC.
    EXPECT_EQ(kBing + ":0\n" + kDing + ":0\n" + kJia + ":0\n" + kWu + ":1\n", DumpKeywords(t));
    EXPECT_EQ(2u, t.m_vstSubRuleResult.size());
    EXPECT_EQ(1u, t.m_vstRuleResultInit.size());
    ASSERT_EQ(4u, t.m_msvWordRule.size());
    EXPECT_EQ(t.m_msvWordRule.keys(), t.m_msvWordRuleInit.keys());
    EXPECT_EQ(2u, t.m_msvWordRule[kWu].size());  // one count per sub-rule
    EXPECT_EQ(0u, t.m_msvWordRule["absent"].size());
    EXPECT_FALSE(t.m_msvWordRule.contains("absent"));
    for (const std::string& w : {kJia, kBing, kDing, kWu, kSep})
        EXPECT_GE(t.m_pDat->Find(w.c_str()), 0);
    EXPECT_EQ("untouched", g_sLastErrorMessage);
}

TEST_F(EngineTest, LoaderAcceptsBoundaryValues) {
    TRule rNoPerfect =
        OneSub(kSport, "AND/TITLE/-2", kJia + "  " + kJia);  // doubled blank, duplicate
    TRule rNear = OneSub(kFinance, "AND/AUTHOR/1", "a b");
    rNear.sTop = "NEAR7";
    rNear.vSubs.push_back({"AND/BOARD/1", "c"});  // metadata sub-rules count as non-NOT
    TRule rShared = OneSub(kTech, "OR/TITLE/1", kJia);
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {rNoPerfect, rNear, rShared})));
    EXPECT_EQ("R0 " + kSport + " AND eff=1 perf=33333 imperf=0.5 subs=0\n" + "R1 " + kFinance +
                  " NEAR7 eff=1 perf=33333 imperf=0.5 subs=1,2\n" + "R2 " + kTech +
                  " AND eff=1 perf=33333 imperf=0.5 subs=3\n" + "S0 AND/TITLE/-2 [" + kJia + "|" +
                  kJia + "]\nS1 AND/AUTHOR/1 [a|b]\nS2 AND/BOARD/1 [c]\n" + "S3 OR/TITLE/1 [" +
                  kJia + "]\n",
              DumpRules(t));
    EXPECT_EQ(kJia + ":0,0,3\n", DumpKeywords(t));  // metadata keywords are not entered
    EXPECT_EQ(2, t.m_msvWordRule.SlotCount());      // (jia, 0) and (jia, 3)
}

TEST_F(EngineTest, RuleNumZeroOrNegativeLoadsNothing) {
    CTextParser t;
    std::string sOut;
    ASSERT_TRUE(Load(t, RuleList("0.7", {}, "0"), &sOut));
    EXPECT_EQ("", sOut);
    EXPECT_FLOAT_EQ(0.7f, t.m_fCertainty);
    EXPECT_GE(t.m_pDat->Find(kSep.c_str()), 0);
    EXPECT_EQ("", Classify(t, kJia, kJia));
    ASSERT_TRUE(Load(t, RuleList("0.7", {OneSub(kSport, "OR/TEXT/1", kJia)}, "-3"), &sOut));
    EXPECT_EQ("", sOut);
    EXPECT_TRUE(t.m_vstRules.empty());
}

TEST_F(EngineTest, LoadLogsSuccessAndOnlyLogsMissingHeaderValues) {
    g_sLogPath = m_cTemp.path();
    g_bLog = 1;
    LogClock pfnOld = SetLogClock(&FixedClock);
    CTextParser t;
    const std::string sPath = m_cTemp.file("rules.xml");
    ASSERT_TRUE(Load(t, SampleList()));
    EXPECT_FALSE(t.fn_bLoadRulelist(nullptr));
    EXPECT_FALSE(t.fn_bLoadRulelist(""));
    EXPECT_FALSE(Load(t, "<rules><rulenum>1</rulenum></rules>"));
    EXPECT_FALSE(Load(t, "<certainty>1</certainty>"));
    SetLogClock(pfnOld);
    char sDay[16];
    const time_t tDay = FixedClock();
    std::strftime(sDay, sizeof(sDay), "%Y%m%d", std::localtime(&tDay));
    const std::string sLog = ReadBytes(m_cTemp.file(std::string(sDay) + ".log"));
    // 加载<path>成功. / 参数conf输入错误. (twice) / Certainty值未书写. / TotalNum值未书写.
    const std::string sConfBad =
        "\xB2\xCE\xCA\xFD"
        "conf\xCA\xE4\xC8\xEB\xB4\xED\xCE\xF3.\n";
    const std::string vsExpected[] = {"\xBC\xD3\xD4\xD8" + sPath + "\xB3\xC9\xB9\xA6.\n", sConfBad,
                                      sConfBad, "Certainty\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.",
                                      "TotalNum\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4."};
    size_t nPos = 0;
    for (const std::string& s : vsExpected) {
        nPos = sLog.find("]\t" + s + "\n", nPos);
        ASSERT_NE(std::string::npos, nPos) << s;
    }
    EXPECT_EQ("untouched", g_sLastErrorMessage);
    EXPECT_EQ("", ReadBytes(m_cTemp.file(std::string(sDay) + ".err")));
    g_sLogPath.clear();
}

// Every rule and sub-rule message, with the full key path, and what the
// failed load leaves behind: earlier rules and the failing rule's sub-rules
// stay, no result vector is made.
TEST_F(EngineTest, LoaderMessagesAndStateAfterFailure) {
    const std::string R = "Rule[rule id=\"1\".";
    const std::string O = "rule id=\"1\".subrules.subrule id=\"2\".operator";
    const std::string V = "rule id=\"1\".subrules.subrule id=\"2\".value";
    // Message texts (GBK).
    const std::string sNoClass =
        "]\xB2\xBB\xB4\xE6\xD4\xDA\xBB\xF2\xC6\xE4"            // ]不存在或其
        "ClassID\xD6\xB5\xB2\xBB\xC4\xDC\xCE\xAA\xBF\xD5.\n";  // ...值不能为空.
    const std::string sBadTop =                                // ] 总的逻辑符号书写错误.
        "] \xD7\xDC\xB5\xC4\xC2\xDF\xBC\xAD\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.";
    const std::string sUnwritten = "\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // 值未书写.
    const std::string sSubNumFor = "subrules.subrulenum]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4";
    const std::string sUnsupported = "\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.";         // 值不支持.
    const std::string sIncomplete = "\xCE\xB4\xCA\xE9\xD0\xB4\xCD\xEA\xD5\xFB.";  // 未书写完整.
    const std::string sBadCount =  // 的词频书写错误或不能为0.
        "\xB5\xC4\xB4\xCA\xC6\xB5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3\xBB\xF2\xB2\xBB\xC4\xDC\xCE\xAA"
        "0.";
    struct Row {
        std::function<void(TRule&)> fnBreak;  // applied to rule 1 (two sub-rules)
        std::string sMessage;
        size_t nSubRules;  // m_vstSubRules afterwards (rule 0 has one)
    };
    const Row vRows[] = {
        {[](TRule& r) { r.sClass = ""; }, R + "classid" + sNoClass, 1},
        {[](TRule& r) { r.sClass = kOmit; }, R + "classid" + sNoClass, 1},
        {[](TRule& r) { r.sTop = "and"; }, R + "toprule" + sBadTop, 1},
        {[](TRule& r) { r.sTop = kOmit; }, R + "toprule" + sBadTop, 1},  // "" is not AND
        {[](TRule& r) { r.sTop = "XNEAR3"; }, R + "toprule" + sBadTop, 1},
        {[](TRule& r) { r.sEffect = kOmit; }, R + "effectvalue]EffectValue" + sUnwritten, 1},
        {[](TRule& r) { r.sEffect = "0.5"; }, R + "perfectvsmsim]PerfectVSMSim" + sUnwritten, 1},
        {[](TRule& r) { r.sImperfect = kOmit; }, R + "imperfectvsmsim]ImPerfectVSMSim" + sUnwritten,
         1},
        // ] ClassID类"<class>"语料未训练. (no class is trained, perfectvsmsim or not)
        {[](TRule& r) { r.sEffect = "0.5", r.sPerfect = "0.9"; },
         R + "imperfectvsmsim] ClassID\xC0\xE0\"" + kFinance +
             "\"\xD3\xEF\xC1\xCF\xCE\xB4\xD1\xB5\xC1\xB7.",
         1},
        {[](TRule& r) { r.sSubNum = kOmit; }, R + "subrules.subrulenum]SubRuleNum" + sUnwritten, 1},
        {[](TRule& r) { r.sSubNum = "33333"; }, R + "subrules.subrulenum]SubRuleNum" + sUnwritten,
         1},
        {[](TRule& r) { r.sTop = "NOT", r.sSubNum = "3"; }, R + sSubNumFor + "NOT" + sUnsupported,
         1},
        {[](TRule& r) { r.sTop = "YES"; }, R + sSubNumFor + "YES" + sUnsupported, 1},
        {[](TRule& r) { r.sTop = "NEAR", r.sSubNum = "1"; }, R + sSubNumFor + "NEAR" + sUnsupported,
         1},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND//1"; }, O + sIncomplete, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/TITLE"; }, O + sIncomplete, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = kOmit; }, O + sIncomplete, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "YES/TITLE/1"; },  // 的逻辑符号书写错误.
         O + "\xB5\xC4\xC2\xDF\xBC\xAD\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.", 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/title/1"; },  // 的域符号书写错误.
         O + "\xB5\xC4\xD3\xF2\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.", 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/TITLE/0"; }, O + sBadCount, 2},
        {[](TRule& r) { r.vSubs[1].sOperator = "AND/TITLE/x"; }, O + sBadCount, 2},
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
        r1.vSubs.push_back({"AND/TITLE/2", kJi});
        row.fnBreak(r1);
        CTextParser t;
        g_sLastErrorMessage.clear();
        EXPECT_FALSE(Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kJia), r1})));
        EXPECT_EQ(row.sMessage, g_sLastErrorMessage);
        EXPECT_EQ(1u, t.m_vstRules.size()) << row.sMessage;
        EXPECT_EQ(row.nSubRules, t.m_vstSubRules.size()) << row.sMessage;
        const size_t nKeywords[] = {0, 1, 3, 4};  // jia; + ding, wu; + ji
        EXPECT_EQ(nKeywords[row.nSubRules], t.m_mslKeywords.size()) << row.sMessage;
        EXPECT_TRUE(t.m_vstSubRuleResult.empty() && t.m_vstRuleResultInit.empty());
        EXPECT_TRUE(t.m_msvWordRule.empty());
        _stDoc d;  // the dictionary was never completed: nothing is found
        d.sTitle = kJia;
        EXPECT_FALSE(t.fn_bClassify(d, 1));
        EXPECT_EQ("", t.m_sClassifyResult);
    }
    CTextParser t;
    EXPECT_FALSE(t.fn_bInit("", m_cTemp.file("missing.xml").c_str()));
    EXPECT_EQ("\xCE\xC4\xBC\xFE" + m_cTemp.file("missing.xml") + "\xB4\xF2\xB2\xBB\xBF\xAA.\n",
              g_sLastErrorMessage);  // 文件<path>打不开.
}

TEST_F(EngineTest, SecondLoadAppendsAndRebuildsForAllRules) {
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kJia)})));
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, kJia, ""));
    std::string sOut;
    ASSERT_TRUE(Load(t, RuleList("0.6", {OneSub(kFinance, "OR/TITLE/1", kJia + " " + kBing)}),
                     &sOut, "more.xml"));
    EXPECT_EQ("0\n", sOut);
    EXPECT_EQ(kBing + ":1\n" + kJia + ":0,1\n", DumpKeywords(t));
    EXPECT_EQ(2u, t.m_vstRuleResult.size());
    EXPECT_EQ(2u, t.m_vstSubRuleResultInit.size());
    EXPECT_EQ(kFinance + " 1.0000\t" + kSport + " 1.0000\t",
              Classify(t, kJia, ""));  // ties: name order
}

// A rule list may be cut anywhere, garbled or hold absurd numbers: the loader
// fails or succeeds, never crashes or hangs, and the engine stays usable.
TEST_F(EngineTest, MalformedRuleListsNeverCrash) {
    CTextParser t;
    std::string sOut;
    EXPECT_FALSE(
        Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kJia)}, "2000000000"), &sOut));
    EXPECT_EQ("0\n1\n", sOut);  // stops at the first missing rule
    EXPECT_EQ("Rule[rule id=\"1\".classid]", g_sLastErrorMessage.substr(0, 25));
    TRule rMany = OneSub(kSport, "OR/TEXT/1", kJia);
    rMany.sSubNum = "2000000000";
    EXPECT_FALSE(Load(t, RuleList("0.5", {rMany})));
    EXPECT_EQ(
        "rule id=\"0\".subrules.subrule id=\"2\".operator\xCE\xB4\xCA\xE9\xD0\xB4\xCD\xEA\xD5\xFB.",
        g_sLastErrorMessage);  // ...未书写完整.
    TRule rHuge = OneSub(kSport, "OR/TEXT/99999999999999999999", kJia);
    rHuge.sEffect = "1e30";
    rHuge.sSubNum = "1x";
    TRule rNone = OneSub(kFinance, "OR/TEXT/1", kBing);
    rNone.sSubNum = "-5";
    CTextParser tHuge;
    ASSERT_TRUE(Load(tHuge, RuleList("1e999", {rHuge, rNone})));
    EXPECT_EQ(-1, tHuge.m_vstSubRules[0].iMinCount);  // (int)LONG_MAX, as glibc's atoi
    EXPECT_TRUE(tHuge.m_vstRules[1].viSubRule.empty());
    EXPECT_EQ("", Classify(tHuge, kJia, kBing));  // inf certainty: nothing reaches it

    const std::string sGood = SampleList();
    std::mt19937 rng(20240601);
    for (size_t n = 0; n <= sGood.size() + 40; ++n) {
        std::string sText = sGood.substr(0, n);
        if (n > sGood.size()) {  // garble a copy instead
            sText = sGood;
            for (int k = 0; k < 4; ++k) sText[rng() % sText.size()] = static_cast<char>(rng());
        }
        CTextParser tCut;
        const bool bOk = Load(tCut, sText);
        EXPECT_LE(tCut.m_vstRules.size(), 1u);
        _stDoc d;
        d.sTitle = kWu + kSep + kJia;
        d.sContent = kBing + "\n" + kSep;
        tCut.fn_bClassify(d, 1);
        tCut.fn_vGetDetail(kSport);
        if (n == sGood.size()) {
            EXPECT_TRUE(bOk);
        }
    }
}

// ---------------------------------------------------------------- counting

TEST_F(EngineTest, CountsFollowTheSubRuleField) {
    TRule r = OneSub(kSport, "OR/TITLE/1", kJia + " " + kBing + " " + kDing);
    r.sTop = "OR";
    r.vSubs.push_back({"OR/CONTENT/1", kJia + " " + kBing + " " + kDing});
    r.vSubs.push_back({"OR/TEXT/1", kJia + " " + kJia});  // listed twice: counts twice
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
    struct Row {
        std::string sTitle, sContent;
        int nTitle[3], nContent[3], nText;  // jia, bing, ding; jia in the TEXT sub-rule
    };
    const std::string sLong = kBing + kSep + kDing;  // a keyword holding the separator
    const Row vRows[] = {
        {kJia, kJia + kDot + kJia, {1, 0, 0}, {2, 0, 0}, 6},
        {kJia + kDot + kBing, kJia + kDot + kJia + kDot + kDing, {1, 1, 0}, {2, 0, 1}, 6},
        {"", kDing, {0, 0, 0}, {0, 0, 1}, 0},
        // The separator in the title: words after it count as content.
        {kJia + kSep + kJia + kDot + kBing, "", {1, 0, 0}, {1, 1, 0}, 4},
    };
    for (const Row& row : vRows) {
        Classify(t, row.sTitle, row.sContent);
        const std::string vsWord[3] = {kJia, kBing, kDing};
        for (int w = 0; w < 3; ++w) {
            EXPECT_EQ(row.nTitle[w], t.m_msvWordRule.count(vsWord[w], 0)) << row.sTitle << w;
            EXPECT_EQ(row.nContent[w], t.m_msvWordRule.count(vsWord[w], 1)) << row.sTitle << w;
        }
        EXPECT_EQ(row.nText, t.m_msvWordRule[kJia][2]);
        EXPECT_EQ(0, t.m_msvWordRule.count(kBing, 2));  // no slot: reads 0
        EXPECT_EQ(t.m_sText, row.sTitle + kSep + row.sContent);
    }
    // The scan cuts a keyword that holds the separator at the separator.
    ASSERT_TRUE(
        Load(t, RuleList("0.5", {OneSub(kTech, "OR/TEXT/1", sLong + " " + kBing + " " + kDing)})));
    Classify(t, sLong, "");
    EXPECT_EQ(0, t.m_msvWordRule.count(sLong, 3));
    EXPECT_EQ(2, t.m_msvWordRule.count(kBing, 3));  // "bing" and the piece before the cut
    EXPECT_EQ(2, t.m_msvWordRule.count(kDing, 3));  // the piece after the cut and "ding"
}

TEST_F(EngineTest, MetadataSubRulesCompareWholeFields) {
    TRule r = OneSub(kSport, "NOT/AUTHOR/5", "a b");  // relation and count play no part
    r.sTop = "OR";
    r.vSubs.push_back({"AND/BOARD/1", "news"});
    r.vSubs.push_back({"AND/DATATYPE/1", "bbs"});
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, "", "", 1, "b"));
    EXPECT_EQ("\xD7\xF7\xD5\xDF:b", t.m_vstSubRuleResult[0].sHitWord);  // 作者:b
    EXPECT_EQ("", Classify(t, "", "a", 1, "ab", "new", "bb"));
    EXPECT_FALSE(t.m_vstSubRuleResult[0].bSuccess);
    EXPECT_EQ("", t.m_vstSubRuleResult[0].sHitWord);
    Classify(t, "", "", 1, "", "news", "bbs");
    EXPECT_EQ("\xC6\xB5\xB5\xC0:news", t.m_vstSubRuleResult[1].sHitWord);  // 频道:
    EXPECT_EQ("\xCD\xA8\xB5\xC0:bbs", t.m_vstSubRuleResult[2].sHitWord);   // 通道:
}

// ---------------------------------------------------------------- relations

TEST_F(EngineTest, SubRuleRelationsOnHandFilledCounts) {
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {OneSub(kSport, "AND/TEXT/1", "x y z")})));
    struct Row {
        const char* sRelation;
        int nMin, nX, nY, nZ;
        bool bOutcome;
        const char* sHit;
    };
    const Row vRows[] = {
        {"AND", 1, 2, 0, 5, false, "x 2\t"},  // stops at the first zero
        {"AND", 2, 2, 3, 4, true, "x 2\ty 3\tz 4\t"},
        {"AND", 3, 2, 3, 4, false, "x 2\ty 3\tz 4\t"},  // the minimum decides
        {"AND", -2, 1, 1, 1, true, "x 1\ty 1\tz 1\t"},
        {"OR", 0, 0, 0, 0, false, ""},
        {"OR", 3, 1, 0, 1, false, "x 1\tz 1\t"},
        {"OR", 2, 1, 0, 1, true, "x 1\tz 1\t"},
        {"NOT", 0, 0, 1, 0, false, "y 1\t"},
        {"NOT", 0, 0, 0, 0, true, ""},
        {"NOT", 3, 1, 1, 0, true, "x 1\ty 1\t"},  // tolerates two
        {"NOT", 3, 1, 1, 1, false, "x 1\ty 1\tz 1\t"},
        {"XOR", 1, 1, 1, 1, false, ""},
    };
    for (const Row& row : vRows) {
        t.fn_bResetResult();
        t.m_vstSubRules[0].sRelation = row.sRelation;
        t.m_vstSubRules[0].iMinCount = row.nMin;
        ASSERT_TRUE(t.m_msvWordRule.Set("x", 0, row.nX) && t.m_msvWordRule.Set("y", 0, row.nY) &&
                    t.m_msvWordRule.Set("z", 0, row.nZ));
        EXPECT_EQ(row.bOutcome, t.fn_bDoSubRule(0)) << row.sRelation << row.nMin;
        EXPECT_EQ(row.sHit, t.m_vstSubRuleResult[0].sHitWord) << row.sRelation << row.nMin;
    }
    EXPECT_FALSE(t.m_msvWordRule.Set("w", 0, 1));
    EXPECT_FALSE(t.fn_bDoSubRule(7));
}

TEST_F(EngineTest, RuleRelationsOnHandSetOutcomes) {
    TRule r = OneSub(kSport, "OR/TEXT/1", "x");
    r.vSubs.push_back({"OR/TEXT/1", "y"});
    r.vSubs.push_back({"OR/TEXT/1", "z"});
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
    struct Row {
        const char* sRelation;
        std::vector<int> viOutcome;
        bool bRule;
    };
    const Row vRows[] = {
        {"AND", {}, true},      {"AND", {1, 1}, true},     {"AND", {1, 0, 1}, false},
        {"OR", {}, false},      {"OR", {0, 1}, true},      {"NOT", {0}, true},
        {"NOT", {1}, false},    {"NOT", {1, 0}, true},     {"NOT", {1, 1}, false},
        {"NOT", {0, 0}, false}, {"NOT", {0, 0, 0}, false}, {"YES", {1}, true},
        {"YES", {1, 1}, false}, {"YES", {0}, false},       {"and", {1}, false},
        {"NEAR", {1}, false},   {"XNEAR3", {1, 0}, false},
    };
    for (const Row& row : vRows) {
        t.m_vstRules[0].sRelation = row.sRelation;
        t.m_vstRules[0].viSubRule.clear();
        for (size_t j = 0; j < row.viOutcome.size(); ++j) {
            t.m_vstRules[0].viSubRule.push_back(static_cast<int>(j));
            t.m_vstSubRuleResult[j].bSuccess = row.viOutcome[j] != 0;
        }
        EXPECT_EQ(row.bRule, t.fn_bDoRule(0)) << row.sRelation << row.viOutcome.size();
    }
    EXPECT_FALSE(t.fn_bDoRule(-1));
    EXPECT_FALSE(t.fn_bDoRule(1));
}

TEST_F(EngineTest, NearMeasuresBytesAcrossLinesAndTheTitleBoundary) {
    struct Row {
        std::string sTop, sTitle, sContent;
        bool bFires;
    };
    const Row vRows[] = {
        {"NEAR5", "", kJia + "-----" + kBing, true},
        {"NEAR5", "", kJia + "------" + kBing, false},
        {"NEAR5", "", kBing + "-----" + kJia, true},  // either order
        {"NEAR9", "", kJia + "\n" + kBing, false},    // a line break counts 10
        {"NEAR10", "", kJia + "\n" + kBing, true},
        {"NEAR19", kJia, kBing, false},  // the title/content boundary counts 20
        {"NEAR20", kJia, kBing, true},
        {"NEAR", "", kJia + kBing, true},
        {"NEAR0", "", kBing + "--" + kJia + kDot + kBing + kJia, true},  // a later pair
        {"NEAR3", kJia, kDing + kBing, false},  // the NOT sub-rule must hold
    };
    for (const Row& row : vRows) {
        TRule r = OneSub(kSport, "OR/TEXT/1", kJia);
        r.sTop = row.sTop;
        r.vSubs.push_back({"NOT/TEXT/1", kDing});  // takes no part in the distance test
        r.vSubs.push_back({"AND/TEXT/1", kBing});
        CTextParser t;
        ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
        EXPECT_EQ(row.bFires ? kSport + " 1.0000\t" : "", Classify(t, row.sTitle, row.sContent))
            << row.sTop << " " << row.sContent;
    }
    // The rewrite of the text stays: separator -> 20 blanks, line feed -> 10.
    TRule r = OneSub(kSport, "OR/TEXT/1", kJia);
    r.sTop = "NEAR50";
    r.vSubs.push_back({"OR/TEXT/1", kBing});
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
    Classify(t, kJia + kSep, "\n" + kBing);
    EXPECT_EQ(kJia + std::string(50, ' ') + kBing, t.m_sText);
    Classify(t, kJia, kDing + "\n");  // rule not tried: the text is left as built
    EXPECT_EQ(kJia + kSep + kDing + "\n", t.m_sText);
}

TEST_F(EngineTest, NearWithMetadataSubRuleNeverFiresAndInsertsNothing) {
    TRule r = OneSub(kSport, "OR/TEXT/1", kJia);
    r.sTop = "NEAR100";
    r.vSubs.push_back({"AND/AUTHOR/1", "a"});
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
    EXPECT_EQ("", Classify(t, kJia, "a", 1, "a"));
    EXPECT_TRUE(t.m_vstSubRuleResult[0].bSuccess && t.m_vstSubRuleResult[1].bSuccess);
    EXPECT_FALSE(t.m_vstRuleResult[0].bSuccess);
    EXPECT_EQ(1u, t.m_msvWordRule.size());
}

// ---------------------------------------------------------------- scores and results

TEST_F(EngineTest, ScoresCapAndKeepTheBestRulePerClass) {
    CTextParser t;
    TRule rA = OneSub(kSport, "OR/TEXT/1", kJia), rB = OneSub(kSport, "OR/TEXT/1", kBing);
    TRule rC = OneSub(kFinance, "OR/TEXT/1", kDing);
    rC.sEffect = "1.5";
    ASSERT_TRUE(Load(t, RuleList("0.6", {rA, rB, rC})));
    EXPECT_EQ(kFinance + " 1.0000\t", Classify(t, "", kDing));  // 1.5 capped
    struct Row {
        float fA, fB, fCertainty;
        std::string sResult;
    };
    const Row vRows[] = {
        {0.7f, 0.9f, 0.6f, kSport + " 0.9000\t"},
        {0.9f, 0.7f, 0.6f, kSport + " 0.9000\t"},
        {0.5f, 0.55f, 0.6f, ""},                   // fired, but below the threshold
        {0.6f, 0.2f, 0.6f, kSport + " 0.6000\t"},  // equal to the threshold passes
    };
    for (const Row& row : vRows) {
        t.m_vstRules[0].fEffecValue = row.fA;
        t.m_vstRules[1].fEffecValue = row.fB;
        t.m_fCertainty = row.fCertainty;
        EXPECT_EQ(row.sResult, Classify(t, kJia, kBing));
        EXPECT_TRUE(t.m_vstRuleResult[0].bSuccess && t.m_vstRuleResult[1].bSuccess);
    }
}

TEST_F(EngineTest, CertaintyZeroOrNegativeScoresEveryRule) {
    CTextParser t;
    TRule rA = OneSub(kTech, "OR/TEXT/1", kJia), rB = OneSub(kSport, "OR/TEXT/1", kBing);
    ASSERT_TRUE(Load(t, RuleList("0", {rA, rB, OneSub(kFinance, "OR/TEXT/1", kDing)})));
    EXPECT_EQ(kSport + " 1.0000\t" + kFinance + " 0.0000\t" + kTech + " 0.0000\t",
              Classify(t, "", kBing));
    for (const _stRuleResult& res : t.m_vstRuleResult) EXPECT_TRUE(res.bSuccess);
    t.m_fCertainty = -1;  // automatic selection: 1.0 then 0.0 (< 0.5) stops
    EXPECT_EQ(kSport + "\t", Classify(t, "", kBing, 0));
    EXPECT_EQ("", Classify(t, "", kBing, 7));
    t.m_fCertainty = 0.5;
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, "", kBing));
    EXPECT_FALSE(t.m_vstRuleResult[0].bSuccess);
}

TEST_F(EngineTest, AutomaticSelectionAndResultFormats) {
    CTextParser t;
    struct Row {
        float fCertainty;
        std::vector<float> vfWeight;  // classes a, b, c, d
        int iType;
        std::string sResult;
    };
    const Row vRows[] = {
        {-1, {0.9f, 0.7f, 0.2f}, 0, "a\t"},
        {-1, {0.95f, 0.85f, 0.6f}, 0, "a\tb\t"},
        {-1, {0.9f, 0.9f, 0.9f, 0.9f}, 0, "a\tb\tc\t"},  // never a fourth
        {-1, {0.3f}, 1, "a 0.3000\t"},
        {0.5f, {0.9f, 0.9f, 0.2f, 1.0f}, 1, "d 1.0000\ta 0.9000\tb 0.9000\tc 0.2000\t"},
        {0.5f, {0.9f}, 2, ""},
        {-1, {}, 1, ""},
    };
    for (const Row& row : vRows) {
        std::map<std::string, float> msf;
        for (size_t i = 0; i < row.vfWeight.size(); ++i)
            msf[std::string(1, 'a' + i)] = row.vfWeight[i];
        t.m_fCertainty = row.fCertainty;
        t.m_sClassifyResult.clear();
        t.fn_vGetClassification(msf, row.iType);
        EXPECT_EQ(row.sResult, t.m_sClassifyResult);
    }
}

TEST_F(EngineTest, DetailListsFiredRulesOfOneClass) {
    TRule r0 = OneSub(kSport, "OR/TEXT/1", kJia + " " + kBing);
    TRule r1 = OneSub(kFinance, "OR/TEXT/1", kJia);
    TRule r2 = OneSub(kSport, "NOT/TITLE/1", kDing);
    r2.vSubs.push_back({"AND/AUTHOR/1", "b"});
    TRule r3 = OneSub(kSport, "OR/TEXT/1", kWu);
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.6", {r0, r1, r2, r3})));
    t.m_vstRules[2].fEffecValue = 0.5f;  // fires but scores below the threshold
    Classify(t, kJia + kDot + kBing, kJia, 1, "b");
    EXPECT_EQ(kFinance + " 1.0000\t" + kSport + " 1.0000\t", t.m_sClassifyResult);
    t.fn_vGetDetail(kSport);
    EXPECT_EQ("RULE0:\nSUBRULE1: " + kJia + " 2\t" + kBing + " 1\t\n" +
                  "RULE2:\nSUBRULE1: \nSUBRULE2: \xD7\xF7\xD5\xDF:b\nSim: 0.0000\n",
              t.m_sDetail);
    t.fn_vGetDetail(kFinance);
    EXPECT_EQ("RULE1:\nSUBRULE1: " + kJia + " 2\t\n", t.m_sDetail);
    t.fn_vGetDetail(kTech);
    EXPECT_EQ("", t.m_sDetail);
    Classify(t, "", kWu);  // the next document replaces everything
    EXPECT_EQ("", t.m_sDetail);
    t.fn_vGetDetail(kSport);
    EXPECT_EQ("RULE3:\nSUBRULE1: " + kWu + " 1\t\n", t.m_sDetail);
}

// ---------------------------------------------------------------- lifecycle and odd documents

TEST_F(EngineTest, ScanCutOffBeforeTheSeparatorLeavesTheResetState) {
    std::string sWords;  // B0, B0B0, ... 10 bytes: every start emits two words
    for (int n = 1; n <= 10; ++n) sWords += (n > 1 ? " " : "") + std::string(n, '\xB0');
    TRule r = OneSub(kSport, "NOT/TEXT/1", sWords);
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {r})));
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, "", ""));
    _stDoc d;
    d.sTitle = std::string(100, '\xB0');
    EXPECT_FALSE(t.fn_bClassify(d, 1));
    EXPECT_EQ("", t.m_sClassifyResult);
    EXPECT_EQ(d.sTitle + kSep, t.m_sText);
    EXPECT_FALSE(t.m_vstSubRuleResult[0].bSuccess);  // reset state, not the NOT default
    EXPECT_EQ(0, t.m_msvWordRule.count(std::string(1, '\xB0'), 0));
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, "", ""));
}

TEST_F(EngineTest, RulesLeftWithoutResultsByAFailedLoadAreLeftOut) {
    CTextParser t;
    ASSERT_TRUE(Load(t, RuleList("0.5", {OneSub(kSport, "OR/TEXT/1", kJia)})));
    TRule rBroken = OneSub(kTech, "OR/TEXT/1", kBing);
    rBroken.vSubs.push_back({"OR/TEXT", kDing});
    EXPECT_FALSE(Load(t, RuleList("0.5", {OneSub(kFinance, "OR/TEXT/1", kBing), rBroken}), nullptr,
                      "broken.xml"));
    ASSERT_TRUE(Load(t, RuleList("0.5", {}, "0"), nullptr, "empty.xml"));
    EXPECT_EQ(2u, t.m_vstRules.size());
    EXPECT_EQ(3u, t.m_vstSubRules.size());
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, kJia + kDot + kBing, kBing));
    EXPECT_EQ(1u, t.m_vstRuleResult.size());
}

TEST_F(EngineTest, ClearEmptiesTablesButKeepsCleanCopies) {
    CTextParser t;
    ASSERT_TRUE(Load(t, SampleList()));
    Classify(t, kJia, "");
    t.fn_vGetDetail(kSport);
    const std::string sDetail = t.m_sDetail;
    t.fn_vClear();
    EXPECT_EQ("", t.m_sClassifyResult);
    EXPECT_EQ(sDetail, t.m_sDetail);
    EXPECT_TRUE(t.m_vstRules.empty() && t.m_vstSubRules.empty() && t.m_mslKeywords.empty());
    EXPECT_TRUE(t.m_msvWordRule.empty() && t.m_vstRuleResult.empty());
    EXPECT_EQ(2u, t.m_vstSubRuleResultInit.size());
    EXPECT_EQ(4u, t.m_msvWordRuleInit.size());
    EXPECT_EQ(nullptr, t.m_pDat);
    _stDoc d;
    EXPECT_FALSE(t.fn_bClassify(d, 1));  // no dictionary: nothing found, no crash
    t.fn_vClear();
    ASSERT_TRUE(Load(t, RuleList("0.5", {}, "0")));  // loads nothing: the clean copies rule
    EXPECT_EQ("", Classify(t, kJia, kJia));
    ASSERT_TRUE(Load(t, SampleList()));
    EXPECT_EQ(kSport + " 1.0000\t", Classify(t, "", kJia));
}
