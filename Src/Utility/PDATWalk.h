// PDATWalk.h - how the dictionary's walks read its cells (internal, not installed).
//
// Every read operation of a completed CPDAT walks the double array the same
// way: from the root (no cell; prev -2, base 0) the child for dense code d
// is cell abs(base) + d, valid when it lies in 0..last and names the cell
// walked from in its `check`. A cell with base <= 0 is a word end, and one
// whose abs(base) is its own index is a leaf (a word end without children).
// This header holds that one transition step (Cursor), the attempt built on
// it that the scans and the segmentation share (Attempt), the Latin-word
// boundary test of the scans, and the full scan's output sinks, so that the
// lookups (PDATFind.cpp), the full scan (PDATScan.cpp), the segmentation
// (PDATSegment.cpp) and the export (PDATFile.cpp) read cells identically.
//
// Everything here reads at most the cells 0..TrieView::last, so a damaged or
// empty dictionary fails transitions instead of reading out of bounds.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "PDAT.h"

namespace pdat_walk {

// The longest text a scan reads: keeps 5 * len + 1 in an int.
constexpr int kMaxScanLen = (INT_MAX - 1) / 5;

// The cells a walk may read and the character map.
struct TrieView {
    const state* cells;
    long long last;  // highest readable cell; -1 when there is none
    const int* charset;
};

inline long long Abs(int x) {
    return x < 0 ? -static_cast<long long>(x) : x;
}

inline bool InRange(const TrieView& v, long long p) {
    return p >= 0 && p <= v.last;
}

// The position of a walk: the cell reached (prev) and where its children start.
struct Cursor {
    long long base = 0;  // abs(base) of the cell reached; 0 at the root
    int prev = -2;       // the cell reached; -2 at the root

    void Reset() { base = 0, prev = -2; }

    // One transition: moves to the child of dense code d (d >= 0) and
    // returns its cell, or returns -1 and stays when there is none. With
    // bCheckCell0 false, cell 0 is accepted whatever its check: Find and
    // GetMaxWord read it so, and saved dictionaries depend on those answers.
    template <bool bCheckCell0 = true>
    long long Step(const TrieView& v, int d) {
        const long long p = base + d;
        if (!InRange(v, p)) return -1;
        if ((bCheckCell0 || p > 0) && v.cells[p].check != prev) return -1;
        prev = static_cast<int>(p);
        base = Abs(v.cells[p].base);
        return p;
    }
};

// What one character did to an attempt.
enum class Took { kFail, kPrefix, kWordEnd, kLeaf };

// An attempt of the scans and the segmentation: a walk down the cells from
// byte `start`, remembering the last word end reached.
struct Attempt {
    Cursor cur;
    int start = 0;     // first byte of the attempt
    int matchLen = 0;  // bytes up to the last word end, else of the first character; 0 = none
    int handle = -1;   // handle of the last word end; -1 before any

    // Takes the character of dense code d (d >= 0) and cl bytes that ends
    // at byte i. kFail leaves the attempt as it was.
    Took Take(const TrieView& v, int d, int cl, int i) {
        const long long p = cur.Step(v, d);
        if (p < 0) return Took::kFail;
        const state& c = v.cells[p];
        if (c.base >= 0) {
            if (matchLen == 0) matchLen = cl;
            return Took::kPrefix;
        }
        matchLen = i - start, handle = c.handle;
        return cur.base == p ? Took::kLeaf : Took::kWordEnd;
    }
    // A new attempt from byte at.
    void Restart(int at) { cur.Reset(), start = at, matchLen = 0, handle = -1; }
};

inline bool IsLetter(unsigned int c) {
    return (c | 0x20) - 'a' < 26u;
}

inline bool IsDigit(unsigned int c) {
    return c - '0' < 10u;
}

// False when a match of bytes [s, e) of a len-byte text would start or end
// inside a run of ASCII letters or of digits. Bytes at or past len read as NUL.
inline bool ValidCut(const unsigned char* t, int s, int e, int len) {
    auto at = [&](long long k) -> unsigned int { return k >= 0 && k < len ? t[k] : 0; };
    if (s > 0 && IsLetter(at(s)) && IsLetter(at(s - 1LL))) return false;
    if (s > 0 && IsDigit(at(s)) && IsDigit(at(s - 1LL))) return false;
    if (e - 1LL < 0) return true;
    if (e - 1LL < len && IsLetter(at(e - 1LL)) && IsLetter(at(e))) return false;
    if (e - 1LL >= len) return true;
    return !(IsDigit(at(e - 1LL)) && IsDigit(at(e)));
}

inline bool HasBom(const unsigned char* s, size_t len) {
    return len >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF;
}

inline int ClampLen(size_t n, int nMax) {
    return n > static_cast<size_t>(nMax) ? nMax : static_cast<int>(n);
}

// ---- Scan output ----

// Bytes go to buf[0, cap - 1), so a NUL always fits; a write that would not
// fit is dropped whole.
struct ScanOut {
    char* buf;
    long long cap;
    long long out;

