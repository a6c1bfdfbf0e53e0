// TextParserClassify.cpp - one document through the rule engine: restore,
// scan and count, sub-rules, rules and scores.
//
// Per document the work is proportional to the text and its hits, not to the
// size of the rule list. The index (TextParserIndex.h) knows every
// sub-rule's and rule's outcome on a document without hits (its default). A
// document touches only the count slots of the keywords it contains; exactly
// the sub-rules with a raised slot or a matching metadata field are decided
// afresh, and exactly the rules owning such a sub-rule (plus the volatile
// ones) are decided afresh; every other sub-rule and rule provably has its
// default outcome, since its decision reads nothing but zero counts and
// default outcomes. (A NEAR rule reads the text as well, but only once all
// its sub-rules hold; one that holds without hits is volatile, so the
// rewrite of v.text happens exactly when deciding every rule would do it.)
// With a positive certainty a rule that is false is skipped, so only the
// touched, volatile and default-true rules are visited; with certainty <= 0
// every rule is scored, as it must be. Between documents the tables hold the
// last document's state and the next document first restores what that one
// touched (dirty lists); the loaded tables themselves are never copied.
//
// Scanning: the dictionary reports every emission of its full scan as a byte
// span with the handle of the matched word. A span whose bytes equal the
// keyword the handle was given to (checked with one memcmp) counts that
// keyword directly; anything else - the separator, a keyword holding the
// separator bytes or a blank, the scan's end-of-text copy - is cut exactly as
// the scan's output text would be cut (first separator occurrence, then
// blanks) and looked up by its bytes in a hash table. Either way a piece
// counts the keyword whose bytes it equals, and nothing else, so the counts
// equal those of splitting the scan output text.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "PDAT.h"
#include "TextParser.h"
#include "TextParserIndex.h"
#include "TextParserLogic.h"

namespace {

// Hit-word prefixes of the metadata sub-rules, by MetadataKind - 1 (GBK).
constexpr const char* kMetaPrefix[3] = {
    "\xD7\xF7\xD5\xDF:",  // 作者:
    "\xC6\xB5\xB5\xC0:",  // 频道:
    "\xCD\xA8\xB5\xC0:",  // 通道:
};

}  // namespace

// ======================================================================
// Reset
// ======================================================================

bool CTextParser::fn_bClassify(_stDoc& d, int iType) {
    if (!IndexIsCurrent()) {
        fn_bResetResult();
        CompileIndex();
    }
    CDocView v = ClassicView();
    m_sDetail.clear();
    std::vector<_stResult> vstResult;
    if (!Run(v, d, iType, m_sClassifyResult, vstResult)) {
        fn_bResetResult();  // results stay in their reset state
        return false;
    }
    return true;
}

bool CTextParser::Run(CDocView& v, const _stDoc& d, int iType, std::string& sResult,
                      std::vector<_stResult>& vstResult) const {
    CScratch& s = *v.pScratch;
    sResult.clear();
    if (s.bPrimed)
        RestoreTouched(v);
    else
        PrimeSubRuleDefaults(v);
    s.NextStamp();
    s.viTouchedRules.clear();
    v.text.reserve(d.sTitle.size() + kSeparatorLen + d.sContent.size());
    v.text.assign(d.sTitle).append(kSeparatorWord).append(d.sContent);
    v.bNormalised = false;
    if (!ScanAndCount(v)) return false;
    DecideMetadata(v, d);
    DecideTouchedSubRules(v);
    vstResult = DecideAndScoreRules(v);  // the class weight map, in order
    AppendResults(vstResult, iType, sResult);
    return true;
}

void CTextParser::Prepare() {
    if (!IndexIsCurrent()) {
        fn_bResetResult();
        CompileIndex();
    }
    if (m_pDat != nullptr) m_pDat->PrepareScans();
}

CTextParser::DocumentPtr CTextParser::NewDocument() const {
    return DocumentPtr(m_pIndex != nullptr && m_pScratch != nullptr ? new CDocument(*this)
                                                                    : nullptr);
}

