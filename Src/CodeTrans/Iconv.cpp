// Iconv.cpp - whole-text conversion over a fixed-size output window.
//
// Convert feeds the input to iconv through a stack buffer of 4 KB, appending
// each filled window to the result, so any text size converts in one loop
// without guessing the output length. E2BIG only means "window full"; EILSEQ
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
    bool bExact = true;
    char buf[4096];
    for (bool bFlush = false;;) {
        char* pOut = buf;
        size_t nOut = sizeof buf;
        const size_t r = bFlush ? iconv(m_cd, nullptr, nullptr, &pOut, &nOut)
                                : iconv(m_cd, &pIn, &nIn, &pOut, &nOut);
        const int nErr = errno;
        out.append(buf, static_cast<size_t>(pOut - buf));
        if (r == static_cast<size_t>(-1)) {
            if (nErr == E2BIG) continue;
            bExact = false;
            if (bFlush || eBad == OnBad::kStop || nIn == 0) return false;
            if (eBad == OnBad::kMark) out += '?';
            ++pIn;
            --nIn;
            continue;
        }
        if (r != 0) bExact = false;  // lossy conversions counted by iconv
        if (bFlush) return bExact;
        if (nIn == 0) bFlush = true;
    }
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
