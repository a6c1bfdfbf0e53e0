// Differential test of the rule engine against a simple engine written here
// from the rules alone: random rule lists, sequences of documents on one
// engine, compared byte for byte on results (types 0 and 1, the class
// weights written by fn_vGetClassification), detail reports and the
// per-document state. The simple engine shares only the loaded
// tables, the dictionary's scan and the string helpers with the engine; it
// starts every document from scratch and decides every sub-rule and rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <list>
#include <map>
#include <random>
#include <sstream>

#include "PDAT.h"
#include "TextParserTestUtil.h"
#include "Utility.h"

using namespace qxtest;

namespace {

class SimpleEngine {
  public:
    explicit SimpleEngine(const CTextParser& t) : T(t) {}

    float fCertainty = 0.8f;
    std::string sResult, sText, sDetail;
    std::map<std::string, std::vector<int>> mCount;
    std::vector<_stSubRuleResult> vSub;
    std::vector<_stRuleResult> vRule;

    bool Classify(const _stDoc& d, int iType) {
        sResult.clear();
        mCount.clear();
        for (const auto& kv : m_mKeys) mCount[kv.first].assign(m_vSubs.size(), 0);
        vSub.assign(m_vSubs.size(), _stSubRuleResult());
        vRule.assign(m_vRules.size(), _stRuleResult());
        sText = d.sTitle + kSep + d.sContent;
        const std::string sScan = T.m_pDat->MMFullScan(sText.c_str());
        const size_t nPos = sScan.find(kSep);
        if (nPos == std::string::npos) return false;
        Count(sScan.substr(0, nPos), "TITLE");
        Count(sScan.substr(nPos + kSep.size()), "CONTENT");
        const std::pair<const char*, const std::string*> vMeta[] = {
            {"AUTHOR", &d.sAuthor}, {"BOARD", &d.sBoard}, {"DATATYPE", &d.sDatatype}};
        const char* vsPrefix[] = {"\xD7\xF7\xD5\xDF:", "\xC6\xB5\xB5\xC0:", "\xCD\xA8\xB5\xC0:"};
        for (size_t i = 0; i < m_vSubs.size(); ++i) {
            vSub[i].bSuccess = Sub(i);
            for (int f = 0; f < 3; ++f) {
                if (m_vSubs[i].sField != vMeta[f].first) continue;
                const std::vector<std::string>& vs = m_vSubs[i].vsKeyword;
                vSub[i].bSuccess = std::find(vs.begin(), vs.end(), *vMeta[f].second) != vs.end();
                if (vSub[i].bSuccess) vSub[i].sHitWord = vsPrefix[f] + *vMeta[f].second;
            }
        }
        std::map<std::string, float> mWeight;
        for (size_t r = 0; r < m_vRules.size(); ++r) {
            const _stRule& R = m_vRules[r];
            vRule[r].bSuccess = Rule(r);
            if (!vRule[r].bSuccess && fCertainty > 0) continue;
            float fScore = (vRule[r].bSuccess ? 1 : 0) * R.fEffecValue +
                           (0.0f / (R.fPerfectVSMSim + 0.000005f)) * (1 - R.fEffecValue);
            if (fScore < fCertainty) continue;
            fScore = std::min(fScore, 1.0f);  // NaN stays NaN
            if (!mWeight.count(R.sClass) || fScore > mWeight[R.sClass]) mWeight[R.sClass] = fScore;
            vRule[r].bSuccess = true;
        }
        CTextParser cWriter;  // the result text of the weights: its rows are tested apart
        cWriter.m_fCertainty = fCertainty;
        cWriter.fn_vGetClassification(mWeight, iType);
        sResult = cWriter.m_sClassifyResult;
        return true;
    }

    void Detail(const std::string& sClass) {
        sDetail.clear();
        for (size_t r = 0; r < m_vRules.size(); ++r) {
            if (m_vRules[r].sClass != sClass || !vRule[r].bSuccess) continue;
            sDetail += "RULE" + std::to_string(r) + ":\n";
            for (size_t j = 0; j < m_vRules[r].viSubRule.size(); ++j)
                sDetail += "SUBRULE" + std::to_string(j + 1) + ": " +
                           vSub[m_vRules[r].viSubRule[j]].sHitWord + "\n";
            if (m_vRules[r].fEffecValue < 1.0) sDetail += "Sim: 0.0000\n";  // no models
        }
    }

