// Differential test of the rule engine against a simple engine written here
// from the rules alone, which reads only the loaded tables and the dictionary's
// scan, starts every document from scratch and writes its class weights with
// fn_vGetClassification (whose rows are tested apart). Random rule lists and
// sequences of documents on one engine; results (types 0 and 1), detail
// reports and the per-document state must agree byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <list>
#include <map>
#include <random>
#include <sstream>

#include "QXEngine.h"
#include "TextParserTestUtil.h"
#include "Utility.h"

using namespace qxtest;

namespace {

int g_nNearFired = 0;  // NEAR rules the simple engine saw fire: the run's coverage

struct SimpleEngine {
    explicit SimpleEngine(const CTextParser& t) : T(t) {}
    const CTextParser& T;  // its loaded tables and dictionary only
    const std::vector<_stRule>& R = T.m_vstRules;
    const std::vector<_stSubRule>& S = T.m_vstSubRules;
    std::string sResult, sText, sDetail;
    std::map<std::string, std::vector<int>> mCount;  // keyword -> count per sub-rule
    std::vector<_stSubRuleResult> vSub;
    std::vector<_stRuleResult> vRule;

    bool Classify(const _stDoc& d, int iType, float fCertainty) {
        sResult.clear();
        mCount.clear();
        for (const auto& kv : T.m_mslKeywords) mCount[kv.first].assign(S.size(), 0);
        vSub.assign(S.size(), _stSubRuleResult());
        vRule.assign(R.size(), _stRuleResult());
        sText = d.sTitle + kSep + d.sContent;
        const std::string sScan = T.m_pDat->MMFullScan(sText.c_str());
        const size_t nPos = sScan.find(kSep);
        if (nPos == std::string::npos) return false;
        const std::string vsField[] = {"TITLE", "CONTENT"};
        const std::string vsPart[] = {sScan.substr(0, nPos), sScan.substr(nPos + kSep.size())};
        for (int f = 0; f < 2; ++f) {
            std::vector<std::string> vsWord;
            gfn_bSplit(vsPart[f].c_str(), vsWord, " ");
            for (const std::string& w : vsWord)
                for (int i : T.m_mslKeywords.count(w) ? T.m_mslKeywords.at(w) : std::list<int>())
                    if (S[i].sField == vsField[f] || S[i].sField == "TEXT") mCount[w][i]++;
        }
        // 作者: 频道: 通道:
        const std::map<std::string, std::string> mMeta = {
            {"AUTHOR", "\xD7\xF7\xD5\xDF:" + d.sAuthor},
            {"BOARD", "\xC6\xB5\xB5\xC0:" + d.sBoard},
            {"DATATYPE", "\xCD\xA8\xB5\xC0:" + d.sDatatype}};
        for (size_t i = 0; i < S.size(); ++i) {
            const auto it = mMeta.find(S[i].sField);
            const std::vector<std::string>& vs = S[i].vsKeyword;
            if (it == mMeta.end())
                vSub[i].bSuccess = Sub(i);
            else if (std::count(vs.begin(), vs.end(), it->second.substr(it->second.find(':') + 1)))
                vSub[i] = {true, it->second};
        }
        std::map<std::string, float> mWeight;
        for (size_t r = 0; r < R.size(); ++r) {
            vRule[r].bSuccess = Rule(r);
            if (!vRule[r].bSuccess && fCertainty > 0) continue;
            float fScore = (vRule[r].bSuccess ? 1 : 0) * R[r].fEffecValue +
                           (0.0f / (R[r].fPerfectVSMSim + 0.000005f)) * (1 - R[r].fEffecValue);
            if (fScore < fCertainty) continue;
            fScore = std::min(fScore, 1.0f);  // NaN stays NaN
            const auto [it, bNew] = mWeight.emplace(R[r].sClass, fScore);
            if (fScore > it->second) it->second = fScore;
            vRule[r].bSuccess = true;
        }
        CTextParser cWriter;
        cWriter.m_fCertainty = fCertainty;
        cWriter.fn_vGetClassification(mWeight, iType);
        sResult = cWriter.m_sClassifyResult;
        return true;
    }

    void Detail(const std::string& sClass) {
        sDetail.clear();
        for (size_t r = 0; r < R.size(); ++r) {
            if (R[r].sClass != sClass || !vRule[r].bSuccess) continue;
            sDetail += "RULE" + std::to_string(r) + ":\n";
            for (size_t j = 0; j < R[r].viSubRule.size(); ++j)
                sDetail += "SUBRULE" + std::to_string(j + 1) + ": " +
                           vSub[R[r].viSubRule[j]].sHitWord + "\n";
            if (R[r].fEffecValue < 1.0) sDetail += "Sim: 0.0000\n";  // no models
        }
    }

    int CountOf(const std::string& w, size_t i) { return mCount.count(w) ? mCount[w][i] : 0; }

