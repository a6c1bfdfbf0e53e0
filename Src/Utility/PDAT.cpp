// PDAT.cpp - construction, layout and lookup of the double-array dictionary.
//
// Insertion walks the word with GetCharCode and descends the construction
// tree, appending children in insertion order. Children arrays grow by
// doubling (capacity is implied by child_count: the array is reallocated when
// the count is 0 or a power of two). A node with kIndexedFrom or more children
// is also entered in ChildIndex, an open-addressing hash from (node key, code)
// to the child's slot, so the root of a GBK dictionary (thousands of children)
// is not searched linearly; the node key lives in trie_elem::position until
// layout overwrites it with the node's cell.
//
// Layout produces exactly the cells of the reference procedure - characters
// numbered by descending count (ties: lower code first); root children at
// their dense codes; then, repeatedly, the work-list entry with the most
// children (ties: first in the list) gets the first base b >= 1 at which all
// its children's cells are free (b never equals the entry's own cell when it
// is a word end), and is replaced in the list by its first child while the
// other children are appended - with these equivalent, faster parts:
//   * Work list: a priority queue ordered by (child_count descending, rank
//     ascending). Ranks follow list order: a child that takes its parent's
//     place inherits the parent's rank, appended children get fresh, larger
//     ranks. Entries without children are never selected and never change
//     the relative order of the others, so they are not queued.
//   * Base search: the answer is the least b >= 1 at which every child k
//     finds its cell b + c_k free (cells are never freed once written). A
//     union-find gives "the next free cell at or after x", which skips the
//     bases whose first child lands on an occupied run; a bitmap of free
//     cells then tests 1024 consecutive bases at once by AND-ing each child's
//     shifted free marks. Every base below the answer is ruled out by an
//     occupied child cell, so this is the reference's first fit.
//   * Shape floors: children sets with equal codes up to a shift (a "shape",
//     common in byte mode) compete for the same free patterns. Each shape
//     remembers how far up its search has found nothing, which stays true
//     because cells only fill up; the next set of that shape starts there.
//   * Lower bound: the reference raises m_nLowerBound to every cell it probes,
//     rejected bases included. A rejected base b < b* probes only cells
//     b + c_k < b* + max(c_k), and the accepted base b* probes that cell; so
//     counting the accepted base's cells alone gives the same bound.
//   * Storage: cells are allocated with geometric growth and trimmed to
//     m_nLowerBound + 1 at the end, the same array a saved and reloaded
//     dictionary has. (The reference keeps up to 100 unused cells beyond the
//     bound; they are never read.)
// Lookups and scans walk the cells through a TrieView whose `last` is the
// highest index that is both valid (m_nLowerBound) and allocated, so an empty
// or inconsistent dictionary simply fails every transition. The full scan of
// a byte-mode dictionary instead reads a compact copy of the cells built for
// it (ScanIndex, see "Byte-mode full scan"), with the same results.
#include "PDAT.h"

#include "PDATChars.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <queue>
#include <type_traits>
#include <unordered_map>

namespace {

constexpr int kIndexedFrom = 9;                 // children count from which a node is hashed
constexpr int kMaxScanLen = (INT_MAX - 1) / 5;  // keeps 5 * len + 1 in an int

// ---- Characters (see PDATChars.h) ----

using namespace pdat_chars;

// Mode-2 length of word without its trailing delimiters (the last character is
// one byte below 0x80, else the last two bytes).
int TrimTrailingDelimiters(const unsigned char* s, int len) {
    while (len >= 2) {
        if (s[len - 1] < 0x80) {
            if (!IsNarrowDelimiter(s[len - 1])) break;
            len -= 1;
        } else {
            if (!IsWideDelimiter(static_cast<unsigned int>(s[len - 2]) << 8 | s[len - 1])) break;
            len -= 2;
        }
    }
    return len;
}

bool HasBom(const unsigned char* s, size_t len) {
    return len >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF;
}

bool IsWhite(int code) {
    return code == 32 || code == 9 || code == 13 || code == 10;
}

int ClampLen(size_t n, int nMax) {
    return n > static_cast<size_t>(nMax) ? nMax : static_cast<int>(n);
}

// ---- Walking the cells ----

struct TrieView {
    const state* cells;
    long long last;  // highest usable cell; -1 when there is none
    const int* charset;
};

long long Abs(int x) {
    return x < 0 ? -static_cast<long long>(x) : x;
}

bool InRange(const TrieView& v, long long p) {
    return p >= 0 && p <= v.last;
}

bool IsLetter(unsigned int c) {
    return (c | 0x20) - 'a' < 26u;
}

bool IsDigit(unsigned int c) {
    return c - '0' < 10u;
}

// Match [s, e) of a len-byte text keeps Latin words and numbers whole.
// Bytes at or past len read as NUL.
bool ValidCut(const unsigned char* t, int s, int e, int len) {
    auto at = [&](long long k) -> unsigned int { return k >= 0 && k < len ? t[k] : 0; };
    if (s > 0 && IsLetter(at(s)) && IsLetter(at(s - 1LL))) return false;
    if (s > 0 && IsDigit(at(s)) && IsDigit(at(s - 1LL))) return false;
    if (e - 1LL < 0) return true;
    if (e - 1LL < len && IsLetter(at(e - 1LL)) && IsLetter(at(e))) return false;
    if (e - 1LL >= len) return true;
    return !(IsDigit(at(e - 1LL)) && IsDigit(at(e)));
}

template <int kMode>
int FindWalk(const TrieView& v, const unsigned char* s, int len) {
    long long cur = -1, base = 0;
    int prev = -2, last = 0;
    for (int i = 0; i < len;) {
        int cl;
        int code = CharCodeAt<kMode>(s, i, len, &cl);
        i += cl;
        if (IsWhite(code)) {
            code = 32;
            if (last == 32) continue;
        }
        last = code;
        const int d = v.charset[code];
        if (d < 0) return -1;
        cur = base + d;
        if (!InRange(v, cur)) return -1;
        if (cur > 0 && v.cells[cur].check != prev) return -1;  // cell 0 is not checked
        prev = static_cast<int>(cur);
        base = Abs(v.cells[cur].base);
    }
    if (!InRange(v, cur) || v.cells[cur].base > 0) return -1;
    return v.cells[cur].handle;
}

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
    long long base = 0;
    int prev = -2, longest = 0;
    for (int i = 0; i < len;) {
        int cl;
        const int d = v.charset[CharCodeAt<kMode>(s, i, len, &cl)];
        i += cl;
        if (d < 0) break;
        const long long p = base + d;
        if (!InRange(v, p) || v.cells[p].check != prev) break;
        prev = static_cast<int>(p);
        const state& c = v.cells[p];
        if (c.base >= 0) {
            base = c.base;
            continue;
        }
        base = Abs(c.base);
        longest = i;
        if (longest > minLen) sink.Add(static_cast<unsigned int>(c.handle), longest);
        if (base == p) break;  // a leaf
    }
    return longest;
}