    void Put(const unsigned char* from, int n, bool bSpace) {
        if (!buf || out + n + (bSpace ? 1 : 0) >= cap) return;
        CopyShort(buf + out, from, n);
        out += n;
        if (bSpace) buf[out++] = ' ';
    }

    // memcpy, with the short lengths of words copied inline.
    static void CopyShort(char* to, const unsigned char* from, int n) {
        if (n >= 8 || n <= 0) {
            if (n > 0) memcpy(to, from, static_cast<size_t>(n));
        } else if (n >= 4) {  // two 4-byte moves, overlapping when n < 8
            uint32_t a, b;
            memcpy(&a, from, 4), memcpy(&b, from + n - 4, 4);
            memcpy(to, &a, 4), memcpy(to + n - 4, &b, 4);
        } else {
            to[0] = static_cast<char>(from[0]);
            to[n / 2] = static_cast<char>(from[n / 2]);
            to[n - 1] = static_cast<char>(from[n - 1]);
        }
    }
};

// The full scan writes through one of two sinks with the same bookkeeping:
// FullScanText copies the words into the result buffer, FullScanSpans
// records where they are. The emitter checks the 5 * len cap against `out`
// before every write, so the buffer's own bound never refuses a word and
// both sinks see the same words.
struct FullScanText : ScanOut {
    // A word at [start, start + n) with its handle, followed by a blank.
    void Word(const unsigned char* s, int start, int n, int) { Put(s + start, n, true); }
    // The end-of-text copy: the last n bytes of the text, no blank.
    void Tail(const unsigned char* s, int len, int, int n, int) { Put(s + len - n, n, false); }
};

struct FullScanSpans {
    std::vector<_stScanSpan>& spans;
    long long out = 0;

    void Word(const unsigned char*, int start, int n, int handle) {
        spans.push_back(_stScanSpan{start, n, handle, true});
        out += n + 1;
    }
    void Tail(const unsigned char*, int len, int start, int n, int handle) {
        spans.push_back(_stScanSpan{len - n, n, start == len - n ? handle : -1, false});
        out += n;
    }
};

// Writes of the full scan: the 5 * len cap and the Latin-word test, then the
// sink. Shared by the general walk and the byte-mode scan.
template <typename Sink>
struct FullScanEmitter {
    const unsigned char* s;
    int len;
    Sink& o;

    void Word(int start, int n, int handle) {
        if (o.out + n < 5LL * len && Valid(start, n)) o.Word(s, start, n, handle);
    }
    void Tail(int start, int n, int handle) {
        if (o.out + n < 5LL * len && Valid(start, n)) o.Tail(s, len, start, n, handle);
    }
    // ValidCut; a match that starts and ends with bytes >= 0x80 (no letters
    // or digits) always passes.
    bool Valid(int start, int n) const {
        return (n > 0 && (s[start] & s[start + n - 1] & 0x80)) ||
               ValidCut(s, start, start + n, len);
    }
};

// The full scan of len > 0 bytes of s in any mode, one cell at a time
// (PDATFind.cpp; instantiated for FullScanText and FullScanSpans).
template <typename Sink>
void FullScanGeneral(int nMode, const TrieView& v, const unsigned char* s, int len, Sink& o);

extern template void FullScanGeneral<FullScanText>(int, const TrieView&, const unsigned char*, int,
                                                   FullScanText&);
extern template void FullScanGeneral<FullScanSpans>(int, const TrieView&, const unsigned char*, int,
                                                    FullScanSpans&);

}  // namespace pdat_walk
