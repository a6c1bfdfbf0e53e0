// TextParserTestUtil.h - rule-list builder, engine loader and canonical dump
// shared by the rule engine tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Global.h"
#include "PDAT.h"
#include "TestUtil.h"
#include "TextParser.h"

namespace qxtest {

// GBK words used throughout (each a two-byte character, none of whose byte
// pairs across a boundary forms another of them).
inline const std::string kJia = "\xBC\xD7";              // 甲
inline const std::string kBing = "\xB1\xFB";             // 丙
inline const std::string kDing = "\xB6\xA1";             // 丁
inline const std::string kWu = "\xCE\xEC";               // 戊
inline const std::string kJi = "\xBC\xBA";               // 己
inline const std::string kGeng = "\xB8\xFD";             // 庚
inline const std::string kDot = "\xA1\xA3";              // 。 (filler, never a keyword)
inline const std::string kSport = "\xCC\xE5\xD3\xFD";    // 体育
inline const std::string kFinance = "\xB2\xC6\xBE\xAD";  // 财经
inline const std::string kTech = "\xBF\xC6\xBC\xBC";     // 科技
inline const std::string kSep = "\xB7\xD6\xB8\xEE\xB7\xFB\xBA\xC5";  // 分割符号

// Marks a tag that the rule list leaves out.
inline const std::string kOmit = "\x01omit";

// One sub-rule: operator and value texts as written in the file.
struct TSub {
    std::string sOperator;
    std::string sValue;
};

// One rule: tag texts as written in the file (kOmit leaves a tag out).
struct TRule {
    std::string sClass;
    std::string sTop = "AND";
    std::vector<TSub> vSubs;
    std::string sEffect = "1.0";
    std::string sPerfect = kOmit;
    std::string sImperfect = "0.5";
    std::string sSubNum;  // "" writes vSubs.size()
};

inline std::string Tag(const std::string& sName, const std::string& sValue) {
    if (sValue == kOmit) return "";
    const std::string sClose = sName.substr(0, sName.find(' '));
    return "<" + sName + ">" + sValue + "</" + sClose + ">";
}

// A rule list in the file format; sRuleNum "" writes the number of rules.
inline std::string RuleList(const std::string& sCertainty, const std::vector<TRule>& vRules,
                            const std::string& sRuleNum = "") {
    std::string s = Tag("certainty", sCertainty) + "\n<rules>";
    s += Tag("rulenum", sRuleNum.empty() ? std::to_string(vRules.size()) : sRuleNum) + "\n";
    for (size_t i = 0; i < vRules.size(); ++i) {
        const TRule& r = vRules[i];
        s += "<rule id=\"" + std::to_string(i) + "\">" + Tag("classid", r.sClass) +
             Tag("toprule", r.sTop) + "\n" + Tag("effectvalue", r.sEffect) +
             Tag("perfectvsmsim", r.sPerfect) + Tag("imperfectvsmsim", r.sImperfect) +
             "\n<subrules>" +
             Tag("subrulenum", r.sSubNum.empty() ? std::to_string(r.vSubs.size()) : r.sSubNum) +
             "\n";
        for (size_t j = 0; j < r.vSubs.size(); ++j) {
            s += "<subrule id=\"" + std::to_string(j + 1) + "\">" +
                 Tag("operator", r.vSubs[j].sOperator) + Tag("value", r.vSubs[j].sValue) +
                 "</subrule>\n";
        }
        s += "</subrules></rule>\n";
    }
    return s + "</rules>\n";
}

// One line per rule and sub-rule, in a canonical form:
//   R<r> <class> <relation> eff=<e> perf=<p> imperf=<i> subs=<i,j,...>
//   S<i> <relation>/<field>/<min> [kw1|kw2|...]
inline std::string DumpRules(const CTextParser& t) {
    std::string s;
    char sNum[96];
    for (size_t r = 0; r < t.m_vstRules.size(); ++r) {
        const _stRule& stRule = t.m_vstRules[r];
        std::snprintf(sNum, sizeof(sNum),
                      " eff=%g perf=%g imperf=%g subs=", static_cast<double>(stRule.fEffecValue),
                      static_cast<double>(stRule.fPerfectVSMSim),
                      static_cast<double>(stRule.fImPerfectVSMSim));
        s += "R" + std::to_string(r) + " " + stRule.sClass + " " + stRule.sRelation + sNum;
        for (size_t j = 0; j < stRule.viSubRule.size(); ++j)
            s += (j ? "," : "") + std::to_string(stRule.viSubRule[j]);
        s += "\n";
    }
    for (size_t i = 0; i < t.m_vstSubRules.size(); ++i) {
        const _stSubRule& stSub = t.m_vstSubRules[i];
        s += "S" + std::to_string(i) + " " + stSub.sRelation + "/" + stSub.sField + "/" +
             std::to_string(stSub.iMinCount) + " [";
        for (size_t j = 0; j < stSub.vsKeyword.size(); ++j)
            s += (j ? "|" : "") + stSub.vsKeyword[j];
        s += "]\n";
    }
    return s;
}

// keyword:i,j,... per entry of m_mslKeywords, one per line.
inline std::string DumpKeywords(const CTextParser& t) {
    std::string s;
    for (const auto& kv : t.m_mslKeywords) {
        s += kv.first + ":";
        bool bFirst = true;
        for (int i : kv.second) {
            s += (bFirst ? "" : ",") + std::to_string(i);
            bFirst = false;
        }
        s += "\n";
    }
    return s;
}

// Runs each test in a fresh temporary working directory with logging off.
class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char sCwd[4096];
        m_sOldCwd = getcwd(sCwd, sizeof(sCwd)) ? sCwd : "/";
        ASSERT_EQ(0, chdir(m_cTemp.path().c_str()));
        m_nOldLog = g_bLog;
        g_bLog = 0;
        g_sLastErrorMessage = "untouched";
    }
    void TearDown() override {
        g_bLog = m_nOldLog;
        if (chdir(m_sOldCwd.c_str()) != 0) ADD_FAILURE() << "cannot return to " << m_sOldCwd;
    }

    // Writes sText as a rule list file and calls fn_bInit on it; the rule
    // numbers it prints go to *pStdout (or nowhere).
    bool Load(CTextParser& t, const std::string& sText, std::string* pStdout = nullptr,
              const std::string& sName = "rules.xml") {
        const std::string sPath = m_cTemp.file(sName);
        WriteBytes(sPath, sText);
        bool bOk = false;
        const std::string sOut = CaptureStdout([&] { bOk = t.fn_bInit("", sPath.c_str()); });
        if (pStdout) *pStdout = sOut;
        return bOk;
    }

    // Classifies a document and returns m_sClassifyResult.
    static std::string Classify(CTextParser& t, const std::string& sTitle,
                                const std::string& sContent, int iType = 1,
                                const std::string& sAuthor = "", const std::string& sBoard = "",
                                const std::string& sDatatype = "") {
        _stDoc d;
        d.sTitle = sTitle;
        d.sContent = sContent;
        d.sAuthor = sAuthor;
        d.sBoard = sBoard;
        d.sDatatype = sDatatype;
        t.fn_bClassify(d, iType);
        return t.m_sClassifyResult;
    }

    TempDir m_cTemp;

  private:
    std::string m_sOldCwd;
    unsigned char m_nOldLog = 1;
};

}  // namespace qxtest
