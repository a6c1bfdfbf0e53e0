// Iconv.cpp - whole-text conversion into a growing string.
//
// Convert sizes the result for the worst common case (4 bytes out per byte
// in) and lets iconv write into it directly, so a whole text usually converts
// in one iconv call, the fastest way to use it; E2BIG only means "result
// full" and doubles it. EILSEQ
// (bad or unrepresentable sequence) and EINVAL (sequence cut off by the end)
// are the bad sequences that OnBad decides about. After the input comes the
// flush call that writes any pending shift state.
#include "Iconv.h"

#include <cerrno>

CIconv::CIconv(const char* sTo, const char* sFrom) : m_cd(iconv_open(sTo, sFrom)) {}

CIconv::~CIconv() {
    if (IsOpen()) iconv_close(m_cd);
}

bool CIconv::Convert(const char* p, size_t n, std::string& out, OnBad eBad) {
    out.clear();
    if (!IsOpen()) return false;
    iconv(m_cd, nullptr, nullptr, nullptr, nullptr);
    // iconv never writes through its input pointer; the cast is for its signature.
    char* pIn = const_cast<char*>(p);
    size_t nIn = n;
    size_t nUsed = 0;
    bool bExact = true;
    out.resize(4 * n + 16);
    for (bool bFlush = false;;) {
        char* pOut = out.data() + nUsed;
        size_t nOut = out.size() - nUsed;
        const size_t r = bFlush ? iconv(m_cd, nullptr, nullptr, &pOut, &nOut)
                                : iconv(m_cd, &pIn, &nIn, &pOut, &nOut);
        const int nErr = errno;
        nUsed = out.size() - nOut;
        if (r == static_cast<size_t>(-1)) {
            if (nErr == E2BIG) {
                out.resize(2 * out.size());
                continue;
            }
            bExact = false;
            if (bFlush || eBad == OnBad::kStop || nIn == 0) break;
            if (eBad == OnBad::kMark) {
                if (nUsed == out.size()) out.resize(2 * out.size());
                out[nUsed++] = '?';
            }
            ++pIn;
            --nIn;
            continue;
        }
        if (r != 0) bExact = false;  // lossy conversions counted by iconv
        if (bFlush) break;
        if (nIn == 0) bFlush = true;
    }
    out.resize(nUsed);
    return bExact;
}

size_t CIconv::Run(const char* pIn, size_t nIn, char* pOut, size_t nOutCap, bool& bComplete) {
    bComplete = false;
    if (!IsOpen()) return 0;
    iconv(m_cd, nullptr, nullptr, nullptr, nullptr);
    char* pInCursor = const_cast<char*>(pIn);
    char* pOutCursor = pOut;
    size_t nOutLeft = nOutCap;
    const size_t r = iconv(m_cd, &pInCursor, &nIn, &pOutCursor, &nOutLeft);
    bComplete = r != static_cast<size_t>(-1) && nIn == 0;
    return nOutCap - nOutLeft;
}
