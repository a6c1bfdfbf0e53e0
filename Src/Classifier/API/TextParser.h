// TextParser.h - the rule engine: rule list loader, document scan, rule
// evaluation and result texts.
//
// A CTextParser holds one rule list. fn_bInit reads it (the tagged format of
// CXMLParamReader), validates it with GBK messages, fills the rule tables and
// compiles every keyword plus the separator word "分割符号" into the
// dictionary m_pDat. fn_bClassify then takes one GBK document at a time:
// it scans title + separator + content for keywords, counts them per sub-rule
// and field, decides every sub-rule and rule, scores the fired rules against
// m_fCertainty and writes the chosen classes into m_sClassifyResult;
// fn_vGetDetail explains one class of that document.
//
// Data members are public, as the library's API and tests read them; after
// every call they hold exactly what the method contracts below say. The
// per-document tables are kept incrementally: fn_bClassify restores only what
// the previous document changed, so it relies on the tables being written by
// the engine's own methods only. Exceptions: the weights and thresholds of
// the rules (fEffecValue, fPerfectVSMSim - which classifier_setsimthresh
// rewrites -, fImPerfectVSMSim) and m_fCertainty are read afresh for every
// document, and hand-made counts (CWordRuleCounts::Set) are noticed. Code
// that writes m_vstSubRuleResult or m_vstRuleResult by hand calls
// fn_bResetResult before the next fn_bClassify; the clean copies are the
// loader's (all counts 0, all results false and empty).
//
// Ownership: the engine owns m_pDat (created by fn_bInit, destroyed by
// fn_vClear, by a later fn_bInit and by the destructor). Not copyable.
//
// Thread-safety: none. One engine classifies one document at a time; callers
// serialise every call, including reads of the members.
//
// Files of the unit, in pipeline order: TextParserLoad.cpp (rule list loader
// and its messages, dictionary, clearing), TextParserIndex.h/.cpp (the
// evaluation index compiled from the loaded tables), TextParserClassify.cpp
// (restore, scan and count, decide, score), TextParserReport.cpp (result
// text and detail report). The decisions themselves are free functions over
// plain values in TextParserLogic.h; the count table is TextParserCounts.h.
#pragma once

#include <cstddef>
#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Global.h"
#include "QXDoc.h"
#include "TextParserCounts.h"

class CPDAT;
class CXMLParamReader;

// The string type of the rule records.
typedef std::string tstring;

// The three sub-rule relations, in this order.
inline constexpr const char* OperatorStr[3] = {"AND", "OR", "NOT"};
// The six document fields a sub-rule may watch, in this order.
inline constexpr const char* FieldStr[6] = {"TITLE",  "CONTENT", "TEXT",
                                            "AUTHOR", "BOARD",   "DATATYPE"};

// One condition over one document field.
struct _stSubRule {
    tstring sField;                  // one of FieldStr
    tstring sRelation;               // one of OperatorStr
    int iMinCount = 0;               // minimum occurrences; never 0 after a load
    std::vector<tstring> vsKeyword;  // file order, duplicates kept, none empty
};

// One rule for one class: a relation over its sub-rules and a weight.
struct _stRule {
    tstring sClass;                 // class name, non-empty
    tstring sRelation;              // "AND", "OR", "NOT", "YES" or "NEAR<distance>"
    std::vector<int> viSubRule;     // indexes into m_vstSubRules, ascending
    float fEffecValue = 0.0f;       // the rule's weight
    float fPerfectVSMSim = 0.0f;    // similarity of a complete hit (33333 when not given)
    float fImPerfectVSMSim = 0.0f;  // "_neg" veto threshold (never reached: no models)
};

// Outcome of one sub-rule for the current document.
struct _stSubRuleResult {
    bool bSuccess = false;
    std::string sHitWord;  // "<keyword> <count>\t" per hit, or "<prefix><field value>"
};

// Outcome of one rule for the current document.
struct _stRuleResult {
    bool bSuccess = false;
    float fVSMSim = 0.0f;  // similarity term of the score (kNoModelSimilarity)
};

// One line of a classification result.
struct _stResult {
    std::string sClassName;
    float fWeight = 0.0f;
};

// Result order: greater weight first (strict). fn_vGetClassification sorts
// stably, so equal weights keep the class-name order.
struct CClasLess {
    bool operator()(const _stResult& a, const _stResult& b) const { return a.fWeight > b.fWeight; }
};

class CTextParser {
  public:
    // Not copyable: the engine owns its dictionary and its index.
    CTextParser(const CTextParser&) = delete;
    CTextParser& operator=(const CTextParser&) = delete;
    // Empty tables, m_fCertainty 0.8, m_pDat and m_hMVRDRAP null.
    CTextParser();
    // Releases the tables and the dictionary.
    virtual ~CTextParser();

    // ---- Loading ----

