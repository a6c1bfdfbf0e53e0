// PDATSegment.cpp - segmentation of a text by forward maximum matching
// (MMSegment, MMSegmentSpans, FileSegment).
//
// The code translator cuts every input into dictionary words this way and
// translates word by word. From each start one Attempt (PDATWalk.h) walks
// the cells, remembering one candidate: the last word end reached, or the
// first character alone. A leaf ends the segment at once; a failed or
// unknown character writes the candidate and goes on right after it, so at
// most the bytes of one candidate's walk are read twice. Where no word
// starts, the character is a segment of its own, and an ASCII character
// outside the run stops " \t-_,.:/~#%^*()" takes the following ASCII bytes
// up to the next stop with it (so hello123 stays one segment). Segments are
// consecutive, each at most its own bytes plus the separator, so the output
// never exceeds 2 * len + 1 bytes and the handles len entries; the callers'
// buffers are sized at 6 * len + 1 bytes and len + 2 handles, which the
// translator reuses across calls.
#include "PDAT.h"

#include "PDATChars.h"
#include "PDATWalk.h"
#include "global_linux.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <vector>

using namespace pdat_walk;

namespace {

constexpr int kMaxSegmentLen = (INT_MAX - 1) / 6;  // keeps 6 * len + 1 in an int

// Bytes that end (and are never part of) an ASCII run. A table: the test
// runs for every byte of an ASCII run.
struct RunStopTable {
    bool stop[256] = {};
    RunStopTable() {
        stop[0] = true;
        for (const char* p = " \t-_,.:/~#%^*()"; *p; ++p)
            stop[static_cast<unsigned char>(*p)] = true;
    }
};
const RunStopTable kRunStops;

bool IsRunStop(unsigned char c) {
    return kRunStops.stop[c];
}

// Writes the segments as MMSegment's text (each followed by sep) and,
// when handles is not null, their handles (every segment's with
// bKeepUnknown, else dictionary words' only). Buffers sized by the caller.
struct TextSink {
    const unsigned char* s;
    int* handles;
    char* out;
    bool bKeepUnknown;
    char sep;
    int count = 0, nOut = 0;

    void Segment(int from, int n, int handle) {
        std::memcpy(out + nOut, s + from, static_cast<size_t>(n));
        nOut += n;
        out[nOut++] = sep;
        if (handles && (bKeepUnknown || handle != -1)) handles[count++] = handle;
    }
};

// Collects the segments as spans of the text.
struct SpanSink {
    std::vector<_stSegSpan>& spans;

    void Segment(int from, int n, int /*handle*/) { spans.push_back({from, n}); }
};

// One segmentation of len bytes of s: the cursor of the forward maximum
// matching walk, handing each segment to the sink in text order.
template <int kMode, typename Sink>
struct Segmenter {
    TrieView v;
    const unsigned char* s;
    int len;
    int maxLen;  // >= 1: a candidate's walk stops maxLen bytes past its start
    Sink& sink;

    Attempt a;  // a.matchLen is the candidate's length, a.handle its handle
    int i = 0;

    void EmitWord() {
        sink.Segment(a.start, a.matchLen, a.handle);
        a.handle = -1;
    }

    // The character of charLen bytes ending at i, and, when it is one byte
    // (below 0x80 if bAsciiOnly) outside the stop set, the ASCII run after it.
    void EmitRun(int charLen, bool bAsciiOnly) {
        const int from = i - charLen;
        const unsigned char c = s[i - 1];
        if (charLen == 1 && (!bAsciiOnly || c < 0x80) && !IsRunStop(c))
            while (i < len && s[i] < 0x80 && !IsRunStop(s[i])) ++i;
        sink.Segment(from, i - from, -1);
    }

    void Known(int dense, int charLen) {
        switch (a.Take(v, dense, charLen, i)) {
            case Took::kPrefix:
            case Took::kWordEnd:  // an inner word end: look for a longer word
                return;
            case Took::kLeaf:
                EmitWord();
                break;
            case Took::kFail:
                if (a.matchLen < 1) {
                    EmitRun(charLen, true);
                } else {
                    EmitWord();
                    i = a.start + a.matchLen;
                }
                break;
        }
        a.Restart(i);
    }

    void Unknown(int charLen) {
        const int cand = a.matchLen;
        if (cand > 0) EmitWord();
        if (cand == 0 || a.start + cand >= i - charLen)
            EmitRun(charLen, false);
        else  // rescan the bytes between the candidate and this character
            i = a.start + cand;
        a.Restart(i);
    }

