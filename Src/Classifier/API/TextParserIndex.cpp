// TextParserIndex.cpp - compiling the loaded rule tables into the
// evaluation index (see TextParserIndex.h for what it holds).
//
// Compilation runs in table order: keywords (numbered in the byte order of
// m_mslKeywords, each with its title and content increments, merged per
// slot), then sub-rules (keyword slots, relation, default outcome decided on
// zero counts with the same DecideSubRule as every document, metadata values
// hashed), then rules (relation, default and volatility decided with the
// same DecideRelation over the sub-rule defaults, owners per sub-rule, class
// numbers in name order so that the class weights come out in map order).
// Only entries that have result vectors are evaluated (nSubEval, nRuleEval):
// a load that failed after appending leaves rules without results, and those
// are counted but never decided.
#include "TextParserIndex.h"

#include <algorithm>
#include <memory>

// ---- Compile ----------------------------------------------------------------

void CTextParser::CIndex::Compile(const CTextParser& t) {
    nGeneration = t.m_nTablesGeneration;
    nCountsVersion = t.m_msvWordRule.Version();
    nInitVersion = t.m_msvWordRuleInit.Version();
    nRules = t.m_vstRules.size();
    nSubRules = t.m_vstSubRules.size();
    nKeys = t.m_mslKeywords.size();
    nSubResults = t.m_vstSubRuleResult.size();
    nRuleResults = t.m_vstRuleResult.size();
    nSubInit = t.m_vstSubRuleResultInit.size();
    nRuleInit = t.m_vstRuleResultInit.size();
    nSubEval = std::min({nSubRules, nSubResults, nSubInit});
    nRuleEval = std::min({nRules, nRuleResults, nRuleInit});
    CompileKeywords(t);
    CompileSubRules(t);
    CompileRules(t);
}

void CTextParser::CIndex::CompileKeywords(const CTextParser& t) {
    const CWordRuleCounts& cCounts = t.m_msvWordRule;
    for (int f = 0; f < 2; ++f) viIncBegin[f].assign(1, 0);
    int iKey = 0;
    for (const auto& kv : t.m_mslKeywords) {
        const std::string& sKey = kv.first;
        vpKey.push_back(&sKey);
        mKey.emplace(std::string_view(sKey), iKey++);
        vbRawOnly.push_back(sKey.empty() || sKey.find(kSeparatorWord) != std::string::npos ||
                            sKey.find(' ') != std::string::npos);
        const int iTableKey = cCounts.KeyIndex(sKey);
        const size_t nIncsBefore[2] = {vIncs[0].size(), vIncs[1].size()};
        for (int i : kv.second) {
            if (i < 0 || static_cast<size_t>(i) >= nSubRules) continue;
            const std::string& sField = t.m_vstSubRules[static_cast<size_t>(i)].sField;
            const bool bField[2] = {sField == "TITLE" || sField == "TEXT",
                                    sField == "CONTENT" || sField == "TEXT"};
            const int iSlot = cCounts.FindSlot(iTableKey, i);
            if (iSlot < 0) continue;  // no count slot: the increment has nowhere to go
            for (int f = 0; f < 2; ++f) {
                if (!bField[f]) continue;
                auto itBegin = vIncs[f].begin() + static_cast<long>(nIncsBefore[f]);
                auto it = std::find_if(itBegin, vIncs[f].end(), [&](const std::pair<int, int>& e) {
                    return e.first == iSlot;
                });
                if (it != vIncs[f].end())
                    ++it->second;  // listed twice: each occurrence counts twice
                else
                    vIncs[f].emplace_back(iSlot, 1);
            }
        }
        for (int f = 0; f < 2; ++f) viIncBegin[f].push_back(static_cast<int>(vIncs[f].size()));
    }
}

void CTextParser::CIndex::CompileSubRules(const CTextParser& t) {
    const CWordRuleCounts& cCounts = t.m_msvWordRule;
    auto zero = [](size_t) { return 0; };
    viSubKeyBegin.assign(1, 0);
    for (size_t i = 0; i < nSubRules; ++i) {
        const _stSubRule& stSub = t.m_vstSubRules[i];
        const int iKind = MetadataKind(stSub.sField);
        vcSubKind.push_back(static_cast<char>(iKind));
        for (const std::string& sKeyword : stSub.vsKeyword)
            viSubKeySlot.push_back(
                cCounts.FindSlot(cCounts.KeyIndex(sKeyword), static_cast<int>(i)));
        viSubKeyBegin.push_back(static_cast<int>(viSubKeySlot.size()));
        veSubRelation.push_back(SubRelationOf(stSub.sRelation));
        vbSubDefault.push_back(iKind == 0 && DecideSubRule(veSubRelation.back(), stSub.vsKeyword,
                                                           stSub.iMinCount, zero, nullptr));
        if (iKind == 0 || i >= nSubEval) continue;
        for (const std::string& sKeyword : stSub.vsKeyword) {
            std::vector<int>& viSubs = mMeta[iKind - 1][sKeyword];
            if (viSubs.empty() || viSubs.back() != static_cast<int>(i))
                viSubs.push_back(static_cast<int>(i));
        }
    }
}

