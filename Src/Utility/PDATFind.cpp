// PDATFind.cpp - lookups and the general walks over the cells.
//
// Each operation is one pass over the text: characters are read with the
// dictionary's mode as a compile-time constant (PDATChars.h) and every
// character costs one Cursor step (PDATWalk.h), one array access.
//   * Find walks the whole text as one word; a run of white space reads as
//     one space and cell 0 is taken whatever its check.
//   * GetWords lists every word end met on the way (a prefix of the text that
//     is a word); GetMaxWord keeps the last one, folding white space as Find.
//   * The full scan makes attempts: from a start it walks down the cells,
//     reports the first word end, goes on to the longest word that ends in a
//     leaf, and starts again one character after the start; an unknown
//     character ends the attempt and the scan goes on after it. This general
//     form serves modes 0 and 2 and any dictionary the byte-mode index of
//     PDATScan.cpp does not take.
//   * MMScan is the same walk with a single candidate per start and, when
//     asked, stops at the first word found.
// The scans keep Latin words and numbers whole (ValidCut).
#include "PDAT.h"

#include "PDATChars.h"
#include "PDATWalk.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace pdat_chars;
using namespace pdat_walk;

namespace {

bool IsWhite(int code) {
    return code == 32 || code == 9 || code == 13 || code == 10;
}

// Walks the text as Find reads a word: a run of white space (space, tab,
// CR, LF) reads as one space, and cell 0 is taken whatever its check. After
// each step calls at(cell, bytes read, whether white space was read), which
// returns false to stop. Returns false when a character has no transition.
template <int kMode, typename At>
bool FoldedWalk(const TrieView& v, const unsigned char* s, int len, At at) {
    Cursor cur;
    int last = 0;
    bool bSpace = false;
    for (int i = 0; i < len;) {
        int cl;
        int code = CharCodeAt<kMode>(s, i, len, &cl);
        i += cl;
        if (IsWhite(code)) {
            code = 32;
            bSpace = true;
            if (last == 32) continue;
        }
        last = code;
        const int d = v.charset[code];
        if (d < 0) return false;
        const long long p = cur.Step<false>(v, d);
        if (p < 0) return false;
        if (!at(p, i, bSpace)) break;
    }
    return true;
}

template <int kMode>
int FindWalk(const TrieView& v, const unsigned char* s, int len) {
    long long cell = -1;
    auto at = [&](long long p, int, bool) { return cell = p, true; };
    if (!FoldedWalk<kMode>(v, s, len, at)) return -1;
    if (!InRange(v, cell) || v.cells[cell].base > 0) return -1;  // empty text, or no word end
    return v.cells[cell].handle;
}

// GetWords' caller-owned output arrays, grown by 5 entries when full.
struct PrefixSink {
    unsigned int** handles;
    unsigned int** ends;
    unsigned int* capacity;
    unsigned int* count;