  private:
    void Count(const std::string& sScan, const std::string& sField) {
        std::vector<std::string> vsWord;
        gfn_bSplit(sScan.c_str(), vsWord, " ");
        for (const std::string& w : vsWord)
            if (m_mKeys.count(w))
                for (int i : m_mKeys.at(w))
                    if (m_vSubs[i].sField == sField || m_vSubs[i].sField == "TEXT") mCount[w][i]++;
    }

    int CountOf(const std::string& w, size_t i) { return mCount.count(w) ? mCount[w][i] : 0; }

    bool Sub(size_t i) {
        const _stSubRule& S = m_vSubs[i];
        int nMin = 6502500, nSum = 0;
        for (const std::string& w : S.vsKeyword) {
            const int c = CountOf(w, i);
            if (c == 0 && S.sRelation == "AND") return false;
            if (c != 0) vSub[i].sHitWord += w + " " + std::to_string(c) + "\t";
            nMin = std::min(nMin, c);
            nSum += c;
        }
        if (S.sRelation == "AND") return nMin >= S.iMinCount;
        if (S.sRelation == "OR") return nSum > 0 && nSum >= S.iMinCount;
        return S.sRelation == "NOT" && (nSum < 1 || nSum < S.iMinCount);
    }

    bool Rule(size_t r) {
        const _stRule& R = m_vRules[r];
        const size_t k = R.viSubRule.size();
        size_t nTrue = 0;
        for (int i : R.viSubRule) nTrue += vSub[i].bSuccess;
        auto s = [&](size_t j) { return vSub[R.viSubRule[j]].bSuccess; };
        if (R.sRelation == "AND") return nTrue == k;
        if (R.sRelation == "OR") return nTrue > 0;
        if (R.sRelation == "NOT") return (k == 1 && !s(0)) || (k == 2 && s(0) && !s(1));
        if (R.sRelation == "YES") return k == 1 && s(0);
        if (R.sRelation.find("NEAR") == std::string::npos || k <= 1 || nTrue < k) return false;
        std::string sD = R.sRelation;
        gfn_vReplaceSubstr(sD, "NEAR", "");
        gfn_vReplaceSubstr(sText, kSep.c_str(), "\n\n");
        gfn_vReplaceSubstr(sText, "\n", "          ");
        for (size_t a = 0; a < k; ++a)
            for (size_t b = a + 1; b < k; ++b)
                if (m_vSubs[R.viSubRule[a]].sRelation != "NOT" &&
                    m_vSubs[R.viSubRule[b]].sRelation != "NOT" &&
                    !Near(R.viSubRule[a], R.viSubRule[b], std::atoi(sD.c_str())))
                    return false;
        return true;
    }

    // Some hit keyword of B and some hit keyword of A at most d bytes apart,
    // measured from each occurrence of the B keyword to the nearest A one on
    // either side (a negative gap, for overlaps, is near).
    bool Near(size_t A, size_t B, long d) {
        for (const std::string& kb : m_vSubs[B].vsKeyword) {
            for (const std::string& ka : m_vSubs[A].vsKeyword) {
                if (CountOf(kb, B) == 0 || CountOf(ka, A) == 0) continue;
                for (size_t p = sText.find(kb); p != std::string::npos;
                     p = sText.find(kb, p + kb.size())) {
                    const size_t e = sText.find(ka, p + kb.size()), e2 = sText.rfind(ka, p);
                    if (e != std::string::npos && long(e) - long(p + kb.size()) <= d) return true;
                    if (e2 != std::string::npos && long(p) - long(e2 + ka.size()) <= d) return true;
                }
            }
        }
        return false;
    }

    const CTextParser& T;  // its loaded tables and dictionary only
    const std::vector<_stRule>& m_vRules = T.m_vstRules;
    const std::vector<_stSubRule>& m_vSubs = T.m_vstSubRules;
    const std::map<std::string, std::list<int>>& m_mKeys = T.m_mslKeywords;
};

class Generator {
  public:
    explicit Generator(unsigned nSeed) : m_rng(nSeed) {}