void CTextParser::CIndex::CompileRules(const CTextParser& t) {
    std::vector<std::vector<int>> vviOwner(nSubRules);
    for (size_t r = 0; r < nRuleEval; ++r) {
        const _stRule& stRule = t.m_vstRules[r];
        for (int i : stRule.viSubRule)
            if (i >= 0 && static_cast<size_t>(i) < nSubRules)
                vviOwner[static_cast<size_t>(i)].push_back(static_cast<int>(r));
        auto s = [&](size_t j) {
            const int i = stRule.viSubRule[j];
            return i >= 0 && static_cast<size_t>(i) < nSubEval &&
                   vbSubDefault[static_cast<size_t>(i)];
        };
        veRuleRelation.push_back(RuleRelationOf(stRule.sRelation));
        viNearDistance.push_back(
            veRuleRelation.back() == RuleRelation::kNear ? NearDistanceOf(stRule.sRelation) : 0);
        const Verdict v = DecideRelation(veRuleRelation.back(), stRule.viSubRule.size(), s);
        vbRuleDefault.push_back(v == Verdict::kTrue);
        vbRuleVolatile.push_back(v == Verdict::kNearTest);
        vbAlways.push_back(v != Verdict::kFalse || t.m_vstRuleResultInit[r].bSuccess);
        if (vbAlways.back()) viAlways.push_back(static_cast<int>(r));
        vsClass.push_back(stRule.sClass);
    }
    viSubOwnerBegin.assign(1, 0);
    for (const std::vector<int>& viOwners : vviOwner) {
        viSubOwner.insert(viSubOwner.end(), viOwners.begin(), viOwners.end());
        viSubOwnerBegin.push_back(static_cast<int>(viSubOwner.size()));
    }
    // Class numbers in name order, so that the weight map is built in order.
    std::vector<std::string> vsRuleClass = std::move(vsClass);
    vsClass = vsRuleClass;
    std::sort(vsClass.begin(), vsClass.end());
    vsClass.erase(std::unique(vsClass.begin(), vsClass.end()), vsClass.end());
    for (const std::string& sClass : vsRuleClass) {
        const auto it = std::lower_bound(vsClass.begin(), vsClass.end(), sClass);
        viRuleClass.push_back(static_cast<int>(it - vsClass.begin()));
    }
}

void CTextParser::CScratch::NextStamp() {
    if (++nStamp != 0) return;
    std::fill(vnSubStamp.begin(), vnSubStamp.end(), 0);
    std::fill(vnRuleStamp.begin(), vnRuleStamp.end(), 0);
    std::fill(vnClassStamp.begin(), vnClassStamp.end(), 0);
    nStamp = 1;
}

// ---- Validity ---------------------------------------------------------------

bool CTextParser::IndexIsCurrent() const {
    const CIndex* x = m_pIndex.get();
    return x != nullptr && x->nGeneration == m_nTablesGeneration &&
           x->nCountsVersion == m_msvWordRule.Version() &&
           x->nInitVersion == m_msvWordRuleInit.Version() && x->nRules == m_vstRules.size() &&
           x->nSubRules == m_vstSubRules.size() && x->nKeys == m_mslKeywords.size() &&
           x->nSubResults == m_vstSubRuleResult.size() &&
           x->nRuleResults == m_vstRuleResult.size() &&
           x->nSubInit == m_vstSubRuleResultInit.size() &&
           x->nRuleInit == m_vstRuleResultInit.size();
}

// REQUIRES: the per-document tables equal their clean copies.
void CTextParser::CompileIndex() {
    m_pIndex.reset();
    m_pScratch.reset();
    auto pIndex = std::make_unique<CIndex>();
    pIndex->Compile(*this);
    m_pScratch = std::make_unique<CScratch>(*pIndex);
    m_pIndex = std::move(pIndex);
}