    void Add(unsigned int handle, unsigned int end) {
        if (!handles || !ends || !capacity || !count) return;
        if (*count >= *capacity) {
            const size_t n = static_cast<size_t>(*capacity) + 5;
            void* h = realloc(*handles, n * sizeof(unsigned int));
            if (h) *handles = static_cast<unsigned int*>(h);
            void* e = h ? realloc(*ends, n * sizeof(unsigned int)) : nullptr;
            if (!e) return;
            *ends = static_cast<unsigned int*>(e);
            *capacity += 5;
        }
        (*handles)[*count] = handle;
        (*ends)[*count] = end;
        *count += 1;
    }
};

template <int kMode>
int PrefixWalk(const TrieView& v, const unsigned char* s, int len, int minLen, PrefixSink& sink) {
    Cursor cur;
    int longest = 0;
    for (int i = 0; i < len;) {
        int cl;
        const int d = v.charset[CharCodeAt<kMode>(s, i, len, &cl)];
        i += cl;
        if (d < 0) break;
        const long long p = cur.Step(v, d);
        if (p < 0) break;
        const state& c = v.cells[p];
        if (c.base >= 0) continue;  // base 0 (cell 0) is no word end here
        longest = i;
        if (longest > minLen) sink.Add(static_cast<unsigned int>(c.handle), longest);
        if (cur.base == p) break;  // a leaf
    }
    return longest;
}

// A word end here is base < 0, or base 0 with a handle (a leaf in cell 0).
template <int kMode>
int LongestWalk(const TrieView& v, const unsigned char* s, int len, int* pHandle, bool* pSpace) {
    int best = 0;
    FoldedWalk<kMode>(v, s, len, [&](long long p, int i, bool bSpace) {
        const state& c = v.cells[p];
        if (c.base > 0 || (c.base == 0 && c.handle < 0)) return true;
        *pHandle = c.handle;
        best = i;
        if (bSpace) *pSpace = true;
        return Abs(c.base) != p;  // stop at a leaf
    });
    return best;
}

template <int kMode, typename Sink>
void FullScanWalk(const TrieView& v, const unsigned char* s, int len, Sink& o) {
    FullScanEmitter<Sink> em{s, len, o};
    Attempt a;
    int i = 0, firstLen = 0, flag = 1;  // flag 1: the attempt reports its first word end
    auto emit = [&]() { em.Word(a.start, a.matchLen, a.handle); };
    while (i < len) {
        int cl;
        const int d = v.charset[CharCodeAt<kMode>(s, i, len, &cl)];
        i += cl;
        if (d < 0) {  // unknown character: report a pending word, go on after it
            if (a.handle >= 0 && a.matchLen > 0) emit();
            a.Restart(i);
            continue;
        }
        if (firstLen == 0) firstLen = cl;
        const Took took = a.Take(v, d, cl, i);
        if (took == Took::kPrefix || (took == Took::kWordEnd && flag == 0)) continue;
        if (took == Took::kWordEnd) {  // first word end: go on for the longest (FirstEndGoesOn)
            emit();
            flag = 0;
            CharCodeAt<kMode>(s, a.start, len, &firstLen);
            continue;
        }
        if (took == Took::kLeaf) {  // next attempt one character later
            emit();
            i = a.start + firstLen, firstLen = 0, flag = 1;
        } else if (a.matchLen >= 1) {  // failed transition after a prefix or a word end
            if (a.handle >= 0 && flag == 1) emit();
            i = a.start + firstLen, firstLen = 0, flag = 1;
        } else if (cl == 1 && i < len && s[i] == ' ') {
            i += 1;
        }
        a.Restart(i);
    }
    if (a.handle >= 0 && a.matchLen >= 1) em.Tail(a.start, a.matchLen, a.handle);
}

// FirstEndGoesOn. The plain scan reports the first word end of an
// attempt (flag 1) and then walks the same start again with flag 0, passing
// over the inner word ends up to a longer word. Going on from the word end
// with flag 0 is the same walk without the repeated prefix: the second walk
// reads the same characters from the same start (none of them unknown, none
// failing, as they were just walked), so it arrives at the same cell with the
// same i, base, prev, matchLen and handle, and with flag 0 it passes over
// every word end on the way, the first included, without writing anything.
// Only firstLen can differ: the second walk sets it to the length of the
// character at start, while the first kept a value left over from before an
// unknown character or a failed first character (modes 0 and 2). So going on
// sets firstLen to the length of the character at start.

// Returns true when bStop ended the scan at a word.
template <int kMode>
bool FirstHitWalk(const TrieView& v, const unsigned char* s, int len, ScanOut& o, bool bStop) {
    Attempt a;
    int i = 0;
    auto valid = [&]() { return ValidCut(s, a.start, a.start + a.matchLen, len); };
    auto put = [&]() { o.Put(s + a.start, a.matchLen, true); };
    while (i < len) {
        int cl;
        const int d = v.charset[CharCodeAt<kMode>(s, i, len, &cl)];
        i += cl;
        if (d < 0) {
            if (a.handle >= 0 && a.matchLen > 0 && valid()) put();
            a.Restart(i);
            continue;
        }
        const Took took = a.Take(v, d, cl, i);
        if (took == Took::kLeaf && valid()) {
            put();
            a.Restart(i);
            if (bStop) return true;
            continue;
        }
        if (took != Took::kFail) continue;  // a prefix, an inner word end or a rejected leaf
        if (a.handle >= 0 && a.matchLen > 0 && valid()) {
            put();
            i = a.start + a.matchLen;
            if (bStop) return true;
        } else if (a.matchLen < 1) {
            if (cl == 1)
                while (i < len && s[i] < 0x80) ++i;
        } else {
            i = a.start + a.matchLen;
        }
        a.Restart(i);
    }
    if (a.handle >= 0 && a.matchLen >= 1 && valid()) o.Put(s + len - a.matchLen, a.matchLen, false);
    return false;
}

}  // namespace

