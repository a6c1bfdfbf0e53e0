// The dictionary's rules as tables, where the models of test_PDAT_oracle.cpp
// do not reach: the character modes, the cell-0 and highest-cell readings,
// Find's quotes and marks, GetMaxWord, mode 2 and the first-hit scan, term
// counters and the segmentation's options.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
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

TEST(PdatCharCode, ModesReadAndNormaliseCharacters) {
    const struct {
        int mode;
        std::string text;
        int i, code, len;
    } kRows[] = {
        {0, "A", 0, 'a', 1},
        {0, "\xB0\xA1", 0, 0xB0A1, 2},  // 啊
        {0, "a\xB0", 1, 0xB0, 1},       // a lead byte at the end stands alone
        {0, "\xB0\x41", 0, 0xB041, 2},  // the trail byte is not folded
        {1, "\xB0\xA1", 0, 0xB0, 1},
        {1, "A", 0, 'A', 1},
        {2, "\xA3\xA8", 0, '(', 2},     // （
        {2, "\xA1\xBF", 0, ')', 2},     // 】
        {2, "\xA1\xB0", 0, '"', 2},     // “
        {2, "\xA3\xA7", 0, '"', 2},     // ＇
        {2, "\xA1\xAF", 0, 0xA1AF, 2},  // ’ is not in the set
        {2, "\xA3\xB9", 0, '9', 2},     // ９
        {2, "\xA3\xC1", 0, 'a', 2},     // Ａ
        {2, "\xA3\xE1", 0, 'a', 2},     // ａ
        {2, "Q", 0, 'q', 1},
        {2, " \t\r\n,/_x", 0, 9, 7},
        {2, ", \xA3\xAC", 0, 9, 4},  // a run up to the end, ， included
        {2, "a\xA3", 1, 0xA3, 1},    // a lone lead byte is no delimiter
        {2, "\xA3\xDC\xA3\xFC\xA3\xAE\xA1\xA2\xA3\xAD\xA1\xAA\xAA\xA4", 0, 9, 14},  // ＼｜．、－—
        {2, "ab", 2, 0, 0},  // outside the text
    };
    for (const auto& r : kRows) {
        CPDAT dict(r.mode);
        int len = -1;
        EXPECT_EQ(dict.GetCharCode(r.text.c_str(), r.i, int(r.text.size()), &len), r.code)
            << r.mode << " " << r.text;
        EXPECT_EQ(len, r.len) << r.mode << " " << r.text;
    }
}

