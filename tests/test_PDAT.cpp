// The dictionary: character modes, insertion rules, the exact cell layout,
// lookups, the full and first-hit scans, and the term counters.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "PDAT.h"

namespace {

// A completed dictionary of words added in order without term counting.
std::unique_ptr<CPDAT> Build(int nMode, const std::vector<std::string>& words) {
    auto dict = std::make_unique<CPDAT>(nMode);
    for (const std::string& w : words) dict->AddWord(w.c_str(), false);
    dict->AddWordComplete();
    return dict;
}

std::string Scan(CPDAT& dict, const char* text) {
    return dict.MMFullScan(text);
}

// ---- Characters ----

TEST(PdatCharCode, ModesReadAndNormaliseCharacters) {
    struct Row {
        int mode;
        std::string text;
        int i;
        int code;
        int len;
    } rows[] = {
        {0, "A", 0, 'a', 1},
        {0, "\xB0\xA1", 0, 0xB0A1, 2},  // 啊
        {0, "a\xB0", 1, 0xB0, 1},       // a lead byte at the end stands alone
        {0, "\xB0\x41", 0, 0xB041, 2},  // the trail byte is not folded
        {1, "\xB0\xA1", 0, 0xB0, 1},
        {1, "A", 0, 'A', 1},
        {2, "\xA3\xA8", 0, '(', 2},     // （
        {2, "\xA1\xBE", 0, '(', 2},     // 【
        {2, "\xA3\xA9", 0, ')', 2},     // ）
        {2, "\xA1\xBF", 0, ')', 2},     // 】
        {2, "\xA1\xB0", 0, '"', 2},     // “
        {2, "\xA1\xB1", 0, '"', 2},     // ”
        {2, "\xA1\xAE", 0, '"', 2},     // ‘
        {2, "\xA3\xA7", 0, '"', 2},     // ＇
        {2, "\xA1\xAF", 0, 0xA1AF, 2},  // ’ is not in the set
        {2, "\xA3\xB0", 0, '0', 2},     // ０
        {2, "\xA3\xB9", 0, '9', 2},     // ９
        {2, "\xA3\xC1", 0, 'a', 2},     // Ａ
        {2, "\xA3\xDA", 0, 'z', 2},     // Ｚ
        {2, "\xA3\xE1", 0, 'a', 2},     // ａ
        {2, "Q", 0, 'q', 1},
        {2, ",,x", 0, 9, 2},
        {2, " \t\r\n,/_x", 0, 9, 7},
        {2, "\xA3\xAC\xA1\xA3x", 0, 9, 4},  // ，。
        {2, ", \xA3\xAC", 0, 9, 4},         // mixed run up to the end
        {2, "\xA3\xDC\xA3\xFC\xA3\xAE\xA1\xA2\xA3\xAD\xA1\xAA\xAA\xA4", 0, 9, 14},  // ＼｜．、－—
        {2, "a\xA3", 1, 0xA3, 1},  // a lone lead byte is no delimiter
    };
    for (const Row& r : rows) {
        CPDAT dict(r.mode);
        int len = -1;
        EXPECT_EQ(dict.GetCharCode(r.text.c_str(), r.i, static_cast<int>(r.text.size()), &len),
                  r.code)
            << "mode " << r.mode << " text " << r.text;
        EXPECT_EQ(len, r.len) << "mode " << r.mode << " text " << r.text;
    }
    CPDAT dict(2);
    int len = -1;
    EXPECT_EQ(dict.GetCharCode("\xA3\xAC", 0, 1, &len), 0xA3);  // len cuts the comma
    EXPECT_EQ(len, 1);
    EXPECT_EQ(dict.GetCharCode("ab", 2, 2, &len), 0);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(dict.GetCharCode(nullptr, 0, 1, &len), 0);
}

// ---- Insertion ----

TEST(PdatInsert, DuplicatesKeepTheirHandleAndCount) {
    CPDAT dict(1);
    EXPECT_EQ(dict.AddWord("ab", true), 0);
    EXPECT_EQ(dict.AddWord("cd", true), 1);
    EXPECT_EQ(dict.AddWord("ab", true), 0);
    EXPECT_EQ(dict.GetItemCount(), 2u);
    EXPECT_EQ(dict.AddWord("x", 42, false), 42);
    EXPECT_EQ(dict.AddWord("\xEF\xBB\xBF"
                           "cd",
                           false),
              1);  // byte-order mark skipped
    EXPECT_EQ(dict.AddWord("", false), -1);
    EXPECT_EQ(dict.AddWord(nullptr, false), -1);
    EXPECT_EQ(dict.AddWord("ab\t", false), -1);  // the last character has code 9
    EXPECT_STREQ(dict.GetTopWords(-1), "ab/2#cd/1#");
    dict.AddWordComplete();
    EXPECT_EQ(dict.Find("x"), 42);
    EXPECT_EQ(dict.Find("cd"), 1);
    EXPECT_EQ(dict.AddWord("new", false), -1);  // completed: read-only
    EXPECT_EQ(dict.FindWord("ab"), -1);
}

TEST(PdatInsert, FilterWordsBlockLongerWordsOnlyWhenCounting) {
    CPDAT dict(1);
    EXPECT_EQ(dict.AddFilterWord("ab"), 0);
    EXPECT_EQ(dict.AddWord("abc", true), -1);
    EXPECT_EQ(dict.AddWord("ab", true), 0);  // the filter's counter stays -1
    EXPECT_EQ(dict.AddWord("abc", false), 1);
    EXPECT_EQ(dict.GetTopWordVector().back().freq, -1);

    CPDAT reset(1);
    reset.AddFilterWord("ab");
    reset.ResetFreq();  // clears the filter mark as well
    EXPECT_EQ(reset.AddWord("abc", true), 1);
}

TEST(PdatInsert, ModesDecideWhichWordsAreTheSame) {
    CPDAT mode0(0), mode1(1), mode2(2);
    EXPECT_EQ(mode0.AddWord("ABC", false), 0);
    EXPECT_EQ(mode0.AddWord("abc", false), 0);
    EXPECT_EQ(mode0.AddWord("a\tb", false), mode0.AddWord("ab", false));  // a tab is skipped
    EXPECT_EQ(mode1.AddWord("ABC", false), 0);
    EXPECT_EQ(mode1.AddWord("abc", false), 1);
    // 词， and 词 (trailing full-width comma trimmed), plus inner delimiters skipped
    EXPECT_EQ(mode2.AddWord("\xB4\xCA\xA3\xAC", false), 0);
    EXPECT_EQ(mode2.AddWord("\xB4\xCA", false), 0);
    EXPECT_EQ(mode2.AddWord("\xA3\xC1 b, _", false), 1);  // Ａ b
    EXPECT_EQ(mode2.AddWord("ab", false), 1);
    EXPECT_EQ(mode2.AddWord(",", false), -1);
    mode2.AddWordComplete();
    EXPECT_EQ(mode2.Find("AB"), 1);
    EXPECT_EQ(mode2.Find("\xB4\xCA"), 0);
}

TEST(PdatInsert, FindWordAddsNothingButCountsCharacters) {
    CPDAT dict(1);
    dict.AddWord("ab", false);
    dict.AddWord("cd", false);
    EXPECT_EQ(dict.FindWord("ab"), 0);
    EXPECT_EQ(dict.FindWord("a"), -1);  // a prefix, not a word
    for (int k = 0; k < 3; ++k) EXPECT_EQ(dict.FindWord("cx"), -1);
    EXPECT_EQ(dict.FindWord("zq"), -1);  // z counted, the walk ends before q
    EXPECT_EQ(dict.GetItemCount(), 2u);
    dict.AddWordComplete();
    // Counts: c 4, a 3, x 3, b 2, d 1, z 1.
    EXPECT_EQ(dict.GetCharsetCode('c'), 0);
    EXPECT_EQ(dict.GetCharsetCode('a'), 1);
    EXPECT_EQ(dict.GetCharsetCode('x'), 2);  // counted before the miss
    EXPECT_EQ(dict.GetCharsetCode('z'), 5);
    EXPECT_EQ(dict.GetCharsetCode('q'), -1);
    EXPECT_EQ(dict.Find("cx"), -1);
}

// ---- Layout ----

void ExpectCells(const CPDAT& dict, const std::vector<state>& want) {
    ASSERT_EQ(dict.GetLowerBound(), static_cast<int>(want.size()) - 1);
    for (size_t p = 0; p < want.size(); ++p) {
        const state& c = dict.GetStates()[p];
        EXPECT_TRUE(c.base == want[p].base && c.check == want[p].check &&
                    c.handle == want[p].handle)
            << "cell " << p << ": " << c.base << "," << c.check << "," << c.handle;
    }
}

TEST(PdatLayout, CellsOfSmallDictionariesAreExact) {
    // Counts b 4, a 3, d 2, c 1. a's children reject base 1 (cell 1 holds b);
    // ab and b tie on one child and ab is first in the work list; b rejects
    // base 1 because abd took cell 3.
    auto first = Build(1, {"ab", "ac", "b", "abd", "bd"});
    EXPECT_EQ(first->GetCharsetSize(), 4);
    EXPECT_EQ(first->GetCharsetCode('b'), 0);
    EXPECT_EQ(first->GetCharsetCode('a'), 1);
    EXPECT_EQ(first->GetCharsetCode('d'), 2);
    EXPECT_EQ(first->GetCharsetCode('c'), 3);
    ExpectCells(*first, {{-2, -2, 2}, {2, -2, -1}, {-1, 1, 0}, {-3, 2, 3}, {-4, 0, 4}, {-5, 1, 1}});

    // a and b tie on 2 (a is lower); a is a leaf in cell 0 with base 0; b is a
    // word end in cell 1, so base 1 is skipped (it would read as a leaf).
    auto second = Build(1, {"b", "bc", "a", "a"});
    ExpectCells(*second, {{0, -2, 2}, {-2, -2, 0}, {-1, -1, -1}, {-1, -1, -1}, {-4, 1, 1}});

    // Cell 0 base 0: a word for Find and GetMaxWord, not for GetWords,
    // Find(code) or the scan.
    EXPECT_EQ(second->Find("a"), 2);
    EXPECT_EQ(second->Find('a'), -1);
    int handle = 0;
    EXPECT_EQ(second->GetMaxWord("a", &handle, nullptr), 1);
    EXPECT_EQ(handle, 2);
    unsigned *handles = nullptr, *ends = nullptr, cap = 0, count = 9;
    EXPECT_EQ(second->GetWords("a", &handles, &ends, &cap, &count, 0), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(Scan(*second, "a"), "");
    EXPECT_EQ(Scan(*second, "bc"), "bc ");  // b alone would cut the Latin word
    EXPECT_EQ(second->Find("bc"), 1);
}

TEST(PdatLayout, CharacterMapRanksByCountThenCode) {
    auto dict = Build(0, {"Ab", "ba", "c\xB0\xA1", "\xB0\xA1"});  // 啊
    EXPECT_EQ(dict->GetCharsetSize(), 4);
    EXPECT_EQ(dict->GetCharsetCode('a'), 0);
    EXPECT_EQ(dict->GetCharsetCode('b'), 1);
    EXPECT_EQ(dict->GetCharsetCode(0xB0A1), 2);
    EXPECT_EQ(dict->GetCharsetCode('c'), 3);
    EXPECT_EQ(dict->GetCharsetCode('A'), -1);
    EXPECT_EQ(dict->GetCharsetCode(70000), -1);
}

TEST(PdatLayout, CompletingTwiceAndEmptyDictionaries) {
    auto dict = Build(1, {"ab", "abc"});
    const state* cells = dict->GetStates();
    const int bound = dict->GetLowerBound();
    EXPECT_EQ(dict->AddWordComplete(), 1);
    EXPECT_EQ(dict->GetStates(), cells);
    EXPECT_EQ(dict->GetLowerBound(), bound);
    // ab is a terminal with a child: negative base, child reachable through it.
    ExpectCells(*dict, {{1, -2, -1}, {-1, -1, -1}, {-1, 0, 0}, {-3, 2, 1}});
    EXPECT_EQ(dict->Find("ab"), 0);
    EXPECT_EQ(dict->Find("abc"), 1);

    for (int nMode = 0; nMode < 3; ++nMode) {
        auto empty = Build(nMode, {});
        EXPECT_EQ(empty->GetStates(), nullptr);
        EXPECT_EQ(empty->GetLowerBound(), 0);
        EXPECT_TRUE(empty->IsEmpty());
        EXPECT_EQ(empty->Find("a"), -1);
        EXPECT_EQ(empty->Find('a'), -1);
        EXPECT_EQ(empty->GetMaxWord("a", nullptr, nullptr), 0);
        EXPECT_EQ(empty->GetWords("a", nullptr, nullptr, nullptr, nullptr, 0), 0);
        EXPECT_EQ(Scan(*empty, "a b"), "");
        bool bFound = true;
        EXPECT_STREQ(empty->MMScan("ab", &bFound), "");
        EXPECT_FALSE(bFound);
    }
    dict->SetEmpty();
    EXPECT_TRUE(dict->IsEmpty());
    EXPECT_EQ(dict->GetLowerBound(), 0);

    CPDAT probed(1);  // characters counted by lookups alone still get codes
    EXPECT_EQ(probed.FindWord("ab"), -1);
    probed.AddWordComplete();
    EXPECT_EQ(probed.GetCharsetSize(), 1);
    EXPECT_EQ(probed.GetCharsetCode('a'), 0);
    EXPECT_EQ(probed.GetStates(), nullptr);
    EXPECT_EQ(probed.Find("a"), -1);
}

// ---- Lookup ----

TEST(PdatFind, QuotesByteOrderMarkAndWhiteSpace) {
    auto dict = Build(1, {"ab", "a b", "abc", "x", "\"q"});
    const int ab = dict->Find("ab"), spaced = dict->Find("a b");
    ASSERT_GE(ab, 0);
    ASSERT_GE(spaced, 0);
    struct Row {
        std::string text;
        int want;
    } rows[] = {
        {"\"ab\"", ab},
        {"\xEF\xBB\xBF"
         "ab",
         ab},
        {"\xEF\xBB\xBF\"ab\"", ab},
        {"\xEF\xBB\xBF", -1},
        {"a  b", spaced},
        {"a\t\r\nb", spaced},
        {"\"q", dict->Find("\"q")},  // one quote is not a pair
        {"a", -1},
        {"abcd", -1},
        {"", -1},
    };
    for (const Row& r : rows) EXPECT_EQ(dict->Find(r.text.c_str()), r.want) << r.text;
    EXPECT_GE(dict->Find("\"q"), 0);
    EXPECT_EQ(dict->Find(static_cast<const char*>(nullptr)), -1);
    EXPECT_EQ(dict->Find("abc", 2u), ab);
    EXPECT_EQ(dict->Find('x'), dict->Find("x"));

    auto single = Build(1, {"x"});  // the only cell is the highest one
    EXPECT_EQ(single->Find("x"), 0);
    EXPECT_EQ(single->Find('x'), -1);
    EXPECT_EQ(single->Find(-1), -1);
    EXPECT_EQ(single->Find(65536), -1);
}

TEST(PdatFind, GetWordsListsPrefixWordsAndGetMaxWordTheLongest) {
    auto dict = Build(1, {"a", "ab", "abcd", "x y"});
    unsigned *handles = nullptr, *ends = nullptr, cap = 0, count = 0;
    EXPECT_EQ(dict->GetWords("abcde", &handles, &ends, &cap, &count, 0), 4);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(cap, 5u);
    EXPECT_EQ(std::vector<unsigned>(handles, handles + 3), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(std::vector<unsigned>(ends, ends + 3), (std::vector<unsigned>{1, 2, 4}));
    EXPECT_EQ(dict->GetWords("abc", &handles, &ends, &cap, &count, 1), 2);
    ASSERT_EQ(count, 1u);  // a is not longer than minLen
    EXPECT_EQ(ends[0], 2u);
    EXPECT_EQ(dict->GetWords("x  y", &handles, &ends, &cap, &count, 0), 0);  // no folding
    free(handles);
    free(ends);

    struct Row {
        const char* text;
        int len, handle;
        bool bSpace;
    } rows[] = {
        {"abcz", 2, 1, false}, {"abcd!", 4, 2, false}, {"x  y!", 4, 3, true},
        {"x\ty", 3, 3, true},  {"zz", 0, -1, false},   {"", 0, -1, false},
    };
    for (const Row& r : rows) {
        int handle = 7;
        bool bSpace = true;
        EXPECT_EQ(dict->GetMaxWord(r.text, &handle, &bSpace), r.len) << r.text;
        EXPECT_EQ(handle, r.handle) << r.text;
        EXPECT_EQ(bSpace, r.bSpace) << r.text;
    }
    EXPECT_EQ(dict->GetMaxWord(nullptr, nullptr, nullptr), 0);
}

// ---- Scans ----

TEST(PdatScan, FullScanReportsShortAndLongWords) {
    // 甲, 甲乙, 甲乙丙, 甲乙丙丁
    auto nested = Build(1, {"\xBC\xD7", "\xBC\xD7\xD2\xD2", "\xBC\xD7\xD2\xD2\xB1\xFB",
                            "\xBC\xD7\xD2\xD2\xB1\xFB\xB6\xA1"});
    auto latin = Build(1, {"ab", "12"});
    auto inner = Build(1, {"ab", "abc"});
    auto gbk =
        Build(1, {"\xBC\xD7\xD2\xD2", "\xBC\xD7\xD2\xD2\xB1\xFB\xB6\xA1"});  // 甲乙, 甲乙丙丁
    auto normalising = Build(2, {"ab"});
    struct Row {
        CPDAT* dict;
        const char* text;
        std::string want;
    } rows[] = {
        {nested.get(), "\xBC\xD7\xD2\xD2\xB1\xFB\xB6\xA1",
         "\xBC\xD7 \xBC\xD7\xD2\xD2\xB1\xFB\xB6\xA1 "},
        {nested.get(), "", ""},
        {nested.get(), "zzz", ""},
        {latin.get(),
         "\xD6\xD0"
         "ab",
         "ab "},                          // 中ab
        {latin.get(), "cab", ""},         // would start inside a Latin word
        {latin.get(), "3125", ""},        // would start inside a number
        {latin.get(), "ab12", "ab 12 "},  // a letter may touch a digit
        {latin.get(), "ab 12", "ab 12 "},
        // An inner word end is reported when first met; the longest pass then
        // runs off the end and reports the last bytes again, with no space.
        {inner.get(), "ab", "ab ab"},
        {inner.get(), "ab\xD6\xD0", "ab ab "},  // stopped by an unknown character
        {inner.get(), "abx", ""},               // b-x would cut a Latin word
        // Stopped by a known character, the longest pass reports nothing.
        {gbk.get(), "\xBC\xD7\xD2\xD2\xBC\xD7", "\xBC\xD7\xD2\xD2 "},
        {gbk.get(), "\xBC\xD7\xD2\xD2\xB1\xFB", "\xBC\xD7\xD2\xD2 \xD2\xD2\xB1\xFB"},
        {normalising.get(), "a,b", ""},  // a delimiter run ends the attempt
        {normalising.get(), "x, ab", "ab "},
    };
    for (const Row& r : rows) EXPECT_EQ(Scan(*r.dict, r.text), r.want) << r.text;
    EXPECT_STREQ(nested->MMFullScan(nullptr), "");
}

TEST(PdatScan, FirstHitScanStopsWhenAsked) {
    auto dict = Build(1, {"ab", "cd"});
    const char* text =
        "\xD6\xD0"
        "ab"
        "\xD6\xD0"
        "cd";  // 中ab中cd
    bool bFound = false;
    EXPECT_STREQ(dict->MMScan(text, &bFound), "ab ");
    EXPECT_TRUE(bFound);
    EXPECT_STREQ(dict->MMScan(text, nullptr), "ab cd ");
    EXPECT_STREQ(dict->MMScan("\xD6\xD0"
                              "cd",
                              &bFound),
                 "cd ");
    EXPECT_STREQ(dict->MMScan("xx", &bFound), "");
    EXPECT_FALSE(bFound);

    char* buf = nullptr;
    int cap = 0;
    char* got = dict->MMScan(text, &buf, &cap, nullptr);
    EXPECT_EQ(got, buf);
    EXPECT_EQ(cap, 3 * 8 + 1);
    EXPECT_STREQ(buf, "ab cd ");
    delete[] buf;
    EXPECT_EQ(dict->MMScan(text, nullptr, nullptr, &bFound), nullptr);
    EXPECT_TRUE(bFound);
}

TEST(PdatScan, IsValidStringKeepsLatinWordsAndNumbersWhole) {
    CPDAT dict(1);
    struct Row {
        const char* text;
        int start, end;
        bool want;
    } rows[] = {
        {"xab", 1, 3, false}, {"Xab", 1, 3, false}, {"1ab", 1, 3, true}, {"312", 1, 3, false},
        {"ab", 0, 2, true},   {"abc", 0, 2, false}, {"ab1", 0, 2, true}, {"121", 0, 2, false},
        {"a1", 0, 1, true},   {"ab", 0, 0, true},   {"ab", 0, 5, true},
    };
    for (const Row& r : rows)
        EXPECT_EQ(dict.IsValidString(r.text, r.start, r.end, static_cast<int>(strlen(r.text))),
                  r.want)
            << r.text << " " << r.start << " " << r.end;
    EXPECT_FALSE(dict.IsValidString(nullptr, 0, 1, 1));
}

// ---- Term counters ----

TEST(PdatTerms, TopWordsHideLongerWordsContainingEarlierOnes) {
    struct Row {
        std::vector<std::pair<std::string, int>> counts;
        int n;
        std::string want;
    } rows[] = {
        {{{"abcd", 5}, {"abcde", 3}}, -1, "abcd/5#"},
        {{{"abcde", 5}, {"abcd", 3}}, -1, "abcde/5#abcd/3#"},
        {{{"abc", 5}, {"abcde", 3}}, -1, "abc/5#abcde/3#"},
        {{{"ab", 3}, {"abcde", 2}}, -1, "ab/3#abcde/2#"},
        {{{"abcd", 5}, {"abcde", 3}, {"xy", 1}}, 2, "abcd/5#"},  // the hidden word uses a place
        {{{"abcd", 5}, {"abcde", 3}, {"xy", 1}}, -1, "abcd/5#xy/1#"},
        {{{"abcd", 5}}, 0, ""},
    };
    for (const Row& r : rows) {
        CPDAT dict(1);
        std::vector<std::string> words;
        for (const auto& [w, n] : r.counts) words.insert(words.end(), n, w);
        EXPECT_EQ(dict.WordFreq(words), static_cast<int>(r.counts.size()));
        EXPECT_EQ(dict.GetTopWords(r.n), r.want);
    }
    CPDAT dict(1);
    dict.WordFreq({"a", "b", "b"});
    EXPECT_EQ(dict.WordFreq({"a"}), 2);  // counters reset, entries kept
    EXPECT_STREQ(dict.GetTopWords(-1), "a/1#b/0#");
}

}  // namespace
