// QXDiagnostic.cpp - formatting of diagnostics and the line-start table.
//
// CLineTable keeps the offset of every line start in ascending order, so a
// position is one binary search (upper_bound) away.
#include "QXDiagnostic.h"

#include <algorithm>

namespace qx {

std::string FormatDiagnostic(const Diagnostic& d) {
    std::string s = d.sFile;
    if (d.nLine > 0) s += ":" + std::to_string(d.nLine) + ":" + std::to_string(d.nColumn);
    s += d.eSeverity == Severity::kError ? ": error: " : ": warning: ";
    return s + d.sMessage;
}

std::string FormatDiagnostics(const std::vector<Diagnostic>& vDiags) {
    std::string s;
    for (const Diagnostic& d : vDiags) s += FormatDiagnostic(d) + "\n";
    return s;
}

bool HasErrors(const std::vector<Diagnostic>& vDiags) {
    return std::any_of(vDiags.begin(), vDiags.end(),
                       [](const Diagnostic& d) { return d.eSeverity == Severity::kError; });
}

CLineTable::CLineTable(std::string_view text) : m_vStarts{0}, m_nSize(text.size()) {
    for (size_t i = text.find('\n'); i != std::string_view::npos; i = text.find('\n', i + 1))
        m_vStarts.push_back(i + 1);
}

void CLineTable::Position(size_t nOffset, int& nLine, int& nColumn) const {
    nOffset = std::min(nOffset, m_nSize);
    const auto it = std::upper_bound(m_vStarts.begin(), m_vStarts.end(), nOffset) - 1;
    nLine = static_cast<int>(it - m_vStarts.begin()) + 1;
    nColumn = static_cast<int>(nOffset - *it) + 1;
}

}  // namespace qx
