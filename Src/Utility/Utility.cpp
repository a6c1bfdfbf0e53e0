// Utility.cpp - splitting, trimming and line-taking rules for GBK byte strings.
//
// Searching is done with memmem/strstr, which are linear in glibc, and every
// routine walks its input once: gfn_bSplit appends the pieces between hits,
// gfn_vReplaceSubstr copies the text between hits and the replacement into a
// fresh string and swaps it in at the end (the same result as replacing in
// place and resuming behind the inserted text, without re-copying the tail on
// every hit). StrLine looks for the marker '^' only inside the current line
// when the line has an end, because a first '^' at or beyond the line end can
// never satisfy the marker rule; so walking a whole text line by line stays
// linear. deleteChar compacts in place (the write position never passes the
// read position) and zero-fills the freed tail. ParseImportEntry finds the
// first token by hand (the same blank set as scanf's %s in the C locale), so
// the token has no length limit.
#include "Utility.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view::size_type kNotFound = std::string_view::npos;

// Offset of the first occurrence of sNeedle (not empty) in sHay at or after
// nFrom (nFrom <= size), or kNotFound.
size_t FindBytes(std::string_view sHay, size_t nFrom, std::string_view sNeedle) {
    const void* pHit =
        memmem(sHay.data() + nFrom, sHay.size() - nFrom, sNeedle.data(), sNeedle.size());
    if (!pHit) return kNotFound;
    return static_cast<size_t>(static_cast<const char*>(pHit) - sHay.data());
}

// Blank, tab, carriage return or line feed.
bool IsAsciiBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The pair at p is A1 A1 (ideographic space) or A3 A0 (full-width space form).
bool IsWideBlank(const char* p) {
    const unsigned char b0 = static_cast<unsigned char>(p[0]);
    const unsigned char b1 = static_cast<unsigned char>(p[1]);
    return (b0 == 0xA1 && b1 == 0xA1) || (b0 == 0xA3 && b1 == 0xA0);
}

// Applies the "^^" rule to the line [pStart, pEnd) (pEnd null: no CR/LF, the
// line runs to the terminator). Moves pStart/pEnd as the rule says and returns
// the status: 1 when the line became the text of a marked run, else 0.
int CutMarkedRun(char*& pStart, char*& pEnd) {
    char* p;
    if (pEnd) {
        p = static_cast<char*>(memchr(pStart, '^', static_cast<size_t>(pEnd - pStart)));
        if (!p || pEnd - p <= 2 || p[1] != '^') return 0;
    } else {
        p = strchr(pStart, '^');
        if (!p || p[1] == '\0') return 0;  // nothing after p + 1 to search
    }
    char* pClose = strchr(p + 2, '^');
    if (!pClose || pClose[1] != '^') return 0;
    if (pStart == p) {
        pStart = p + 2;
        *pClose = '\0';
        pEnd = pClose + 2;
        return 1;
    }
    pEnd = p;  // the run comes out as the next line
    return 0;
}

// Blank, tab, LF, VT, FF or CR: what ends a token of an import line.
bool IsTokenBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

bool gfn_bSplit(const char* lpszText, std::vector<std::string>& vResult,
                const char* lpszDelimiter) {
    vResult.clear();
    if (!lpszText || !*lpszText) return false;
    const std::string_view sText(lpszText);
    const std::string_view sDelim(lpszDelimiter ? lpszDelimiter : "");
    if (sDelim.empty()) {
        vResult.emplace_back(sText);
        return true;
    }
    size_t nFrom = 0;
    for (size_t nHit = FindBytes(sText, 0, sDelim); nHit != kNotFound;
         nHit = FindBytes(sText, nFrom, sDelim)) {
        if (nHit > nFrom) vResult.emplace_back(sText.substr(nFrom, nHit - nFrom));
        nFrom = nHit + sDelim.size();
    }
    if (nFrom < sText.size()) vResult.emplace_back(sText.substr(nFrom));
    return true;
}

bool gfn_bTrimWord(std::string& sWord) {
    if (sWord.empty()) return false;
    size_t nBegin = 0;
    size_t nEnd = sWord.size();
    for (size_t nBefore = kNotFound; nBefore != nBegin;) {
        nBefore = nBegin;
        while (nBegin < nEnd && IsAsciiBlank(sWord[nBegin])) ++nBegin;
        while (nEnd - nBegin >= 2 && IsWideBlank(&sWord[nBegin])) nBegin += 2;
    }
    for (size_t nBefore = kNotFound; nBefore != nEnd;) {
        nBefore = nEnd;
        while (nEnd > nBegin && IsAsciiBlank(sWord[nEnd - 1])) --nEnd;
        while (nEnd - nBegin >= 2 && IsWideBlank(&sWord[nEnd - 2])) nEnd -= 2;
    }
    sWord.erase(nEnd);
    sWord.erase(0, nBegin);
    return true;
}

