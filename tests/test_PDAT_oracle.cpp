// Randomised comparisons of CPDAT with deliberately naive references:
//  * RefLayout builds the double array exactly as the construction procedure
//    reads (linear child search, literal work list, first fit from base 1 with
//    every probe counted); its cells, lower bound and character map must equal
//    the fast builder's.
//  * SetOracle holds the words in std::map / std::set and runs the full scan
//    over them (no double array at all); lookups and MMFullScan must agree.
//  * CellScanOracle runs the plain, step-by-step full scan over the
//    dictionary's own cells, for any dictionary in any mode; MMFullScan and
//    MMFullScanSpans must agree with it.
// Seeds are fixed and printed on failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "PDAT.h"

namespace {

constexpr unsigned kSeed = 20240611;
const state kFree = {-1, -1, -1};

// ---- Naive layout reference ----

struct RefNode {
    unsigned node = 0;
    int handle = -1;
    int position = 0;
    std::vector<RefNode> children;
};

bool IsDelimiterTail(const std::string& w, size_t len, size_t* pCut) {
    static const std::set<unsigned> kWide = {0xA3DC, 0xA3FC, 0xA3AC, 0xA3AE, 0xA1A3,
                                             0xA1A2, 0xA3AD, 0xA1AA, 0xAAA4};
    const unsigned char last = w[len - 1];
    if (last < 0x80) {
        *pCut = 1;
        return std::strchr(" \t\r\n,/_", last) != nullptr && last != 0;
    }
    *pCut = 2;
    return kWide.count(static_cast<unsigned char>(w[len - 2]) * 256u + last) > 0;
}

class RefLayout {
  public:
    RefLayout(int nMode) : m_codec(nMode), m_nMode(nMode) {}

    int Add(std::string word, int handle, bool bFreq, bool bFindOnly) {
        if (word.compare(0, 3, "\xEF\xBB\xBF") == 0) word.erase(0, 3);
        size_t len = word.size(), cut = 0;
        while (m_nMode == 2 && len >= 2 && IsDelimiterTail(word, len, &cut)) len -= cut;
        int result = -1;
        RefNode* node = &m_root;
        for (int i = 0; i < static_cast<int>(len);) {
            int cl = 0;
            const int code = m_codec.GetCharCode(word.c_str(), i, static_cast<int>(len), &cl);
            const bool bLast = i + cl >= static_cast<int>(len);
            i += cl;
            if (code == 9) continue;
            m_freq[code]++;
            m_lower = std::min(m_lower, code);
            m_upper = std::max(m_upper, code);
            RefNode* child = nullptr;
            for (RefNode& c : node->children)
                if (c.node == static_cast<unsigned>(code)) child = &c;
            if (child && bLast) {
                result = child->handle;
                if (result >= 0) {
                    if (bFindOnly) return result;
                    if (bFreq && Term(result) && *Term(result) >= 0) ++*Term(result);
                } else {
                    if (bFindOnly) return -1;
                    result = MarkEnd(child, handle, bFreq);
                }
            } else if (child) {
                if (bFreq && Term(child->handle) && *Term(child->handle) < 0) return result;
            } else {
                if (bFindOnly) return -1;
                node->children.push_back(RefNode{static_cast<unsigned>(code), -1, 0, {}});
                child = &node->children.back();
                if (bLast) result = MarkEnd(child, handle, bFreq);
            }
            node = child;
        }
        return result;
    }
    int AddWord(const std::string& w, bool bFreq) {
        return Add(w, static_cast<int>(m_count), bFreq, false);
    }
    int AddFilter(const std::string& w) {
        const int h = AddWord(w, true);
        if (Term(h)) *Term(h) = -1;
        return h;
    }

    void Complete() {
        m_length = static_cast<int>(m_count * 1.5);
        m_lowerBound = 0;
        cells.assign(m_length, kFree);
        CharMap();
        for (RefNode& c : m_root.children) {
            c.position = charset[c.node];
            if (c.position >= m_length) Grow(c.position), m_lowerBound = c.position;
            cells[c.position].check = -2;
            if (c.children.empty()) cells[c.position] = {-c.position, -2, c.handle};
            m_lowerBound = std::max(m_lowerBound, c.position);
        }
        std::vector<RefNode> list = std::move(m_root.children);
        for (int idx; (idx = OptimumSelect(list)) >= 0;) SetState(list, idx);
    }

