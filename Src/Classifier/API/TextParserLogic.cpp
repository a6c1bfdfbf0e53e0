// TextParserLogic.cpp - the rule engine's decisions over plain values.
//
// The sub-rule and rule decisions themselves are templates in the header
// (the engine instantiates them over its count slots); this file holds the
// relation-word parsers, the row overloads that tests and tools call, and
// the NEAR distance test: the text is rewritten once so that the separator
// and line breaks have fixed widths, then each pair of keywords is checked
// by walking the occurrences of one with std::string::find and looking for
// the other just after (find) and just before (rfind) each of them.
#include "TextParserLogic.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "Utility.h"

// ---- Relation words ---------------------------------------------------------

SubRelation SubRelationOf(const std::string& s) {
    if (s == "AND") return SubRelation::kAnd;
    if (s == "OR") return SubRelation::kOr;
    if (s == "NOT") return SubRelation::kNot;
    return SubRelation::kOther;
}

RuleRelation RuleRelationOf(const std::string& s) {
    if (s == "AND") return RuleRelation::kAnd;
    if (s == "OR") return RuleRelation::kOr;
    if (s == "NOT") return RuleRelation::kNot;
    if (s == "YES") return RuleRelation::kYes;
    if (s.find("NEAR") != std::string::npos) return RuleRelation::kNear;
    return RuleRelation::kOther;
}

int NearDistanceOf(const std::string& sRelation) {
    std::string sDistance = sRelation;
    gfn_vReplaceSubstr(sDistance, "NEAR", "");
    return AtoiLike(sDistance.c_str());
}

int MetadataKind(const std::string& sField) {
    if (sField == "AUTHOR") return 1;
    if (sField == "BOARD") return 2;
    if (sField == "DATATYPE") return 3;
    return 0;
}

// ---- Sub-rules and rules over rows ------------------------------------------

void AppendHit(std::string& sHit, const std::string& sKeyword, int nCount) {
    char sNum[16];
    const char* pEnd = std::to_chars(sNum, sNum + sizeof(sNum), nCount).ptr;
    sHit.append(sKeyword)
        .append(1, ' ')
        .append(sNum, static_cast<size_t>(pEnd - sNum))
        .append(1, '\t');
}

bool DecideSubRule(SubRelation eRel, const std::vector<std::string>& vsKeyword, int iMinCount,
                   const std::vector<int>& viCount, std::string* pHit) {
    return DecideSubRule(
        eRel, vsKeyword, iMinCount, [&](size_t j) { return j < viCount.size() ? viCount[j] : 0; },
        pHit);
}

Verdict DecideRelation(RuleRelation eRel, const std::vector<bool>& vbOutcome) {
    return DecideRelation(eRel, vbOutcome.size(), [&](size_t j) { return bool(vbOutcome[j]); });
}

// ---- NEAR distances ---------------------------------------------------------

void NormaliseNearText(std::string& sText) {
    gfn_vReplaceSubstr(sText, kSeparatorWord, "\n\n");
    gfn_vReplaceSubstr(sText, "\n", "          ");
}

namespace {

// Byte gap x - y taken as a signed 32-bit value (negative for overlaps).
int Gap32(size_t x, size_t y) {
    return static_cast<int32_t>(static_cast<uint32_t>(x - y));
}

}  // namespace

bool OccurrencesNear(const std::string& sText, std::string_view kb, std::string_view ka,
                     int nDistance) {
    for (size_t p = 0;; p += std::max<size_t>(kb.size(), 1)) {
        p = sText.find(kb, p);
        if (p == std::string::npos) return false;
        const size_t e = sText.find(ka, p + kb.size());
        if (e != std::string::npos && Gap32(e, p + kb.size()) <= nDistance) return true;
        const size_t e2 = sText.rfind(ka, p);
        if (e2 != std::string::npos && Gap32(p, e2 + ka.size()) <= nDistance) return true;
    }
}

bool NearSidesHold(const std::string& sText, const std::vector<NearSide>& vSides, int nDistance) {
    auto pairHolds = [&](const NearSide& a, const NearSide& b) {
        for (std::string_view kb : b.vsHit)
            for (std::string_view ka : a.vsHit)
                if (OccurrencesNear(sText, kb, ka, nDistance)) return true;
        return false;
    };
    for (size_t a = 0; a + 1 < vSides.size(); ++a) {
        if (vSides[a].bNot) continue;
        for (size_t b = a + 1; b < vSides.size(); ++b)
            if (!vSides[b].bNot && !pairHolds(vSides[a], vSides[b])) return false;
    }
    return true;
}

// ---- Score ------------------------------------------------------------------

float RuleScore(bool bFired, float fEffecValue, float fPerfectVSMSim) {
    return (bFired ? 1 : 0) * fEffecValue +
           (kNoModelSimilarity / (fPerfectVSMSim + kSimEpsilon)) * (1 - fEffecValue);
}
