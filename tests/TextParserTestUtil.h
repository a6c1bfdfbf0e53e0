// TextParserTestUtil.h - rule-list builder, canonical dump and engine fixture
// shared by the rule engine tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "Global.h"
#include "TestUtil.h"
#include "TextParser.h"

namespace qxtest {

// GBK words (each one two-byte character; no byte pair across two of them
// forms another).
inline const std::string kJia = "\xBC\xD7";                          // 甲
inline const std::string kBing = "\xB1\xFB";                         // 丙
inline const std::string kDing = "\xB6\xA1";                         // 丁
inline const std::string kWu = "\xCE\xEC";                           // 戊
inline const std::string kDot = "\xA1\xA3";                          // 。 (never a keyword)
inline const std::string kSport = "\xCC\xE5\xD3\xFD";                // 体育
inline const std::string kFinance = "\xB2\xC6\xBE\xAD";              // 财经
inline const std::string kSep = "\xB7\xD6\xB8\xEE\xB7\xFB\xBA\xC5";  // 分割符号

inline const std::string kOmit = "\x01omit";  // a tag the rule list leaves out

struct TSub {
    std::string sOperator, sValue;  // as written in the file
};

struct TRule {  // tag texts as written in the file; kOmit leaves a tag out
    std::string sClass;
    std::string sTop = "AND";
    std::vector<TSub> vSubs;
    std::string sEffect = "1.0", sPerfect = kOmit, sImperfect = "0.5";
    std::string sSubNum;  // "" writes vSubs.size()
};

inline TRule OneSub(const std::string& sClass, const std::string& sOp, const std::string& sValue) {
    TRule r;
    r.sClass = sClass;
    r.vSubs = {{sOp, sValue}};
    return r;
}

inline std::string Tag(const std::string& sName, const std::string& sValue) {
    if (sValue == kOmit) return "";
    return "<" + sName + ">" + sValue + "</" + sName.substr(0, sName.find(' ')) + ">";
}

// A rule list in the file format; sRuleNum "" writes the number of rules.
inline std::string RuleList(const std::string& sCertainty, const std::vector<TRule>& vRules,
                            const std::string& sRuleNum = "") {
    std::string s = Tag("certainty", sCertainty) + "\n<rules>" +
                    Tag("rulenum", sRuleNum.empty() ? std::to_string(vRules.size()) : sRuleNum);
    for (size_t i = 0; i < vRules.size(); ++i) {
        const TRule& r = vRules[i];
        s += "\n<rule id=\"" + std::to_string(i) + "\">" + Tag("classid", r.sClass) +
             Tag("toprule", r.sTop) + Tag("effectvalue", r.sEffect) +
             Tag("perfectvsmsim", r.sPerfect) + Tag("imperfectvsmsim", r.sImperfect) +
             "\n<subrules>" +
             Tag("subrulenum", r.sSubNum.empty() ? std::to_string(r.vSubs.size()) : r.sSubNum);
        for (size_t j = 0; j < r.vSubs.size(); ++j)
            s += "\n<subrule id=\"" + std::to_string(j + 1) + "\">" +
                 Tag("operator", r.vSubs[j].sOperator) + Tag("value", r.vSubs[j].sValue) +
                 "</subrule>";
        s += "</subrules></rule>";
    }
    return s + "\n</rules>\n";
}

// The loaded tables, one line each:
//   R<r> <class> <relation> <effect>/<perfect>/<imperfect> <sub-rule indexes>
//   S<i> <relation>/<field>/<min> <kw1|kw2|...>
//   K <keyword>:<sub-rule indexes>
template <typename V>
std::string Join(const V& v, const char* sSep) {
    std::ostringstream os;
    const char* sBefore = "";
    for (const auto& e : v) {
        os << sBefore << e;
        sBefore = sSep;
    }
    return os.str();
}

inline std::string Dump(const CTextParser& t) {
    std::string s;
    char sNum[80];
    for (size_t r = 0; r < t.m_vstRules.size(); ++r) {
        const _stRule& R = t.m_vstRules[r];
        std::snprintf(sNum, sizeof(sNum), " %g/%g/%g ", double(R.fEffecValue),
                      double(R.fPerfectVSMSim), double(R.fImPerfectVSMSim));
        s += "R" + std::to_string(r) + " " + R.sClass + " " + R.sRelation + sNum +
             Join(R.viSubRule, ",") + "\n";
    }
    for (size_t i = 0; i < t.m_vstSubRules.size(); ++i) {
        const _stSubRule& S = t.m_vstSubRules[i];
        s += "S" + std::to_string(i) + " " + S.sRelation + "/" + S.sField + "/" +
             std::to_string(S.iMinCount) + " " + Join(S.vsKeyword, "|") + "\n";
    }
    for (const auto& kv : t.m_mslKeywords) s += "K " + kv.first + ":" + Join(kv.second, ",") + "\n";
    return s;
}

// Logging off (a test may set g_bLog = 1; the day files go to a scratch
// directory), the last-error text kUntouched, a scratch directory for files.
class EngineTest : public ::testing::Test {
  protected:
    // Writes sText as a rule list and runs fn_bInit on it; the progress lines
    // go to *pProgress (or nowhere).
    bool Load(CTextParser& t, const std::string& sText, std::string* pProgress = nullptr,
              const std::string& sName = "rules.xml") {
        const std::string sPath = m_cTemp.write(sName, sText);
        char* pBuf = nullptr;
        size_t nBuf = 0;
        FILE* pOut = pProgress ? open_memstream(&pBuf, &nBuf) : nullptr;
        const bool bOk = t.fn_bInit("", sPath.c_str(), pOut);
        if (pOut) {
            std::fclose(pOut);
            pProgress->assign(pBuf, nBuf);
            std::free(pBuf);
        }
        return bOk;
    }

    // Classifies a document; returns m_sClassifyResult.
    static std::string Classify(CTextParser& t, const std::string& sTitle,
                                const std::string& sContent, const std::string& sAuthor = "",
                                int iType = 1) {
        _stDoc d;
        d.sTitle = sTitle, d.sContent = sContent, d.sAuthor = sAuthor;
        t.fn_bClassify(d, iType);
        return t.m_sClassifyResult;
    }

    ScopedLog m_log{0};
    TempDir m_cTemp;
};

}  // namespace qxtest