void CTextParser::CDocumentDelete::operator()(CDocument* p) const {
    delete p;
}

bool CTextParser::Classify(CDocument& doc, const _stDoc& d, int iType, std::string& sResult) const {
    CDocView v = doc.View();
    if (Run(v, d, iType, sResult, doc.vResults)) return true;
    doc.vResults.clear();
    ResetView(v);
    sResult.clear();
    return false;
}

const std::vector<_stResult>& CTextParser::Results(const CDocument& doc) const {
    return doc.vResults;
}

CTextParser::CDocView CTextParser::ClassicView() {
    return CDocView{m_msvWordRule, m_vstSubRuleResult, m_vstRuleResult,
                    m_sText,       m_bTextNormalised,  m_pScratch.get()};
}

bool CTextParser::fn_bResetResult() {
    const bool bIndexed = IndexIsCurrent();
    m_sClassifyResult.clear();
    m_sDetail.clear();
    CDocView v = ClassicView();
    ResetView(v);
    // Same layout as before: the index stays valid.
    if (bIndexed) m_pIndex->nCountsVersion = m_msvWordRule.Version();
    return true;
}

void CTextParser::ResetView(CDocView& v) const {
    v.counts = m_msvWordRuleInit;
    v.subs = m_vstSubRuleResultInit;
    v.rules = m_vstRuleResultInit;
    if (v.pScratch != nullptr) v.pScratch->Unprime();
}

// Undoes what the previous document changed: its count slots, its decided
// sub-rules (back to their defaults) and its written rule results.
void CTextParser::RestoreTouched(CDocView& v) const {
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    for (int iSlot : s.viDirtySlots)
        v.counts.RestoreSlot(iSlot, m_msvWordRuleInit.SlotValue(iSlot));
    for (int i : s.viDirtySubs) {
        v.subs[static_cast<size_t>(i)] = m_vstSubRuleResultInit[static_cast<size_t>(i)];
        v.subs[static_cast<size_t>(i)].bSuccess = x.vbSubDefault[static_cast<size_t>(i)];
    }
    for (int r : s.viDirtyRules)
        v.rules[static_cast<size_t>(r)] = m_vstRuleResultInit[static_cast<size_t>(r)];
    s.viDirtySlots.clear();
    s.viDirtySubs.clear();
    s.viDirtyRules.clear();
}

// REQUIRES: the per-document tables equal their clean copies. Gives every
// sub-rule its outcome on a document without hits.
void CTextParser::PrimeSubRuleDefaults(CDocView& v) const {
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    for (size_t i = 0; i < x.nSubEval; ++i) v.subs[i].bSuccess = x.vbSubDefault[i];
    s.Unprime();
    s.bPrimed = true;
}

// ======================================================================
// Scan and count
// ======================================================================

// Scans v.text and raises the counts of the keywords found, title words
// before the first separator of the scan output, content words after it.
// False when the output holds no separator (nothing is counted then).
bool CTextParser::ScanAndCount(CDocView& v) const {
    if (m_pDat == nullptr) return false;
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    m_pDat->MMFullScanSpans(v.text.c_str(), s.vSpans);
    const std::vector<int>* pHints = m_pHintDat == m_pDat ? &m_viHandleKey : nullptr;
    const char* pText = v.text.data();
    bool bInContent = false;
    for (const _stScanSpan& stSpan : s.vSpans) {
        const char* p = pText + stSpan.iStart;
        const size_t n = static_cast<size_t>(stSpan.nLen);
        const int iKey = x.KeyOfSpan(pHints, stSpan.nHandle, p, n);
        if (iKey >= 0)
            CountKeyword(v, iKey, bInContent);
        else
            CountBytes(v, p, n, bInContent);
    }
    return bInContent;
}