template <int kMode>
int LongestWalk(const TrieView& v, const unsigned char* s, int len, int* pHandle, bool* pSpace) {
    long long base = 0;
    int prev = -2, last = 0, best = 0;
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
        if (d < 0) break;
        const long long p = base + d;
        if (!InRange(v, p) || (p > 0 && v.cells[p].check != prev)) break;
        prev = static_cast<int>(p);
        const state& c = v.cells[p];
        base = Abs(c.base);
        if (c.base < 0 || (c.base == 0 && c.handle >= 0)) {
            *pHandle = c.handle;
            best = i;
            if (bSpace) *pSpace = true;
            if (base == p) break;
        }
    }
    return best;
}

// Output of a scan: bytes go to buf[0, cap - 1) and a NUL always fits.
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
// records where they are. The walk checks the 5 * len cap against `out`
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

template <int kMode, typename Sink>
void FullScanWalk(const TrieView& v, const unsigned char* s, int len, Sink& o) {
    FullScanEmitter<Sink> em{s, len, o};
    int i = 0, start = 0, firstLen = 0, matchLen = 0, handle = -1, prev = -2, flag = 1;
    long long base = 0;
    auto emit = [&]() { em.Word(start, matchLen, handle); };
    while (i < len) {
        int cl;
        const int d = v.charset[CharCodeAt<kMode>(s, i, len, &cl)];
        i += cl;
        if (d < 0) {  // unknown character: report a pending word, go on after it
            if (handle >= 0 && matchLen > 0) emit();
            matchLen = 0, base = 0, prev = -2, start = i, handle = -1;
            continue;
        }
        if (firstLen == 0) firstLen = cl;
        const long long p = base + d;
        if (InRange(v, p) && v.cells[p].check == prev) {
            const state& c = v.cells[p];
            prev = static_cast<int>(p);
            if (c.base >= 0) {
                base = c.base;
                if (matchLen == 0) matchLen = cl;
                continue;
            }
            base = Abs(c.base), matchLen = i - start, handle = c.handle;
            if (base != p && flag == 0) continue;  // inner word end: look for a longer one
            emit();
            if (base != p) {  // first word end: go on for the longest (see FirstEndGoesOn)
                flag = 0;
                CharCodeAt<kMode>(s, start, len, &firstLen);
                continue;
            }
            i = start + firstLen, start = i, flag = 1;  // leaf: next attempt one character later
            firstLen = 0, base = 0, prev = -2, matchLen = 0, handle = -1;
            continue;
        }
        if (handle >= 0 && matchLen >= 1) {
            if (flag == 1) emit();
            i = start + firstLen, firstLen = 0, flag = 1;
        } else if (matchLen >= 1) {
            i = start + firstLen, firstLen = 0, flag = 1;
        } else if (cl == 1 && i < len && s[i] == ' ') {
            i += 1;
        }
        base = 0, prev = -2, matchLen = 0, start = i, handle = -1;
    }
    if (handle >= 0 && matchLen >= 1) em.Tail(start, matchLen, handle);
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

// ---- Byte-mode full scan ----
//
// In mode 1 every byte is a character and firstLen is 1 whenever it is used,
// so an attempt is a plain walk down the cells from its start. The scan reads
// a compact copy of the cells (CPDAT::ScanIndex), 8 bytes each: the base made
// non-negative, with leaves and bases past the last cell pointing at padding
// cells that match no walk, so that base + code is addressable for every cell
// and byte and no range test is needed; and a tag holding the check and an
// info byte: the cell's depth, whether it is a word end or a leaf, and
// whether a word end lies on its path. The path to a cell is fixed, so the
// cell where a walk stops tells what its attempt does. Unknown bytes get the
// code U = highest code + 1, which leads to no child (checked when the index
// is built).
//
// An attempt at a byte that starts no word writes nothing, keeps the flag
// and moves on by one byte (after a known byte it skips a following space,
// which changes nothing either unless a word starts with a space). Most
// attempts at the other bytes, the starters, stop within four bytes, before
// any word end, at a failed transition: they write nothing and the next
// attempt starts one byte later with flag 1. FullScanBytes therefore takes
// the text in windows of up to kWindow starts. MarkStarters walks the first
// four bytes from every starter of the window without a branch (a table of
// byte pairs for the first two steps, conditional moves for the next two)
// and marks the attempts that are not of that kind: a word end on the path,
// four bytes walked, or a stop at an unknown byte. These walks are
// independent of each other and of the attempts, so the processor overlaps
// them. Then the window's attempts run in order: unmarked starters set flag
// 1, a marked start whose walk ended at a leaf with no other word end on its
// path writes that word, and any other marked start is made in full by
// ByteAttempt, one literal attempt of the plain scan, with the current flag. Mispredicted
// branches remain only at marked starts.

struct ScanCell {
    int32_t base;  // offset of the children, >= 0
    uint32_t tag;  // (check + 2) << 8 | info; check + 2 is 1 (no parent) in padding cells
};

// The walk from the root over two bytes: the deepest cell reached (deadCell
// for none) as a tag, (cell + 2) << 8 | its info, and the base to go on
// from: the cell's base when both bytes were walked, else deadCell's.
struct PairEntry {
    uint32_t tag;
    int32_t base;
};

// Info byte of a cell.
constexpr unsigned kMarked = 0x01;    // a word end on the path, or depth >= kFastDepth
constexpr unsigned kSoleLeaf = 0x02;  // a leaf with no other word end on its path
constexpr unsigned kDepthShift = 2;   // bits 2-4: the depth, capped at 7
constexpr unsigned kWordEnd = 0x20;
constexpr unsigned kLeaf = 0x40;
constexpr unsigned kPathEnd = 0x80;  // a word end on the path, this cell included

constexpr int kFastDepth = 4;    // bytes walked without branches
constexpr int kWindow = 60;      // starts per window: with the 4 bytes beyond, 64
constexpr int kFastBlock = 256;  // starts per block when a word starts with a space

struct ByteScanView {
    const ScanCell* cells;    // the index's cells, padding included
    const int32_t* code;      // dense code of each byte value, unknownCode when unknown
    const uint8_t* byteKind;  // per byte value: kStarter | kUnknown
    const PairEntry* pair;    // by the two bytes read as a uint16_t
    const state* full;        // the dictionary's cells, for the handles of word ends
    int unknownCode;
    int deadCell;           // the first padding cell: no children, info 0
    bool bAsciiStartsNone;  // no word starts with a byte below 0x80
    bool bSpaceStarts;      // some word starts with a space
};

constexpr uint8_t kStarter = 1;  // byteKind: some word starts with the byte
constexpr uint8_t kUnknown = 2;  // byteKind: the byte is in no word

inline int CheckOf(uint32_t tag) {
    return static_cast<int>(tag >> 8) - 2;
}

// Makes the attempts from i on while their first byte starts no word: each
// of them writes nothing, keeps the flag and moves on by one byte (two after
// a known byte followed by a space). Returns the first start whose byte
// starts a word (or len).
int SkipNonStarters(const ByteScanView& v, const unsigned char* s, int i, int len) {
    if (v.bAsciiStartsNone) {  // eight ASCII bytes at a time
        for (uint64_t w; i + 8 <= len; i += 8) {
            memcpy(&w, s + i, sizeof w);
            if ((w & 0x8080808080808080ULL) == 0) continue;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
            i += __builtin_ctzll(w & 0x8080808080808080ULL) >> 3;
#endif
            break;
        }
    }
    while (i < len && !(v.byteKind[s[i]] & kStarter)) {
        const bool bKnown = !(v.byteKind[s[i]] & kUnknown);
        i += 1;
        if (bKnown && i < len && s[i] == ' ') i += 1;
    }
    return i;
}

// One attempt of the scan at start with the given flag, exactly as the
// general walk makes it in mode 1 (going on after the first word end, see
// FirstEndGoesOn). Returns the next start, or -1 when the attempt reached the
// end of the text (the scan is over).
template <typename Sink>
int ByteAttempt(const ByteScanView& v, FullScanEmitter<Sink>& em, int start, int& flag) {
    const unsigned char* s = em.s;
    const int len = em.len;
    if (!(v.byteKind[s[start]] & kStarter)) return SkipNonStarters(v, s, start, len);
    int p = v.code[s[start]], j = start + 1, matchLen = 1, handle = -1;
    for (;;) {  // at cell p, bytes [start, j) walked
        const unsigned inf = v.cells[p].tag & 0xFF;
        if (inf & kWordEnd) {
            matchLen = j - start, handle = v.full[p].handle;
            if (inf & kLeaf) {  // next attempt one byte later
                em.Word(start, matchLen, handle);
                flag = 1;
                return start + 1;
            }
            if (flag) em.Word(start, matchLen, handle), flag = 0;
        }
        if (j >= len) {  // end of text: the last matchLen bytes
            if (handle >= 0) em.Tail(start, matchLen, handle);
            return -1;
        }
        const int d = v.code[s[j]];
        if (d == v.unknownCode) {  // report a pending word, go on after the byte; flag kept
            if (handle >= 0) em.Word(start, matchLen, handle);
            return j + 1;
        }
        const int q = v.cells[p].base + d;
        if (CheckOf(v.cells[q].tag) != p) {  // failed transition: next attempt one byte later
            if (handle >= 0 && flag) em.Word(start, matchLen, handle);
            flag = 1;
            return start + 1;
        }
        p = q, j += 1;
    }
}

// x == y ? a : b as a conditional move. Written as a plain conditional the
// compiler may branch, and here a branch mispredicts at every other start.
// (The sanitizer build takes the portable form.)
inline uint32_t SelectIfEqual(uint32_t x, uint32_t y, uint32_t a, uint32_t b) {
#if defined(__GNUC__) && defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
    __asm__("cmpl %[y], %[x]\n\tcmove %[a], %[b]"
            : [b] "+r"(b)
            : [x] "r"(x), [y] "rm"(y), [a] "rm"(a)
            : "cc");
    return b;
#else
    const uint32_t m = 0u - static_cast<uint32_t>(x == y);
    return (a & m) | (b & ~m);
#endif
}

// *pTag = c.tag and *pBase = c.base when c is a child of the cell named by
// pairTag (the cell part of one tag equals the check part of the other),
// else both kept: one test and two conditional moves.
inline void TakeIfChild(uint32_t pairTag, const ScanCell& c, uint32_t* pTag, uint32_t* pBase) {
    const uint32_t base = static_cast<uint32_t>(c.base);
#if defined(__GNUC__) && defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
    uint32_t x = c.tag;
    __asm__("xorl %[p], %[x]\n\tshrl $8, %[x]\n\tcmovzl %[t], %[tag]\n\tcmovzl %[b], %[base]"
            : [x] "+&r"(x), [tag] "+r"(*pTag), [base] "+r"(*pBase)
            : [p] "r"(pairTag), [t] "r"(c.tag), [b] "r"(base)
            : "cc");
#else
    const uint32_t m = 0u - static_cast<uint32_t>(((c.tag ^ pairTag) >> 8) == 0);
    *pTag = (c.tag & m) | (*pTag & ~m);
    *pBase = (base & m) | (*pBase & ~m);
#endif
}

// The tag where the walk from the start at t stops within kFastDepth bytes:
// the pair entry's, naming the cell itself, when it took at most two bytes
// (deadCell, info 0, when no word starts with t[0]); else the cell's own,
// naming its parent (see TagCell). Bytes t[0] .. t[3] must lie in the text.
inline uint32_t FastWalk(const ByteScanView& v, const unsigned char* t) {
    uint16_t two;
    memcpy(&two, t, sizeof two);
    const PairEntry e = v.pair[two];
    const uint32_t q3 = static_cast<uint32_t>(e.base + v.code[t[2]]);
    uint32_t tag = e.tag, b3 = v.deadCell;
    TakeIfChild(e.tag, v.cells[q3], &tag, &b3);
    const uint32_t tag4 = v.cells[b3 + static_cast<uint32_t>(v.code[t[3]])].tag;
    return SelectIfEqual(tag4 >> 8, q3 + 2, tag4, tag);
}

// The cell of a FastWalk tag from start t that walked depth bytes.
inline int TagCell(const ByteScanView& v, const unsigned char* t, uint32_t tag, int depth) {
    if (depth <= 2) return CheckOf(tag);
    return v.cells[CheckOf(tag)].base + v.code[t[depth - 1]];
}

// Bit i of *pStarters: byte w0 + i starts a word (i < n). Bit i of
// *pUnknowns: byte w0 + i is unknown (i < n + 4). n <= kWindow.
void WindowBits(const ByteScanView& v, const unsigned char* s, int w0, int n, uint64_t* pStarters,
                uint64_t* pUnknowns) {
    const int m = n + kFastDepth;
    uint8_t kinds[64];
    int i = 0;
    for (; i < m; ++i) kinds[i] = v.byteKind[s[w0 + i]];
    for (; i % 8; ++i) kinds[i] = 0;
    uint64_t starters = 0, unknowns = 0;
    for (int j = 0; j < i; j += 8) {  // bit 0 and bit 1 of eight kinds gathered
        uint64_t w;
        memcpy(&w, kinds + j, sizeof w);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        starters |= (w & 0x0101010101010101ULL) * 0x0102040810204080ULL >> 56 << j;
        unknowns |= (w >> 1 & 0x0101010101010101ULL) * 0x0102040810204080ULL >> 56 << j;
#else
        for (int t = 0; t < 8; ++t) {
            starters |= static_cast<uint64_t>(kinds[j + t] & 1) << (j + t);
            unknowns |= static_cast<uint64_t>(kinds[j + t] >> 1 & 1) << (j + t);
        }
#endif
    }
    *pStarters = starters & (~0ULL >> (64 - n));
    *pUnknowns = unknowns;
}

// Bit i set when the attempt at starter w0 + i is marked (see above);
// tags[i] the tag where its walk stopped.
uint64_t MarkStarters(const ByteScanView& view, const unsigned char* s, int w0, uint64_t starters,
                      uint64_t unknowns, uint32_t* tags) {
    const ByteScanView v = view;  // a local copy: the stores below could alias it
    const unsigned char* t = s + w0;
    uint64_t marked = 0;
    for (; starters; starters &= starters - 1) {
        const int i = __builtin_ctzll(starters);
        const uint32_t tag = FastWalk(v, t + i);
        tags[i] = tag;
        const unsigned depth = tag >> kDepthShift & 7;
        marked |= static_cast<uint64_t>((tag & kMarked) | (unknowns >> ((i + depth) & 63) & 1))
                  << i;
    }
    return marked;
}

// Marks of the starts [k0, kEnd): bit 0 marked, bit 1 first byte walked. A
// start at an unknown byte walks nothing and keeps the flag, as its attempt
// does; a failed first byte followed by a space is marked.
void MarkStarts(const ByteScanView& view, const unsigned char* s, int k0, int kEnd,
                uint8_t* marks) {
    const ByteScanView v = view;  // a local copy: the byte stores below could alias it
    for (int x = k0; x < kEnd; ++x) {
        const unsigned inf = FastWalk(v, s + x) & 0xFF;
        const int depth = static_cast<int>(inf >> kDepthShift & 7);
        unsigned m = (inf & kMarked) | (depth != 0) << 1 | (v.code[s[x + depth]] == v.unknownCode);
        m |= depth == 0 && s[x + 1] == ' ';
        marks[x - k0] = static_cast<uint8_t>(m);
    }
}

// The first marked start at or after k (marks past the block are set); the
// unmarked ones on the way each set flag 1 when their first byte was walked.
inline int NextMarked(const uint8_t* marks, int k0, int k, int& flag) {
    for (; !(marks[k - k0] & 1); ++k) flag |= marks[k - k0] >> 1;
    return k;
}

// The scan when a word starts with a space: every start walked, as a failed
// first byte followed by a space skips that space's attempt.
template <typename Sink>
void FullScanBytesSpace(const ByteScanView& v, FullScanEmitter<Sink>& em) {
    const int len = em.len, fastEnd = len - kFastDepth;
    uint8_t marks[kFastBlock + 1];
    int k = 0, flag = 1;
    while (k >= 0 && k < len) {
        if (k >= fastEnd) {
            k = ByteAttempt(v, em, k, flag);
            continue;
        }
        const int k0 = k, kEnd = std::min(k + kFastBlock, fastEnd);
        MarkStarts(v, em.s, k0, kEnd, marks);
        marks[kEnd - k0] = 1;
        while ((k = NextMarked(marks, k0, k, flag)) < kEnd) {
            k = ByteAttempt(v, em, k, flag);
            if (k < 0 || k >= kEnd) break;
        }
    }
}

template <typename Sink>
void FullScanBytes(const ByteScanView& v, const unsigned char* s, int len, Sink& o) {
    FullScanEmitter<Sink> em{s, len, o};
    if (v.bSpaceStarts) return FullScanBytesSpace(v, em);
    const int fastEnd = len - kFastDepth;  // below it, bytes k .. k + 4 lie in the text
    int k = 0, flag = 1;
    while (k >= 0 && k < len) {
        if (k >= fastEnd) {
            k = ByteAttempt(v, em, k, flag);
            continue;
        }
        // Attempts at bytes that start no word change nothing; those at
        // starters walk at least one byte, so unmarked ones set flag 1.
        const int w0 = k, n = std::min(kWindow, fastEnd - k);
        uint64_t starters, unknowns;
        uint32_t tags[kWindow];
        WindowBits(v, s, w0, n, &starters, &unknowns);
        const uint64_t marked = MarkStarters(v, s, w0, starters, unknowns, tags);
        while (k < w0 + n) {
            const uint64_t from = ~0ULL << (k - w0);
            const uint64_t next = marked & from;
            if (starters & from & (next ? (next & (0 - next)) - 1 : ~0ULL)) flag = 1;
            if (next == 0) {
                k = w0 + n;
                break;
            }
            const int i = __builtin_ctzll(next);
            if (tags[i] & kSoleLeaf) {  // the attempt writes the leaf's word and moves on
                const int depth = tags[i] >> kDepthShift & 7;
                const int cell = TagCell(v, s + w0 + i, tags[i], depth);
                em.Word(w0 + i, depth, v.full[cell].handle);
                flag = 1, k = w0 + i + 1;
                continue;
            }
            k = ByteAttempt(v, em, w0 + i, flag);
            if (k < 0) return;
        }
    }
}

// Returns true when bStop ended the scan at a word.
template <int kMode>
bool FirstHitWalk(const TrieView& v, const unsigned char* s, int len, ScanOut& o, bool bStop) {
    int i = 0, start = 0, cand = 0, handle = -1, prev = -2;
    long long base = 0;
    auto reset = [&]() { start = i, cand = 0, handle = -1, base = 0, prev = -2; };
    auto valid = [&]() { return ValidCut(s, start, start + cand, len); };
    while (i < len) {
        int cl;
        const int d = v.charset[CharCodeAt<kMode>(s, i, len, &cl)];
        i += cl;
        if (d < 0) {
            if (handle >= 0 && cand > 0 && valid()) o.Put(s + start, cand, true);
            reset();
            continue;
        }
        const long long p = base + d;
        if (InRange(v, p) && v.cells[p].check == prev) {
            const state& c = v.cells[p];
            prev = static_cast<int>(p);
            if (c.base >= 0) {
                base = c.base;
                if (cand == 0) cand = cl;
                continue;
            }
            base = Abs(c.base), cand = i - start, handle = c.handle;
            if (base == p && valid()) {
                o.Put(s + start, cand, true);
                reset();
                if (bStop) return true;
            }
            continue;
        }
        if (handle >= 0 && cand > 0 && valid()) {
            o.Put(s + start, cand, true);
            i = start + cand;
            if (bStop) return true;
        } else if (cand < 1) {
            if (cl == 1)
                while (i < len && s[i] < 0x80) ++i;
        } else {
            i = start + cand;
        }
        reset();
    }
    if (handle >= 0 && cand >= 1 && valid()) o.Put(s + len - cand, cand, false);
    return false;
}

// Two bitmap words as one value (GCC/Clang vector extension), so the block
// test below compiles to the same vector code at every optimisation level.
typedef uint64_t Word2 __attribute__((vector_size(16)));

Word2 LoadWord2(const uint64_t* p) {
    Word2 v;
    memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace

// ---- Construction-time indexes ----

// Open-addressing hash (linear probing, load <= 1/2) from (node key, code) to
// the child's slot in its parent's children array.
struct CPDAT::ChildIndex {
    static constexpr uint64_t kEmpty = ~0ULL;
    std::vector<uint64_t> keys;
    std::vector<int> slots;
    size_t used = 0;
    int shift = 64;
    int nextKey = 1;

    static uint64_t Key(int nodeKey, unsigned int code) {
        return static_cast<uint64_t>(static_cast<uint32_t>(nodeKey)) << 16 | code;
    }
    size_t Home(uint64_t key) const {
        return static_cast<size_t>((key * 0x9E3779B97F4A7C15ULL) >> shift);
    }
    int Get(uint64_t key) const {
        if (keys.empty()) return -1;
        const size_t mask = keys.size() - 1;
        for (size_t h = Home(key);; h = (h + 1) & mask) {
            if (keys[h] == key) return slots[h];
            if (keys[h] == kEmpty) return -1;
        }
    }
    void Put(uint64_t key, int slot) {
        if ((used + 1) * 2 > keys.size()) Rehash();
        const size_t mask = keys.size() - 1;
        size_t h = Home(key);
        while (keys[h] != kEmpty && keys[h] != key) h = (h + 1) & mask;
        if (keys[h] == kEmpty) ++used;
        keys[h] = key;
        slots[h] = slot;
    }
    void Rehash() {
        std::vector<uint64_t> oldKeys = std::move(keys);
        std::vector<int> oldSlots = std::move(slots);
        keys.assign(oldKeys.empty() ? 64 : oldKeys.size() * 2, kEmpty);
        slots.assign(keys.size(), -1);
        shift = 64 - __builtin_ctzll(keys.size());
        used = 0;
        for (size_t k = 0; k < oldKeys.size(); ++k)
            if (oldKeys[k] != kEmpty) Put(oldKeys[k], oldSlots[k]);
    }
};

// State of one layout: the cells' allocation, the free-cell union-find and the
// work queue. Writes go straight to the dictionary's members.
struct CPDAT::LayoutWork {
    struct Entry {
        int count;      // child_count of elem
        unsigned rank;  // position in the reference work list
        trie_elem* elem;
    };
    struct Later {
        bool operator()(const Entry& a, const Entry& b) const {
            return a.count != b.count ? a.count < b.count : a.rank > b.rank;
        }
    };

    explicit LayoutWork(CPDAT& dict) : d(dict) {}

    // Cells [0, need) exist, new ones free.
    void Reserve(int need) {
        if (need <= capacity) return;
        const int n = std::max({need, capacity + capacity / 2, 1024});
        void* p = realloc(d.m_pData, sizeof(state) * static_cast<size_t>(n));
        if (!p) throw std::bad_alloc();  // caught by AddWordComplete
        d.m_pData = static_cast<state*>(p);
        memset(d.m_pData + capacity, 0xFF, sizeof(state) * static_cast<size_t>(n - capacity));
        nextFree.resize(static_cast<size_t>(n) + 1);
        for (int x = capacity + 1; x <= n; ++x) nextFree[x] = x;
        if (capacity == 0) nextFree[0] = 0;
        capacity = n;
    }
    // Cell p is about to be written: it exists and counts towards the bound.
    void Claim(int p) {
        d.m_nLowerBound = std::max(d.m_nLowerBound, p);
        if (p >= capacity) Reserve(p + 1);
        nextFree[p] = p + 1;
        CoverBits(p + 1);
        freeBits[p >> 6] &= ~(1ULL << (p & 63));
    }
    // freeBits describes cells [0, end) at least.
    void CoverBits(int end) {
        const size_t words = static_cast<size_t>(end) / 64 + 2;
        if (freeBits.size() < words) freeBits.resize(std::max(words, freeBits.size() * 2), ~0ULL);
    }
    // fits[w] &= free marks of cells [x + 64 w, x + 64 w + 64) for w < kBlockWords;
    // returns whether any bit is left.
    bool AndFreeMarks(uint64_t* fits, int x) {
        CoverBits(x + 64 * kBlockWords + 64);
        const uint64_t* words = freeBits.data() + (x >> 6);
        const int shift = x & 63;
        Word2 any = {0, 0};
        for (int w = 0; w < kBlockWords; w += 2) {
            Word2 marks = LoadWord2(words + w);
            if (shift != 0) marks = marks >> shift | LoadWord2(words + w + 1) << (64 - shift);
            const Word2 left = LoadWord2(fits + w) & marks;
            memcpy(fits + w, &left, sizeof left);
            any |= left;
        }
        return (any[0] | any[1]) != 0;
    }
    // Lowest free cell >= x.
    int FindFree(int x) {
        if (x >= capacity) return x;
        int r = x;
        while (nextFree[r] != r) r = nextFree[r];
        while (nextFree[x] != r) {
            const int n = nextFree[x];
            nextFree[x] = r;
            x = n;
        }
        return r;
    }
    // Least base in [b, limit) at which every code finds a free cell, or
    // limit. Each round tests the next 64 * kBlockWords bases at once, code by
    // code, over the free-cell bitmap; in crowded stretches it first jumps to
    // the next base at which codes[0] finds a free cell. The code that rules a
    // round out moves to the front: it usually lands in a crowded stretch and
    // rules out the next rounds too. (codes is reordered; the set, and so the
    // answer, is not.)
    int FirstFit(std::vector<int>& codes, int b, int limit) {
        uint64_t fits[kBlockWords];
        bool bCrowded = true;  // worth a union-find jump (a cache miss) first
        for (; b < limit; b += 64 * kBlockWords) {
            if (bCrowded) b = FindFree(b + codes[0]) - codes[0];
            if (b >= limit) break;
            std::fill(fits, fits + kBlockWords, ~0ULL);
            size_t k = 0;
            while (k < codes.size() && AndFreeMarks(fits, b + codes[k])) ++k;
            if (k == codes.size()) {
                int w = 0;
                while (fits[w] == 0) ++w;
                return std::min(b + 64 * w + __builtin_ctzll(fits[w]), limit);
            }
            std::swap(codes[0], codes[k]);
            bCrowded = k < 2;
        }
        return limit;
    }

    // The reference base for children with dense codes `codes`: the least
    // b >= 1 at which all their cells are free, but not b == ownCell when the
    // parent is a word end. Children sets of one shape (the same codes up to
    // a shift) compete for the same free patterns, so each shape keeps a
    // floor: no x in [m_charsetSize, floor) has the shape's cells x + (c - cmin)
    // all free. Cells are never freed, so a floor stays true; bases whose
    // x = b + cmin lies below m_charsetSize are always searched.
    int ChooseBase(int ownCell, bool bWordEnd) {
        if (codes.size() == 1) {
            int b = FindFree(1 + codes[0]) - codes[0];
            if (bWordEnd && b == ownCell) b = FindFree(b + 1 + codes[0]) - codes[0];
            return b;
        }
        const int cmin = *std::min_element(codes.begin(), codes.end());
        const int split = d.m_charsetSize - cmin;
        shape.clear();
        for (int c : codes) shape.push_back(c - cmin);
        std::sort(shape.begin(), shape.end());
        int& floor = shapeFloor
                         .try_emplace(std::string(reinterpret_cast<const char*>(shape.data()),
                                                  shape.size() * sizeof(int)),
                                      d.m_charsetSize)
                         .first->second;
        auto search = [&](int from) {
            if (from < split) {
                const int b = FirstFit(codes, from, split);
                if (b < split) return b;
            }
            return FirstFit(codes, std::max(from, floor - cmin), kNoLimit);
        };
        int b = search(1);
        if (bWordEnd && b == ownCell) {
            const int skipped = b;
            b = search(b + 1);
            if (skipped >= split)
                floor = skipped + cmin;  // left free for the next child set of this shape
            else if (b >= split)
                floor = b + cmin + 1;
        } else if (b >= split) {
            floor = b + cmin + 1;
        }
        return b;
    }
    void Push(trie_elem* e, unsigned rank) {
        if (e->child_count > 0) queue.push(Entry{e->child_count, rank, e});
    }

    CPDAT& d;
    int capacity = 0;
    std::vector<int> nextFree;       // union-find; size capacity + 1, last is a sentinel
    std::vector<uint64_t> freeBits;  // bit per cell, 1 = free; cells past the end are free
    static constexpr int kBlockWords = 16;
    static constexpr int kNoLimit = INT_MAX / 2;
    std::priority_queue<Entry, std::vector<Entry>, Later> queue;
    unsigned nextRank = 0;
    unsigned selectedRank = 0;
    std::vector<int> codes;  // dense codes of the children being placed, any order
    std::vector<int> shape;  // the same, less their minimum, sorted
    std::unordered_map<std::string, int> shapeFloor;
};

// The byte-mode scan's index (see "Byte-mode full scan"), built from cells
// 0..last and the character map. Build fails, and the scan takes the general
// walk, when the cells are too many for a tag (2^24 - 3) or, as only a
// damaged layout can have, a code is out of range or a cell would let an
// unknown byte through.
struct CPDAT::ScanIndex {
    std::vector<ScanCell> cells;
    std::vector<PairEntry> pair;
    int32_t code[256];
    uint8_t byteKind[256];
    int unknownCode = 0;
    int deadCell = 0;
    bool bAsciiStartsNone = true;

    bool Build(const state* full, int last, const int* charset) {
        if (last >= (1 << 24) - 3) return false;
        for (int b = 0; b < 256; ++b) {
            if (charset[b] >= 65536) return false;  // no layout gives such a code
            unknownCode = std::max(unknownCode, charset[b] + 1);
        }
        for (int b = 0; b < 256; ++b) code[b] = charset[b] < 0 ? unknownCode : charset[b];
        deadCell = last + 1;
        std::vector<uint8_t> info = CellInfo(full, last);
        cells.assign(static_cast<size_t>(last) + 2 + unknownCode, ScanCell{deadCell, Tag(-1, 0)});
        for (int p = 0; p <= last; ++p) {
            const long long a = Abs(full[p].base), check = full[p].check;
            const bool bFar = (info[p] & kLeaf) || a > last;
            cells[p].base = bFar ? deadCell : static_cast<int32_t>(a);
            cells[p].tag =
                Tag(check >= -2 && check <= last ? static_cast<int>(check) : -1, info[p]);
        }
        for (int p = 0; p <= last; ++p) {
            const int q = cells[p].base + unknownCode;
            if (q <= last && CheckOf(cells[q].tag) == p) return false;
        }
        for (int b = 0; b < 256; ++b) {
            const bool bUnknown = code[b] == unknownCode;
            const bool bStarter = !bUnknown && CheckOf(cells[code[b]].tag) == -2;
            byteKind[b] = (bStarter ? kStarter : 0) | (bUnknown ? kUnknown : 0);
            if (b < 0x80 && bStarter) bAsciiStartsNone = false;
        }
        SetPairs();
        return true;
    }

    ByteScanView View(const state* full) const {
        return ByteScanView{cells.data(),
                            code,
                            byteKind,
                            pair.data(),
                            full,
                            unknownCode,
                            deadCell,
                            bAsciiStartsNone,
                            (byteKind[static_cast<unsigned char>(' ')] & kStarter) != 0};
    }

  private:
    // A cell's tag from its check; a pair entry's from the cell it reached.
    static uint32_t Tag(int check, unsigned info) {
        return static_cast<uint32_t>(check + 2) << 8 | info;
    }
    // Info bytes of cells 0..last. Depth and path bits are set for every cell
    // whose parent chain ends at a first character; no walk reaches the
    // others (a walk enters a cell only from its parent).
    static std::vector<uint8_t> CellInfo(const state* full, int last) {
        std::vector<uint8_t> info(static_cast<size_t>(last) + 1, 0);
        for (int p = 0; p <= last; ++p) {
            const bool bEnd = full[p].base < 0;
            info[p] =
                (bEnd ? kWordEnd | kPathEnd : 0) | (bEnd && Abs(full[p].base) == p ? kLeaf : 0);
        }
        std::vector<int> depth(info.size(), 0);  // 0 not yet known, -1 unreachable
        std::vector<int> chain;
        for (int p = 0; p <= last; ++p) {
            int d = -1;  // depth of the parent of chain.back()
            for (int x = p; depth[x] == 0;) {
                depth[x] = -1, chain.push_back(x);
                const int c = full[x].check;
                if (c == -2) d = 0;
                if (c < 0 || c > last) break;
                if (depth[c] > 0) d = depth[c];
                x = c;
            }
            for (; !chain.empty(); chain.pop_back()) {
                const int x = chain.back(), c = full[x].check;
                if (d < 0) continue;
                depth[x] = ++d;
                const unsigned above = c >= 0 ? info[c] & kPathEnd : 0;
                if ((info[x] & kLeaf) && !above) info[x] |= kSoleLeaf;
                info[x] |= above | std::min(d, 7) << kDepthShift;
                if ((info[x] & kPathEnd) || d >= kFastDepth) info[x] |= kMarked;
            }
        }
        return info;
    }
    // Entries by the two bytes as FastWalk reads them.
    void SetPairs() {
        const PairEntry none{Tag(deadCell, 0), deadCell};
        pair.assign(65536, none);
        for (int b0 = 0; b0 < 256; ++b0) {
            if (!(byteKind[b0] & kStarter)) continue;
            const int p = code[b0];
            for (int b1 = 0; b1 < 256; ++b1) {
                const int q = cells[p].base + code[b1];
                const bool bOk = !(byteKind[b1] & kUnknown) && CheckOf(cells[q].tag) == p;
                const unsigned char two[2] = {static_cast<unsigned char>(b0),
                                              static_cast<unsigned char>(b1)};
                uint16_t x;
                memcpy(&x, two, sizeof x);
                pair[x] = bOk ? PairEntry{Tag(q, cells[q].tag & 0xFF), cells[q].base}
                              : PairEntry{Tag(p, cells[p].tag & 0xFF), deadCell};
            }
        }
    }
};

// ---- Lifecycle ----

CPDAT::CPDAT(int nMode)
    : m_word_trie(nullptr),
      m_pData(nullptr),
      m_nLength(0),
      m_nLowerBound(0),
      m_nItemCount(0),
      m_sResult(nullptr),
      m_nResultLen(0),
      m_charsetSize(0),
      m_LowerChar(65536),
      m_UpperChar(0),
      m_nMode(nMode),
      m_bWordAddCompleted(false) {
    std::fill(m_charset, m_charset + 65536, -1);
    std::fill(m_charsetfreq, m_charsetfreq + 65536, 0);
    AddWordInit();
}

CPDAT::~CPDAT() {
    FreeTree();
    free(m_pData);
    delete[] m_sResult;
}

int CPDAT::GetLowerBound() const {
    return m_nLowerBound;
}

int CPDAT::AddTrie(const char*) {
    return 1;
}

void CPDAT::GetPos(char*, int) {}

int CPDAT::SetEmpty() {
    m_nLowerBound = 0;
    m_nItemCount = 0;
    InvalidateScanIndex();
    return 1;
}

// ---- Insertion ----

int CPDAT::AddWordInit() {
    FreeTree();
    m_word_trie = static_cast<trie_elem*>(calloc(1, sizeof(trie_elem)));
    if (m_word_trie) m_word_trie->handle = -1;
    m_pChildIndex = std::make_unique<ChildIndex>();
    std::fill(m_freq, m_freq + 65536, 0);
    m_nItemCount = 0;
    m_bWordAddCompleted = false;
    return 1;
}

int CPDAT::AddWord(const char* word, bool bFreq) {
    return BuildTRIE(word, static_cast<int>(m_nItemCount), bFreq, false);
}

int CPDAT::AddWord(const char* word, int handle, bool bFreq) {
    return BuildTRIE(word, handle, bFreq, false);
}

int CPDAT::AddFilterWord(const char* word) {
    const int handle = AddWord(word, true);
    if (handle >= 0 && static_cast<size_t>(handle) < m_vecTermFreq.size())
        m_vecTermFreq[handle].freq = -1;
    return handle;
}

int CPDAT::FindWord(const char* word) {
    return BuildTRIE(word, -1, false, true);
}

int CPDAT::BuildTRIE(const char* word, int handle, bool bFreq, bool bFindOnly) {
    if (!word || !m_word_trie) return -1;
    if (HasBom(reinterpret_cast<const unsigned char*>(word), strnlen(word, 3))) word += 3;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(word);
    int len = ClampLen(strlen(word), INT_MAX);
    if (m_nMode == 2) len = TrimTrailingDelimiters(s, len);
    try {
        return InsertWalk(word, len, handle, bFreq, bFindOnly);
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

int CPDAT::InsertWalk(const char* word, int len, int handle, bool bFreq, bool bFindOnly) {
    const unsigned char* s = reinterpret_cast<const unsigned char*>(word);
    const CharCodeFn codeAt = CharCodeFor(m_nMode);
    trie_elem* node = m_word_trie;
    int result = -1;
    for (int i = 0; i < len;) {
        int cl;
        const int code = codeAt(s, i, len, &cl);
        const bool bLast = i + cl >= len;
        i += cl;
        if (code == 9) continue;
        m_freq[code] += 1;
        m_LowerChar = std::min(m_LowerChar, code);
        m_UpperChar = std::max(m_UpperChar, code);

        const int slot = FindChild(node, static_cast<unsigned int>(code));
        trie_elem* child;
        if (slot >= 0) {
            child = &node->children[slot];
            if (bLast && child->handle >= 0) {
                result = child->handle;
                if (bFindOnly) return result;
                if (bFreq && static_cast<size_t>(result) < m_vecTermFreq.size() &&
                    m_vecTermFreq[result].freq >= 0)
                    m_vecTermFreq[result].freq += 1;
            } else if (bLast) {
                if (bFindOnly) return -1;
                MarkWordEnd(child, handle, bFreq, word);
                result = handle;
            } else if (bFreq && child->handle >= 0 && IsFilterHandle(child->handle)) {
                return result;  // nothing may be added below a filter word
            }
        } else {
            if (bFindOnly) return -1;
            child = AppendChild(node, static_cast<unsigned int>(code));
            if (bLast) {
                MarkWordEnd(child, handle, bFreq, word);
                result = handle;
            }
        }
        node = child;
    }
    return result;
}

int CPDAT::FindChild(const trie_elem* pNode, unsigned int code) const {
    if (pNode->child_count >= kIndexedFrom)
        return m_pChildIndex->Get(ChildIndex::Key(pNode->position, code));
    for (int k = 0; k < pNode->child_count; ++k)
        if (pNode->children[k].node == code) return k;
    return -1;
}

trie_elem* CPDAT::AppendChild(trie_elem* pNode, unsigned int code) {
    const int n = pNode->child_count;
    if ((n & (n - 1)) == 0) {  // 0 or a power of two: the array is full
        const size_t cap = n == 0 ? 1 : 2 * static_cast<size_t>(n);
        void* p = realloc(pNode->children, cap * sizeof(trie_elem));
        if (!p) throw std::bad_alloc();
        pNode->children = static_cast<trie_elem*>(p);
    }
    pNode->children[n] = trie_elem{code, 0, nullptr, 0, -1, -1};
    pNode->child_count = n + 1;
    if (n + 1 == kIndexedFrom) {
        pNode->position = m_pChildIndex->nextKey++;
        for (int k = 0; k <= n; ++k)
            m_pChildIndex->Put(ChildIndex::Key(pNode->position, pNode->children[k].node), k);
    } else if (n + 1 > kIndexedFrom) {
        m_pChildIndex->Put(ChildIndex::Key(pNode->position, code), n);
    }
    return &pNode->children[n];
}

void CPDAT::MarkWordEnd(trie_elem* pNode, int handle, bool bFreq, const char* word) {
    pNode->handle = handle;
    if (bFreq) m_vecTermFreq.emplace_back(std::string(word));
    m_nItemCount += 1;
}

bool CPDAT::IsFilterHandle(int handle) const {
    return handle >= 0 && static_cast<size_t>(handle) < m_vecTermFreq.size() &&
           m_vecTermFreq[handle].freq < 0;
}

void CPDAT::FreeTree() {
    if (!m_word_trie) return;
    std::vector<std::pair<trie_elem*, int>> arrays;
    if (m_word_trie->children) arrays.emplace_back(m_word_trie->children, m_word_trie->child_count);
    while (!arrays.empty()) {
        const auto [pArray, n] = arrays.back();
        arrays.pop_back();
        for (int k = 0; k < n; ++k)
            if (pArray[k].children) arrays.emplace_back(pArray[k].children, pArray[k].child_count);
        free(pArray);
    }
    free(m_word_trie);
    m_word_trie = nullptr;
    m_pChildIndex.reset();
}

// ---- Layout ----

int CPDAT::AddWordComplete() {
    if (m_bWordAddCompleted) return 1;
    free(m_pData);
    m_pData = nullptr;
    m_nLength = 0;
    m_nLowerBound = 0;
    m_pChildIndex.reset();  // layout reuses trie_elem::position
    bool bLaidOut = true;
    try {
        LayoutWork work(*this);
        work.Reserve(static_cast<int>(m_nItemCount * 1.5));
        if (m_word_trie) {
            Init(work);
            while (trie_elem* pElem = OptimumSelect(work)) SetState(work, pElem);
            if (m_word_trie->child_count > 0) m_nLength = m_nLowerBound + 1;
        }
    } catch (const std::bad_alloc&) {  // out of memory: leave an empty dictionary
        bLaidOut = false;
        m_nLength = 0;
        m_nLowerBound = 0;
    }
    if (m_nLength <= 0) {
        free(m_pData);
        m_pData = nullptr;
    } else {
        void* p = realloc(m_pData, sizeof(state) * static_cast<size_t>(m_nLength));
        if (p) m_pData = static_cast<state*>(p);
    }
    FreeTree();
    m_bWordAddCompleted = true;
    InvalidateScanIndex();
    return bLaidOut ? 1 : 0;
}

void CPDAT::GetCharMap() {
    std::fill(m_charset, m_charset + 65536, -1);
    std::fill(m_charsetfreq, m_charsetfreq + 65536, 0);
    std::vector<int> codes;
    for (int c = std::max(m_LowerChar, 0); c <= std::min(m_UpperChar, 65535); ++c)
        if (m_freq[c] > 0) codes.push_back(c);
    std::sort(codes.begin(), codes.end(), [this](int a, int b) {
        return m_freq[a] != m_freq[b] ? m_freq[a] > m_freq[b] : a < b;
    });
    for (size_t k = 0; k < codes.size(); ++k) {
        m_charset[codes[k]] = static_cast<int>(k);
        m_charsetfreq[codes[k]] = m_freq[codes[k]];
        m_freq[codes[k]] = -1;
    }
    m_charsetSize = static_cast<int>(codes.size());
}

void CPDAT::Init(LayoutWork& work) {
    GetCharMap();
    trie_elem* pRoot = m_word_trie;
    for (int k = 0; k < pRoot->child_count; ++k) {
        trie_elem& c = pRoot->children[k];
        const int pos = m_charset[c.node];
        if (pos < 0) continue;  // every stored character is counted, so never taken
        c.position = pos;
        work.Claim(pos);
        m_pData[pos].check = -2;
        if (c.child_count == 0) {
            m_pData[pos].base = -pos;
            m_pData[pos].handle = c.handle;
        }
        work.Push(&c, work.nextRank++);
    }
}

trie_elem* CPDAT::OptimumSelect(LayoutWork& work) {
    if (work.queue.empty()) return nullptr;
    const LayoutWork::Entry top = work.queue.top();
    work.queue.pop();
    work.selectedRank = top.rank;
    return top.elem;
}

void CPDAT::SetState(LayoutWork& work, trie_elem* pElem) {
    m_nLowerBound = std::max(m_nLowerBound, pElem->position);
    trie_elem* kids = pElem->children;
    const int n = pElem->child_count;
    const bool bWordEnd = pElem->handle >= 0;
    work.codes.clear();
    for (int k = 0; k < n; ++k) work.codes.push_back(m_charset[kids[k].node]);
    const int b = work.ChooseBase(pElem->position, bWordEnd);

    state& own = m_pData[pElem->position];
    own.base = bWordEnd ? -b : b;
    if (bWordEnd) own.handle = pElem->handle;
    for (int k = 0; k < n; ++k) {
        trie_elem& ch = kids[k];
        ch.position = b + m_charset[ch.node];
        ch.check = pElem->position;
        work.Claim(ch.position);
        m_pData[ch.position].check = pElem->position;
        if (ch.child_count == 0) {
            m_pData[ch.position].base = -ch.position;
            m_pData[ch.position].handle = ch.handle;
        }
        work.Push(&ch, k == 0 ? work.selectedRank : work.nextRank++);
    }
}

// ---- Characters ----

int CPDAT::GetCharCode(const char* text, int i, int len, int* pCharLen) const {
    int n = 0, code = 0;
    if (text && i >= 0 && i < len)
        code = CharCodeFor(m_nMode)(reinterpret_cast<const unsigned char*>(text), i, len, &n);
    if (pCharLen) *pCharLen = n;
    return code;
}

int CPDAT::LastCell() const {
    if (!m_pData || m_nLength <= 0) return -1;
    return std::min(m_nLowerBound, m_nLength - 1);
}

void CPDAT::InvalidateScanIndex() {
    m_pScanIndex.reset();
    m_bScanIndexBuilt = false;
}

// Built lazily so that building or loading a dictionary costs no more than
// the cells themselves. Only byte mode has an index.
const CPDAT::ScanIndex* CPDAT::GetScanIndex() const {
    if (!m_bScanIndexBuilt && m_nMode == 1) {
        try {
            auto x = std::make_unique<ScanIndex>();
            if (x->Build(m_pData, LastCell(), m_charset)) m_pScanIndex = std::move(x);
        } catch (const std::bad_alloc&) {  // the general walk gives the same result
        }
    }
    m_bScanIndexBuilt = true;
    return m_pScanIndex.get();
}

template <typename Sink>
void CPDAT::FullScan(const unsigned char* s, int len, Sink& o) const {
    if (const ScanIndex* x = GetScanIndex()) {
        FullScanBytes(x->View(m_pData), s, len, o);
        return;
    }
    const TrieView v{m_pData, LastCell(), m_charset};
    DispatchMode(m_nMode, [&](auto mode) { FullScanWalk<decltype(mode)::value>(v, s, len, o); });
}

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

// ---- Scans ----

char* CPDAT::MMFullScan(const char* text) {
    static char s_sNoText[1] = {0};
    const int len = text ? ClampLen(strlen(text), kMaxScanLen) : 0;
    delete[] m_sResult;
    m_nResultLen = 5 * len + 1;
    m_sResult = new (std::nothrow) char[static_cast<size_t>(m_nResultLen)];
    if (!m_sResult) {
        m_nResultLen = 0;
        return s_sNoText;
    }
    FullScanText o{{m_sResult, m_nResultLen, 0}};
    if (len > 0) FullScan(reinterpret_cast<const unsigned char*>(text), len, o);
    m_sResult[o.out] = '\0';
    return m_sResult;
}

int CPDAT::MMFullScanSpans(const char* text, std::vector<_stScanSpan>& spans) const {
    spans.clear();
    const int len = text ? ClampLen(strlen(text), kMaxScanLen) : 0;
    FullScanSpans o{spans};
    if (len > 0) FullScan(reinterpret_cast<const unsigned char*>(text), len, o);
    return static_cast<int>(spans.size());
}

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

// ---- Term counters ----

int CPDAT::WordFreq(const std::vector<std::string>& words) {
    ResetFreq();
    for (const std::string& w : words) AddWord(w.c_str(), true);
    return static_cast<int>(m_vecTermFreq.size());
}

void CPDAT::ResetFreq() {
    for (_stTermFreq& t : m_vecTermFreq) t.freq = 0;
}

const std::vector<_stTermFreq>& CPDAT::GetTopWordVector() {
    std::sort(m_vecTermFreq.begin(), m_vecTermFreq.end());
    return m_vecTermFreq;
}

const char* CPDAT::GetTopWords(int n) {
    GetTopWordVector();
    const size_t size = m_vecTermFreq.size();
    const size_t limit = n == -1 ? size : (n < 0 ? 0 : static_cast<size_t>(n));
    m_sTopWords.clear();
    for (size_t i = 0; i < limit && i < size; ++i) {
        const std::string& w = m_vecTermFreq[i].word;
        bool bHidden = false;
        for (size_t j = 0; j < i && !bHidden && w.size() > 4; ++j) {
            const std::string& earlier = m_vecTermFreq[j].word;
            bHidden = earlier.size() > 3 && w.find(earlier) != std::string::npos;
        }
        if (bHidden) continue;
        m_sTopWords += w + "/" + std::to_string(m_vecTermFreq[i].freq) + "#";
    }
    return m_sTopWords.c_str();
}
