// Differential test of the rule engine against a literal, unoptimised
// reference: random rule lists and documents, compared byte for byte on
// the result texts (types 0 and 1), every detail report and the whole
// per-document state, over a sequence of documents on one engine.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>

#include "TextParserTestUtil.h"
#include "Utility.h"

using namespace qxtest;

namespace {

// ---------------------------------------------------------------- reference

// The engine's documented behaviour read literally, without any optimisation: full table
// copies per document, the scan output as text, gfn_bSplit, std::map lookups.
// It takes the loaded rule tables from an engine and scans with its dictionary.
class RefEngine {
  public:
    explicit RefEngine(const CTextParser& t)
        : m_vstRules(t.m_vstRules),
          m_vstSubRules(t.m_vstSubRules),
          m_mslKeywords(t.m_mslKeywords),
          m_pDat(t.m_pDat) {
        for (const auto& kv : m_mslKeywords) m_msvInit[kv.first].assign(m_vstSubRules.size(), 0);
        m_vstSubInit.assign(m_vstSubRules.size(), _stSubRuleResult());
        m_vstRuleInit.assign(m_vstRules.size(), _stRuleResult());
    }

    float fCertainty = 0.8f;
    std::string sResult, sText, sDetail;
    std::map<std::string, std::vector<int>> msvCount;
    std::vector<_stSubRuleResult> vstSub;
    std::vector<_stRuleResult> vstRule;

    bool Classify(const _stDoc& d, int iType) {
        sResult.clear();
        msvCount = m_msvInit;
        vstSub = m_vstSubInit;
        vstRule = m_vstRuleInit;
        sText = d.sTitle + kSep + d.sContent;
        const std::string sScan = m_pDat->MMFullScan(sText.c_str());
        const size_t nPos = sScan.find(kSep);
        if (nPos == std::string::npos) return false;
        std::vector<std::string> vsTitle, vsContent;
        gfn_bSplit(sScan.substr(0, nPos).c_str(), vsTitle, " ");
        gfn_bSplit(sScan.substr(nPos + 8).c_str(), vsContent, " ");
        Count(vsTitle, "TITLE");
        Count(vsContent, "CONTENT");
        for (size_t i = 0; i < m_vstSubRules.size(); ++i) {
            const std::string& f = m_vstSubRules[i].sField;
            if (f == "AUTHOR") {
                Meta(i, d.sAuthor, "\xD7\xF7\xD5\xDF:");
            } else if (f == "BOARD") {
                Meta(i, d.sBoard, "\xC6\xB5\xB5\xC0:");
            } else if (f == "DATATYPE") {
                Meta(i, d.sDatatype, "\xCD\xA8\xB5\xC0:");
            } else {
                vstSub[i].bSuccess = DoSubRule(i);
            }
        }
        std::map<std::string, float> msfWeight;
        for (size_t r = 0; r < m_vstRules.size(); ++r) Score(r, msfWeight);
        Classification(msfWeight, iType);
        return true;
    }

    void Detail(const std::string& sClass) {
        sDetail = "";
        for (size_t r = 0; r < m_vstRules.size(); ++r) {
            if (m_vstRules[r].sClass != sClass || !vstRule[r].bSuccess) continue;
            sDetail += "RULE" + std::to_string(r) + ":\n";
            for (size_t j = 0; j < m_vstRules[r].viSubRule.size(); ++j)
                sDetail += "SUBRULE" + std::to_string(j + 1) + ": " +
                           vstSub[m_vstRules[r].viSubRule[j]].sHitWord + "\n";
            if (m_vstRules[r].fEffecValue < 1.0) {
                char s[64];
                std::snprintf(s, sizeof(s), "Sim: %.4f", vstRule[r].fVSMSim);
                sDetail += std::string(s) + "\n";
            }
        }
    }

