// PDATLayout.cpp - AddWordComplete: laying the construction tree out into
// the cell array.
//
// The cells are those of the plain first-fit layout, so a dictionary built
// from the same insertion sequence always gives the same file, byte for
// byte (the translator's data files and the golden tests depend on it):
// characters numbered by descending count (ties: lower code first); root
// children at their dense codes; then, repeatedly, the work-list entry with
// the most children (ties: first in the list) gets the first base b >= 1 at
// which all its children's cells are free (b never equals the entry's own
// cell when it is a word end), and is replaced in the list by its first
// child while the other children are appended. These parts compute the same
// result faster:
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
//     occupied child cell, so this is exactly the first fit.
//   * Shape floors: children sets with equal codes up to a shift (a "shape",
//     common in byte mode) compete for the same free patterns. Each shape
//     remembers how far up its search has found nothing, which stays true
//     because cells only fill up; the next set of that shape starts there.
//   * Lower bound: the plain first fit raises m_nLowerBound to every cell it
//     probes, rejected bases included. A rejected base b < b* probes only
//     cells b + c_k < b* + max(c_k), and the accepted base b* probes that
//     cell; so counting the accepted base's cells alone gives the same bound.
//   * Storage: cells are allocated with geometric growth and trimmed to
//     m_nLowerBound + 1 at the end, the same array a saved and reloaded
//     dictionary has (growing in steps of 100 cells past the needed index
//     would leave unused cells beyond the bound that nothing reads).
#include "PDAT.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <queue>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

// Two bitmap words as one value (GCC/Clang vector extension), so the block
// test below compiles to the same vector code at every optimisation level.
typedef uint64_t Word2 __attribute__((vector_size(16)));

Word2 LoadWord2(const uint64_t* p) {
    Word2 v;
    memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace

// State of one layout: the cells' allocation, the free-cell union-find and the
// work queue. Writes go straight to the dictionary's members.
struct CPDAT::LayoutWork {
    struct Entry {
        int count;      // child_count of elem
        unsigned rank;  // position in the first-fit work list
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

    // The first-fit base for children with dense codes `codes`: the least
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
