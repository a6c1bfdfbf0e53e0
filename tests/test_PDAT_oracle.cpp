// Randomised differentials of CPDAT against naive models (fixed seeds, printed
// on failure). NaiveLayout builds the double array by plain first fit; its
// insertion results, cells, bound and character map must equal CPDAT's.
// WordSetModel answers Find, GetWords, the full scan and the segmentation by
// brute force over a std::map of words, on random GBK text with ASCII runs,
// words cut mid-character and a truncated last lead byte, also after Load.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "PDAT.h"
#include "TestUtil.h"

namespace {

constexpr unsigned kSeed = 20240611;

// Seeded random choices.
struct Random {
    std::mt19937 rng;
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
    std::string Pick(const std::vector<std::string>& from) {
        return from[std::uniform_int_distribution<size_t>(0, from.size() - 1)(rng)];
    }
    std::string Word(const std::vector<std::string>& alphabet, int maxChars) {
        std::string w;
        for (int n = Int(1, maxChars); n > 0; --n) w += Pick(alphabet);
        return w;
    }
};

// GBK characters (a dense common block, a scattered tail), then `extra`.
std::vector<std::string> Alphabet(int nCommon, int nRare, std::vector<std::string> extra) {
    std::vector<std::string> out;
    for (int k = 0; k < nCommon; ++k) out.push_back({char(0xB0 + k / 94), char(0xA1 + k % 94)});
    for (int k = 0; k < nRare; ++k) out.push_back({char(0xC0 + k % 40), char(0x41 + k / 40)});
    out.insert(out.end(), extra.begin(), extra.end());
    return out;
}

// ---- The layout model ----

struct Node {
    int code = 0, handle = -1, position = 0;
    std::vector<Node> children;
};

class NaiveLayout {
  public:
    explicit NaiveLayout(int nMode) : m_reader(nMode), m_nMode(nMode) {}

    // AddWord(w, handle, bFreq), or FindWord(w) with bFindOnly; then with
    // bFilter the word's counter is marked as a filter word (AddFilterWord).
    // Counters exist for words added with bFreq, indexed by handle all the same.
    int Add(std::string w, int handle, bool bFreq, bool bFindOnly, bool bFilter = false) {
        if (w.compare(0, 3, "\xEF\xBB\xBF") == 0) w.erase(0, 3);
        int len = int(w.size()), cl = 0;
        for (int n; m_nMode == 2 && len >= 2; len -= n) {  // trailing delimiters are trimmed
            n = static_cast<unsigned char>(w[len - 1]) < 0x80 ? 1 : 2;
            if (m_reader.GetCharCode(w.c_str(), len - n, len, &cl) != 9 || cl != n) break;
        }
        int result = -1;
        Node* node = &m_root;
        for (int i = 0; i < len; i += cl) {
            const int code = m_reader.GetCharCode(w.c_str(), i, len, &cl);
            const bool bLast = i + cl >= len;
            if (code == 9) continue;
            ++m_freq[code];
            auto it = std::find_if(node->children.begin(), node->children.end(),
                                   [&](const Node& c) { return c.code == code; });
            if (it == node->children.end()) {
                if (bFindOnly) return -1;
                it = node->children.insert(it, Node{code, -1, 0, {}});
            } else if (bLast && bFindOnly) {
                return it->handle;
            } else if (!bLast && bFreq && IsFilter(it->handle)) {
                return -1;  // below a filter word
            }
            if (bLast && it->handle < 0) {
                it->handle = handle, ++count;
                if (bFreq) m_filter.push_back(false);
            }
            if (bLast) result = it->handle;
            node = &*it;
        }
        if (bFilter && result >= 0 && result < int(m_filter.size())) m_filter[result] = true;
        return result;
    }