TEST(PdatLayout, CellZeroAndTheHighestCellAreReadAsSpecified) {
    // a and b tie on 2 (a is lower); a is a leaf in cell 0 with base 0; b is a
    // word end in cell 1, so base 1 is skipped (it would read as a leaf).
    auto dict = Build(1, {"b", "bc", "a", "a"});
    const state kCells[] = {{0, -2, 2}, {-2, -2, 0}, {-1, -1, -1}, {-1, -1, -1}, {-4, 1, 1}};
    ASSERT_EQ(dict->GetLowerBound(), 4);
    EXPECT_EQ(0, memcmp(dict->GetStates(), kCells, sizeof kCells));
    // Cell 0 with base 0 is a word for Find and GetMaxWord only.
    int handle = 0;
    unsigned count = 9;
    EXPECT_EQ(dict->Find("a"), 2);
    EXPECT_EQ(dict->Find('a'), -1);
    EXPECT_EQ(dict->GetMaxWord("a", &handle, nullptr), 1);
    EXPECT_EQ(handle, 2);
    EXPECT_EQ(dict->GetWords("a", nullptr, nullptr, nullptr, &count, 0), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_STREQ(dict->MMFullScan("a"), "");
    EXPECT_EQ(dict->AddWord("new", false), -1);  // completed: read-only
    // Find(code) leaves out the highest cell.
    auto pair = Build(1, {"a", "b"});
    EXPECT_EQ(pair->Find("b"), 1);
    EXPECT_EQ(pair->Find('b'), -1);
    EXPECT_EQ(Build(1, {"ab", "b", "c"})->Find('c'), 2);
    EXPECT_EQ(pair->Find(65536), -1);
    for (int nMode = 0; nMode < 3; ++nMode) {  // no words: no cells, every lookup fails
        auto empty = Build(nMode, {});
        EXPECT_EQ(empty->GetStates(), nullptr);
        EXPECT_EQ(empty->Find("a") + empty->Find('a'), -2);
        EXPECT_EQ(empty->GetMaxWord("a", nullptr, nullptr), 0);
        EXPECT_STREQ(empty->MMFullScan("a b"), "");
        EXPECT_STREQ(empty->MMScan("ab", nullptr), "");
    }
}

TEST(PdatFind, FindAndGetMaxWordReadAWordAsSpecified) {
    auto dict = Build(1, {"ab", "a b", "abc", "x", "\"q", "a", "abcd", "x y"});
    const struct {
        const char* text;
        int find, maxLen, maxHandle;
        bool bSpace;
    } kRows[] = {
        {"\"ab\"", 0, 0, -1, false},  // only Find drops a pair of quotes
        {"\xEF\xBB\xBF\"ab\"", 0, 0, -1, false},
        {"\xEF\xBB\xBF", -1, 0, -1, false},
        {"a  b", 1, 4, 1, true},  // a run of white space matches one space
        {"a\t\r\nb", 1, 5, 1, true},
        {"\"q", 4, 2, 4, false},  // one quote is not a pair
        {"abcz", -1, 3, 2, false},
        {"abcd!", -1, 4, 6, false},
        {"", -1, 0, -1, false},
    };
    for (const auto& r : kRows) {
        int handle = 7;
        bool bSpace = !r.bSpace;
        EXPECT_EQ(dict->Find(r.text), r.find) << r.text;
        EXPECT_EQ(dict->GetMaxWord(r.text, &handle, &bSpace), r.maxLen) << r.text;
        EXPECT_EQ(handle, r.maxHandle) << r.text;
        EXPECT_EQ(bSpace, r.bSpace) << r.text;
    }
    EXPECT_EQ(dict->Find(static_cast<const char*>(nullptr)), -1);
    EXPECT_EQ(dict->Find("abc", 2u), 0);
    unsigned *handles = nullptr, *ends = nullptr, cap = 0, count = 0;
    EXPECT_EQ(dict->GetWords("abcde", &handles, &ends, &cap, &count, 1), 4);
    EXPECT_EQ(count, 3u);  // a is not longer than minLen
    EXPECT_EQ(cap, 5u);
    std::free(handles), std::free(ends);
}

TEST(PdatScan, FullScanAndFirstHitScan) {
    auto latin = Build(1, {"ab", "12", "abc"});
    auto normalising = Build(2, {"ab", "cd"});
    const std::string zh = "\xD6\xD0";  // 中, in no dictionary here
    const struct {
        CPDAT* dict;
        std::string text;
        const char* scan;
        const char* firstHit;
    } kRows[] = {
        {latin.get(), zh + "ab", "ab ab", "ab"},    // the end copy has no blank
        {latin.get(), "cab", "", ""},               // would start inside a Latin word
        {latin.get(), "3125", "", ""},              // would start inside a number
        {latin.get(), "ab12", "ab 12 ", "ab 12 "},  // a letter may touch a digit
        {normalising.get(), "a,b", "", ""},         // a delimiter run ends the attempt
        {normalising.get(), "x, AB\xA3\xAC\xA3\xE3\xA3\xE4", "AB \xA3\xE3\xA3\xE4 ",
         "AB \xA3\xE3\xA3\xE4 "},  // ，ｃｄ: the text's own bytes are written
    };
    for (const auto& r : kRows) {
        EXPECT_STREQ(r.dict->MMFullScan(r.text.c_str()), r.scan) << r.text;
        EXPECT_STREQ(r.dict->MMScan(r.text.c_str(), nullptr), r.firstHit) << r.text;
    }
    bool bFound = false;
    EXPECT_STREQ(latin->MMScan((zh + "12" + zh + "ab").c_str(), &bFound),
                 "12 ");  // stops at a leaf
    EXPECT_TRUE(bFound);
    char* buf = nullptr;
    int cap = 0;
    EXPECT_STREQ(latin->MMScan("ab 12", &buf, &cap, nullptr), "ab 12 ");
    EXPECT_EQ(cap, 3 * 5 + 1);
    delete[] buf;
    EXPECT_EQ(latin->MMScan("ab", nullptr, nullptr, &bFound), nullptr);
    EXPECT_FALSE(latin->IsValidString("312", 1, 3, 3));
    EXPECT_TRUE(latin->IsValidString("ab", 0, 5, 2));
    EXPECT_FALSE(latin->IsValidString(nullptr, 0, 1, 1));
}

TEST(PdatTerms, TopWordsHideLongerWordsContainingEarlierOnes) {
    const struct {
        std::vector<std::pair<std::string, int>> counts;
        int n;
        const char* want;
    } kRows[] = {
        {{{"abcd", 5}, {"abcde", 3}}, -1, "abcd/5#"},
        {{{"abcde", 5}, {"abcd", 3}}, -1, "abcde/5#abcd/3#"},
        {{{"abc", 5}, {"abcde", 3}}, -1, "abc/5#abcde/3#"},      // 3 bytes hide nothing
        {{{"abcd", 5}, {"abcde", 3}, {"xy", 1}}, 2, "abcd/5#"},  // the hidden word uses a place
        {{{"abcd", 5}}, 0, ""},
    };
    for (const auto& r : kRows) {
        CPDAT dict(1);
        std::vector<std::string> words;
        for (const auto& [w, n] : r.counts) words.insert(words.end(), n, w);
        EXPECT_EQ(dict.WordFreq(words), int(r.counts.size()));
        EXPECT_STREQ(dict.GetTopWords(r.n), r.want);
    }
    CPDAT dict(1);
    dict.AddFilterWord("ab");
    EXPECT_EQ(dict.AddWord("abc", true), -1);  // nothing below a filter word
    dict.WordFreq({"a", "b", "b"});            // counters reset, filter mark included
    EXPECT_EQ(dict.AddWord("abc", true), 3);
    EXPECT_EQ(dict.GetTopWordVector().front().freq, 2);
}

TEST(PdatSegment, HandlesOfWordsOnlyMaxLenAndOwnBuffer) {
    // zx makes x a known character that starts no word.
    auto dict = Build(0, {"ab", "abc", "zx", "\xC4\xE3\xBA\xC3" /* 你好 */});
    const struct {
        const char* text;
        int maxLen;
        const char* segments;
        std::vector<int> words;  // handles without bKeepUnknown
    } kRows[] = {
        {"hello123,ab-c", -1, "hello123/,/ab/-/c/", {0}},
        {"xab1", -1, "xab1/", {}},  // a failed ASCII character takes the run
        {"\xC4\xE3\xBA\xC3\xC2\xF0", -1, "\xC4\xE3\xBA\xC3/\xC2\xF0/", {3}},  // 你好吗
        {"abc", 1, "ab/c/", {0}},  // maxLen cuts the walk
        {"", -1, "", {}},
    };
    int *pHandles = nullptr, nHandleCap = 0, nResultCap = 0;
    char* pResult = nullptr;
    for (const auto& r : kRows) {
        const int n = dict->MMSegment(r.text, &pHandles, &nHandleCap, &pResult, &nResultCap, false,
                                      false, r.maxLen, '/');
        EXPECT_STREQ(pResult, r.segments) << r.text;
        EXPECT_EQ(std::vector<int>(pHandles, pHandles + n), r.words) << r.text;
        EXPECT_GE(nResultCap, int(strlen(r.text)) * 6 + 1);
        EXPECT_STREQ(dict->MMSegment(r.text, r.maxLen, '/'), r.segments) << r.text;
    }
    EXPECT_EQ(0, dict->MMSegment(nullptr, nullptr, nullptr, &pResult, &nResultCap, 0, 1, -1, '/'));
    EXPECT_STREQ(pResult, "");
    EXPECT_EQ(0, dict->MMSegment("ab", nullptr, nullptr, nullptr, nullptr, false, true, -1, '/'));
    std::free(pHandles);
    std::free(pResult);
}

}  // namespace
