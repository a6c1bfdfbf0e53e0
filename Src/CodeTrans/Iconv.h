// Iconv.h - one owner of a glibc iconv conversion for the library, its tools,
// benchmarks and tests.
//
// CIconv opens one conversion (iconv names, such as "GBK" or "UTF-8") and
// keeps it for many texts; every call starts from the initial shift state.
// Convert takes a whole text and says what to do with a sequence the source
// cannot decode or the target cannot hold; Run is the single pass into a
// caller's buffer for callers that size their own output.
//
// Ownership: the object owns its descriptor. Not copyable.
// Thread-safety: none; an object is used by one thread at a time (open one per
// thread: the descriptor carries conversion state).
#pragma once

#include <iconv.h>

#include <cstddef>
#include <string>

class CIconv {
  public:
    // What Convert does at a sequence that does not convert.
    enum class OnBad {
        kStop,  // stop there: out holds what was converted before it
        kSkip,  // drop its first byte and go on
        kMark,  // write '?' for its first byte and go on
    };

    // Opens the conversion sFrom -> sTo. IsOpen() tells whether iconv knows
    // the pair; a closed object converts nothing.
    CIconv(const char* sTo, const char* sFrom);
    ~CIconv();
    CIconv(const CIconv&) = delete;
    CIconv& operator=(const CIconv&) = delete;

    bool IsOpen() const { return m_cd != reinterpret_cast<iconv_t>(-1); }

    // Converts the n bytes at p into out (replaced). True when every byte
    // converted exactly: no invalid, truncated or unrepresentable sequence and
    // no lossy ("irreversible") conversion. On a bad sequence, eBad says
    // whether to stop or go on; the result is then false either way. A closed
    // descriptor gives false and an empty out; n == 0 gives true.
    bool Convert(const char* p, size_t n, std::string& out, OnBad eBad = OnBad::kStop);
    bool Convert(const std::string& sIn, std::string& out, OnBad eBad = OnBad::kStop) {
        return Convert(sIn.data(), sIn.size(), out, eBad);
    }

    // One iconv pass over [pIn, pIn + nIn) into pOut (nOutCap bytes), from the
    // initial state. Returns the bytes written; bComplete tells whether all
    // input was taken (false too for a closed descriptor).
    size_t Run(const char* pIn, size_t nIn, char* pOut, size_t nOutCap, bool& bComplete);

  private:
    iconv_t m_cd;
};
