// TextParserCounts.cpp - the sparse keyword-by-sub-rule count table.
//
// Layout: the keys in byte order; per key a run of slots [m_viRowBegin[k],
// m_viRowBegin[k + 1]), one per distinct sub-rule its keyword list names, in
// ascending sub-rule order (m_viSlotSubRule), and one count per slot
// (m_viCount). A (keyword, sub-rule) lookup is two binary searches. Every
// Build takes a fresh layout number that its copies share, so assigning a
// clean copy of the same layout copies only the counts. Versions come from
// one process-wide atomic counter, so two tables never share a version.
#include "TextParserCounts.h"

#include <algorithm>
#include <atomic>
#include <climits>

namespace {

std::atomic<unsigned long> g_nCountsVersion{0};

}  // namespace

int CWordRuleCounts::Row::operator[](size_t iSubRule) const {
    if (!m_pTable || m_iKey < 0 || iSubRule >= m_pTable->m_nSubRules) return 0;
    const int iSlot = m_pTable->FindSlot(m_iKey, static_cast<int>(iSubRule));
    return iSlot < 0 ? 0 : m_pTable->SlotValue(iSlot);
}

CWordRuleCounts::CWordRuleCounts(const CWordRuleCounts& other)
    : m_vsKeys(other.m_vsKeys),
      m_viRowBegin(other.m_viRowBegin),
      m_viSlotSubRule(other.m_viSlotSubRule),
      m_viCount(other.m_viCount),
      m_nSubRules(other.m_nSubRules),
      m_nLayout(other.m_nLayout) {
    Touch();
}

CWordRuleCounts& CWordRuleCounts::operator=(const CWordRuleCounts& other) {
    if (this == &other) return *this;
    if (m_nLayout != other.m_nLayout || m_nLayout == 0) {
        m_vsKeys = other.m_vsKeys;
        m_viRowBegin = other.m_viRowBegin;
        m_viSlotSubRule = other.m_viSlotSubRule;
        m_nSubRules = other.m_nSubRules;
        m_nLayout = other.m_nLayout;
    }
    m_viCount = other.m_viCount;  // same layout: only the counts differ
    Touch();
    return *this;
}

void CWordRuleCounts::Build(const std::map<std::string, std::list<int>>& mslKeywords,
                            size_t nSubRules) {
    m_vsKeys.clear();
    m_viRowBegin.assign(1, 0);
    m_viSlotSubRule.clear();
    m_nSubRules = nSubRules;
    std::vector<int> viRow;
    for (const auto& kv : mslKeywords) {
        m_vsKeys.push_back(kv.first);
        viRow.clear();
        for (int i : kv.second)
            if (i >= 0 && static_cast<size_t>(i) < nSubRules) viRow.push_back(i);
        std::sort(viRow.begin(), viRow.end());
        viRow.erase(std::unique(viRow.begin(), viRow.end()), viRow.end());
        m_viSlotSubRule.insert(m_viSlotSubRule.end(), viRow.begin(), viRow.end());
        m_viRowBegin.push_back(static_cast<int>(m_viSlotSubRule.size()));
    }
    m_viCount.assign(m_viSlotSubRule.size(), 0);
    m_nLayout = ++g_nCountsVersion;
    Touch();
}

void CWordRuleCounts::clear() {
    m_vsKeys.clear();
    m_viRowBegin.assign(1, 0);
    m_viSlotSubRule.clear();
    m_viCount.clear();
    m_nSubRules = 0;
    m_nLayout = 0;
    Touch();
}

int CWordRuleCounts::count(const std::string& sWord, size_t iSubRule) const {
    return (*this)[sWord][iSubRule];
}

bool CWordRuleCounts::Set(const std::string& sWord, size_t iSubRule, int nCount) {
    if (iSubRule >= m_nSubRules) return false;
    const int iSlot = FindSlot(FindKey(sWord), static_cast<int>(iSubRule));
    if (iSlot < 0) return false;
    m_viCount[static_cast<size_t>(iSlot)] = nCount;
    Touch();
    return true;
}

int CWordRuleCounts::FindSlot(int iKey, int iSubRule) const {
    if (iKey < 0 || static_cast<size_t>(iKey) >= m_vsKeys.size()) return -1;
    const auto itBegin = m_viSlotSubRule.begin() + m_viRowBegin[static_cast<size_t>(iKey)];
    const auto itEnd = m_viSlotSubRule.begin() + m_viRowBegin[static_cast<size_t>(iKey) + 1];
    const auto it = std::lower_bound(itBegin, itEnd, iSubRule);
    return (it != itEnd && *it == iSubRule) ? static_cast<int>(it - m_viSlotSubRule.begin()) : -1;
}

int CWordRuleCounts::AddToSlot(int iSlot, int n) {
    int& v = m_viCount[static_cast<size_t>(iSlot)];
    const int nOld = v;
    v = (nOld > INT_MAX - n) ? INT_MAX : nOld + n;
    return nOld;
}

int CWordRuleCounts::FindKey(const std::string& sWord) const {
    const auto it = std::lower_bound(m_vsKeys.begin(), m_vsKeys.end(), sWord);
    return (it != m_vsKeys.end() && *it == sWord) ? static_cast<int>(it - m_vsKeys.begin()) : -1;
}

void CWordRuleCounts::Touch() {
    m_nVersion = ++g_nCountsVersion;
}