  private:
    void Count(const std::vector<std::string>& vsWord, const std::string& sField) {
        for (const std::string& w : vsWord) {
            auto it = m_mslKeywords.find(w);
            if (it == m_mslKeywords.end()) continue;
            for (int i : it->second)
                if (m_vstSubRules[i].sField == sField || m_vstSubRules[i].sField == "TEXT")
                    msvCount[w][i]++;
        }
    }

    void Meta(size_t i, const std::string& sValue, const std::string& sPrefix) {
        for (const std::string& k : m_vstSubRules[i].vsKeyword) {
            if (k == sValue) {
                vstSub[i].bSuccess = true;
                vstSub[i].sHitWord = sPrefix + sValue;
                return;
            }
        }
        vstSub[i].bSuccess = false;
    }

    int CountOf(const std::string& w, size_t i) {
        auto it = msvCount.find(w);
        return it == msvCount.end() ? 0 : it->second[i];
    }

    void Hit(size_t i, const std::string& w, int c) {
        vstSub[i].sHitWord += w + " " + std::to_string(c) + "\t";
    }

    bool DoSubRule(size_t i) {
        const _stSubRule& s = m_vstSubRules[i];
        if (s.sRelation == "AND") {
            int nMin = 6502500;
            for (const std::string& w : s.vsKeyword) {
                const int c = CountOf(w, i);
                if (c == 0) return false;
                Hit(i, w, c);
                if (c < nMin) nMin = c;
            }
            return nMin >= s.iMinCount;
        }
        if (s.sRelation != "OR" && s.sRelation != "NOT") return false;
        int nSum = 0;
        for (const std::string& w : s.vsKeyword) {
            const int c = CountOf(w, i);
            if (c != 0) Hit(i, w, c);
            nSum += c;
        }
        if (s.sRelation == "OR") return nSum > 0 && nSum >= s.iMinCount;
        return nSum < 1 || nSum < s.iMinCount;
    }

    bool DoRule(size_t r) {
        const _stRule& R = m_vstRules[r];
        const size_t k = R.viSubRule.size();
        auto s = [&](size_t j) { return vstSub[R.viSubRule[j]].bSuccess; };
        if (R.sRelation == "AND") {
            for (size_t j = 0; j < k; ++j)
                if (!s(j)) return false;
            return true;
        }
        if (R.sRelation == "OR") {
            for (size_t j = 0; j < k; ++j)
                if (s(j)) return true;
            return false;
        }
        if (R.sRelation == "NOT") return k == 1 ? !s(0) : k == 2 ? s(0) && !s(1) : false;
        if (R.sRelation == "YES") return k == 1 && s(0);
        if (R.sRelation.find("NEAR") == std::string::npos) return false;
        std::string sD = R.sRelation;
        gfn_vReplaceSubstr(sD, "NEAR", "");
        const int d = std::atoi(sD.c_str());
        if (k <= 1) return false;
        for (size_t j = 0; j < k; ++j)
            if (!s(j)) return false;
        gfn_vReplaceSubstr(sText, kSep.c_str(), "\n\n");
        gfn_vReplaceSubstr(sText, "\n", "          ");
        bool bResult = true;
        for (size_t a = 0; a + 1 < k && bResult; ++a) {
            const size_t A = R.viSubRule[a];
            if (m_vstSubRules[A].sRelation == "NOT") continue;
            for (size_t b = a + 1; b < k && bResult; ++b) {
                const size_t B = R.viSubRule[b];
                if (m_vstSubRules[B].sRelation == "NOT") continue;
                bResult = Pair(A, B, d);
            }
        }
        return bResult;
    }

    bool Pair(size_t A, size_t B, int d) {
        bool bFound = false;
        for (const std::string& kb : m_vstSubRules[B].vsKeyword) {
            if (bFound) break;
            if (CountOf(kb, B) == 0) continue;
            for (const std::string& ka : m_vstSubRules[A].vsKeyword) {
                if (bFound) break;
                if (CountOf(ka, A) == 0) continue;
                size_t p = 0;
                while (!bFound) {
                    p = sText.find(kb, p);
                    if (p == std::string::npos) break;
                    const size_t e = sText.find(ka, p + kb.size());
                    if (e != std::string::npos && int(e - p - kb.size()) <= d) bFound = true;
                    const size_t e2 = sText.rfind(ka, p);
                    if (!bFound && e2 != std::string::npos && int(p - e2 - ka.size()) <= d)
                        bFound = true;
                    p += kb.size();
                }
            }
        }
        return bFound;
    }

