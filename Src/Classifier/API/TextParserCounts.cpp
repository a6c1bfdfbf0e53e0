// TextParserCounts.cpp - the sparse keyword-by-sub-rule count table.
//
// Layout: the keys in byte order; per key a run of slots [viRowBegin[k],
// viRowBegin[k + 1]), one per distinct sub-rule its keyword list names, in
// ascending sub-rule order (viSlotSubRule), and one count per slot
// (m_viCount). A (keyword, sub-rule) lookup is two binary searches. The
// layout (keys, rows, slot sub-rules) is made once by Build and shared by
// every copy, read-only, so a copy (a matcher's document state, the engine's
// reset to the clean copy) costs only its counts. Versions come from
// one process-wide atomic counter, so two tables never share a version.
#include "TextParserCounts.h"

#include <algorithm>
#include <atomic>
#include <climits>

namespace {

std::atomic<unsigned long> g_nCountsVersion{0};

}  // namespace

int CWordRuleCounts::Row::operator[](size_t iSubRule) const {
    if (!m_pTable || m_iKey < 0 || iSubRule >= m_pTable->SubRuleCount()) return 0;
    const int iSlot = m_pTable->FindSlot(m_iKey, static_cast<int>(iSubRule));
    return iSlot < 0 ? 0 : m_pTable->SlotValue(iSlot);
}

const std::shared_ptr<const CWordRuleCounts::Layout>& CWordRuleCounts::EmptyLayout() {
    static const std::shared_ptr<const Layout> pEmpty = std::make_shared<const Layout>();
    return pEmpty;
}

CWordRuleCounts::CWordRuleCounts(const CWordRuleCounts& other)
    : m_pLayout(other.m_pLayout), m_viCount(other.m_viCount) {
    Touch();
}

CWordRuleCounts& CWordRuleCounts::operator=(const CWordRuleCounts& other) {
    if (this == &other) return *this;
    m_pLayout = other.m_pLayout;  // a copy of the same Build shares it already
    m_viCount = other.m_viCount;
    Touch();
    return *this;
}

void CWordRuleCounts::Build(const std::map<std::string, std::list<int>>& mslKeywords,
                            size_t nSubRules) {
    auto pLayout = std::make_shared<Layout>();
    pLayout->nSubRules = nSubRules;
    std::vector<int> viRow;
    for (const auto& kv : mslKeywords) {
        pLayout->vsKeys.push_back(kv.first);
        viRow.clear();
        for (int i : kv.second)
            if (i >= 0 && static_cast<size_t>(i) < nSubRules) viRow.push_back(i);
        std::sort(viRow.begin(), viRow.end());
        viRow.erase(std::unique(viRow.begin(), viRow.end()), viRow.end());
        pLayout->viSlotSubRule.insert(pLayout->viSlotSubRule.end(), viRow.begin(), viRow.end());
        pLayout->viRowBegin.push_back(static_cast<int>(pLayout->viSlotSubRule.size()));
    }
    m_viCount.assign(pLayout->viSlotSubRule.size(), 0);
    m_pLayout = std::move(pLayout);
    Touch();
}

void CWordRuleCounts::clear() {
    m_pLayout = EmptyLayout();
    m_viCount.clear();
    Touch();
}

int CWordRuleCounts::count(const std::string& sWord, size_t iSubRule) const {
    return (*this)[sWord][iSubRule];
}

bool CWordRuleCounts::Set(const std::string& sWord, size_t iSubRule, int nCount) {
    if (iSubRule >= SubRuleCount()) return false;
    const int iSlot = FindSlot(FindKey(sWord), static_cast<int>(iSubRule));
    if (iSlot < 0) return false;
    m_viCount[static_cast<size_t>(iSlot)] = nCount;
    Touch();
    return true;
}

int CWordRuleCounts::FindSlot(int iKey, int iSubRule) const {
    const Layout& l = *m_pLayout;
    if (iKey < 0 || static_cast<size_t>(iKey) >= l.vsKeys.size()) return -1;
    const auto itBegin = l.viSlotSubRule.begin() + l.viRowBegin[static_cast<size_t>(iKey)];
    const auto itEnd = l.viSlotSubRule.begin() + l.viRowBegin[static_cast<size_t>(iKey) + 1];
    const auto it = std::lower_bound(itBegin, itEnd, iSubRule);
    return (it != itEnd && *it == iSubRule) ? static_cast<int>(it - l.viSlotSubRule.begin()) : -1;
}

int CWordRuleCounts::AddToSlot(int iSlot, int n) {
    int& v = m_viCount[static_cast<size_t>(iSlot)];
    const int nOld = v;
    v = (nOld > INT_MAX - n) ? INT_MAX : nOld + n;
    return nOld;
}

int CWordRuleCounts::FindKey(const std::string& sWord) const {
    const std::vector<std::string>& vsKeys = m_pLayout->vsKeys;
    const auto it = std::lower_bound(vsKeys.begin(), vsKeys.end(), sWord);
    return (it != vsKeys.end() && *it == sWord) ? static_cast<int>(it - vsKeys.begin()) : -1;
}

void CWordRuleCounts::Touch() {
    m_nVersion = ++g_nCountsVersion;
}
