// TextParserLogic.h - the decisions of the rule engine as free functions over
// plain values: sub-rule relations over keyword counts, rule relations over
// sub-rule outcomes, the NEAR byte-distance test and the rule score.
//
// Nothing here knows the dictionary, the rule tables or a document: a
// sub-rule is decided from its keywords and their counts, a rule from the
// outcomes of its sub-rules, a NEAR pair from a text and two keywords. The
// engine (CTextParser) feeds them from its tables; tests feed them rows.
// All functions are pure (apart from the hit-word text they append to) and
// safe to call from any thread.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

// The separator word "分割符号" (GBK) that joins title and content in the
// scanned text; it is always a word of the engine's dictionary, so the scan
// output shows where the title ends.
inline constexpr char kSeparatorWord[] = "\xB7\xD6\xB8\xEE\xB7\xFB\xBA\xC5";
inline constexpr size_t kSeparatorLen = sizeof(kSeparatorWord) - 1;

// ---- Relation words ---------------------------------------------------------

// Relation words are compared exactly and case-sensitively.
enum class SubRelation : char { kAnd, kOr, kNot, kOther };
enum class RuleRelation : char { kAnd, kOr, kNot, kYes, kNear, kOther };

// "AND", "OR", "NOT"; anything else is kOther (a sub-rule that never holds).
SubRelation SubRelationOf(const std::string& sRelation);

// "AND", "OR", "NOT", "YES" tested in this order, then any text containing
// "NEAR" (so "XNEAR3" is a NEAR relation here, though the loader refuses it);
// anything else is kOther (a rule that never holds).
RuleRelation RuleRelationOf(const std::string& sRelation);

// The NEAR distance: the relation with every "NEAR" removed, read as atoi
// reads it ("NEAR10" -> 10, "NEAR" -> 0, "10NEAR" -> 10).
int NearDistanceOf(const std::string& sRelation);

// atoi as glibc defines it ((int)strtol: leading number, else 0), without
// atoi's undefined behaviour on overflow. The rule list's numbers are read so.
inline int AtoiLike(const char* s) {
    return static_cast<int>(std::strtol(s, nullptr, 10));
}

// 0 for the counted fields ("TITLE", "CONTENT", "TEXT" and any unknown word);
// 1, 2, 3 for the metadata fields "AUTHOR", "BOARD", "DATATYPE", which are
// compared whole against the document instead of counted.
int MetadataKind(const std::string& sField);

// ---- Sub-rules --------------------------------------------------------------

// Start of the smallest count of an AND sub-rule: an AND sub-rule without
// keywords holds whenever its minimum is at most this.
constexpr int kAndStartMin = 6502500;

// Appends the hit record "<keyword> <count>\t" to sHit.
void AppendHit(std::string& sHit, const std::string& sKeyword, int nCount);

// Decides a sub-rule with relation eRel, keywords vsKeyword and minimum
// iMinCount; count(j) is the count of keyword j (for this sub-rule, in the
// fields it watches). When pHit is set, the hit record of every visited
// keyword with a non-zero count is appended to *pHit, in keyword order.
//   AND: visits keywords in order and stops at the first count 0 (false; later
//        keywords are not recorded); true when the smallest count (starting
//        from kAndStartMin) is >= iMinCount.
//   OR:  sums all counts; true when sum > 0 and sum >= iMinCount.
//   NOT: sums all counts; true when sum < 1 or sum < iMinCount (so NOT/…/3
//        tolerates two occurrences), recording what it found all the same.
//   kOther: false, nothing recorded.
template <typename CountFn>
bool DecideSubRule(SubRelation eRel, const std::vector<std::string>& vsKeyword, int iMinCount,
                   CountFn count, std::string* pHit) {
    const size_t n = vsKeyword.size();
    if (eRel == SubRelation::kAnd) {
        int iMin = kAndStartMin;
        for (size_t j = 0; j < n; ++j) {
            const int c = count(j);
            if (c == 0) return false;
            if (pHit) AppendHit(*pHit, vsKeyword[j], c);
            if (c < iMin) iMin = c;
        }
        return iMin >= iMinCount;
    }
    if (eRel == SubRelation::kOther) return false;
    long long nSum = 0;  // counts saturate at INT_MAX each; their sum may not fit an int
    for (size_t j = 0; j < n; ++j) {
        const int c = count(j);
        if (c != 0 && pHit) AppendHit(*pHit, vsKeyword[j], c);
        nSum += c;
    }
    if (eRel == SubRelation::kOr) return nSum > 0 && nSum >= iMinCount;
    return nSum < 1 || nSum < iMinCount;
}