    std::vector<state> cells;
    std::vector<int> charset = std::vector<int>(65536, -1);
    int charsetSize = 0;
    int m_length = 0;
    int m_lowerBound = 0;

  private:
    // Counter of a handle; handles given without counting may run past them.
    int* Term(int h) {
        return h >= 0 && h < static_cast<int>(m_terms.size()) ? &m_terms[h] : nullptr;
    }
    int MarkEnd(RefNode* n, int handle, bool bFreq) {
        n->handle = handle;
        if (bFreq) m_terms.push_back(1);
        m_count++;
        return handle;
    }
    void Grow(int p) {
        cells.resize(p + 100, kFree);
        m_length = p + 100;
    }
    void CharMap() {
        std::vector<int> codes;  // positive counts; picked one by one below
        for (int c = m_lower; c <= m_upper; ++c)
            if (m_freq[c] > 0) codes.push_back(c);
        for (;;) {
            int best = -1;
            for (int c : codes)
                if (m_freq[c] > 0 && (best < 0 || m_freq[c] > m_freq[best])) best = c;
            if (best < 0) break;
            charset[best] = charsetSize++;
            m_freq[best] = -1;
        }
    }
    static int OptimumSelect(std::vector<RefNode>& list) {
        const auto active = [](const RefNode& n) { return !n.children.empty(); };
        if (std::none_of(list.begin(), list.end(), active)) {
            list.clear();
            return -1;
        }
        list.erase(
            std::remove_if(list.begin(), list.end(), [&](const RefNode& n) { return !active(n); }),
            list.end());
        size_t best = 0;
        for (size_t k = 1; k < list.size(); ++k)
            if (list[k].children.size() > list[best].children.size()) best = k;
        return static_cast<int>(best);
    }
    void SetState(std::vector<RefNode>& list, int idx) {
        RefNode e = std::move(list[idx]);
        m_lowerBound = std::max(m_lowerBound, e.position);
        int b = 1;
        for (;; ++b) {
            if (b == e.position && e.handle >= 0) ++b;
            bool bFits = true;
            for (const RefNode& k : e.children) {
                const int p = b + charset[k.node];
                m_lowerBound = std::max(m_lowerBound, p);
                if (p >= m_length) Grow(p);
                if (cells[p].base != -1 || cells[p].check != -1) {
                    bFits = false;
                    break;
                }
            }
            if (bFits) break;
        }
        cells[e.position].base = e.handle >= 0 ? -b : b;
        if (e.handle >= 0) cells[e.position].handle = e.handle;
        for (RefNode& ch : e.children) {
            ch.position = b + charset[ch.node];
            cells[ch.position].check = e.position;
            if (ch.children.empty()) cells[ch.position] = {-ch.position, e.position, ch.handle};
            m_lowerBound = std::max(m_lowerBound, ch.position);
        }
        list[idx] = std::move(e.children[0]);
        for (size_t k = 1; k < e.children.size(); ++k) list.push_back(std::move(e.children[k]));
    }

