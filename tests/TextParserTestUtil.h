// TextParserTestUtil.h - rule-list builder, canonical dump and engine fixture
// shared by the rule engine tests.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "TextParser.h"

namespace qxtest {

// GBK words of one character each; no byte pair across two of them forms another.
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

// Tag texts as written in the file; kOmit leaves a tag out, sSubNum ""
// writes the number of sub-rules.
struct TRule {
    std::string sClass, sTop;
    std::vector<TSub> vSubs;
    std::string sSubNum, sEffect, sPerfect, sImperfect = "0.5";
    TRule(std::string c, std::string t, std::vector<TSub> v, std::string n = "",
          std::string e = "1.0", std::string p = kOmit)
        : sClass(c), sTop(t), vSubs(v), sSubNum(n), sEffect(e), sPerfect(p) {}
};

inline TRule OneSub(const std::string& sClass, const std::string& sOp, const std::string& sValue) {
    return TRule{sClass, "AND", {{sOp, sValue}}};
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
            s +=
                "\n" + Tag("subrule id=\"" + std::to_string(j + 1) + "\"",
                           Tag("operator", r.vSubs[j].sOperator) + Tag("value", r.vSubs[j].sValue));
        s += "</subrules></rule>";
    }
    return s + "\n</rules>\n";
}

template <typename V>
std::string Join(const V& v, const char* sSep) {
    std::ostringstream os;
    for (auto it = v.begin(); it != v.end(); ++it) os << (it == v.begin() ? "" : sSep) << *it;
    return os.str();
}

// The loaded tables, one line each:
//   R<r> <class> <relation> <effect>/<perfect>/<imperfect> <sub-rule indexes>
//   S<i> <relation>/<field>/<min> <kw1|kw2|...>
//   K <keyword>:<sub-rule indexes>
inline std::string Dump(const CTextParser& t) {
    std::ostringstream os;
    for (size_t r = 0; r < t.m_vstRules.size(); ++r) {
        const _stRule& R = t.m_vstRules[r];
        os << "R" << r << " " << R.sClass << " " << R.sRelation << " " << R.fEffecValue << "/"
           << R.fPerfectVSMSim << "/" << R.fImPerfectVSMSim << " " << Join(R.viSubRule, ",")
           << "\n";
    }
    for (size_t i = 0; i < t.m_vstSubRules.size(); ++i) {
        const _stSubRule& S = t.m_vstSubRules[i];
        os << "S" << i << " " << S.sRelation << "/" << S.sField << "/" << S.iMinCount << " "
           << Join(S.vsKeyword, "|") << "\n";
    }
    for (const auto& kv : t.m_mslKeywords)
        os << "K " << kv.first << ":" << Join(kv.second, ",") << "\n";
    return os.str();
}

// Logging off (a test may set g_bLog = 1; the day files go to a scratch
// directory), the last-error text kUntouched, a scratch directory for files.
class EngineTest : public ::testing::Test {
  protected:
    // Writes sText as a rule list and runs fn_bInit on it without progress lines.
    bool Load(CTextParser& t, const std::string& sText, const char* sName = "rules.xml") {
        return t.fn_bInit("", m_cTemp.write(sName, sText).c_str(), nullptr);
    }

    ScopedLog m_log{0};
    TempDir m_cTemp;
};

}  // namespace qxtest