    bool Sub(size_t i) {
        int nMin = 6502500, nSum = 0;
        for (const std::string& w : S[i].vsKeyword) {
            const int c = CountOf(w, i);
            if (c == 0 && S[i].sRelation == "AND") return false;
            if (c != 0) vSub[i].sHitWord += w + " " + std::to_string(c) + "\t";
            nMin = std::min(nMin, c);
            nSum += c;
        }
        if (S[i].sRelation == "AND") return nMin >= S[i].iMinCount;
        if (S[i].sRelation == "OR") return nSum > 0 && nSum >= S[i].iMinCount;
        return S[i].sRelation == "NOT" && (nSum < 1 || nSum < S[i].iMinCount);
    }

    bool Rule(size_t r) {
        const std::vector<int>& v = R[r].viSubRule;
        const std::string& sRel = R[r].sRelation;
        auto s = [&](size_t j) { return vSub[v[j]].bSuccess; };
        size_t nTrue = 0;
        for (size_t j = 0; j < v.size(); ++j) nTrue += s(j);
        if (sRel == "AND") return nTrue == v.size();
        if (sRel == "OR") return nTrue > 0;
        if (sRel == "NOT") return (v.size() == 1 && !s(0)) || (v.size() == 2 && s(0) && !s(1));
        if (sRel == "YES") return v.size() == 1 && s(0);
        if (sRel.find("NEAR") == std::string::npos || v.size() <= 1 || nTrue < v.size())
            return false;
        std::string sD = sRel;
        gfn_vReplaceSubstr(sD, "NEAR", "");
        gfn_vReplaceSubstr(sText, kSep.c_str(), "\n\n");
        gfn_vReplaceSubstr(sText, "\n", "          ");
        for (size_t a = 0; a < v.size(); ++a)
            for (size_t b = a + 1; b < v.size(); ++b)
                if (S[v[a]].sRelation != "NOT" && S[v[b]].sRelation != "NOT" &&
                    !Near(v[a], v[b], std::atoi(sD.c_str())))
                    return false;
        return ++g_nNearFired;
    }

    // Some hit keyword of B and some hit keyword of A at most d bytes apart,
    // measured from each occurrence of the B keyword to the nearest A one on
    // either side (a negative gap, for overlaps, is near).
    bool Near(size_t A, size_t B, long d) {
        for (const std::string& kb : S[B].vsKeyword)
            for (const std::string& ka : S[A].vsKeyword) {
                if (CountOf(kb, B) == 0 || CountOf(ka, A) == 0) continue;
                for (size_t p = sText.find(kb); p != std::string::npos;
                     p = sText.find(kb, p + kb.size())) {
                    const size_t e = sText.find(ka, p + kb.size()), e2 = sText.rfind(ka, p);
                    if (e != std::string::npos && long(e) - long(p + kb.size()) <= d) return true;
                    if (e2 != std::string::npos && long(p) - long(e2 + ka.size()) <= d) return true;
                }
            }
        return false;
    }
};

struct Generator {
    std::mt19937 rng;

    int Pick(int n) { return int(rng() % unsigned(n)); }
    bool Chance(int nPercent) { return Pick(100) < nPercent; }
    template <typename T, size_t N>
    T Any(const T (&v)[N]) {
        return v[Pick(int(N))];
    }
    std::string Any(const std::vector<std::string>& v) { return v[Pick(int(v.size()))]; }

    // Rule lists, long ones (documents touch few of their rules) now and then,
    // over a pool of keywords of one to three atoms: GBK characters, ASCII that
    // the scan's word-boundary test cares about, the separator and a
    // byte-order mark. NEAR rules get at least two sub-rules that are not NOT.
    std::string RuleListText(std::vector<std::string>& vsPool) {
        static const std::string vsAtom[] = {kJia, kBing, kDing, kWu, "\xBC\xBA", "\xB8\xFD",
                                             "a",  "b",   "1",   "A", kSep,       "\xEF\xBB\xBF"};
        static const char* vsTop[] = {"AND", "OR", "NOT", "YES", "NEAR", "NEAR"};
        static const int vnSubs[][2] = {{1, 4}, {1, 4}, {1, 2}, {1, 1}, {2, 3}, {2, 3}};
        static const char* vsField[] = {"TITLE", "CONTENT", "TEXT", "AUTHOR", "BOARD", "DATATYPE"};
        static const char* vsRel[] = {"AND", "OR", "NOT"};
        vsPool.assign(3 + Pick(10), "");
        for (std::string& s : vsPool)
            for (int n = 1 + Pick(3); n > 0; --n)
                s += vsAtom[Chance(70) ? Pick(6) : Chance(80) ? 6 + Pick(4) : 10 + Pick(2)];
        std::vector<TRule> vRules;
        for (int n = Chance(20) ? 20 + Pick(20) : 1 + Pick(8); n > 0; --n) {
            const int iTop = Pick(6);
            vRules.emplace_back(Any({"c1", "c2", "\xCC\xE5\xD3\xFD", "c3"}),
                                vsTop[iTop] + (iTop >= 4 ? std::to_string(Pick(40)) : ""),
                                std::vector<TSub>(), "", Chance(70) ? "1.0" : Any({"1.5", "3"}));
            for (int j = vnSubs[iTop][0] + Pick(vnSubs[iTop][1]); j > 0; --j) {
                const int iField = Chance(85) ? Pick(3) : 3 + Pick(3);
                const bool bNotNot = iTop >= 4 && vRules.back().vSubs.size() < 2;
                TSub s{std::string(vsRel[Pick(bNotNot ? 2 : 3)]) + "/" + vsField[iField] + "/" +
                           Any({"1", "1", "1", "2", "3", "-1"}),
                       ""};
                for (int k = 1 + Pick(4); k > 0; --k)
                    s.sValue += (s.sValue.empty() ? "" : " ") +
                                (iField >= 3 ? std::string(1, "abc"[Pick(3)]) : Any(vsPool));
                vRules.back().vSubs.push_back(s);
            }
        }
        return RuleList(Any({"0.6", "1.0", "0", "-1", "-0.5", "1.2", "0.9"}), vRules);
    }