    CPDAT m_codec;  // only its GetCharCode is used
    int m_nMode;
    RefNode m_root;
    std::vector<int> m_freq = std::vector<int>(65536, 0);
    int m_lower = 65536, m_upper = 0;
    unsigned m_count = 0;
    std::vector<int> m_terms;
};

// ---- Random words and texts ----

std::string Pick(std::mt19937& rng, const std::vector<std::string>& from) {
    return from[std::uniform_int_distribution<size_t>(0, from.size() - 1)(rng)];
}

// GBK characters: a dense common block plus a scattered tail.
std::vector<std::string> GbkChars(int nCommon, int nRare) {
    std::vector<std::string> out;
    for (int k = 0; k < nCommon; ++k) out.push_back({char(0xB0 + k / 94), char(0xA1 + k % 94)});
    for (int k = 0; k < nRare; ++k) out.push_back({char(0xC0 + k % 40), char(0x41 + k / 40)});
    return out;
}

// Alphabet exercising every insertion rule: capitals, digits, GBK, full-width
// forms, brackets, quotes, delimiters (single and two-byte), tab.
std::vector<std::string> RichAlphabet() {
    std::vector<std::string> a = GbkChars(60, 80);
    for (const char* s : {"a",
                          "b",
                          "c",
                          "A",
                          "B",
                          "Z",
                          "0",
                          "7",
                          " ",
                          ",",
                          "_",
                          "/",
                          "\t",
                          "\"",
                          "\xA3\xAC" /* ， */,
                          "\xA1\xA3" /* 。 */,
                          "\xA3\xC1" /* Ａ */,
                          "\xA3\xE2" /* ｂ */,
                          "\xA3\xB1" /* １ */,
                          "\xA3\xA8" /* （ */,
                          "\xA1\xB1" /* ” */,
                          "\xAA\xA4"})
        a.push_back(s);
    return a;
}

std::string RandomWord(std::mt19937& rng, const std::vector<std::string>& alphabet, int maxChars) {
    std::string w;
    const int n = std::uniform_int_distribution<int>(1, maxChars)(rng);
    for (int k = 0; k < n; ++k) w += Pick(rng, alphabet);
    return w;
}

struct Op {
    enum Kind { kAdd, kAddCounted, kFilter, kFindWord } kind;
    std::string word;
};

std::vector<Op> RandomOps(std::mt19937& rng, int nOps, int maxChars) {
    const std::vector<std::string> alphabet = RichAlphabet();
    std::vector<Op> ops;
    std::vector<std::string> seen;
    for (int k = 0; k < nOps; ++k) {
        const int r = std::uniform_int_distribution<int>(0, 99)(rng);
        std::string w =
            (!seen.empty() && r < 15) ? Pick(rng, seen) : RandomWord(rng, alphabet, maxChars);
        if (r >= 15 && r < 25 && !seen.empty()) w = Pick(rng, seen) + w;  // shares a prefix
        if (r == 25) w = "\xEF\xBB\xBF" + w;
        if (r == 26) w += "\xB1";  // a lone lead byte at the end
        seen.push_back(w);
        const Op::Kind kind = r < 60   ? Op::kAdd
                              : r < 85 ? Op::kAddCounted
                              : r < 92 ? Op::kFilter
                                       : Op::kFindWord;
        ops.push_back({kind, w});
    }
    return ops;
}

void ExpectSameLayout(const RefLayout& ref, const CPDAT& dict, const std::string& where) {
    ASSERT_EQ(dict.GetLowerBound(), ref.m_lowerBound) << where;
    ASSERT_EQ(dict.GetCharsetSize(), ref.charsetSize) << where;
    for (unsigned c = 0; c < 65536; ++c)
        ASSERT_EQ(dict.GetCharsetCode(c), ref.charset[c]) << where << " code " << c;
    if (ref.cells.empty()) {
        EXPECT_EQ(dict.GetStates(), nullptr) << where;
        return;
    }
    const state* cells = dict.GetStates();
    ASSERT_NE(cells, nullptr) << where;
    for (int p = 0; p <= ref.m_lowerBound; ++p) {
        const state& a = cells[p];
        const state& b = ref.cells[p];
        ASSERT_TRUE(a.base == b.base && a.check == b.check && a.handle == b.handle)
            << where << " cell " << p << ": " << a.base << "," << a.check << "," << a.handle
            << " expected " << b.base << "," << b.check << "," << b.handle;
    }
}

TEST(PdatLayoutOracle, FastBuilderLaysOutExactlyAsTheNaiveProcedure) {
    std::mt19937 rng(kSeed);
    const int kSizes[] = {0, 1, 2, 3, 5, 8, 13, 40, 120, 400, 1500};
    for (int round = 0; round < 60; ++round) {
        const int nMode = round % 3;
        const int nOps = kSizes[round % 11];
        const std::vector<Op> ops = RandomOps(rng, nOps, 1 + round % 6);
        RefLayout ref(nMode);
        auto dict = std::make_unique<CPDAT>(nMode);
        for (const Op& op : ops) {
            int a = 0, b = 0;
            switch (op.kind) {
                case Op::kAdd:
                    a = dict->AddWord(op.word.c_str(), false), b = ref.AddWord(op.word, false);
                    break;
                case Op::kAddCounted:
                    a = dict->AddWord(op.word.c_str(), true), b = ref.AddWord(op.word, true);
                    break;
                case Op::kFilter:
                    a = dict->AddFilterWord(op.word.c_str()), b = ref.AddFilter(op.word);
                    break;
                case Op::kFindWord:
                    a = dict->FindWord(op.word.c_str()), b = ref.Add(op.word, -1, false, true);
                    break;
            }
            ASSERT_EQ(a, b) << "seed " << kSeed << " round " << round << " word " << op.word;
        }
        dict->AddWordComplete();
        ref.Complete();
        ExpectSameLayout(ref, *dict,
                         "seed " + std::to_string(kSeed) + " round " + std::to_string(round));
    }
}

// Here a word end's first fit is its own cell, so it takes the next base;
// the skipped base must stay available to a later children set of the same
// shape (codes equal up to a shift).
TEST(PdatLayoutOracle, SkippedOwnCellStaysAvailable) {
    const std::vector<std::string> words = {"a",   "c", "faa", "fb",  "eb",  "dc",
                                            "dab", "d", "bb",  "eff", "efe", "fcb"};
    RefLayout ref(1);
    auto dict = std::make_unique<CPDAT>(1);
    for (const std::string& w : words)
        ASSERT_EQ(dict->AddWord(w.c_str(), false), ref.AddWord(w, false));
    dict->AddWordComplete();
    ref.Complete();
    ExpectSameLayout(ref, *dict, "own-cell case");
}

TEST(PdatLayoutOracle, LargeGbkDictionaryMatchesToo) {
    std::mt19937 rng(kSeed + 1);
    const std::vector<std::string> chars = GbkChars(400, 400);
    RefLayout ref(1);
    auto dict = std::make_unique<CPDAT>(1);
    for (int k = 0; k < 2000; ++k) {
        const std::string w = RandomWord(rng, chars, 3);
        ASSERT_EQ(dict->AddWord(w.c_str(), false), ref.AddWord(w, false));
    }
    dict->AddWordComplete();
    ref.Complete();
    ExpectSameLayout(ref, *dict, "seed " + std::to_string(kSeed + 1));
}

// ---- Set-based oracle for lookup and the full scan ----

using Codes = std::vector<int>;

// Independent reading of the character at byte i, modes 0 and 1.
int CodeAt(int nMode, const std::string& t, size_t i, int* pLen) {
    const unsigned char b = t[i];
    *pLen = 1;
    if (nMode == 1) return b;
    if (b >= 0x80 && i + 1 < t.size()) {
        *pLen = 2;
        return b * 256 + static_cast<unsigned char>(t[i + 1]);
    }
    return b >= 'A' && b <= 'Z' ? b + 32 : b;
}

Codes CodesOf(int nMode, const std::string& w) {
    Codes c;
    for (size_t i = 0; i < w.size();) {
        int n = 0;
        c.push_back(CodeAt(nMode, w, i, &n));
        i += n;
    }
    return c;
}

class SetOracle {
  public:
    SetOracle(int nMode, const CPDAT& dict) : m_nMode(nMode), m_dict(dict) {}