    int Pick(int n) { return static_cast<int>(m_rng() % static_cast<unsigned>(n)); }
    bool Chance(int nPercent) { return Pick(100) < nPercent; }

    // Keywords of one to three atoms: GBK characters, ASCII that the scan's
    // word-boundary test cares about, the separator and a byte-order mark.
    std::string Keyword() {
        static const std::string vsAtom[] = {kJia, kBing, kDing, kWu, "\xBC\xBA", "\xB8\xFD",
                                             "a",  "b",   "1",   "A", kSep,       "\xEF\xBB\xBF"};
        std::string s;
        for (int n = 1 + Pick(3); n > 0; --n) {
            const int i = Pick(100);
            s += vsAtom[i < 70 ? i % 6 : i < 94 ? 6 + i % 4 : 10 + i % 2];
        }
        return s;
    }

    std::string RuleListText(std::vector<std::string>& vsPool) {
        static const char* vsCertainty[] = {"0.6", "1.0", "0", "-1", "-0.5", "1.2", "0.9"};
        vsPool.clear();
        for (int n = 3 + Pick(10); n > 0; --n) vsPool.push_back(Keyword());
        std::vector<TRule> vRules;  // long lists: documents touch few of their rules
        for (int n = Chance(20) ? 20 + Pick(20) : 1 + Pick(8); n > 0; --n) {
            static const char* vsClass[] = {"c1", "c2", "\xCC\xE5\xD3\xFD", "c3"};
            static const char* vsTop[] = {"AND", "OR", "NOT", "YES", "NEAR", "NEAR"};
            static const int vnSubs[][2] = {{1, 4}, {1, 4}, {1, 2}, {1, 1}, {2, 3}, {2, 3}};
            const int iTop = Pick(6);
            TRule r;
            r.sClass = vsClass[Pick(4)];
            r.sEffect = Chance(70) ? "1.0" : Chance(50) ? "1.5" : "3";
            r.sTop = vsTop[iTop] + (iTop >= 4 ? std::to_string(Pick(40)) : "");
            for (int j = vnSubs[iTop][0] + Pick(vnSubs[iTop][1]); j > 0; --j)
                r.vSubs.push_back(Sub(vsPool, iTop >= 4 && r.vSubs.size() < 2));
            vRules.push_back(r);
        }
        return RuleList(vsCertainty[Pick(7)], vRules);
    }

    TSub Sub(const std::vector<std::string>& vsPool, bool bNotNot) {
        static const char* vsRel[] = {"AND", "OR", "NOT"};
        static const char* vsField[] = {"TITLE", "CONTENT", "TEXT", "AUTHOR", "BOARD", "DATATYPE"};
        static const char* vsMin[] = {"1", "1", "1", "2", "3", "-1"};
        const int iField = Chance(85) ? Pick(3) : 3 + Pick(3);
        TSub s{std::string(vsRel[Pick(bNotNot ? 2 : 3)]) + "/" + vsField[iField] + "/" +
                   vsMin[Pick(6)],
               ""};
        for (int n = 1 + Pick(4); n > 0; --n)
            s.sValue += (s.sValue.empty() ? "" : " ") +
                        (iField >= 3 ? std::string(1, "abc"[Pick(3)]) : Any(vsPool));
        return s;
    }

    _stDoc Document(const std::vector<std::string>& vsPool) {
        static const std::string vsFiller[] = {kDot, " ", "\n", "x", "7", "--", kSep, "\xB0"};
        static const char* vsMeta[] = {"", "a", "b", "c", "ab"};
        _stDoc d;
        const bool bSparse = Chance(30);  // touches few rules of a long list
        for (std::string* p : {&d.sTitle, &d.sContent})
            for (int n = Pick(bSparse ? 2 : p == &d.sTitle ? 8 : 30); n > 0; --n)
                *p += Chance(55)   ? Any(vsPool)
                      : Chance(85) ? vsFiller[Pick(6)]
                                   : vsFiller[6 + Pick(2)];
        d.sAuthor = vsMeta[Pick(5)];
        d.sBoard = vsMeta[Pick(5)];
        d.sDatatype = vsMeta[Pick(5)];
        return d;
    }