    // Makes a new dictionary (releasing the old one) and loads the rule list
    // conf, appending to the rules already loaded; then adds every keyword of
    // m_mslKeywords in byte order and "分割符号" to the dictionary and
    // completes it. The first argument (data directory) is not used.
    // pProgress as for fn_bLoadRulelist. False when fn_bLoadRulelist fails:
    // the new, empty and uncompleted dictionary stays, so every scan finds
    // nothing until the next successful load.
    bool fn_bInit(const char* sDataDir, const char* conf, FILE* pProgress = ClassicProgress());

    // Reads and validates the rule list conf and appends its rules (see
    // TextParserLoad.cpp for the file's keys). On success the result vectors,
    // the count table and their clean copies are rebuilt for all loaded rules
    // and "加载<conf>成功.\n" is logged; rulenum 0 returns true with nothing
    // changed. Prints "<i>\n" to pProgress for every rule it starts (null:
    // silent; the classic calls print to standard output, and hosts read
    // these lines to follow a long load). Failure: false; a null/empty conf or
    // a missing certainty or rulenum is only logged, every other message goes
    // to g_sLastErrorMessage and the error file. Nothing appended before the
    // failure is rolled back, and the result vectors are not rebuilt.
    bool fn_bLoadRulelist(const char* conf, FILE* pProgress = ClassicProgress());

    // ---- Shared use (the reentrant interface) ----

    // fn_bInit on rule-list text (GBK) in memory instead of a file; sName
    // stands for the file name in the success message. Appends as fn_bInit.
    bool LoadText(const std::string& sGbk, const std::string& sName, FILE* pProgress);

    // One document's state for Classify(CDocument&, ...): everything a
    // classification writes. Made by NewDocument for one engine; used by one
    // thread at a time.
    class CDocument;
    struct CDocumentDelete {
        void operator()(CDocument* p) const;
    };
    using DocumentPtr = std::unique_ptr<CDocument, CDocumentDelete>;

    // Compiles the evaluation index and the dictionary's scan index now.
    // From then until the engine is changed, Classify(CDocument&, ...) only
    // reads the engine: any number of threads may classify at once, each with
    // its own CDocument.
    void Prepare();
    // A fresh document state for this prepared engine; null when it is not
    // prepared.
    DocumentPtr NewDocument() const;
    // REQUIRES: Prepare since the last change; doc made by this engine's
    // NewDocument. Writes fn_bClassify's result text for d into sResult and
    // leaves the engine as it was. False (sResult empty) when the scan finds
    // no separator.
    bool Classify(CDocument& doc, const _stDoc& d, int iType, std::string& sResult) const;
    // The chosen classes of doc's last document with their weights, in
    // result order (those the result text names).
    const std::vector<_stResult>& Results(const CDocument& doc) const;
    // fn_vGetDetail's report of class sClassName for doc's last document.
    void Detail(const CDocument& doc, const std::string& sClassName, std::string& sDetail) const;

    // ---- Classification ----

    // Classifies d (GBK) into m_sClassifyResult (iType 0: "<class>\t" per
    // class; 1: "<class> <weight %.4f>\t"; other: ""). Leaves m_sText (as
    // rewritten by a NEAR test: separator -> 20 blanks, line feed -> 10), the
    // counts and the sub-rule and rule results of d for fn_vGetDetail.
    // Returns true, also when nothing fires. False when the scan finds no
    // separator (no dictionary, or a title so dense with keywords that the
    // scan output is cut off before it), with every table in its reset state.
    // After a load that failed once it had appended rules, followed by one
    // that appended nothing (rulenum 0), the appended rules and sub-rules have
    // no result entries; they are left out (counted, never decided).
    bool fn_bClassify(_stDoc& d, int iType);

    // Restores the per-document tables from the clean copies and empties
    // m_sClassifyResult and m_sDetail. Always true.
    bool fn_bResetResult();

    // Decides sub-rule iSubRuleId from the counts of its keywords (AND, OR,
    // NOT) and appends "<keyword> <count>\t" per hit keyword to its sHitWord.
    // False for an unknown relation or an index without a result entry.
    bool fn_bDoSubRule(int iSubRuleId);

    // Decides rule iRuleId from the outcomes of its sub-rules (AND, OR, NOT,
    // YES, and NEAR<d> with the byte distance test in m_sText, which it
    // normalises in place). False for an unknown relation or index.
    bool fn_bDoRule(int iRuleId);

    // ---- Results ----

    // Appends the result text of the class weights to m_sClassifyResult:
    // classes by weight (stable, so ties keep name order); with a negative
    // m_fCertainty at most three by the automatic selection.
    void fn_vGetClassification(std::map<std::string, float> msfOutputResult, int iType);

    // m_sDetail = the report of every fired rule of class sClassName on the
    // last document: "RULE<r>:\n", "SUBRULE<j>: <hit words>\n" per sub-rule
    // (j from 1) and "Sim: %.4f\n" when the rule's effect value is below 1.
    // "" when no fired rule names the class.
    void fn_vGetDetail(std::string sClassName);

    // Empties m_sClassifyResult and the rule, keyword, count and result
    // tables and destroys the dictionary. The clean copies, m_sDetail and
    // m_sText stay.
    void fn_vClear();

    // ---- State (declaration order is fixed) ----