    void Add(const std::string& w, int handle) {
        const Codes c = CodesOf(m_nMode, w);
        m_words.emplace(c, handle);  // the first handle stays
        for (size_t n = 1; n <= c.size(); ++n) {
            m_prefixes.insert(Codes(c.begin(), c.begin() + n));
            if (n < c.size()) m_extended.insert(Codes(c.begin(), c.begin() + n));
            m_known.insert(c[n - 1]);
        }
    }
    int Find(const std::string& w) const {
        auto it = m_words.find(CodesOf(m_nMode, w));
        return it == m_words.end() ? -1 : it->second;
    }

    // The full scan as specified, with transitions decided by the word sets.
    std::string FullScan(const std::string& text) const {
        const int len = static_cast<int>(text.size());
        std::string out;
        const size_t limit = 5 * text.size();
        int i = 0, start = 0, firstLen = 0, matchLen = 0, handle = -1, flag = 1;
        Codes q;
        auto emit = [&](int s, int n) {
            if (out.size() + n < limit && m_dict.IsValidString(text.c_str(), s, s + n, len))
                out += text.substr(s, n) + " ";
        };
        auto reset = [&]() { q.clear(), matchLen = 0, handle = -1; };
        while (i < len) {
            int cl = 0;
            const int code = CodeAt(m_nMode, text, i, &cl);
            i += cl;
            if (!m_known.count(code)) {
                if (handle >= 0 && matchLen > 0) emit(start, matchLen);
                reset();
                start = i;
                continue;
            }
            if (firstLen == 0) firstLen = cl;
            Codes next = q;
            next.push_back(code);
            if (m_prefixes.count(next)) {
                q = next;
                if (!IsWordEnd(q)) {
                    if (matchLen == 0) matchLen = cl;
                    continue;
                }
                matchLen = i - start, handle = m_words.at(q);
                const bool bLeaf = !m_extended.count(q);
                if (!bLeaf && flag == 0) continue;
                emit(start, matchLen);
                if (bLeaf)
                    i = start + firstLen, start = i, flag = 1;
                else
                    i = start, flag = 0;
                firstLen = 0;
                reset();
                continue;
            }
            if (handle >= 0 && matchLen >= 1) {
                if (flag == 1) emit(start, matchLen);
                i = start + firstLen, firstLen = 0, flag = 1;
            } else if (matchLen >= 1) {
                i = start + firstLen, firstLen = 0, flag = 1;
            } else if (cl == 1 && i < len && text[i] == ' ') {
                i += 1;
            }
            reset();
            start = i;
        }
        if (handle >= 0 && matchLen >= 1 && out.size() + matchLen < limit &&
            m_dict.IsValidString(text.c_str(), start, start + matchLen, len))
            out += text.substr(len - matchLen);
        return out;
    }