    _stDoc Document(const std::vector<std::string>& vsPool) {
        static const std::string vsFiller[] = {kDot, " ", "\n", "x", "7", "--", kSep, "\xB0"};
        static const char* vsMeta[] = {"", "a", "b", "c", "ab"};
        _stDoc d{"", "", Any(vsMeta), Any(vsMeta), Any(vsMeta)};
        const bool bSparse = Chance(30);  // touches few rules of a long list
        for (std::string* p : {&d.sTitle, &d.sContent})
            for (int n = Pick(bSparse ? 2 : p == &d.sTitle ? 8 : 30); n > 0; --n)
                *p += Chance(55) ? Any(vsPool) : vsFiller[Chance(85) ? Pick(6) : 6 + Pick(2)];
        return d;
    }
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
    const unsigned nSeed = sSeed ? unsigned(std::strtoul(sSeed, nullptr, 10)) : 20240611u;
    std::cout << "differential seed " << nSeed << " (set QX_DIFF_SEED to vary)\n";
    Generator gen{std::mt19937(nSeed)};
    std::vector<std::string> vsPool, vsMore;
    for (int nList = 0; nList < 400; ++nList) {
        CTextParser t;
        const std::string sList = gen.RuleListText(vsPool);
        ASSERT_TRUE(Load(t, sList));
        bool bAsLoaded = true;  // while so, a shared rule set of sList must agree too
        if (gen.Chance(20)) {   // an appended second list
            ASSERT_TRUE(Load(t, gen.RuleListText(vsMore), "more.xml"));
            vsPool.insert(vsPool.end(), vsMore.begin(), vsMore.end());
            bAsLoaded = false;
        }
        for (_stRule& r : t.m_vstRules) {  // scores below 1, ties, odd similarity terms
            if (gen.Chance(25)) r.fEffecValue = float(gen.Pick(17) - 4) / 10.0f, bAsLoaded = false;
            if (gen.Chance(10)) r.fEffecValue = float(gen.Pick(40) - 4) / 32.0f, bAsLoaded = false;
            if (gen.Chance(10))
                r.fPerfectVSMSim = gen.Chance(50) ? 0.5f : std::nanf(""), bAsLoaded = false;
        }
        std::vector<qx::Diagnostic> vDiags;
        std::unique_ptr<qx::Matcher> pShared;
        if (bAsLoaded)
            pShared = std::make_unique<qx::Matcher>(
                qx::RuleSet::FromText(sList, "r", qx::RuleEncoding::kGbk, vDiags));
        SimpleEngine ref(t);
        for (int nDoc = 0; nDoc < 12; ++nDoc) {
            SCOPED_TRACE("list " + std::to_string(nList) + " doc " + std::to_string(nDoc));
            _stDoc d = gen.Document(vsPool);
            if (gen.Chance(15)) t.m_fCertainty = gen.Chance(50) ? 0.0f : -0.3f, pShared.reset();
            if (gen.Chance(10)) t.fn_bResetResult();
            for (int iType : {0, 1}) {
                EXPECT_EQ(ref.Classify(d, iType, t.m_fCertainty), t.fn_bClassify(d, iType));
                EXPECT_EQ(ref.sResult, t.m_sClassifyResult);
                if (pShared) {
                    EXPECT_EQ((pShared->Classify(d, iType), pShared->Result()), ref.sResult);
                }
            }
            EXPECT_EQ(State(ref.sText, ref.vSub, ref.vRule),
                      State(t.m_sText, t.m_vstSubRuleResult, t.m_vstRuleResult));
            EXPECT_EQ(ref.mCount.size(), t.m_msvWordRule.size());
            for (const auto& kv : ref.mCount)
                for (size_t i = 0; i < kv.second.size(); ++i)
                    ASSERT_EQ(kv.second[i], t.m_msvWordRule.count(kv.first, i)) << kv.first << i;
            for (const char* sClass : {"c1", "c2", "\xCC\xE5\xD3\xFD", "c3", "none"}) {
                ref.Detail(sClass);
                t.fn_vGetDetail(sClass);
                EXPECT_EQ(ref.sDetail, t.m_sDetail) << "class " << sClass;
            }
            if (HasFailure()) return;
        }
    }
    std::cout << g_nNearFired << " NEAR rules fired\n";
    EXPECT_GT(g_nNearFired, 50);
}