    void Score(size_t r, std::map<std::string, float>& msf) {
        const _stRule& rule = m_vstRules[r];
        _stRuleResult& res = vstRule[r];
        res.bSuccess = DoRule(r);
        if (!res.bSuccess && fCertainty > 0) return;
        float sim = 0.0f;
        res.fVSMSim = sim;
        float score = (res.bSuccess ? 1 : 0) * rule.fEffecValue +
                      (sim / (rule.fPerfectVSMSim + 0.000005f)) * (1 - rule.fEffecValue);
        if (score < fCertainty) return;
        if (rule.fImPerfectVSMSim > 0.000005f && 0.0f >= rule.fImPerfectVSMSim) return;
        if (score > 1.0f) score = 1.0f;
        auto it = msf.find(rule.sClass);
        if (it == msf.end())
            msf[rule.sClass] = score;
        else if (score > it->second)
            it->second = score;
        res.bSuccess = true;
    }

    void Classification(const std::map<std::string, float>& msf, int iType) {
        std::vector<_stResult> v;
        for (const auto& kv : msf) v.push_back({kv.first, kv.second});
        std::stable_sort(v.begin(), v.end(), CClasLess());
        std::vector<_stResult> vKept = v;
        if (fCertainty < 0 && !v.empty()) {
            vKept.assign(1, v[0]);
            for (size_t i = 1; i <= 2 && i < v.size(); ++i) {
                if ((v[i - 1].fWeight - v[i].fWeight > 0.15f && v[i].fWeight < 0.8f) ||
                    v[i].fWeight < 0.5f)
                    break;
                vKept.push_back(v[i]);
            }
        }
        for (const _stResult& e : vKept) {
            char s[64];
            std::snprintf(s, sizeof(s), "%.4f", e.fWeight);
            if (iType == 0) sResult += e.sClassName + "\t";
            if (iType == 1) sResult += e.sClassName + " " + s + "\t";
        }
    }

    std::vector<_stRule> m_vstRules;
    std::vector<_stSubRule> m_vstSubRules;
    std::map<std::string, std::list<int>> m_mslKeywords;
    CPDAT* m_pDat;
    std::map<std::string, std::vector<int>> m_msvInit;
    std::vector<_stSubRuleResult> m_vstSubInit;
    std::vector<_stRuleResult> m_vstRuleInit;
};

// ---------------------------------------------------------------- generator

class Generator {
  public:
    explicit Generator(unsigned nSeed) : m_rng(nSeed) {}

    int Pick(int n) { return static_cast<int>(m_rng() % static_cast<unsigned>(n)); }
    bool Chance(int nPercent) { return Pick(100) < nPercent; }

    // Keyword atoms: GBK characters, ASCII that the scan's word-boundary test
    // cares about, the separator and a byte-order mark.
    std::string Atom() {
        static const std::string vsAtom[] = {kJia, kBing, kDing, kWu, kJi,  kGeng,
                                             "a",  "b",   "1",   "A", kSep, "\xEF\xBB\xBF"};
        const int i = Pick(100);
        if (i < 70) return vsAtom[i % 6];
        if (i < 94) return vsAtom[6 + i % 4];
        return vsAtom[10 + i % 2];
    }
    std::string Keyword() {
        std::string s;
        for (int n = 1 + Pick(3); n > 0; --n) s += Atom();
        return s;
    }

