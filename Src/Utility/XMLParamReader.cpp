// XMLParamReader.cpp - tagged parameter lookups over an index of tag offsets.
//
// The plain reading of a path searches the text from the start for every
// segment's tags, so a rule list of n rules asked for ~10 keys per rule is
// scanned 10n times. Instead the reader indexes the text once: for every '<'
// it records the offset under the natural tag starting there (the bytes up to
// and including the next '>'), in ascending order. A needle "<...>" whose
// first '>' is its last byte occurs at offset i exactly when the natural tag
// at i equals the needle, because the text at i then has no '>' before
// i + len - 1; so its first occurrence at or after the cursor is the first
// offset >= cursor in that tag's list (a binary search). A needle with an
// inner '>' is looked up by its prefix up to the first '>' and the rest is
// compared at each candidate. Every '<' is a start of its own, so nested and
// overlapping tags ("<<a>", "<a><a>" self-overlaps) are all present, and the
// results equal those of strstr. Natural tags longer than any tag a path can
// produce are not indexed; needles that would need them are searched plainly.
//
// A lookup then walks the segments with the cursor behind each opening tag and
// copies only the last segment's value (earlier ones are overwritten unread in
// the plain reading, so this is the same result).
#include "XMLParamReader.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Utility.h"
#include "global_linux.h"

namespace {

// A path segment holds at most this many bytes; the rest of it is dropped.
constexpr size_t kMaxSegment = 99;

// Stops the program the way a failed assert does, in every build type.
[[noreturn]] void FailPrecondition(const char* sExpr, const char* sFile, int nLine,
                                   const char* sFunc) {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", sFile, nLine, sFunc, sExpr);
    std::abort();
}

// The text between the tags with CR, LF and TAB deleted and blanks trimmed.
std::string CleanValue(const char* pBegin, const char* pEnd) {
    std::string sValue;
    sValue.reserve(static_cast<size_t>(pEnd - pBegin));
    for (const char* p = pBegin; p < pEnd; ++p) {
        if (*p != '\r' && *p != '\n' && *p != '\t') sValue.push_back(*p);
    }
    trim(sValue, ' ');
    return sValue;
}

// atoi as glibc defines it ((int)strtol), without atoi's undefined overflow.
int ToInt(const std::string& sValue) {
    return static_cast<int>(std::strtol(sValue.c_str(), nullptr, 10));
}

// The float nearest to d under IEEE round-to-nearest, including the values
// beyond FLT_MAX for which a plain cast would be undefined.
float ToFloat(double d) {
    if (!(std::fabs(d) > FLT_MAX)) return static_cast<float>(d);  // NaN included
    const double dHalfwayToInf = 0x1.ffffffp127;                  // FLT_MAX + half an ulp
    const float fBeyond = std::fabs(d) >= dHalfwayToInf ? HUGE_VALF : FLT_MAX;
    return std::signbit(d) ? -fBeyond : fBeyond;
}

}  // namespace

// ---- CTagIndex --------------------------------------------------------------

void CTagIndex::Build(const char* pText, size_t nLen) noexcept {
    m_mTagOffsets.clear();
    m_pText = pText;
    m_nLen = pText ? nLen : 0;
    m_bIndexed = false;
    try {
        const char* const pEnd = m_pText + m_nLen;
        for (const char* p = m_pText; p < pEnd;) {
            p = static_cast<const char*>(memchr(p, '<', static_cast<size_t>(pEnd - p)));
            if (!p) break;
            const size_t nWindow = std::min<size_t>(kMaxIndexedTag - 1, pEnd - p - 1);
            const char* pGt = static_cast<const char*>(memchr(p + 1, '>', nWindow));
            if (pGt) {
                const std::string_view sTag(p, static_cast<size_t>(pGt - p) + 1);
                m_mTagOffsets[sTag].push_back(static_cast<size_t>(p - m_pText));
            }
            ++p;
        }
        m_bIndexed = true;
    } catch (const std::bad_alloc&) {
        m_mTagOffsets.clear();  // Find falls back to the plain search
    }
}

size_t CTagIndex::Find(std::string_view sNeedle, size_t nFrom) const {
    if (nFrom > m_nLen) return npos;
    const size_t nGt = sNeedle.find('>');
    if (!m_bIndexed || sNeedle.empty() || sNeedle[0] != '<' || nGt == std::string_view::npos ||
        nGt >= kMaxIndexedTag) {
        return FindPlain(sNeedle, nFrom);
    }
    const std::string_view sKey = sNeedle.substr(0, nGt + 1);
    const auto it = m_mTagOffsets.find(sKey);
    if (it == m_mTagOffsets.end()) return npos;
    const std::string_view sRest = sNeedle.substr(sKey.size());
    const std::vector<size_t>& vOffsets = it->second;
    for (auto pos = std::lower_bound(vOffsets.begin(), vOffsets.end(), nFrom);
         pos != vOffsets.end(); ++pos) {
        const size_t nAfterKey = *pos + sKey.size();
        if (m_nLen - nAfterKey < sRest.size()) return npos;  // later ones end further out
        if (sRest.compare(std::string_view(m_pText + nAfterKey, sRest.size())) == 0) return *pos;
    }
    return npos;
}