// Counts the pieces of scan output bytes [p, p + n): cut at the first
// separator while still in the title, then at blanks.
void CTextParser::CountBytes(CDocView& v, const char* p, size_t n, bool& bInContent) const {
    if (!bInContent) {
        const size_t nSep =
            std::string_view(p, n).find(std::string_view(kSeparatorWord, kSeparatorLen));
        if (nSep == std::string_view::npos) {
            CountPieces(v, p, n, false);
            return;
        }
        CountPieces(v, p, nSep, false);
        bInContent = true;
        p += nSep + kSeparatorLen;
        n -= nSep + kSeparatorLen;
    }
    CountPieces(v, p, n, true);
}

// Counts every non-empty blank-separated piece of [p, p + n) that is a keyword.
void CTextParser::CountPieces(CDocView& v, const char* p, size_t n, bool bContent) const {
    const CIndex& x = *m_pIndex;
    size_t nBegin = 0;
    while (nBegin < n) {
        const void* pBlank = std::memchr(p + nBegin, ' ', n - nBegin);
        const size_t nEnd = pBlank ? static_cast<size_t>(static_cast<const char*>(pBlank) - p) : n;
        if (nEnd > nBegin) {
            const auto it = x.mKey.find(std::string_view(p + nBegin, nEnd - nBegin));
            if (it != x.mKey.end()) CountKeyword(v, it->second, bContent);
        }
        nBegin = nEnd + 1;
    }
}

// One occurrence of keyword iKey in the title or the content.
void CTextParser::CountKeyword(CDocView& v, int iKey, bool bContent) const {
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    const int f = bContent ? 1 : 0;
    const int nEnd = x.viIncBegin[f][static_cast<size_t>(iKey) + 1];
    for (int e = x.viIncBegin[f][static_cast<size_t>(iKey)]; e < nEnd; ++e) {
        const std::pair<int, int>& inc = x.vIncs[f][static_cast<size_t>(e)];
        if (v.counts.AddToSlot(inc.first, inc.second) != 0) continue;
        s.viDirtySlots.push_back(inc.first);
        TouchSubRule(v, v.counts.SlotSubRule(inc.first));
    }
}

// Marks sub-rule i and its rules for a fresh decision on this document.
void CTextParser::TouchSubRule(CDocView& v, int i) const {
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    if (static_cast<size_t>(i) >= x.nSubEval) return;  // no result entry to decide into
    if (s.vnSubStamp[static_cast<size_t>(i)] == s.nStamp) return;
    s.vnSubStamp[static_cast<size_t>(i)] = s.nStamp;
    s.viDirtySubs.push_back(i);
    for (int e = x.viSubOwnerBegin[static_cast<size_t>(i)];
         e < x.viSubOwnerBegin[static_cast<size_t>(i) + 1]; ++e) {
        const int r = x.viSubOwner[static_cast<size_t>(e)];
        if (s.vnRuleStamp[static_cast<size_t>(r)] == s.nStamp) continue;
        s.vnRuleStamp[static_cast<size_t>(r)] = s.nStamp;
        s.viTouchedRules.push_back(r);
    }
}

// ======================================================================
// Sub-rules
// ======================================================================

// AUTHOR, BOARD and DATATYPE sub-rules hold when the field equals one of
// their keywords; hit word = prefix + field value.
void CTextParser::DecideMetadata(CDocView& v, const _stDoc& d) const {
    const CIndex& x = *m_pIndex;
    const std::string* pValue[3] = {&d.sAuthor, &d.sBoard, &d.sDatatype};
    for (int f = 0; f < 3; ++f) {
        if (x.mMeta[f].empty()) continue;
        const auto it = x.mMeta[f].find(*pValue[f]);
        if (it == x.mMeta[f].end()) continue;
        for (int i : it->second) {
            v.subs[i].bSuccess = true;
            v.subs[i].sHitWord = kMetaPrefix[f] + *pValue[f];
            TouchSubRule(v, i);
        }
    }
}

// Decides the counted sub-rules with a raised count; the others keep their
// default outcome.
void CTextParser::DecideTouchedSubRules(CDocView& v) const {
    const CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    for (int i : s.viDirtySubs)
        if (x.vcSubKind[i] == 0) v.subs[i].bSuccess = DoSubRule(v, i, &x);
}