    void Complete() {
        cells.assign(size_t(count * 1.5), state{-1, -1, -1});
        for (int best = 0; best >= 0;) {  // character map: greatest count first, ties lower code
            best = -1;
            for (const auto& [c, n] : m_freq)
                if (n > 0 && (best < 0 || n > m_freq[best])) best = c;
            if (best >= 0) charset[best] = charsetSize++, m_freq[best] = -1;
        }
        for (Node& c : m_root.children) Claim(c.position = charset[c.code], -2, c);
        std::vector<Node> list = std::move(m_root.children);
        auto leaf = [](const Node& n) { return n.children.empty(); };
        auto fewer = [](const Node& a, const Node& b) {
            return a.children.size() < b.children.size();
        };
        while (list.erase(std::remove_if(list.begin(), list.end(), leaf), list.end()),
               !list.empty()) {
            // the first entry with the most children
            const size_t idx = std::max_element(list.begin(), list.end(), fewer) - list.begin();
            Node e = std::move(list[idx]);
            int b = 0;
            for (bool bFits = false; !bFits;) {
                b += 1 + (b + 1 == e.position && e.handle >= 0);
                bFits = std::all_of(e.children.begin(), e.children.end(), [&](const Node& k) {
                    const state& c = Cell(b + charset[k.code]);
                    return c.base == -1 && c.check == -1;
                });
            }
            cells[e.position] = {e.handle >= 0 ? -b : b, cells[e.position].check, e.handle};
            for (Node& ch : e.children) Claim(ch.position = b + charset[ch.code], e.position, ch);
            list[idx] = std::move(e.children[0]);
            for (size_t k = 1; k < e.children.size(); ++k) list.push_back(std::move(e.children[k]));
        }
    }

    std::vector<state> cells;
    std::vector<int> charset = std::vector<int>(65536, -1);
    int charsetSize = 0, bound = 0;
    unsigned count = 0;

  private:
    bool IsFilter(int h) const { return h >= 0 && h < int(m_filter.size()) && m_filter[h]; }
    state& Cell(int p) {  // cell p probed: it counts towards the bound
        if (p >= int(cells.size())) cells.resize(p + 100, state{-1, -1, -1});
        bound = std::max(bound, p);
        return cells[p];
    }
    void Claim(int p, int parent, const Node& n) {
        Cell(p) = n.children.empty() ? state{-p, parent, n.handle} : state{-1, parent, -1};
    }