    void Run() {
        while (!(i >= len && (a.start >= len || a.matchLen < 1))) {
            if (a.matchLen > 0 && (i == len || (maxLen >= 1 && i > a.start + maxLen))) {
                EmitWord();
                i = a.start + a.matchLen;
                a.Restart(i);
            }
            if (i >= len) break;
            int charLen = 0;
            const int code = pdat_chars::CharCodeAt<kMode>(s, i, len, &charLen);
            charLen = std::max(charLen, 1);
            i += charLen;
            const int dense = code >= 0 && code < 65536 ? v.charset[code] : -1;
            if (dense >= 0)
                Known(dense, charLen);
            else
                Unknown(charLen);
        }
    }
};

// Segments len bytes of s with the character reader of nMode.
template <typename Sink>
void RunSegmenter(int nMode, const TrieView& v, const unsigned char* s, int len, int maxLen,
                  Sink& sink) {
    pdat_chars::DispatchMode(nMode, [&](auto mode) {
        Segmenter<decltype(mode)::value, Sink> seg{v, s, len, maxLen, sink, Attempt{}, 0};
        seg.Run();
    });
}

// Makes *pBuf (malloc'd or null, *pCap elements) hold at least nNeed
// elements; false, leaving both untouched, when memory runs out.
template <typename T>
bool Reserve(T** pBuf, int* pCap, int nNeed) {
    if (*pBuf && *pCap >= nNeed) return true;
    void* p = std::realloc(*pBuf, sizeof(T) * static_cast<size_t>(nNeed));
    if (!p) return false;
    *pBuf = static_cast<T*>(p);
    *pCap = nNeed;
    return true;
}

}  // namespace

int CPDAT::SegmentInto(const unsigned char* s, int len, int* handles, char* out, bool bKeepUnknown,
                       int maxLen, char sep, int* pOut) const {
    TextSink sink{s, handles, out, bKeepUnknown, sep};
    if (len > 0) RunSegmenter(m_nMode, {m_pData, LastCell(), m_charset}, s, len, maxLen, sink);
    *pOut = sink.nOut;
    return sink.count;
}

int CPDAT::MMSegmentSpans(const char* text, int len, int maxLen,
                          std::vector<_stSegSpan>& spans) const {
    spans.clear();
    if (!text || len <= 0) return 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
    SpanSink sink{spans};
    RunSegmenter(m_nMode, {m_pData, LastCell(), m_charset}, s, len, maxLen, sink);
    return static_cast<int>(spans.size());
}

int CPDAT::MMSegment(const char* text, int** handles, int* handleCap, char** result, int* resultCap,
                     bool, bool bKeepUnknown, int maxLen, char sep) {
    if (!result || !resultCap) return 0;
    const int len = text ? ClampLen(strlen(text), kMaxSegmentLen) : 0;
    if (!*result || len * 6 >= *resultCap) {
        int nCap = 0;
        if (!Reserve(result, &nCap, len * 6 + 1)) return 0;
        *resultCap = nCap;
    }
    int* pHandles = nullptr;
    if (handles && handleCap) {
        if (!*handles || len + 1 >= *handleCap) {
            int nCap = 0;
            if (!Reserve(handles, &nCap, len + 2)) return 0;
            *handleCap = nCap;
        }
        pHandles = *handles;
    }
    int nOut = 0;
    const int count = SegmentInto(reinterpret_cast<const unsigned char*>(text), len, pHandles,
                                  *result, bKeepUnknown, maxLen, sep, &nOut);
    (*result)[nOut] = '\0';
    return count;
}

char* CPDAT::MMSegment(const char* text, int maxLen, char sep) {
    static char s_sNoText[1] = {0};
    const int len = text ? ClampLen(strlen(text), kMaxSegmentLen) : 0;
    if (!m_sResult || len * 6 >= m_nResultLen) {
        char* p = new (std::nothrow) char[static_cast<size_t>(len) * 6 + 1];
        if (!p) return s_sNoText;
        delete[] m_sResult;
        m_sResult = p;
        m_nResultLen = len * 6 + 1;
    }
    int nOut = 0;
    SegmentInto(reinterpret_cast<const unsigned char*>(text), len, nullptr, m_sResult, false,
                maxLen, sep, &nOut);
    m_sResult[nOut] = '\0';
    return m_sResult;
}

float CPDAT::FileSegment(const char* inPath, const char* outPath) {
    char* pRead = nullptr;
    const size_t nRead = ReadFile(inPath, &pRead);
    const std::unique_ptr<char[]> pText(pRead);
    if (nRead == 0) return 0;
    FilePtr out = OpenFile(outPath, "w");
    if (!out) return 0;
    const clock_t tStart = clock();
    const char* sResult = MMSegment(pText.get(), -1, '\t');
    const clock_t tEnd = clock();
    std::fputs(sResult, out.get());
    std::fputs("\n", out.get());
    out.reset();
    // Seconds as ticks / 1000000; a run below one tick counts as one.
    const double dSeconds = std::max<double>(static_cast<double>(tEnd - tStart), 1.0) / 1000000.0;
    return static_cast<float>(static_cast<double>(nRead) / dSeconds / 1000.0);
}