    std::string RuleListText(std::vector<std::string>* pvsKeywords) {
        static const char* vsCertainty[] = {"0.6", "1.0", "0", "-1", "-0.5", "1.2", "0.9"};
        std::vector<std::string>& vsPool = *pvsKeywords;
        vsPool.clear();
        for (int n = 3 + Pick(10); n > 0; --n) vsPool.push_back(Keyword());
        std::vector<TRule> vRules;
        // Long lists make documents touch few of their rules (the merge path).
        for (int n = Chance(20) ? 20 + Pick(20) : 1 + Pick(8); n > 0; --n)
            vRules.push_back(Rule(vsPool));
        return RuleList(vsCertainty[Pick(7)], vRules);
    }

    TRule Rule(const std::vector<std::string>& vsPool) {
        static const char* vsClass[] = {"c1", "c2", "\xCC\xE5\xD3\xFD", "c3"};
        TRule r;
        r.sClass = vsClass[Pick(4)];
        r.sEffect = Chance(70) ? "1.0" : Chance(50) ? "1.5" : "3";
        const int iTop = Pick(6);
        int nSubs = 1 + Pick(4);
        if (iTop == 0) r.sTop = "AND";
        if (iTop == 1) r.sTop = "OR";
        if (iTop == 2) r.sTop = "NOT", nSubs = 1 + Pick(2);
        if (iTop == 3) r.sTop = "YES", nSubs = 1;
        if (iTop >= 4) r.sTop = "NEAR" + std::to_string(Pick(40)), nSubs = 2 + Pick(3);
        for (int j = 0; j < nSubs; ++j) r.vSubs.push_back(Sub(vsPool, iTop >= 4 && j < 2));
        return r;
    }

    TSub Sub(const std::vector<std::string>& vsPool, bool bNotNot) {
        static const char* vsRel[] = {"AND", "OR", "NOT"};
        static const char* vsField[] = {"TITLE", "CONTENT", "TEXT", "AUTHOR", "BOARD", "DATATYPE"};
        static const char* vsMin[] = {"1", "1", "1", "2", "3", "-1"};
        const int iField = Chance(85) ? Pick(3) : 3 + Pick(3);
        TSub s;
        s.sOperator = std::string(vsRel[bNotNot ? Pick(2) : Pick(3)]) + "/" + vsField[iField] +
                      "/" + vsMin[Pick(6)];
        for (int n = 1 + Pick(4); n > 0; --n) {
            if (!s.sValue.empty()) s.sValue += " ";
            s.sValue += iField >= 3 ? std::string(1, "abc"[Pick(3)])
                                    : vsPool[Pick(static_cast<int>(vsPool.size()))];
        }
        return s;
    }

    _stDoc Document(const std::vector<std::string>& vsPool) {
        static const std::string vsFiller[] = {kDot, " ", "\n", "x", "7", "--", kSep, "\xB0"};
        _stDoc d;
        std::string* pField[2] = {&d.sTitle, &d.sContent};
        const bool bSparse = Chance(30);  // touches few rules of a long list
        for (std::string* p : pField) {
            for (int n = Pick(bSparse ? 2 : p == &d.sTitle ? 8 : 30); n > 0; --n)
                *p += Chance(55)   ? vsPool[Pick(static_cast<int>(vsPool.size()))]
                      : Chance(85) ? vsFiller[Pick(6)]
                                   : vsFiller[6 + Pick(2)];
        }
        static const char* vsMeta[] = {"", "a", "b", "c", "ab"};
        d.sAuthor = vsMeta[Pick(5)];
        d.sBoard = vsMeta[Pick(5)];
        d.sDatatype = vsMeta[Pick(5)];
        return d;
    }

