// PDATScan.cpp - the full scan (MMFullScan, MMFullScanSpans) and the index
// that makes it fast on byte-mode dictionaries.
//
// A full scan of a mode-0 or mode-2 dictionary takes the general walk of
// PDATFind.cpp. A byte-mode dictionary is scanned over the scan index, a
// compact copy of its cells built on the first full scan after the cells
// change; it gives exactly the words and spans of the general walk, which
// the rule engine relies on (it scans every document this way).
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
// ByteAttempt, exactly as the general walk makes it, with the current flag.
// Mispredicted branches remain only at marked starts.
#include "PDAT.h"

#include "PDATWalk.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

using namespace pdat_walk;

namespace {

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
// FirstEndGoesOn in PDATFind.cpp). Returns the next start, or -1 when the
// attempt reached the end of the text (the scan is over).
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
}  // namespace

// The byte-mode scan's index (see the top of this file), built from cells
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

void CPDAT::ScanIndexDelete::operator()(ScanIndex* p) const {
    delete p;
}

// Called by the mutators only, which have the dictionary to themselves.
void CPDAT::InvalidateScanIndex() {
    m_pScanIndex.reset();
    m_bScanIndexBuilt.store(false, std::memory_order_relaxed);
}

// Built lazily so that building or loading a dictionary costs no more than
// the cells themselves. Only byte mode has an index. Double-checked: the
// acquire load pairs with the release store, so a reader that sees the flag
// set also sees the finished index.
const CPDAT::ScanIndex* CPDAT::GetScanIndex() const {
    if (m_bScanIndexBuilt.load(std::memory_order_acquire)) return m_pScanIndex.get();
    std::lock_guard<std::mutex> lock(m_scanIndexLock);
    if (!m_bScanIndexBuilt.load(std::memory_order_relaxed)) {
        if (m_nMode == 1) {
            try {
                std::unique_ptr<ScanIndex> x(new ScanIndex());
                if (x->Build(m_pData, LastCell(), m_charset)) m_pScanIndex.reset(x.release());
            } catch (const std::bad_alloc&) {  // the general walk gives the same result
            }
        }
        m_bScanIndexBuilt.store(true, std::memory_order_release);
    }
    return m_pScanIndex.get();
}

template <typename Sink>
void CPDAT::FullScan(const unsigned char* s, int len, Sink& o) const {
    if (const ScanIndex* x = GetScanIndex()) {
        FullScanBytes(x->View(m_pData), s, len, o);
        return;
    }
    FullScanGeneral(m_nMode, TrieView{m_pData, LastCell(), m_charset}, s, len, o);
}

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
