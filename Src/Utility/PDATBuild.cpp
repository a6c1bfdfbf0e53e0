// PDATBuild.cpp - insertion into the construction tree, and the term
// counters that ride on it.
//
// Insertion walks the word with the mode's character reader (PDATChars.h)
// and descends the construction tree, appending children in insertion
// order; the order matters, as the layout (PDATLayout.cpp) places children
// in it. Children arrays grow by doubling (capacity is implied by
// child_count: the array is reallocated when the count is 0 or a power of
// two). A node with kIndexedFrom or more children is also entered in
// ChildIndex, an open-addressing hash from (node key, code) to the child's
// slot, so the root of a GBK dictionary (thousands of children) is not
// searched linearly; the node key lives in trie_elem::position until layout
// overwrites it with the node's cell.
//
// Every character walked is counted in m_freq, FindWord's included: the
// counts decide the character map, so lookups made while building change the
// layout, and the saved file with it.
#include "PDAT.h"

#include "PDATChars.h"
#include "PDATWalk.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace pdat_chars;
using pdat_walk::ClampLen;
using pdat_walk::HasBom;

namespace {

constexpr int kIndexedFrom = 9;  // children count from which a node is hashed

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

}  // namespace

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

void CPDAT::ChildIndexDelete::operator()(ChildIndex* p) const {
    delete p;
}

// ---- Insertion ----

int CPDAT::AddWordInit() {
    FreeTree();
    m_word_trie = static_cast<trie_elem*>(calloc(1, sizeof(trie_elem)));
    if (m_word_trie) m_word_trie->handle = -1;
    m_pChildIndex.reset(new ChildIndex());
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