size_t CTagIndex::FindPlain(std::string_view sNeedle, size_t nFrom) const {
    if (sNeedle.empty()) return nFrom;
    if (!m_pText) return npos;
    const void* pHit = memmem(m_pText + nFrom, m_nLen - nFrom, sNeedle.data(), sNeedle.size());
    return pHit ? static_cast<size_t>(static_cast<const char*>(pHit) - m_pText) : npos;
}

// ---- CXMLParamReader --------------------------------------------------------

CXMLParamReader::CXMLParamReader(const char* sParamFile) {
    // The message "Can't open the param file: %s" is deliberately not written
    // here: an unreadable file only shows as lookups failing without a message.
    char* pRead = nullptr;
    ReadFile(sParamFile, &pRead);  // 0 bytes: pRead null (unreadable) or "" (empty)
    if (pRead) {
        const size_t nLen = strlen(pRead);
        m_pParamBuffer = static_cast<char*>(std::malloc(nLen + 1));
        if (m_pParamBuffer) memcpy(m_pParamBuffer, pRead, nLen + 1);
        delete[] pRead;
    }
    if (m_pParamBuffer) m_nTextLen = strlen(m_pParamBuffer);
    m_cTagIndex.Build(m_pParamBuffer, m_nTextLen);
}

CXMLParamReader::CXMLParamReader(const char* sParamBuf, int nBufLen) {
    if (sParamBuf == nullptr || nBufLen <= 0) {
        FailPrecondition("sParamBuf!=NULL && nBufLen>0", __FILE__, __LINE__, __func__);
    }
    const size_t nBytes = static_cast<size_t>(nBufLen);
    m_pParamBuffer = static_cast<char*>(std::calloc(nBytes + 1, 1));
    if (m_pParamBuffer) {
        memcpy(m_pParamBuffer, sParamBuf, nBytes);
        m_nTextLen = strlen(m_pParamBuffer);
    }
    m_cTagIndex.Build(m_pParamBuffer, m_nTextLen);
}

CXMLParamReader::~CXMLParamReader() {
    std::free(m_pParamBuffer);
}

bool CXMLParamReader::getParamString(const char* paramPath, std::string& value) {
    value.clear();
    if (paramPath == nullptr || m_pParamBuffer == nullptr) return false;
    try {
        return LookUp(paramPath, value);
    } catch (const std::bad_alloc&) {
        value.clear();
        return false;
    }
}

bool CXMLParamReader::LookUp(const char* paramPath, std::string& value) {
    size_t nCursor = 0;
    size_t nValueBegin = 0;
    size_t nValueEnd = 0;
    for (const char* pSegment = paramPath;;) {
        const char* pDot = strchr(pSegment, '.');
        const size_t nSegmentLen = pDot ? static_cast<size_t>(pDot - pSegment) : strlen(pSegment);
        const std::string_view sSegment(pSegment, std::min(nSegmentLen, kMaxSegment));
        const std::string sOpenTag = "<" + std::string(sSegment) + ">";
        const std::string sCloseTag =
            "</" + std::string(sSegment.substr(0, sSegment.find(' '))) + ">";

        const size_t nOpen = m_cTagIndex.Find(sOpenTag, nCursor);
        if (nOpen == CTagIndex::npos) return TagNotFound(sOpenTag);
        nCursor = nOpen + sOpenTag.size();
        const size_t nClose = m_cTagIndex.Find(sCloseTag, nCursor);
        if (nClose == CTagIndex::npos) return TagNotFound(sOpenTag);
        nValueBegin = nCursor;
        nValueEnd = nClose;

        if (!pDot) break;
        pSegment = pDot + 1;
    }
    value = CleanValue(m_pParamBuffer + nValueBegin, m_pParamBuffer + nValueEnd);
    return true;
}

bool CXMLParamReader::TagNotFound(const std::string& sOpenTag) {
    std::snprintf(m_sErrMsg, sizeof(m_sErrMsg), "Can't find the tag: %s", sOpenTag.c_str());
    return false;
}

bool CXMLParamReader::getParamInt(const char* paramPath, int& value) {
    std::string sValue;
    if (!getParamString(paramPath, sValue)) return false;
    value = ToInt(sValue);
    return true;
}

bool CXMLParamReader::getParamFloat(const char* paramPath, float& value) {
    std::string sValue;
    if (!getParamString(paramPath, sValue)) return false;
    value = ToFloat(std::atof(sValue.c_str()));
    return true;
}

bool CXMLParamReader::getParamDouble(const char* paramPath, double& value) {
    std::string sValue;
    if (!getParamString(paramPath, sValue)) return false;
    value = std::atof(sValue.c_str());
    return true;
}