unsigned int gfn_vReplaceSubstr(std::string& sString, const char* sSubOld, const char* sSubNew) {
    if (sString.empty() || !sSubOld || !*sSubOld) return 0;
    const std::string_view sOld(sSubOld);
    const std::string_view sNew(sSubNew ? sSubNew : "");
    size_t nHit = FindBytes(sString, 0, sOld);
    if (nHit == kNotFound) return 0;
    // Built aside and swapped in last, so sSubOld/sSubNew may point into sString.
    std::string sOut;
    sOut.reserve(sString.size());
    unsigned int nCount = 0;
    size_t nFrom = 0;
    for (; nHit != kNotFound; nHit = FindBytes(sString, nFrom, sOld)) {
        sOut.append(sString, nFrom, nHit - nFrom);
        sOut.append(sNew);
        ++nCount;
        nFrom = nHit + sOld.size();
    }
    sOut.append(sString, nFrom, std::string::npos);
    sString.swap(sOut);
    return nCount;
}

char* StrLine(char* pCur, char** pNextRet, char* chSep, int* n_pStatus,
              bool bInvalidCharConsidered) {
    if (n_pStatus) *n_pStatus = 0;
    if (chSep) *chSep = '\0';
    char* pStart = pCur;
    if (pStart) {
        while (IsAsciiBlank(*pStart)) ++pStart;
    }
    if (!pStart || !*pStart) {
        if (pNextRet) *pNextRet = nullptr;
        return nullptr;
    }
    char* pEnd = strpbrk(pStart, "\r\n");
    if (bInvalidCharConsidered) {
        const int nStatus = CutMarkedRun(pStart, pEnd);
        if (n_pStatus) *n_pStatus = nStatus;
    }
    if (pEnd) {
        if (chSep) *chSep = *pEnd;
        *pEnd = '\0';
    }
    if (pNextRet) *pNextRet = pEnd;
    return pStart;
}

void trim(std::string& s, char ch) {
    const size_t nLast = s.find_last_not_of(ch);
    if (nLast == std::string::npos) {
        s.clear();
        return;
    }
    s.erase(nLast + 1);
    s.erase(0, s.find_first_not_of(ch));
}

unsigned int deleteChar(char* source, unsigned int nLen, char ch) {
    if (!source || nLen == 0) return 0;
    unsigned int nKept = 0;
    for (unsigned int i = 0; i < nLen; ++i) {
        if (source[i] != ch) source[nKept++] = source[i];
    }
    memset(source + nKept, 0, nLen - nKept);
    return nKept;
}

int Getchar(const char* str, char* ch) {
    if (!str) return 0;
    int nLen = 0;
    if (str[0] != '\0') nLen = ((static_cast<unsigned char>(str[0]) & 0x80) && str[1]) ? 2 : 1;
    if (ch) {
        memcpy(ch, str, static_cast<size_t>(nLen));
        ch[nLen] = '\0';
    }
    return nLen;
}

const char* CC_Find(const char* sStr, const char* sSub) {
    if (!sStr || !sSub || !*sSub) return nullptr;
    const char* pHit = strstr(sStr, sSub);
    if (!pHit || (pHit - sStr) % 2 != 0) return nullptr;
    return pHit;
}

std::string BracketText(const char* sLine) {
    const char* pOpen = sLine ? std::strchr(sLine, '[') : nullptr;
    if (!pOpen) return std::string();
    const char* pClose = std::strchr(pOpen, ']');
    if (!pClose) {
        pClose = pOpen + std::strlen(pOpen);
        while (pClose > pOpen && (pClose[-1] == '\n' || pClose[-1] == '\r')) --pClose;
    }
    return std::string(pOpen, pClose);
}

bool ParseImportEntry(const char* sLine, std::string& sEntry) {
    const char* p = sLine;
    while (p && IsTokenBlank(*p)) ++p;
    if (!p || !*p) return false;
    if (std::strncmp(p, "\xEF\xBB\xBF", 3) == 0) p += 3;
    if (*p == '[') {
        sEntry = BracketText(sLine);
    } else {
        const char* pEnd = p;
        while (*pEnd && !IsTokenBlank(*pEnd)) ++pEnd;
        sEntry.assign(p, pEnd);
    }
    std::replace(sEntry.begin(), sEntry.end(), '_', ' ');
    return true;
}