  private:
    // A one-character leaf in cell 0 has base 0, which the scan reads as an
    // inner state: the layout's only way to hide a word from the scan.
    bool IsWordEnd(const Codes& q) const {
        if (!m_words.count(q)) return false;
        return !(q.size() == 1 && m_dict.GetCharsetCode(q[0]) == 0 && !m_extended.count(q));
    }

    int m_nMode;
    const CPDAT& m_dict;
    std::map<Codes, int> m_words;
    std::set<Codes> m_prefixes, m_extended;
    std::set<int> m_known;
};

// Text made of dictionary words, known and unknown GBK characters, ASCII runs
// and, sometimes, a truncated last lead byte.
std::string RandomText(std::mt19937& rng, const std::vector<std::string>& words,
                       const std::vector<std::string>& chars) {
    std::string t;
    const int n = std::uniform_int_distribution<int>(0, 40)(rng);
    for (int k = 0; k < n; ++k) {
        switch (std::uniform_int_distribution<int>(0, 5)(rng)) {
            case 0:
            case 1:
                t += Pick(rng, words);
                break;
            case 2:
                t += Pick(rng, chars);
                break;
            case 3:
                t += "\xD6\xD0";
                break;  // 中, never in a dictionary here
            case 4:
                t += Pick(rng, {"ab", "Ab1", "12", " ", "  x", "9a", "ba"});
                break;
            default:
                t += Pick(rng, words).substr(1);
                break;  // starts mid-character
        }
    }
    if (std::uniform_int_distribution<int>(0, 3)(rng) == 0) t += "\xB0";
    return t;
}

TEST(PdatLookupOracle, FindAndFullScanAgreeWithAWordSet) {
    std::mt19937 rng(kSeed + 2);
    std::vector<std::string> ascii = {"a", "b", "A", "1", "2", "x"};
    for (int round = 0; round < 50; ++round) {
        const int nMode = round % 2;
        std::vector<std::string> alphabet = GbkChars(12, 6);
        alphabet.insert(alphabet.end(), ascii.begin(), ascii.end());
        auto dict = std::make_unique<CPDAT>(nMode);
        std::vector<std::pair<std::string, int>> added;
        const int nWords = std::uniform_int_distribution<int>(1, 150)(rng);
        for (int k = 0; k < nWords; ++k) {
            const std::string w = RandomWord(rng, alphabet, 4);
            added.emplace_back(w, dict->AddWord(w.c_str(), false));
        }
        dict->AddWordComplete();
        SetOracle oracle(nMode, *dict);
        for (const auto& [w, h] : added) oracle.Add(w, h);

        const std::string where =
            "seed " + std::to_string(kSeed + 2) + " round " + std::to_string(round);
        for (const auto& [w, h] : added)
            ASSERT_EQ(dict->Find(w.c_str()), oracle.Find(w)) << where << " " << w;
        for (int k = 0; k < 200; ++k) {
            const std::string w = RandomWord(rng, alphabet, 5);
            ASSERT_EQ(dict->Find(w.c_str()), oracle.Find(w)) << where << " probe " << w;
        }
        std::vector<std::string> words;
        for (const auto& [w, h] : added) words.push_back(w);
        for (int k = 0; k < 40; ++k) {
            const std::string text = RandomText(rng, words, alphabet);
            ASSERT_EQ(std::string(dict->MMFullScan(text.c_str())), oracle.FullScan(text))
                << where << " text " << text;
        }
    }
}

// ---- The plain full scan, over the dictionary's own cells ----

// MMFullScan step by step in its plain form: every character read with
// GetCharCode, every transition range-checked against the cells, the first
// word end of an attempt reported and the same start walked again with flag
// 0. Unlike SetOracle it takes any dictionary (all modes, negative handles,
// filter words), as it reads the cells that the layout tests check. Besides
// the text it lists the words as MMFullScanSpans does.
class CellScanOracle {
  public:
    explicit CellScanOracle(const CPDAT& dict) : m_dict(dict) {}