// The same over a row of counts, viCount[j] for keyword j (missing ones 0).
bool DecideSubRule(SubRelation eRel, const std::vector<std::string>& vsKeyword, int iMinCount,
                   const std::vector<int>& viCount, std::string* pHit);

// ---- Rules ------------------------------------------------------------------

// A rule's outcome up to the NEAR text test: kNearTest means every sub-rule
// of a NEAR rule held and the distances in the text decide.
enum class Verdict { kFalse, kTrue, kNearTest };

// Decides a rule relation over k sub-rule outcomes s(0..k-1):
//   AND: all true (k = 0: true).     OR: any true (k = 0: false).
//   NOT: k = 1: !s(0); k = 2: s(0) && !s(1); other k: false.
//   YES: k = 1 and s(0).             NEAR: k >= 2 and all true -> kNearTest.
//   kOther: false.
template <typename OutcomeFn>
Verdict DecideRelation(RuleRelation eRel, size_t k, OutcomeFn s) {
    auto verdict = [](bool b) { return b ? Verdict::kTrue : Verdict::kFalse; };
    switch (eRel) {
        case RuleRelation::kAnd:
            for (size_t j = 0; j < k; ++j)
                if (!s(j)) return Verdict::kFalse;
            return Verdict::kTrue;
        case RuleRelation::kOr:
            for (size_t j = 0; j < k; ++j)
                if (s(j)) return Verdict::kTrue;
            return Verdict::kFalse;
        case RuleRelation::kNot:
            if (k == 1) return verdict(!s(0));
            if (k == 2) return verdict(s(0) && !s(1));
            return Verdict::kFalse;
        case RuleRelation::kYes:
            return verdict(k == 1 && s(0));
        case RuleRelation::kNear:
            if (k <= 1) return Verdict::kFalse;
            for (size_t j = 0; j < k; ++j)
                if (!s(j)) return Verdict::kFalse;
            return Verdict::kNearTest;
        default:
            return Verdict::kFalse;
    }
}

// The same over a row of outcomes.
Verdict DecideRelation(RuleRelation eRel, const std::vector<bool>& vbOutcome);

// ---- NEAR distances ---------------------------------------------------------

// Rewrites a document text for distance measuring, in place: every separator
// word "分割符号" becomes "\n\n", then every "\n" ten blanks. So the
// title/content boundary counts 20 bytes and a line break 10. A second call
// changes nothing.
void NormaliseNearText(std::string& sText);

// True when some occurrence of kb and some occurrence of ka in sText are at
// most nDistance bytes apart: walking the occurrences p of kb from the start,
// the first ka at or after p + |kb| with gap <= nDistance, or the last ka
// starting at or before p with p - (its end) <= nDistance. Gaps are byte
// counts taken as signed 32-bit values, so overlapping occurrences (a
// negative gap) are near.
bool OccurrencesNear(const std::string& sText, std::string_view kb, std::string_view ka,
                     int nDistance);

// One sub-rule of a NEAR rule as the distance test sees it: a NOT sub-rule
// takes no part; the others offer their keywords with a non-zero count, in
// keyword order.
struct NearSide {
    bool bNot = false;
    std::vector<std::string_view> vsHit;
};

// The NEAR test once every sub-rule held: for every pair a < b of sides that
// are not NOT, some hit keyword of side b lies near (OccurrencesNear, b's
// keyword first) some hit keyword of side a. True when fewer than two sides
// take part. sText is normalised already (NormaliseNearText).
bool NearSidesHold(const std::string& sText, const std::vector<NearSide>& vSides, int nDistance);

// ---- Score ------------------------------------------------------------------

// The similarity of a document to a class, and to its negative class
// "<class>_neg". No class has a similarity model (the loader refuses every
// rule that would need one), so both are this constant. It still enters the
// score and the report: the term kNoModelSimilarity / (fPerfectVSMSim +
// kSimEpsilon) * (1 - fEffecValue) is 0 for ordinary values but NaN when
// fPerfectVSMSim is NaN or -kSimEpsilon, or fEffecValue infinite, and such a
// score passes the certainty test and is written as "nan". The negative-class
// veto (drop the rule when that similarity >= fImPerfectVSMSim, tested only
// for fImPerfectVSMSim > kSimEpsilon) can therefore never drop a rule.
constexpr float kNoModelSimilarity = 0.0f;
// Keeps the score's division defined for fPerfectVSMSim 0.
constexpr float kSimEpsilon = 0.000005f;

// A rule's score in single precision: (bFired ? 1 : 0) * fEffecValue plus
// the similarity term above. Not capped (the caller caps at 1.0 after the
// certainty test).
float RuleScore(bool bFired, float fEffecValue, float fPerfectVSMSim);