bool CTextParser::fn_bDoSubRule(int iSubRuleId) {
    CDocView v = ClassicView();
    const bool bOutcome = DoSubRule(v, iSubRuleId, IndexIsCurrent() ? m_pIndex.get() : nullptr);
    m_pIndex.reset();  // a result changed behind the dirty lists: restore in full next time
    return bOutcome;
}

bool CTextParser::DoSubRule(CDocView& v, int i, const CIndex* pIndex) const {
    if (i < 0 || static_cast<size_t>(i) >= m_vstSubRules.size() ||
        static_cast<size_t>(i) >= v.subs.size())
        return false;
    const _stSubRule& stSub = m_vstSubRules[i];
    std::string* pHit = &v.subs[i].sHitWord;
    const SubRelation eRel = pIndex ? pIndex->veSubRelation[i] : SubRelationOf(stSub.sRelation);
    return DecideSubRule(
        eRel, stSub.vsKeyword, stSub.iMinCount, [&](size_t j) { return CountOf(v, pIndex, i, j); },
        pHit);
}

// count(keyword j of sub-rule i, i) through the index's slots, or by lookup
// without one; 0 for keywords without a count slot (those of AUTHOR, BOARD
// and DATATYPE sub-rules). Never inserts.
int CTextParser::CountOf(const CDocView& v, const CIndex* pIndex, int i, size_t j) const {
    if (pIndex != nullptr) {
        const int iSlot = pIndex->SubSlot(static_cast<size_t>(i), j);
        return iSlot < 0 ? 0 : v.counts.SlotValue(iSlot);
    }
    return v.counts.count(m_vstSubRules[i].vsKeyword[j], static_cast<size_t>(i));
}

// ======================================================================
// Rules and scores
// ======================================================================

bool CTextParser::fn_bDoRule(int iRuleId) {
    m_bTextNormalised = false;  // the caller may have set m_sText
    CDocView v = ClassicView();
    return DoRule(v, iRuleId, IndexIsCurrent() ? m_pIndex.get() : nullptr);
}

bool CTextParser::DoRule(CDocView& v, int r, const CIndex* pIndex) const {
    if (r < 0 || static_cast<size_t>(r) >= m_vstRules.size()) return false;
    const _stRule& stRule = m_vstRules[r];
    const size_t nEval = std::min(m_vstSubRules.size(), v.subs.size());
    auto s = [&](size_t j) {
        const int i = stRule.viSubRule[j];
        return i >= 0 && static_cast<size_t>(i) < nEval && v.subs[i].bSuccess;
    };
    const RuleRelation eRel = pIndex ? pIndex->veRuleRelation[r] : RuleRelationOf(stRule.sRelation);
    switch (DecideRelation(eRel, stRule.viSubRule.size(), s)) {
        case Verdict::kTrue:
            return true;
        case Verdict::kNearTest:
            return NearTest(v, stRule,
                            pIndex ? pIndex->viNearDistance[r] : NearDistanceOf(stRule.sRelation),
                            pIndex);
        default:
            return false;
    }
}

// The NEAR<d> test, all sub-rules having held: every pair of non-NOT
// sub-rules must have hit keywords within d bytes of each other in v.text,
// which is normalised first (separator -> 20 blanks, line feed -> 10).
bool CTextParser::NearTest(CDocView& v, const _stRule& stRule, int nDistance,
                           const CIndex* pIndex) const {
    if (!v.bNormalised) {  // once per document: a second pass would change nothing
        NormaliseNearText(v.text);
        v.bNormalised = true;
    }
    std::vector<NearSide> vLocal;  // pIndex set: the index is current, its scratch lends the buffer
    std::vector<NearSide>& vSides = pIndex ? v.pScratch->vNearSides : vLocal;
    vSides.resize(stRule.viSubRule.size());
    for (size_t a = 0; a < vSides.size(); ++a) {
        const int i = stRule.viSubRule[a];
        NearSide& side = vSides[a];
        side.vsHit.clear();
        side.bNot = i < 0 || static_cast<size_t>(i) >= m_vstSubRules.size() ||
                    (pIndex ? pIndex->veSubRelation[i] == SubRelation::kNot
                            : m_vstSubRules[i].sRelation == "NOT");
        if (side.bNot) continue;
        const std::vector<tstring>& vsKeyword = m_vstSubRules[i].vsKeyword;
        for (size_t j = 0; j < vsKeyword.size(); ++j)
            if (CountOf(v, pIndex, i, j) != 0) side.vsHit.emplace_back(vsKeyword[j]);
    }
    return NearSidesHold(v.text, vSides, nDistance);
}