    std::string m_sClassifyResult;          // result text of the last classification
    std::string m_sDetail;                  // report of the last fn_vGetDetail
    std::vector<_stRule> m_vstRules;        // all rules in file order
    std::vector<_stSubRule> m_vstSubRules;  // all sub-rules in file order
    // keyword -> TITLE/CONTENT/TEXT sub-rules listing it (twice if listed twice)
    std::map<std::string, std::list<int>> m_mslKeywords;
    CWordRuleCounts m_msvWordRule;                     // keyword x sub-rule counts of the document
    CWordRuleCounts m_msvWordRuleInit;                 // clean copy (all 0)
    std::vector<_stSubRuleResult> m_vstSubRuleResult;  // per sub-rule
    std::vector<_stSubRuleResult> m_vstSubRuleResultInit;  // clean copy
    std::vector<_stRuleResult> m_vstRuleResult;            // per rule
    std::vector<_stRuleResult> m_vstRuleResultInit;        // clean copy
    CPDAT* m_pDat;                                         // keyword dictionary, owned; may be null
    void* m_hMVRDRAP;                                      // null; kept for layout, unused
    float m_fCertainty;   // score threshold (0.8 until a rule list sets it)
    std::string m_sText;  // title + separator + content as scanned

  private:
    struct CIndex;    // the compiled evaluation index, see TextParserIndex.h
    struct CScratch;  // one document's scratch beside it, same header

    // Loading (TextParserLoad.cpp).
    void NewDictionary();
    void FillDictionary();
    bool LoadFrom(CXMLParamReader& cReader, const std::string& sName, FILE* pProgress);
    bool LoadRule(CXMLParamReader& cReader, int i, FILE* pProgress);
    bool LoadSubRules(CXMLParamReader& cReader, const std::string& sPrefix, int nSubRules,
                      _stRule& stRule, int& nNonNot);
    void RebuildResultTables();

    // The index (TextParserIndex.cpp).
    bool IndexIsCurrent() const;
    void CompileIndex();

    // One document (TextParserClassify.cpp). The pipeline reads the loaded
    // tables, the index and the dictionary, and writes only the document
    // state a CDocView names: the classic members for fn_bClassify
    // (ClassicView), or a matcher's own.
    struct CDocView {
        CWordRuleCounts& counts;              // keyword x sub-rule counts
        std::vector<_stSubRuleResult>& subs;  // per sub-rule
        std::vector<_stRuleResult>& rules;    // per rule
        std::string& text;                    // title + separator + content
        bool& bNormalised;                    // NEAR's rewrite of text is done
        CScratch* pScratch;                   // null only while there is no index
    };
    CDocView ClassicView();
    // REQUIRES: the index is current and v's tables have its layout. Classifies
    // d into sResult; false (nothing decided) when the scan finds no separator.
    bool Run(CDocView& v, const _stDoc& d, int iType, std::string& sResult,
             std::vector<_stResult>& vstResult) const;
    // v's tables back to the clean copies; nothing primed or dirty.
    void ResetView(CDocView& v) const;
    void RestoreTouched(CDocView& v) const;
    void PrimeSubRuleDefaults(CDocView& v) const;
    bool ScanAndCount(CDocView& v) const;
    void CountBytes(CDocView& v, const char* p, size_t n, bool& bInContent) const;
    void CountPieces(CDocView& v, const char* p, size_t n, bool bContent) const;
    void CountKeyword(CDocView& v, int iKey, bool bContent) const;
    void TouchSubRule(CDocView& v, int i) const;
    void DecideMetadata(CDocView& v, const _stDoc& d) const;
    void DecideTouchedSubRules(CDocView& v) const;
    bool DoSubRule(CDocView& v, int i, const CIndex* pIndex) const;
    int CountOf(const CDocView& v, const CIndex* pIndex, int iSubRule, size_t iKeyword) const;
    bool DoRule(CDocView& v, int r, const CIndex* pIndex) const;
    bool NearTest(CDocView& v, const _stRule& stRule, int nDistance, const CIndex* pIndex) const;
    std::vector<_stResult> DecideAndScoreRules(CDocView& v) const;
    void ScoreRule(CDocView& v, int r, bool bFired) const;

    // Results (TextParserReport.cpp).
    void Detail(const std::vector<_stSubRuleResult>& vSubs,
                const std::vector<_stRuleResult>& vRules, const std::string& sClassName,
                std::string& sDetail) const;
    // Appends the result text of vstResult to sResult.
    void AppendResults(std::vector<_stResult>& vstResult, int iType, std::string& sResult) const;

    std::unique_ptr<CIndex> m_pIndex;      // null until the first classification
    std::unique_ptr<CScratch> m_pScratch;  // made with the index, sized for it
    unsigned long m_nTablesGeneration;     // advanced by every load and fn_vClear
    bool m_bTextNormalised;                // NEAR's rewrite of m_sText is done
    std::vector<int> m_viHandleKey;        // dictionary handle -> key number hint
    const CPDAT* m_pHintDat;               // dictionary m_viHandleKey belongs to
};
