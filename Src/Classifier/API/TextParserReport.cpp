// TextParserReport.cpp - the result text of a classification and the
// detail report of one class.
//
// The class weights arrive in class-name order (the order of the weight map
// they stand for); a stable sort by weight, highest first, keeps name order
// among equal weights. With a negative certainty the automatic selection
// keeps at most three classes, cutting at the first clear drop. Weights are
// written as printf's "%.4f" would write them, without going through printf
// for ordinary values (see AppendFixed4).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "TextParser.h"
#include "TextParserIndex.h"

namespace {

// Appends f as printf's "%.4f" writes it. For |f| < 2^32 the product
// f * 10000 is exact in a double (24 + 14 significant bits), so rounding it
// to an integer in the current rounding mode (ties to even by default, as
// printf rounds) gives printf's digits; other values go through snprintf.
void AppendFixed4(std::string& s, float f) {
    const double x = std::fabs(static_cast<double>(f)) * 10000.0;
    if (!(x < 4294967296.0 * 10000.0)) {  // also NaN
        char sBuf[64];
        std::snprintf(sBuf, sizeof(sBuf), "%.4f", static_cast<double>(f));
        s += sBuf;
        return;
    }
    const long long n = std::llrint(x);
    if (std::signbit(f)) s += '-';
    s += std::to_string(n / 10000);
    const int nFrac = static_cast<int>(n % 10000);
    const char sFrac[6] = {'.',
                           char('0' + nFrac / 1000),
                           char('0' + nFrac / 100 % 10),
                           char('0' + nFrac / 10 % 10),
                           char('0' + nFrac % 10),
                           0};
    s += sFrac;
}

}  // namespace

// ======================================================================
// Result text
// ======================================================================

void CTextParser::fn_vGetClassification(std::map<std::string, float> msfOutputResult, int iType) {
    std::vector<_stResult> vstResult;
    vstResult.reserve(msfOutputResult.size());
    for (const auto& kv : msfOutputResult) vstResult.push_back(_stResult{kv.first, kv.second});
    AppendResults(vstResult, iType, m_sClassifyResult);
}

// Sorts results given in class-name order by weight (stably), applies the
// automatic selection for a negative certainty (vstResult keeps the chosen
// classes only) and appends the result text.
void CTextParser::AppendResults(std::vector<_stResult>& vstResult, int iType,
                                std::string& sResult) const {
    std::stable_sort(vstResult.begin(), vstResult.end(), CClasLess());
    size_t nKeep = vstResult.size();
    if (m_fCertainty < 0 && nKeep > 1) {  // at most three
        nKeep = 1;
        for (size_t i = 1; i <= 2 && i < vstResult.size(); ++i) {
            const float w0 = vstResult[i - 1].fWeight, w1 = vstResult[i].fWeight;
            if ((w0 - w1 > 0.15f && w1 < 0.8f) || w1 < 0.5f) break;
            nKeep = i + 1;
        }
    }
    vstResult.resize(nKeep);
    if (iType != 0 && iType != 1) return;
    for (size_t i = 0; i < nKeep; ++i) {
        sResult.append(vstResult[i].sClassName);
        if (iType == 1) {
            sResult.append(1, ' ');
            AppendFixed4(sResult, vstResult[i].fWeight);
        }
        sResult.append(1, '\t');
    }
}

// ======================================================================
// Detail report
// ======================================================================

void CTextParser::fn_vGetDetail(std::string sClassName) {
    Detail(m_vstSubRuleResult, m_vstRuleResult, sClassName, m_sDetail);
}

void CTextParser::Detail(const CDocument& doc, const std::string& sClassName,
                         std::string& sDetail) const {
    Detail(doc.subs, doc.rules, sClassName, sDetail);
}

void CTextParser::Detail(const std::vector<_stSubRuleResult>& vSubs,
                         const std::vector<_stRuleResult>& vRules, const std::string& sClassName,
                         std::string& sDetail) const {
    sDetail.clear();
    for (size_t r = 0; r < m_vstRules.size() && r < vRules.size(); ++r) {
        const _stRule& stRule = m_vstRules[r];
        if (stRule.sClass != sClassName || !vRules[r].bSuccess) continue;
        sDetail.append("RULE").append(std::to_string(r)).append(":\n");
        for (size_t j = 0; j < stRule.viSubRule.size(); ++j) {
            const int i = stRule.viSubRule[j];
            sDetail.append("SUBRULE").append(std::to_string(j + 1)).append(": ");
            if (i >= 0 && static_cast<size_t>(i) < vSubs.size()) sDetail.append(vSubs[i].sHitWord);
            sDetail.append("\n");
        }
        if (stRule.fEffecValue < 1.0f) {
            sDetail.append("Sim: ");
            AppendFixed4(sDetail, vRules[r].fVSMSim);
            sDetail.append("\n");
        }
    }
}
