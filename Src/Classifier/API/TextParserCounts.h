// TextParserCounts.h - the rule engine's keyword-by-sub-rule count table.
//
// CTextParser::m_msvWordRule (and its clean copy) count, per document, how
// often each rule keyword was seen in the fields each sub-rule watches. The
// table is sparse: only the (keyword, sub-rule) pairs that the loader's
// keyword lists name have a slot, so a document costs time in proportion to
// its hits, not to keywords x sub-rules.
//
// Ownership: a table owns its vectors; copies are deep. Thread-safety: none;
// callers serialise all calls on one table.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

// The keyword-by-sub-rule count table (m_msvWordRule and its clean copy),
// stored sparsely with the meaning of a map keyword -> vector of one count
// per sub-rule index. Only the (keyword, sub-rule) pairs that m_mslKeywords
// lists have a slot; every other pair reads 0 and cannot be written. Keys are
// in byte order, as in the map it stands for.
//
// Reads never insert. The engine writes counts through slot numbers (stable
// until the next Build or clear); every write made from outside the engine
// (Set, Build, clear, assignment) advances Version(), so the engine notices
// hand-made changes and restores the table in full.
class CWordRuleCounts {
  public:
    // Read view of one keyword's counts, read like a vector<int> per sub-rule.
    class Row {
      public:
        // Count for sub-rule iSubRule; 0 without a slot or out of range.
        int operator[](size_t iSubRule) const;
        // Number of sub-rules (the length of the vector it stands for); 0
        // for a keyword that is not in the table.
        size_t size() const { return m_iKey >= 0 ? m_pTable->m_pLayout->nSubRules : 0; }

      private:
        friend class CWordRuleCounts;
        Row(const CWordRuleCounts* pTable, int iKey) : m_pTable(pTable), m_iKey(iKey) {}
        const CWordRuleCounts* m_pTable;
        int m_iKey;
    };

    CWordRuleCounts() = default;
    CWordRuleCounts(const CWordRuleCounts& other);
    CWordRuleCounts& operator=(const CWordRuleCounts& other);

    // Replaces the table: one row per key of mslKeywords, one zero slot per
    // distinct sub-rule index its list names (indexes outside 0..nSubRules-1
    // get none), nSubRules as the row length.
    void Build(const std::map<std::string, std::list<int>>& mslKeywords, size_t nSubRules);
    // Empties the table (no keys, row length 0).
    void clear();

    size_t size() const { return m_pLayout->vsKeys.size(); }  // number of keywords
    bool empty() const { return m_pLayout->vsKeys.empty(); }
    bool contains(const std::string& sWord) const { return FindKey(sWord) >= 0; }
    const std::vector<std::string>& keys() const { return m_pLayout->vsKeys; }  // byte order
    size_t SubRuleCount() const { return m_pLayout->nSubRules; }
    Row operator[](const std::string& sWord) const { return Row(this, FindKey(sWord)); }
    // The count of sWord for sub-rule iSubRule; 0 where there is no slot.
    int count(const std::string& sWord, size_t iSubRule) const;
    // Sets a count (tests fill tables by hand). False, nothing written, when
    // the pair has no slot.
    bool Set(const std::string& sWord, size_t iSubRule, int nCount);

    // ---- Slot access for the engine ----
    size_t SlotCount() const { return m_viCount.size(); }
    // Slot of (key number iKey, sub-rule), or -1.
    int FindSlot(int iKey, int iSubRule) const;
    int KeyIndex(const std::string& sWord) const { return FindKey(sWord); }
    int SlotValue(int iSlot) const { return m_viCount[static_cast<size_t>(iSlot)]; }
    int SlotSubRule(int iSlot) const {
        return m_pLayout->viSlotSubRule[static_cast<size_t>(iSlot)];
    }
    // Adds n (> 0) to a slot, saturating at INT_MAX; returns the old value.
    // Does not advance Version().
    int AddToSlot(int iSlot, int n);
    // Writes a slot without advancing Version() (the engine's reset).
    void RestoreSlot(int iSlot, int nValue) { m_viCount[static_cast<size_t>(iSlot)] = nValue; }
    unsigned long Version() const { return m_nVersion; }

  private:
    int FindKey(const std::string& sWord) const;
    void Touch();  // takes a new, process-unique version

    // The table's shape, made by Build and shared (read-only) by its copies,
    // so that a copy costs its counts only.
    struct Layout {
        std::vector<std::string> vsKeys;  // sorted by bytes
        std::vector<int> viRowBegin{0};   // slots of key k: [viRowBegin[k], viRowBegin[k + 1])
        std::vector<int> viSlotSubRule;   // sub-rule of each slot, ascending within a row
        size_t nSubRules = 0;
    };
    static const std::shared_ptr<const Layout>& EmptyLayout();

    std::shared_ptr<const Layout> m_pLayout = EmptyLayout();
    std::vector<int> m_viCount;    // count of each slot
    unsigned long m_nVersion = 0;  // changes with every write from outside the engine
};