namespace pdat_walk {

template <typename Sink>
void FullScanGeneral(int nMode, const TrieView& v, const unsigned char* s, int len, Sink& o) {
    DispatchMode(nMode, [&](auto mode) { FullScanWalk<decltype(mode)::value>(v, s, len, o); });
}

template void FullScanGeneral<FullScanText>(int, const TrieView&, const unsigned char*, int,
                                            FullScanText&);
template void FullScanGeneral<FullScanSpans>(int, const TrieView&, const unsigned char*, int,
                                             FullScanSpans&);

}  // namespace pdat_walk

// ---- Lookup ----

int CPDAT::Find(const char* word) const {
    if (!word) return -1;
    return Find(word, static_cast<unsigned int>(ClampLen(strlen(word), INT_MAX)));
}

int CPDAT::Find(const char* word, unsigned int len) const {
    if (!word) return -1;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(word);
    int n = static_cast<int>(std::min<unsigned int>(len, INT_MAX));
    if (n > 2 && HasBom(s, static_cast<size_t>(n))) s += 3, n -= 3;
    if (n > 1 && s[0] == '"' && s[n - 1] == '"') s += 1, n -= 2;
    const TrieView v{m_pData, LastCell(), m_charset};
    return DispatchMode(m_nMode,
                        [&](auto mode) { return FindWalk<decltype(mode)::value>(v, s, n); });
}

int CPDAT::Find(int code) const {
    if (code < 0 || code > 65535) return -1;
    const int p = m_charset[code];
    if (p < 0 || p >= m_nLowerBound || p > LastCell()) return -1;
    const state& c = m_pData[p];
    return (c.check == -2 && c.base < 0) ? c.handle : -1;
}

int CPDAT::GetWords(const char* text, unsigned int** handles, unsigned int** ends,
                    unsigned int* capacity, unsigned int* count, int minLen) const {
    if (count) *count = 0;
    if (!text) return 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
    const int len = ClampLen(strlen(text), INT_MAX);
    const TrieView v{m_pData, LastCell(), m_charset};
    PrefixSink sink{handles, ends, capacity, count};
    return DispatchMode(m_nMode, [&](auto mode) {
        return PrefixWalk<decltype(mode)::value>(v, s, len, minLen, sink);
    });
}

int CPDAT::GetMaxWord(const char* text, int* handle, bool* bHasSpace) const {
    int nHandle = -1;
    bool bSpace = false;
    int best = 0;
    if (text) {
        const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
        const int len = ClampLen(strlen(text), INT_MAX);
        const TrieView v{m_pData, LastCell(), m_charset};
        best = DispatchMode(m_nMode, [&](auto mode) {
            return LongestWalk<decltype(mode)::value>(v, s, len, &nHandle, &bSpace);
        });
    }
    if (handle) *handle = nHandle;
    if (bHasSpace) *bHasSpace = bSpace;
    return best;
}

// ---- First-hit scan ----

char* CPDAT::MMScan(const char* text, char** result, int* resultCap, bool* bFound) {
    if (bFound) *bFound = false;
    const int len = text ? ClampLen(strlen(text), kMaxScanLen) : 0;
    ScanOut o{nullptr, 0, 0};
    if (result && resultCap) {
        if (!*result || 2LL * len >= *resultCap) {
            char* p = new (std::nothrow) char[3 * static_cast<size_t>(len) + 1];
            if (p) {
                delete[] * result;
                *result = p;
                *resultCap = 3 * len + 1;
            }
        }
        if (*result && *resultCap > 0) o = ScanOut{*result, *resultCap, 0};
    }
    if (len > 0) {
        const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
        const TrieView v{m_pData, LastCell(), m_charset};
        const bool bHit = DispatchMode(m_nMode, [&](auto mode) {
            return FirstHitWalk<decltype(mode)::value>(v, s, len, o, bFound != nullptr);
        });
        if (bHit) *bFound = true;
    }
    if (!o.buf) return nullptr;
    o.buf[o.out] = '\0';
    return o.buf;
}

char* CPDAT::MMScan(const char* text, bool* bFound) {
    MMScan(text, &m_sResult, &m_nResultLen, bFound);
    return m_sResult;
}

bool CPDAT::IsValidString(const char* text, int start, int end, int len) const {
    return text && ValidCut(reinterpret_cast<const unsigned char*>(text), start, end, len);
}
