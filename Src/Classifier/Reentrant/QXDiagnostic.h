// QXDiagnostic.h - problems found in a rule list, reported like a compiler.
//
// The reentrant interface collects every problem of a rule list instead of
// stopping at the first, each with the place it was found: a Diagnostic is
// one of them, FormatDiagnostic writes it as "file:line:col: error|warning:
// message" (lines and columns from 1, columns in bytes of the file as the
// caller gave it), and CLineTable turns byte offsets into those positions.
//
// Thread-safety: plain values; a CLineTable is immutable once built.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qx {

enum class Severity { kError, kWarning };

struct Diagnostic {
    std::string sFile;  // as the caller named it ("<text>" for text in memory)
    int nLine = 0;      // from 1; 0 when the problem has no place in the file
    int nColumn = 0;    // from 1, in bytes
    Severity eSeverity = Severity::kError;
    std::string sMessage;  // UTF-8
};

// "file:line:col: error: message" (or "warning"); without a line,
// "file: error: message".
std::string FormatDiagnostic(const Diagnostic& d);

// Every diagnostic formatted, one a line, each ending in "\n"; "" for none.
std::string FormatDiagnostics(const std::vector<Diagnostic>& vDiags);

// True when any diagnostic is an error.
bool HasErrors(const std::vector<Diagnostic>& vDiags);

// Line starts of a text, for turning byte offsets into line and column. A
// line ends after "\n"; "\r" is an ordinary byte of its line.
class CLineTable {
  public:
    explicit CLineTable(std::string_view text);
    // Line and column (both from 1, the column in bytes) of byte nOffset; an
    // offset at or past the end is placed just behind the last byte.
    void Position(size_t nOffset, int& nLine, int& nColumn) const;

  private:
    std::vector<size_t> m_vStarts;  // offset of each line's first byte, ascending
    size_t m_nSize;
};

}  // namespace qx