    std::string FullScan(const std::string& text, std::vector<_stScanSpan>* pSpans) const {
        const state* cells = m_dict.GetStates();
        const long long last = cells ? m_dict.GetLowerBound() : -1;
        const int len = static_cast<int>(text.size());
        const size_t limit = 5 * text.size();
        std::string out;
        pSpans->clear();
        int i = 0, start = 0, firstLen = 0, matchLen = 0, handle = -1, flag = 1;
        long long base = 0, prev = -2;
        auto valid = [&](int s, int n) {
            return out.size() + n < limit && m_dict.IsValidString(text.c_str(), s, s + n, len);
        };
        auto emit = [&](int s, int n) {
            if (!valid(s, n)) return;
            out += text.substr(s, n) + " ";
            pSpans->push_back(_stScanSpan{s, n, handle, true});
        };
        auto reset = [&]() { base = 0, prev = -2, matchLen = 0, handle = -1; };
        while (i < len) {
            int cl = 0;
            const int code = m_dict.GetCharCode(text.c_str(), i, len, &cl);
            i += cl;
            const int dense = m_dict.GetCharsetCode(static_cast<unsigned>(code));
            if (dense < 0) {  // unknown character
                if (handle >= 0 && matchLen > 0) emit(start, matchLen);
                reset();
                start = i;
                continue;
            }
            if (firstLen == 0) firstLen = cl;
            const long long p = base + dense;
            if (p >= 0 && p <= last && cells[p].check == prev) {
                prev = p;
                if (cells[p].base >= 0) {
                    base = cells[p].base;
                    if (matchLen == 0) matchLen = cl;
                    continue;
                }
                base = -static_cast<long long>(cells[p].base);
                matchLen = i - start, handle = cells[p].handle;
                if (base == p) {  // leaf
                    emit(start, matchLen);
                    i = start + firstLen, start = i, firstLen = 0, flag = 1;
                    reset();
                } else if (flag == 1) {  // first word end: the same start again
                    emit(start, matchLen);
                    i = start, firstLen = 0, flag = 0;
                    reset();
                }
                continue;
            }
            if (handle >= 0 && matchLen >= 1) {
                if (flag == 1) emit(start, matchLen);
                i = start + firstLen, firstLen = 0, flag = 1;
            } else if (matchLen >= 1) {
                i = start + firstLen, firstLen = 0, flag = 1;
            } else if (cl == 1 && i < len && text[i] == ' ') {
                i += 1;
            }
            reset();
            start = i;
        }
        if (handle >= 0 && matchLen >= 1 && valid(start, matchLen)) {  // the last matchLen bytes
            out += text.substr(len - matchLen);
            const int from = len - matchLen;
            pSpans->push_back(_stScanSpan{from, matchLen, start == from ? handle : -1, false});
        }
        return out;
    }