  private:
    std::mt19937 m_rng;
};

bool BeginsNear(const std::string& s) {
    return s.compare(0, 4, "NEAR") == 0;
}

bool SameFloat(float a, float b) {
    return std::memcmp(&a, &b, sizeof(float)) == 0;
}

// Compares everything a classification leaves behind.
void ExpectSameState(const CTextParser& t, const RefEngine& ref, const std::string& sWhere) {
    SCOPED_TRACE(sWhere);
    EXPECT_EQ(ref.sText, t.m_sText);
    ASSERT_EQ(ref.vstSub.size(), t.m_vstSubRuleResult.size());
    for (size_t i = 0; i < ref.vstSub.size(); ++i) {
        EXPECT_EQ(ref.vstSub[i].bSuccess, t.m_vstSubRuleResult[i].bSuccess) << "sub-rule " << i;
        EXPECT_EQ(ref.vstSub[i].sHitWord, t.m_vstSubRuleResult[i].sHitWord) << "sub-rule " << i;
    }
    ASSERT_EQ(ref.vstRule.size(), t.m_vstRuleResult.size());
    for (size_t r = 0; r < ref.vstRule.size(); ++r) {
        EXPECT_EQ(ref.vstRule[r].bSuccess, t.m_vstRuleResult[r].bSuccess) << "rule " << r;
        EXPECT_TRUE(SameFloat(ref.vstRule[r].fVSMSim, t.m_vstRuleResult[r].fVSMSim))
            << "rule " << r;
    }
    ASSERT_EQ(ref.msvCount.size(), t.m_msvWordRule.size());
    for (const auto& kv : ref.msvCount) {
        ASSERT_EQ(kv.second.size(), t.m_msvWordRule[kv.first].size());
        for (size_t i = 0; i < kv.second.size(); ++i)
            ASSERT_EQ(kv.second[i], t.m_msvWordRule.count(kv.first, i)) << kv.first << " " << i;
    }
}

unsigned DiffSeed() {
    const char* s = std::getenv("QX_DIFF_SEED");
    return s ? static_cast<unsigned>(std::strtoul(s, nullptr, 10)) : 20240611u;
}

}  // namespace

TEST_F(EngineTest, AgreesWithLiteralReadingOnRandomRuleListsAndDocuments) {
    const unsigned nSeed = DiffSeed();
    std::cout << "differential seed " << nSeed << " (set QX_DIFF_SEED to vary)\n";
    Generator gen(nSeed);
    std::vector<std::string> vsPool;
    const char* vsClass[] = {"c1", "c2", "\xCC\xE5\xD3\xFD", "c3", "none"};
    int nLists = 0, nResults = 0, nNearFired = 0, nCountedHits = 0;  // coverage of the run
    for (int nList = 0; nList < 400; ++nList) {
        CTextParser t;
        if (!Load(t, gen.RuleListText(&vsPool))) continue;
        if (gen.Chance(20)) {  // an appended second list
            std::vector<std::string> vsMore;
            if (!Load(t, gen.RuleListText(&vsMore), nullptr, "more.xml")) continue;
            vsPool.insert(vsPool.end(), vsMore.begin(), vsMore.end());
        }
        for (_stRule& r : t.m_vstRules) {  // scores below 1 and odd thresholds, by hand
            if (gen.Chance(25)) r.fEffecValue = static_cast<float>(gen.Pick(17) - 4) / 10.0f;
            if (gen.Chance(10))
                r.fEffecValue = static_cast<float>(gen.Pick(40) - 4) / 32.0f;  // ties
            if (gen.Chance(10)) r.fPerfectVSMSim = gen.Chance(50) ? 0.5f : std::nanf("");
        }
        RefEngine ref(t);
        ++nLists;
        for (int nDoc = 0; nDoc < 12; ++nDoc) {
            const std::string sWhere =
                "list " + std::to_string(nList) + " doc " + std::to_string(nDoc);
            _stDoc d = gen.Document(vsPool);
            if (gen.Chance(15)) t.m_fCertainty = gen.Chance(50) ? 0.0f : -0.3f;
            if (gen.Chance(10)) t.fn_bResetResult();
            ref.fCertainty = t.m_fCertainty;
            for (int iType : {0, 1}) {
                const bool bRef = ref.Classify(d, iType);
                EXPECT_EQ(bRef, t.fn_bClassify(d, iType)) << sWhere;
                EXPECT_EQ(ref.sResult, t.m_sClassifyResult) << sWhere;
            }
            ExpectSameState(t, ref, sWhere);
            nResults += !t.m_sClassifyResult.empty();
            for (size_t r = 0; r < t.m_vstRules.size(); ++r)
                nNearFired +=
                    t.m_vstRuleResult[r].bSuccess && BeginsNear(t.m_vstRules[r].sRelation);
            for (const _stSubRuleResult& res : t.m_vstSubRuleResult)
                nCountedHits += res.sHitWord.find('\t') != std::string::npos;
            for (const char* sClass : vsClass) {
                ref.Detail(sClass);
                t.fn_vGetDetail(sClass);
                EXPECT_EQ(ref.sDetail, t.m_sDetail) << sWhere << " class " << sClass;
            }
            if (HasFailure()) return;
        }
    }
    std::cout << nLists << " rule lists, " << nResults << " non-empty results, " << nNearFired
              << " NEAR rules fired, " << nCountedHits << " sub-rules with hit words\n";
    EXPECT_GT(nLists, 200);
    EXPECT_GT(nNearFired, 50);
}

