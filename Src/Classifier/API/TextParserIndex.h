// TextParserIndex.h - the rule engine's compiled evaluation index (internal
// to the TextParser files; not part of the library's interface).
//
// CTextParser compiles its loaded tables once into a CIndex before the first
// document and again whenever they change (a load, fn_vClear, hand-made
// counts or result vectors of another size). The index holds, by number:
//   - per keyword: the count slots one occurrence raises in the title and in
//     the content (a slot listed twice is raised twice);
//   - per sub-rule: the slot of each of its keywords, its relation, its kind
//     (counted or metadata) and its "default": its outcome on a document
//     without hits (NOT sub-rules hold, AND/OR and metadata ones fail);
//   - per rule: its relation and NEAR distance, its default outcome when all
//     its sub-rules are at their defaults, whether it is "volatile" (that
//     outcome needs the NEAR text test), its class number;
// The index is read-only once compiled. Everything one document writes while
// it runs through the pipeline is in a CScratch beside it: stamps and dirty
// lists that say what the current document touched, so that the next one
// restores only that, and the buffers of the scan and the scores.
// Invariant between documents (bPrimed): every sub-rule result not in
// viDirtySubs is its clean copy with its default outcome; every count slot
// not in viDirtySlots is its clean value; every rule result not in
// viDirtyRules is its clean copy.
//
// Owned by its CTextParser; same thread-safety (none).
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "PDAT.h"
#include "TextParser.h"
#include "TextParserLogic.h"

struct CTextParser::CIndex {
    // What the index was compiled for (IndexIsCurrent compares these).
    unsigned long nGeneration = 0, nCountsVersion = 0, nInitVersion = 0;
    size_t nRules = 0, nSubRules = 0, nKeys = 0;
    size_t nSubResults = 0, nRuleResults = 0, nSubInit = 0, nRuleInit = 0;
    size_t nSubEval = 0;   // sub-rules with a result entry (all, after a load)
    size_t nRuleEval = 0;  // rules with a result entry (all, after a load)

    // Keywords, numbered in m_mslKeywords order.
    std::vector<const std::string*> vpKey;
    std::unordered_map<std::string_view, int> mKey;  // bytes -> key number
    std::vector<char> vbRawOnly;     // holds the separator or a blank: never counted whole
    std::vector<int> viIncBegin[2];  // [0] title, [1] content: per key
    std::vector<std::pair<int, int>> vIncs[2];  // (slot, times) raised per occurrence

    // Sub-rules.
    std::vector<int> viSubKeyBegin, viSubKeySlot;  // slot per keyword position, or -1
    std::vector<char> vcSubKind;                   // MetadataKind
    std::vector<SubRelation> veSubRelation;
    std::vector<char> vbSubDefault;                              // outcome without hits
    std::vector<int> viSubOwnerBegin, viSubOwner;                // rules naming the sub-rule
    std::unordered_map<std::string, std::vector<int>> mMeta[3];  // value -> sub-rules

    // Rules.
    std::vector<RuleRelation> veRuleRelation;
    std::vector<int> viNearDistance;
    std::vector<char> vbRuleDefault, vbRuleVolatile, vbAlways;
    std::vector<int> viAlways;  // decided and scored on every document (certainty > 0)
    std::vector<int> viRuleClass;
    std::vector<std::string> vsClass;  // by class number, names ascending

    // REQUIRES: t's per-document tables equal their clean copies.
    void Compile(const CTextParser& t);
    int SubSlot(size_t i, size_t j) const { return viSubKeySlot[viSubKeyBegin[i] + j]; }

    // The key number of the keyword that the scan bytes [p, p + n) are, taken
    // from the handle's hint and confirmed byte for byte; -1 when that fails
    // or when the keyword must be cut like plain scan text.
    int KeyOfSpan(const std::vector<int>* pHints, int nHandle, const char* p, size_t n) const {
        if (pHints == nullptr || nHandle < 0 || static_cast<size_t>(nHandle) >= pHints->size())
            return -1;
        const int iKey = (*pHints)[nHandle];
        if (iKey < 0 || static_cast<size_t>(iKey) >= vpKey.size() || vbRawOnly[iKey]) return -1;
        const std::string& sKey = *vpKey[iKey];
        return sKey.size() == n && std::memcmp(sKey.data(), p, n) == 0 ? iKey : -1;
    }

  private:
    void CompileKeywords(const CTextParser& t);
    void CompileSubRules(const CTextParser& t);
    void CompileRules(const CTextParser& t);
};

struct CTextParser::CScratch {
    bool bPrimed = false;  // the invariant above holds
    unsigned int nStamp = 0;
    std::vector<unsigned int> vnSubStamp, vnRuleStamp, vnClassStamp;
    std::vector<int> viDirtySlots, viDirtySubs, viDirtyRules, viTouchedRules, viCandidates;
    std::vector<float> vfWeight;
    std::vector<int> viWeighted;
    std::vector<_stScanSpan> vSpans;
    std::vector<NearSide> vNearSides;

    // Sized for index x, not primed, nothing dirty.
    explicit CScratch(const CIndex& x)
        : vnSubStamp(x.nSubRules, 0),
          vnRuleStamp(x.nRuleEval, 0),
          vnClassStamp(x.vsClass.size(), 0),
          vfWeight(x.vsClass.size(), 0.0f) {}
    // Starts a new document: a stamp no sub-rule, rule or class carries yet.
    void NextStamp();
    // Forgets what the last document touched, for tables restored in full.
    void Unprime() {
        bPrimed = false;
        viDirtySlots.clear();
        viDirtySubs.clear();
        viDirtyRules.clear();
    }
};

// A matcher's document state: its own copies of the per-document tables,
// made from the engine's clean copies, and its own scratch.
class CTextParser::CDocument {
  public:
    explicit CDocument(const CTextParser& t)
        : counts(t.m_msvWordRuleInit),
          subs(t.m_vstSubRuleResultInit),
          rules(t.m_vstRuleResultInit),
          scratch(*t.m_pIndex) {}
    CDocView View() { return CDocView{counts, subs, rules, text, bNormalised, &scratch}; }
    CWordRuleCounts counts;
    std::vector<_stSubRuleResult> subs;
    std::vector<_stRuleResult> rules;
    std::string text;
    bool bNormalised = false;
    CScratch scratch;
    std::vector<_stResult> vResults;  // the chosen classes of the last document, in order
};