// Decides and scores the rules in index order and returns the class weights
// as results in class-name order. With a positive certainty only rules that
// can fire are visited: those touched by this document and those that hold
// (or need the NEAR test) without hits; every other rule is false and would
// be skipped. Few touched rules are sorted and merged with the latter; many
// are picked out by one pass over the rule flags.
std::vector<_stResult> CTextParser::DecideAndScoreRules(CDocView& v) const {
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    const bool bFiredOnly = m_fCertainty > 0;
    auto visit = [&](int r) {
        const bool bDecide = s.vnRuleStamp[r] == s.nStamp || x.vbRuleVolatile[r];
        ScoreRule(v, r, bDecide ? DoRule(v, r, &x) : x.vbRuleDefault[r] != 0);
        s.viDirtyRules.push_back(r);
    };
    s.viWeighted.clear();
    if (bFiredOnly && s.viTouchedRules.size() * 8 < x.nRuleEval) {
        std::sort(s.viTouchedRules.begin(), s.viTouchedRules.end());
        s.viCandidates.clear();
        std::set_union(s.viTouchedRules.begin(), s.viTouchedRules.end(), x.viAlways.begin(),
                       x.viAlways.end(), std::back_inserter(s.viCandidates));
        for (int r : s.viCandidates) visit(r);
    } else {
        for (int r = 0; static_cast<size_t>(r) < x.nRuleEval; ++r)
            if (!bFiredOnly || x.vbAlways[r] || s.vnRuleStamp[r] == s.nStamp) visit(r);
    }
    s.viTouchedRules.clear();
    std::sort(s.viWeighted.begin(), s.viWeighted.end());  // class numbers follow name order
    std::vector<_stResult> vstResult;
    vstResult.reserve(s.viWeighted.size());
    for (int c : s.viWeighted) vstResult.push_back(_stResult{x.vsClass[c], s.vfWeight[c]});
    return vstResult;
}

// Records rule r's outcome and, when it scores at least m_fCertainty,
// its score (capped at 1.0) as its class's weight if that is the best so far.
// The negative-class veto is absent: it can never drop a rule (see
// kNoModelSimilarity).
void CTextParser::ScoreRule(CDocView& v, int r, bool bFired) const {
    CIndex& x = *m_pIndex;
    CScratch& s = *v.pScratch;
    const _stRule& stRule = m_vstRules[r];
    _stRuleResult& stRes = v.rules[r];
    stRes.bSuccess = bFired;
    if (!stRes.bSuccess && m_fCertainty > 0) return;
    stRes.fVSMSim = kNoModelSimilarity;
    float fScore = RuleScore(stRes.bSuccess, stRule.fEffecValue, stRule.fPerfectVSMSim);
    if (fScore < m_fCertainty) return;
    const int c = x.viRuleClass[r];
    if (fScore > 1.0f) fScore = 1.0f;
    if (s.vnClassStamp[c] != s.nStamp) {
        s.vnClassStamp[c] = s.nStamp;
        s.viWeighted.push_back(c);
        s.vfWeight[c] = fScore;
    } else if (fScore > s.vfWeight[c]) {
        s.vfWeight[c] = fScore;
    }
    stRes.bSuccess = true;
}