// The spans of MMFullScanSpans rebuild MMFullScan's text exactly (end-of-text
// copy and output cap included), in every character mode, and a span with a
// handle spells a word of that handle.
TEST(ScanSpans, ReproduceFullScanOnRandomTexts) {
    const unsigned nSeed = DiffSeed();
    std::cout << "span seed " << nSeed << "\n";
    Generator gen(nSeed);
    static const std::string vsPiece[] = {kJia, kBing, kDing,  "a",        "b",  "1",           "A",
                                          " ",  kSep,  "\xB0", "\xA3\xAC", "\n", "\xEF\xBB\xBF"};
    auto piece = [&]() { return vsPiece[gen.Pick(13)]; };
    const size_t npos = std::string::npos;
    int nTails = 0, nCapped = 0;
    for (int nDict = 0; nDict < 300; ++nDict) {
        const int nMode = gen.Pick(3);
        CPDAT dat(nMode);
        std::vector<std::string> vsWord;
        for (int n = 1 + gen.Pick(12); n > 0; --n) {
            std::string w;
            for (int k = 1 + gen.Pick(3); k > 0; --k) w += piece();
            vsWord.push_back(w);
            dat.AddWord(w.c_str(), false);
        }
        dat.AddWordComplete();
        std::vector<_stScanSpan> vSpans;
        for (int nText = 0; nText < 20; ++nText) {
            std::string sText;
            for (int n = gen.Pick(40); n > 0; --n)
                sText +=
                    gen.Chance(60) ? vsWord[gen.Pick(static_cast<int>(vsWord.size()))] : piece();
            const std::string sScan = dat.MMFullScan(sText.c_str());
            const int nSpans = dat.MMFullScanSpans(sText.c_str(), vSpans);
            ASSERT_EQ(static_cast<size_t>(nSpans), vSpans.size());
            std::string sRebuilt;
            for (const _stScanSpan& sp : vSpans) {
                ASSERT_TRUE(sp.iStart >= 0 && sp.nLen > 0 &&
                            sp.iStart + sp.nLen <= int(sText.size()));
                sRebuilt += sText.substr(sp.iStart, sp.nLen) + (sp.bBlank ? " " : "");
                nTails += !sp.bBlank;
                const std::string sBytes = sText.substr(sp.iStart, sp.nLen);
                if (sp.nHandle >= 0 && nMode == 1 && sBytes.find_first_of(" \n\xEF") == npos) {
                    EXPECT_EQ(sp.nHandle, dat.Find(sBytes.c_str())) << sBytes;  // spells the word
                }
            }
            nCapped += !sText.empty() && sScan.size() + 12 >= 5 * sText.size();
            ASSERT_EQ(sScan, sRebuilt) << "mode " << nMode << " text " << sText;
        }
    }
    std::cout << nTails << " end-of-text copies, " << nCapped << " scans at the cap\n";
    EXPECT_GT(nTails, 20);
}