  private:
    const CPDAT& m_dict;
};

// Spans as text, "start,length,handle,blank;" each.
std::string SpansText(const std::vector<_stScanSpan>& spans) {
    std::string s;
    for (const _stScanSpan& sp : spans)
        s += std::to_string(sp.iStart) + "," + std::to_string(sp.nLen) + "," +
             std::to_string(sp.nHandle) + (sp.bBlank ? ",1;" : ",0;");
    return s;
}

// MMFullScan and MMFullScanSpans of text against the oracle: "" when both
// agree, else what differs.
std::string ScanDiff(CPDAT& dict, const CellScanOracle& oracle, const std::string& text) {
    std::vector<_stScanSpan> want, got;
    const std::string wantText = oracle.FullScan(text, &want);
    const std::string gotText = dict.MMFullScan(text.c_str());
    if (gotText != wantText) return "text \"" + gotText + "\", expected \"" + wantText + "\"";
    dict.MMFullScanSpans(text.c_str(), got);
    if (SpansText(got) != SpansText(want))
        return "spans " + SpansText(got) + " expected " + SpansText(want);
    return "";
}

// Alphabets that make the scan's cases common: a few letters (words that
// are prefixes of others, long walks), Latin words and numbers with spaces
// and commas (IsValidString, spaces after failed characters, words starting
// with a space, mode-2 delimiters), GBK characters plus lone high bytes
// (matches starting mid-character in byte mode), full-width forms.
std::vector<std::string> ScanAlphabet(int kind) {
    switch (kind) {
        case 0:
            return {"a", "b", "c"};
        case 1:
            return {"a", "b", "Z", "1", "2", " ", ",", "x"};
        case 2: {
            std::vector<std::string> a = GbkChars(8, 4);
            for (const char* s : {"\xB0", "\xA1", "\xB1\xB0", "a"}) a.push_back(s);
            return a;
        }
        default:
            return {"\xA3\xC1" /* Ａ */, "\xA3\xAC" /* ， */, "\xA1\xB1" /* ” */, "a", "\xB0\xA1"};
    }
}

// Texts of words, word tails (starting mid-word), alphabet characters,
// unknown characters and bytes, white space and Latin runs; up to about 700
// bytes, so that long texts cross the scan's blocks of starts.
std::string ScanText(std::mt19937& rng, const std::vector<std::string>& words,
                     const std::vector<std::string>& alphabet) {
    static const std::vector<std::string> kOther = {
        "\xD6\xD0" /* 中 */, "\x80", "\xFF", " ", "  ", "\n", "ab", "Ab1", "12", "9"};
    std::string t;
    const int n = std::uniform_int_distribution<int>(0, rng() % 4 == 0 ? 160 : 24)(rng);
    for (int k = 0; k < n; ++k) {
        const int r = std::uniform_int_distribution<int>(0, 9)(rng);
        if (r < 4 && !words.empty()) {
            const std::string w = Pick(rng, words);
            t += r == 0 ? w.substr(std::uniform_int_distribution<size_t>(0, w.size() - 1)(rng)) : w;
        } else {
            t += r < 7 ? Pick(rng, alphabet) : Pick(rng, kOther);
        }
    }
    if (!words.empty() && rng() % 4 == 0) {  // ends inside a word
        const std::string w = Pick(rng, words);
        t += w.substr(0, std::uniform_int_distribution<size_t>(0, w.size())(rng));
    }
    return t;
}

TEST(PdatScanOracle, FullScanFollowsThePlainScanOnRandomDictionaries) {
    const unsigned kScanSeed = kSeed + 4;
    std::mt19937 rng(kScanSeed);
    for (int round = 0; round < 240; ++round) {
        const int nMode = round % 3, kind = round / 3 % 4;
        const std::vector<std::string> alphabet = ScanAlphabet(kind);
        auto dict = std::make_unique<CPDAT>(nMode);
        std::vector<std::string> words;
        const int nWords = std::uniform_int_distribution<int>(0, round % 7 == 0 ? 300 : 40)(rng);
        for (int k = 0; k < nWords; ++k) {
            std::string w = RandomWord(rng, alphabet, 6);
            if (!words.empty() && rng() % 3 == 0) w = Pick(rng, words) + w;  // a longer word
            words.push_back(w);
            switch (rng() % 12) {
                case 0:
                    dict->AddWord(w.c_str(), -2 - static_cast<int>(rng() % 3), false);
                    break;
                case 1:
                    dict->AddFilterWord(w.c_str());
                    break;
                case 2:
                    dict->FindWord(w.c_str());
                    break;
                default:
                    dict->AddWord(w.c_str(), rng() % 2 == 0);
            }
        }
        dict->AddWordComplete();
        if (round % 40 == 39) dict->SetEmpty();  // cells kept, bound 0
        const CellScanOracle oracle(*dict);
        for (int k = 0; k < 30; ++k) {
            const std::string text = ScanText(rng, words, alphabet);
            ASSERT_EQ(ScanDiff(*dict, oracle, text), "")
                << "seed " << kScanSeed << " round " << round << " text " << k << ": " << text;
        }
    }
}

// Long texts of a larger GBK dictionary in byte mode: many starts per block,
// words that straddle character boundaries, hits at block edges.
TEST(PdatScanOracle, LongGbkTextsInByteMode) {
    const unsigned kScanSeed = kSeed + 5;
    std::mt19937 rng(kScanSeed);
    const std::vector<std::string> chars = GbkChars(40, 20);
    auto dict = std::make_unique<CPDAT>(1);
    std::vector<std::string> words;
    for (int k = 0; k < 1500; ++k) {
        words.push_back(RandomWord(rng, chars, 4));
        dict->AddWord(words.back().c_str(), false);
    }
    dict->AddWordComplete();
    const CellScanOracle oracle(*dict);
    for (int k = 0; k < 20; ++k) {
        std::string text;
        while (text.size() < 20000) {
            const int r = std::uniform_int_distribution<int>(0, 9)(rng);
            text += r < 5 ? Pick(rng, words) : r < 8 ? Pick(rng, chars) : r < 9 ? " a1 " : "\xB0";
        }
        ASSERT_EQ(ScanDiff(*dict, oracle, text), "") << "seed " << kScanSeed << " text " << k;
    }
}

// Words #, ##, ... write far more than they read (# is no letter or digit,
// so IsValidString keeps every match): the 5 * len cap must drop exactly the
// words the scan drops, in every mode, and must be reached.
TEST(PdatScanOracle, OutputCapDropsTheSameWords) {
    const std::string texts[] = {"#",
                                 "##",
                                 std::string(13, '#'),
                                 std::string(64, '#'),
                                 std::string(300, '#'),
                                 std::string(40, '#') + "\xD6\xD0" + std::string(40, '#'),
                                 std::string(30, '#') + " " + std::string(30, '#') + "b"};
    for (int nMode = 0; nMode < 3; ++nMode) {
        auto dict = std::make_unique<CPDAT>(nMode);
        for (int n = 1; n <= 12; ++n) dict->AddWord(std::string(n, '#').c_str(), false);
        dict->AddWordComplete();
        const CellScanOracle oracle(*dict);
        for (const std::string& text : texts) {
            EXPECT_EQ(ScanDiff(*dict, oracle, text), "") << "mode " << nMode << " " << text;
            if (text.size() >= 64) {
                EXPECT_GT(strlen(dict->MMFullScan(text.c_str())) + 14, 5 * text.size())
                    << "cap not reached";
            }
        }
    }
}

// Random bytes against several dictionaries: nothing reads outside the cells
// (the sanitizer build checks), and every result stays within the text.
TEST(PdatRobustness, RandomBytesNeverLeaveTheCells) {
    std::mt19937 rng(kSeed + 3);
    std::vector<std::unique_ptr<CPDAT>> dicts;
    for (int nMode = 0; nMode < 3; ++nMode) {
        dicts.push_back(std::make_unique<CPDAT>(nMode));  // empty
        dicts.back()->AddWordComplete();
        auto d = std::make_unique<CPDAT>(nMode);
        for (const Op& op : RandomOps(rng, 300, 4)) d->AddWord(op.word.c_str(), false);
        d->AddWordComplete();
        dicts.push_back(std::move(d));
    }
    dicts.push_back(std::make_unique<CPDAT>(1));  // never completed
    for (int k = 0; k < 3000; ++k) {
        std::string text(std::uniform_int_distribution<int>(0, 24)(rng), '\0');
        for (char& c : text) c = static_cast<char>(std::uniform_int_distribution<int>(1, 255)(rng));
        for (auto& d : dicts) {
            d->Find(text.c_str());
            d->Find(text.c_str(), static_cast<unsigned>(text.size()));
            d->Find(static_cast<int>(static_cast<unsigned char>(text.empty() ? 0 : text[0])) * 256);
            int h = 0;
            bool bSpace = false;
            EXPECT_LE(d->GetMaxWord(text.c_str(), &h, &bSpace), static_cast<int>(text.size()));
            unsigned *handles = nullptr, *ends = nullptr, cap = 0, count = 0;
            EXPECT_LE(d->GetWords(text.c_str(), &handles, &ends, &cap, &count, 0),
                      static_cast<int>(text.size()));
            free(handles);
            free(ends);
            EXPECT_LE(strlen(d->MMFullScan(text.c_str())), 5 * text.size());
            bool bFound = false;
            d->MMScan(text.c_str(), &bFound);
            d->MMScan(text.c_str(), nullptr);
        }
    }
}

}  // namespace