    CPDAT m_reader;  // only its GetCharCode is used
    int m_nMode;
    Node m_root;
    std::map<int, int> m_freq;
    std::vector<bool> m_filter;
};

TEST(PdatLayoutModel, InsertionAndLayoutEqualTheFirstFitModel) {
    Random rnd{std::mt19937(kSeed)};
    // ， 。 Ａ １ （ ” and AA A4 besides ASCII
    const auto alphabet = Alphabet(
        60, 80, {"a",        "b",        "c",        "A",        "Z",        "0",       "7",
                 " ",        ",",        "_",        "/",        "\t",       "\"",      "\xA3\xAC",
                 "\xA1\xA3", "\xA3\xC1", "\xA3\xB1", "\xA3\xA8", "\xA1\xB1", "\xAA\xA4"});
    const int kSizes[] = {0, 1, 2, 3, 5, 8, 13, 40, 120, 400, 1500};
    for (int round = 0; round <= 60; ++round) {
        SCOPED_TRACE("seed " + std::to_string(kSeed) + " round " + std::to_string(round));
        NaiveLayout model(round % 3);
        CPDAT dict(round % 3);
        std::vector<std::string> words;  // shared prefixes, marks
        for (int k = 0; k < (round == 60 ? 0 : kSizes[round % 11]); ++k) {
            const int r = rnd.Int(0, 99);
            std::string w = rnd.Word(alphabet, 1 + round % 6);
            if (!words.empty() && r < 25) w = rnd.Pick(words) + (r < 15 ? "" : w);
            words.push_back(w = r == 25 ? "\xEF\xBB\xBF" + w : r == 26 ? w + "\xB1" : w);
            const bool bFind = r >= 92, bFilter = r >= 85 && !bFind;
            const bool bFreq = r < 35 || (r >= 60 && r < 75) || bFilter;
            const int got = bFind     ? dict.FindWord(w.c_str())
                            : bFilter ? dict.AddFilterWord(w.c_str())
                            : r < 60  ? dict.AddWord(w.c_str(), bFreq)
                                      : dict.AddWord(w.c_str(), int(dict.GetItemCount()), bFreq);
            ASSERT_EQ(got, model.Add(w, bFind ? -1 : int(model.count), bFreq, bFind, bFilter)) << w;
        }
        // A word end whose first fit is its own cell takes the next base, and
        // the skipped base stays free for a later children set of the same shape.
        if (round == 60) {
            for (const char* w :
                 {"a", "c", "faa", "fb", "eb", "dc", "dab", "d", "bb", "eff", "efe", "fcb"})
                ASSERT_EQ(dict.AddWord(w, false), model.Add(w, int(model.count), false, false));
        }
        dict.AddWordComplete();
        model.Complete();
        ASSERT_EQ(dict.GetLowerBound(), model.bound);
        ASSERT_EQ(dict.GetCharsetSize(), model.charsetSize);
        for (unsigned c = 0; c < 65536; ++c) ASSERT_EQ(dict.GetCharsetCode(c), model.charset[c]);
        ASSERT_EQ(dict.GetStates() == nullptr, model.cells.empty());
        for (int p = 0; !model.cells.empty() && p <= model.bound; ++p)
            ASSERT_EQ(0, memcmp(&dict.GetStates()[p], &model.cells[p], sizeof(state))) << p;
    }
}

// ---- The word-set model ----

using Codes = std::vector<int>;

// Raw character codes of modes 0 and 1, read without CPDAT.
int CodeAt(int nMode, const std::string& t, size_t i, int* pLen) {
    const unsigned char b = t[i];
    *pLen = 1;
    if (nMode == 1) return b;
    if (b >= 0x80 && i + 1 < t.size())
        return *pLen = 2, b * 256 + static_cast<unsigned char>(t[i + 1]);
    return b >= 'A' && b <= 'Z' ? b + 32 : b;
}

bool SameKind(unsigned char a, unsigned char b) {
    auto letter = [](unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    auto digit = [](unsigned char c) { return c >= '0' && c <= '9'; };
    return (letter(a) && letter(b)) || (digit(a) && digit(b));
}

class WordSetModel {
  public:
    WordSetModel(int nMode, const CPDAT& dict) : m_nMode(nMode), m_dict(dict) {}

    void Add(const std::string& w, int handle) {
        const Codes c = Read(w, false);
        m_words.emplace(c, handle);  // the first handle stays
        for (size_t n = 1; n <= c.size(); ++n) {
            m_prefixes.insert(Codes(c.begin(), c.begin() + n));
            if (n < c.size()) m_extended.insert(Codes(c.begin(), c.begin() + n));
            m_known.insert(c[n - 1]);
        }
    }

    // The answers in the form of Answers(CPDAT&) below.
    std::string Answers(const std::string& t) const {
        std::ostringstream o;
        auto it = m_words.find(Read(t, true));
        o << "find " << (it == m_words.end() ? -1 : it->second) << "\nprefixes ";
        std::string sPrefixes;
        int longest = 0;
        Walk(t, 0, [&](const Codes& q, int end) {
            if (!IsWordEnd(q)) return true;
            sPrefixes += " " + std::to_string(m_words.at(q)) + "@" + std::to_string(longest = end);
            return m_extended.count(q) > 0;
        });
        o << longest << ":" << sPrefixes << "\n" << FullScan(t) << "\n" << Segments(t);
        return o.str();
    }

  private:
    static bool IsRunStop(unsigned char c) { return c == 0 || std::strchr(" \t-_,.:/~#%^*()", c); }
    // Codes of t; with bFold a run of white space reads as one space (Find).
    Codes Read(const std::string& t, bool bFold) const {
        Codes c;
        for (size_t i = 0; i < t.size();) {
            int n = 0, code = CodeAt(m_nMode, t, i, &n);
            i += n;
            if (bFold && (code == 9 || code == 10 || code == 13)) code = 32;
            if (code != 9 && !(bFold && code == 32 && !c.empty() && c.back() == 32))
                c.push_back(code);
        }
        return c;
    }
    // A one-character leaf in cell 0 has base 0, which the walks other than
    // Find and GetMaxWord read as no word end.
    bool IsWordEnd(const Codes& q) const {
        return m_words.count(q) &&
               !(q.size() == 1 && m_dict.GetCharsetCode(q[0]) == 0 && !m_extended.count(q));
    }
    // Calls at(prefix, end byte) for each prefix of t from byte `from` that
    // is a prefix of a word, until at returns false; returns the byte where
    // the walk stopped (the first character that is unknown or leads to no
    // word, or the end).
    template <typename At>
    int Walk(const std::string& t, int from, At at, bool* pUnknown = nullptr) const {
        Codes q;
        for (int i = from, n = 0; i < int(t.size()); i += n) {
            q.push_back(CodeAt(m_nMode, t, i, &n));
            if (pUnknown) *pUnknown = !m_known.count(q.back());
            if (!m_prefixes.count(q) || !at(q, i + n)) return m_prefixes.count(q) ? i + n : i;
        }
        if (pUnknown) *pUnknown = false;
        return int(t.size());
    }

    // The full scan, character by character: the first word end of an
    // attempt is written, then the same start is walked again for the
    // longest word that ends in a leaf; the next attempt starts one
    // character after the start, or just after an unknown character.
    std::string FullScan(const std::string& t) const {
        const int len = int(t.size());
        std::string text, spans;
        int i = 0, start = 0, firstLen = 0, matchLen = 0, handle = -1, flag = 1;
        Codes q;
        auto emit = [&](int n, bool bTail) {
            const bool bCut = (start > 0 && SameKind(t[start - 1], t[start])) ||
                              (start + n < len && SameKind(t[start + n - 1], t[start + n]));
            if (text.size() + n >= 5 * t.size() || bCut) return;
            const int from = bTail ? len - n : start;
            text += t.substr(from, n) + (bTail ? "" : " ");
            spans += " " + std::to_string(from) + "+" + std::to_string(n) + "=" +
                     std::to_string(from != start ? -1 : handle) + (bTail ? "" : "_");
        };
        auto restart = [&](int at) { q.clear(), start = i = at, matchLen = 0, handle = -1; };
        while (i < len) {
            int cl = 0;
            q.push_back(CodeAt(m_nMode, t, i, &cl));
            i += cl;
            if (!m_known.count(q.back())) {
                if (handle >= 0 && matchLen > 0) emit(matchLen, false);
                restart(i);  // firstLen is kept
                continue;
            }
            if (firstLen == 0) firstLen = cl;
            if (m_prefixes.count(q) && !IsWordEnd(q)) {
                matchLen = matchLen ? matchLen : cl;
            } else if (m_prefixes.count(q)) {
                matchLen = i - start, handle = m_words.at(q);
                const bool bLeaf = !m_extended.count(q);
                if (!bLeaf && flag == 0) continue;
                emit(matchLen, false);
                restart(bLeaf ? start + firstLen : start);
                flag = bLeaf ? 1 : 0, firstLen = 0;
            } else if (matchLen >= 1) {
                if (handle >= 0 && flag == 1) emit(matchLen, false);
                restart(start + firstLen);
                firstLen = 0, flag = 1;
            } else {
                restart(i + (cl == 1 && i < len && t[i] == ' '));
            }
        }
        if (handle >= 0 && matchLen >= 1) emit(matchLen, true);
        return "scan " + text + "\nspans" + spans;
    }

    // Forward maximum matching: the longest word at each start, else its
    // first character; a failed walk goes back to the candidate's end.
    std::string Segments(const std::string& t) const {
        const int len = int(t.size());
        std::string text, handles, spans;
        auto put = [&](int from, int n, int h) {
            text += t.substr(from, n) + "|";
            handles += std::to_string(h) + ",";
            spans += " " + std::to_string(from) + "+" + std::to_string(n);
        };
        auto run = [&](int at, bool bAsciiOnly) {  // one character, plus an ASCII run
            int n = 0;
            CodeAt(m_nMode, t, at, &n);
            int end = at + n;
            const unsigned char c = t[at];
            if (n == 1 && (!bAsciiOnly || c < 0x80) && !IsRunStop(c))
                while (end < len && static_cast<unsigned char>(t[end]) < 0x80 && !IsRunStop(t[end]))
                    ++end;
            put(at, end - at, -1);
            return end;
        };
        for (int pos = 0; pos < len;) {
            int cand = 0, handle = -1;
            bool bUnknown = false, bLeaf = false;
            const int stop = Walk(
                t, pos,
                [&](const Codes& q, int end) {
                    if (!IsWordEnd(q)) return cand = cand ? cand : end - pos, true;
                    cand = end - pos, handle = m_words.at(q);
                    return !(bLeaf = !m_extended.count(q));
                },
                &bUnknown);
            if (cand == 0) {
                pos = run(stop, !bUnknown);
            } else {
                put(pos, cand, handle);
                pos = bUnknown && !bLeaf && pos + cand == stop ? run(stop, false) : pos + cand;
            }
        }
        return "segments " + text + " " + handles + "\nsegspans" + spans;
    }

    int m_nMode;
    const CPDAT& m_dict;
    std::map<Codes, int> m_words;
    std::set<Codes> m_prefixes, m_extended;
    std::set<int> m_known;
};

// What CPDAT answers about t, in the model's form.
std::string Answers(CPDAT& d, const std::string& t) {
    std::ostringstream o;
    unsigned *pH = nullptr, *pE = nullptr, nCap = 0, n = 0;
    o << "find " << d.Find(t.c_str()) << "\nprefixes "
      << d.GetWords(t.c_str(), &pH, &pE, &nCap, &n, 0) << ":";
    for (unsigned k = 0; k < n; ++k) o << " " << pH[k] << "@" << pE[k];
    free(pH), free(pE);
    std::vector<_stScanSpan> spans;
    d.MMFullScanSpans(t.c_str(), spans);
    o << "\nscan " << d.MMFullScan(t.c_str()) << "\nspans";
    for (const _stScanSpan& s : spans)
        o << " " << s.iStart << "+" << s.nLen << "=" << s.nHandle << (s.bBlank ? "_" : "");
    int *pHandles = nullptr, nHandleCap = 0, nResultCap = 0;
    char* pResult = nullptr;
    n = d.MMSegment(t.c_str(), &pHandles, &nHandleCap, &pResult, &nResultCap, false, true, -1, '|');
    o << "\nsegments " << pResult << " ";
    for (unsigned k = 0; k < n; ++k) o << pHandles[k] << ",";
    free(pHandles), free(pResult);
    std::vector<_stSegSpan> segs;
    d.MMSegmentSpans(t.c_str(), int(t.size()), -1, segs);
    o << "\nsegspans";
    for (const _stSegSpan& s : segs) o << " " << s.iStart << "+" << s.nLen;
    return o.str();
}

// Text of words, word tails (from mid-character), known characters, an
// unknown character (中), Latin words and numbers with spaces, sometimes a
// truncated last lead byte; long in some rounds, to cross the byte-mode
// scan's windows of starts.
std::string RandomText(Random& rnd, const std::vector<std::string>& words,
                       const std::vector<std::string>& chars, int nMax) {
    std::string t;
    for (int n = rnd.Int(0, nMax); n > 0; --n) {
        const int r = rnd.Int(0, 5);
        t += r < 2    ? rnd.Pick(words)
             : r == 2 ? rnd.Pick(chars)
             : r == 3 ? "\xD6\xD0"
             : r == 4 ? rnd.Pick({"ab", "Ab1", "12", " ", "  x", "9a", "ba", "a-b"})
                      : rnd.Pick(words).substr(1);
    }
    return rnd.Int(0, 3) == 0 ? t + "\xB0" : t;
}

TEST(PdatWordSetModel, LookupsScansAndSegmentsAgreeBeforeAndAfterSaveAndLoad) {
    const unsigned seed = kSeed + 2;
    Random rnd{std::mt19937(seed)};
    qxtest::TempDir dir;
    const std::string sFile = dir.file("d.pdat");
    CPDAT loaded(2);  // loads every round's dictionary in turn
    const auto chars = Alphabet(12, 6, {"a", "b", "A", "1", "2", "x", " "});
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
        // Byte mode first: its scan index must not outlive the next load.
        const int nMode = (round + 1) % 2;
        CPDAT dict(nMode);
        WordSetModel model(nMode, dict);
        std::vector<std::string> words;
        auto add = [&](const std::string& w) { model.Add(w, dict.AddWord(w.c_str(), false)); };
        for (int k = rnd.Int(1, 150); k > 0; --k) add(words.emplace_back(rnd.Word(chars, 4)));
        if (round == 58 || round == 59) {  // output cap: # words write more than they read
            for (int n = 1; n <= 12; ++n) add(std::string(n, '#'));
            words = {std::string(300, '#'),
                     std::string(40, '#') + "\xD6\xD0" + std::string(40, '#')};
        }
        dict.AddWordComplete();
        ASSERT_TRUE(dict.Save(sFile.c_str()));
        ASSERT_TRUE(loaded.Load(sFile.c_str()));  // mode and scan index follow the file
        std::vector<std::string> texts = words;
        for (int k = 0; k < 40; ++k)
            texts.push_back(RandomText(rnd, words, chars, round % 5 ? 40 : 400));
        for (int k = 0; k < 40; ++k) texts.push_back(rnd.Word(chars, 5));
        for (const std::string& t : texts) {
            const std::string want = model.Answers(t);
            ASSERT_EQ(Answers(dict, t), want) << "text " << t;
            ASSERT_EQ(Answers(loaded, t), want) << "reloaded, text " << t;
        }
    }
}

}  // namespace