  private:
    const std::string& Any(const std::vector<std::string>& v) {
        return v[static_cast<size_t>(Pick(static_cast<int>(v.size())))];
    }
    std::mt19937 m_rng;
};

// Text, sub-rule results and rule results, one line each.
std::string State(const std::string& sText, const std::vector<_stSubRuleResult>& vSub,
                  const std::vector<_stRuleResult>& vRule) {
    std::ostringstream os;
    os << sText << std::hexfloat;
    for (const _stSubRuleResult& s : vSub) os << "\nS" << s.bSuccess << " " << s.sHitWord;
    for (const _stRuleResult& r : vRule) os << "\nR" << r.bSuccess << " " << r.fVSMSim;
    return os.str();
}

}  // namespace

TEST_F(EngineTest, AgreesWithASimpleEngineOnRandomRuleListsAndDocuments) {
    const char* sSeed = std::getenv("QX_DIFF_SEED");
    const unsigned nSeed =
        sSeed ? static_cast<unsigned>(std::strtoul(sSeed, nullptr, 10)) : 20240611u;
    std::cout << "differential seed " << nSeed << " (set QX_DIFF_SEED to vary)\n";
    Generator gen(nSeed);
    std::vector<std::string> vsPool;
    int nLists = 0, nResults = 0, nNearFired = 0;  // coverage of the run
    for (int nList = 0; nList < 400; ++nList) {
        CTextParser t;
        if (!Load(t, gen.RuleListText(vsPool))) continue;
        if (gen.Chance(20)) {  // an appended second list
            std::vector<std::string> vsMore;
            if (!Load(t, gen.RuleListText(vsMore), nullptr, "more.xml")) continue;
            vsPool.insert(vsPool.end(), vsMore.begin(), vsMore.end());
        }
        for (_stRule& r : t.m_vstRules) {  // scores below 1, ties, odd similarity terms
            if (gen.Chance(25)) r.fEffecValue = static_cast<float>(gen.Pick(17) - 4) / 10.0f;
            if (gen.Chance(10)) r.fEffecValue = static_cast<float>(gen.Pick(40) - 4) / 32.0f;
            if (gen.Chance(10)) r.fPerfectVSMSim = gen.Chance(50) ? 0.5f : std::nanf("");
        }
        SimpleEngine ref(t);
        ++nLists;
        for (int nDoc = 0; nDoc < 12; ++nDoc) {
            SCOPED_TRACE("list " + std::to_string(nList) + " doc " + std::to_string(nDoc));
            _stDoc d = gen.Document(vsPool);
            if (gen.Chance(15)) t.m_fCertainty = gen.Chance(50) ? 0.0f : -0.3f;
            if (gen.Chance(10)) t.fn_bResetResult();
            ref.fCertainty = t.m_fCertainty;
            for (int iType : {0, 1}) {
                EXPECT_EQ(ref.Classify(d, iType), t.fn_bClassify(d, iType));
                EXPECT_EQ(ref.sResult, t.m_sClassifyResult);
            }
            EXPECT_EQ(State(ref.sText, ref.vSub, ref.vRule),
                      State(t.m_sText, t.m_vstSubRuleResult, t.m_vstRuleResult));
            EXPECT_EQ(ref.mCount.size(), t.m_msvWordRule.size());
            for (const auto& kv : ref.mCount)
                for (size_t i = 0; i < kv.second.size(); ++i)
                    ASSERT_EQ(kv.second[i], t.m_msvWordRule.count(kv.first, i)) << kv.first << i;
            nResults += !t.m_sClassifyResult.empty();
            for (size_t r = 0; r < t.m_vstRules.size(); ++r)
                nNearFired += t.m_vstRuleResult[r].bSuccess &&
                              t.m_vstRules[r].sRelation.compare(0, 4, "NEAR") == 0;
            for (const char* sClass : {"c1", "c2", "\xCC\xE5\xD3\xFD", "c3", "none"}) {
                ref.Detail(sClass);
                t.fn_vGetDetail(sClass);
                EXPECT_EQ(ref.sDetail, t.m_sDetail) << "class " << sClass;
            }
            if (HasFailure()) return;
        }
    }
    std::cout << nLists << " rule lists, " << nResults << " non-empty results, " << nNearFired
              << " NEAR rules fired\n";
    EXPECT_GT(nLists, 200);
    EXPECT_GT(nNearFired, 50);
}
