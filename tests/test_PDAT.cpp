// The dictionary's rules as tables where the models of test_PDAT_oracle.cpp
// do not reach: mode 2's characters, cell 0 and the highest cell, Find's
// quotes and white space, GetMaxWord, mode 2 and the first-hit scan, term
// counters and the segmentation's options.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
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

// Modes 0 and 1 are read by the word-set model's own reader. Mode 2 reads
// （ 】 “ ＇ ９ Ａ ａ as ( ) " " 9 a a, not ’, ASCII capitals in lower case,
// and a run of blanks , / _ ， ＼ ｜ ． 、 － — up to its end as one delimiter
// (9); a lone lead byte is no delimiter. Rows: text, byte i -> code, length.
TEST(PdatCharCode, ModeTwoNormalisesCharacters) {
    using Row = std::tuple<std::string, int, int, int>;
    const Row kRows[] = {
        {"\xA3\xA8", 0, '(', 2},       {"\xA1\xBF", 0, ')', 2},       {"\xA1\xB0", 0, '"', 2},
        {"\xA3\xA7", 0, '"', 2},       {"\xA1\xAF", 0, 0xA1AF, 2},    {"\xA3\xB9", 0, '9', 2},
        {"\xA3\xC1", 0, 'a', 2},       {"\xA3\xE1", 0, 'a', 2},       {"Q", 0, 'q', 1},
        {" \t\r\n,/_x", 0, 9, 7},      {", \xA3\xAC", 0, 9, 4},       {"\xAA\xA4", 0, 9, 2},
        {"a\xA3", 1, 0xA3, 1},         {"\xA3\xDC\xA3\xFC", 0, 9, 4}, {"\xA3\xAE\xA1\xA2", 0, 9, 4},
        {"\xA3\xAD\xA1\xAA", 0, 9, 4},
    };
    const CPDAT dict(2);
    for (const auto& [text, i, code, len] : kRows) {
        int n = -1;
        EXPECT_EQ(dict.GetCharCode(text.c_str(), i, int(text.size()), &n), code) << text;
        EXPECT_EQ(n, len) << text;
    }
}

TEST(PdatLayout, CellZeroAndTheHighestCellAreReadAsSpecified) {
    // a and b tie on 2 (a is lower): a is a leaf in cell 0 with base 0, a word
    // end for Find and GetMaxWord only (the word-set model checks the others).
    auto dict = Build(1, {"b", "bc", "a", "a"});
    ASSERT_EQ(dict->GetStates()[0].base, 0);
    int handle = 0;
    EXPECT_EQ(dict->GetMaxWord("a", &handle, nullptr), 1);
    EXPECT_EQ(handle, 2);
    EXPECT_EQ(dict->Find('a'), -1);
    EXPECT_EQ(dict->AddWord("new", false), -1);  // completed: read-only
    // Find(code) leaves out the highest cell.
    auto pair = Build(1, {"a", "b"});
    EXPECT_EQ(pair->Find("b"), 1);
    EXPECT_EQ(pair->Find('b'), -1);
    EXPECT_EQ(Build(1, {"ab", "b", "c"})->Find('c'), 2);
    EXPECT_EQ(pair->Find(65536), -1);
    for (int nMode = 0; nMode < 3; ++nMode) {  // no words: every lookup fails
        auto empty = Build(nMode, {});
        EXPECT_EQ(empty->Find("a") + empty->Find('a') + empty->GetMaxWord("a", nullptr, nullptr),
                  -2);
        EXPECT_STREQ(empty->MMFullScan("a b"), "");  // each result lives until the next scan
        EXPECT_STREQ(empty->MMScan("ab", nullptr), "");
    }
}

// Only Find drops a byte-order mark and a pair of quotes (one quote is no
// pair); a run of white space matches one space. Rows: text -> Find, and
// GetMaxWord's length, handle and space flag.
TEST(PdatFind, FindAndGetMaxWordReadAWordAsSpecified) {
    auto dict = Build(1, {"ab", "a b", "abc", "x", "\"q", "a", "abcd", "x y"});
    using Row = std::tuple<std::string, int, int, int, bool>;
    const Row kRows[] = {
        {"\"ab\"", 0, 0, -1, false},
        {"\xEF\xBB\xBF\"ab\"", 0, 0, -1, false},
        {"\xEF\xBB\xBF", -1, 0, -1, false},
        {"a  b", 1, 4, 1, true},
        {"a\t\r\nb", 1, 5, 1, true},
        {"\"q", 4, 2, 4, false},
        {"abcz", -1, 3, 2, false},
        {"abcd!", -1, 4, 6, false},
        {"", -1, 0, -1, false},
    };
    for (const auto& [text, find, maxLen, maxHandle, bSpace] : kRows) {
        int handle = 7;
        bool bGotSpace = !bSpace;
        EXPECT_EQ(dict->Find(text.c_str()), find) << text;
        EXPECT_EQ(dict->GetMaxWord(text.c_str(), &handle, &bGotSpace), maxLen) << text;
        EXPECT_EQ(handle, maxHandle) << text;
        EXPECT_EQ(bGotSpace, bSpace) << text;
    }
    EXPECT_EQ(dict->Find(static_cast<const char*>(nullptr)), -1);
    EXPECT_EQ(dict->Find("abc", 2u), 0);
    unsigned *handles = nullptr, *ends = nullptr, cap = 0, count = 0;
    EXPECT_EQ(dict->GetWords("abcde", &handles, &ends, &cap, &count, 1), 4);
    EXPECT_EQ(count, 3u);  // a is not longer than minLen
    EXPECT_EQ(cap, 5u);
    std::free(handles), std::free(ends);
}

// A match may not start inside a Latin word or a number, though a letter may
// touch a digit; the end copy has no blank. In mode 2 a delimiter run ends an
// attempt and the text's own bytes are written (，ｃｄ). Rows: dictionary,
// text -> full scan, first-hit scan.
TEST(PdatScan, FullScanAndFirstHitScan) {
    auto latin = Build(1, {"ab", "12", "abc"});
    auto normalising = Build(2, {"ab", "cd"});
    const std::string zh = "\xD6\xD0";  // 中, in no dictionary here
    using Row = std::tuple<CPDAT*, std::string, const char*, const char*>;
    const Row kRows[] = {
        {latin.get(), zh + "ab", "ab ab", "ab"},
        {latin.get(), "cab", "", ""},
        {latin.get(), "3125", "", ""},
        {latin.get(), "ab12", "ab 12 ", "ab 12 "},
        {normalising.get(), "a,b", "", ""},
        {normalising.get(), "x, AB\xA3\xAC\xA3\xE3\xA3\xE4", "AB \xA3\xE3\xA3\xE4 ",
         "AB \xA3\xE3\xA3\xE4 "},
    };
    for (const auto& [dict, text, scan, firstHit] : kRows) {
        EXPECT_STREQ(dict->MMFullScan(text.c_str()), scan) << text;
        EXPECT_STREQ(dict->MMScan(text.c_str(), nullptr), firstHit) << text;
    }
    bool bFound = false;
    EXPECT_STREQ(latin->MMScan((zh + "12" + zh + "ab").c_str(), &bFound), "12 ");  // a leaf stops
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

// An earlier word of more than 3 bytes hides the later, longer words that
// contain it, which still take a place.
TEST(PdatTerms, TopWordsHideLongerWordsContainingEarlierOnes) {
    using Row = std::tuple<std::vector<std::pair<std::string, int>>, int, const char*>;
    const Row kRows[] = {
        {{{"abcd", 5}, {"abcde", 3}}, -1, "abcd/5#"},
        {{{"abcde", 5}, {"abcd", 3}}, -1, "abcde/5#abcd/3#"},
        {{{"abc", 5}, {"abcde", 3}}, -1, "abc/5#abcde/3#"},
        {{{"abcd", 5}, {"abcde", 3}, {"xy", 1}}, 2, "abcd/5#"},
        {{{"abcd", 5}}, 0, ""},
    };
    for (const auto& [counts, n, want] : kRows) {
        CPDAT dict(1);
        std::vector<std::string> words;
        for (const auto& [w, k] : counts) words.insert(words.end(), k, w);
        EXPECT_EQ(dict.WordFreq(words), int(counts.size()));
        EXPECT_STREQ(dict.GetTopWords(n), want);
    }
    CPDAT dict(1);
    dict.AddFilterWord("ab");
    EXPECT_EQ(dict.AddWord("abc", true), -1);  // nothing below a filter word
    dict.WordFreq({"a", "b", "b"});            // counters reset, filter mark included
    EXPECT_EQ(dict.AddWord("abc", true), 3);
    EXPECT_EQ(dict.GetTopWordVector().front().freq, 2);
}

// The word-set model checks the segments; here maxLen cuts the walk, handles
// leave out unknown runs without bKeepUnknown, and the object's own buffer
// holds the text. Rows: text, maxLen -> segments, handles.
TEST(PdatSegment, HandlesOfWordsOnlyMaxLenAndOwnBuffer) {
    auto dict = Build(0, {"ab", "abc"});
    using Row = std::tuple<const char*, int, const char*, std::vector<int>>;
    const Row kRows[] = {
        {"hello123,ab-c", -1, "hello123/,/ab/-/c/", {0}},
        {"abc", 1, "ab/c/", {0}},
        {"", -1, "", {}},
    };
    int *pHandles = nullptr, nHandleCap = 0, nResultCap = 0;
    char* pResult = nullptr;
    for (const auto& [text, maxLen, segments, words] : kRows) {
        const int n = dict->MMSegment(text, &pHandles, &nHandleCap, &pResult, &nResultCap, false,
                                      false, maxLen, '/');
        EXPECT_STREQ(pResult, segments) << text;
        EXPECT_EQ(std::vector<int>(pHandles, pHandles + n), words) << text;
        EXPECT_GE(nResultCap, int(strlen(text)) * 6 + 1);
        EXPECT_STREQ(dict->MMSegment(text, maxLen, '/'), segments) << text;
    }
    EXPECT_EQ(0, dict->MMSegment(nullptr, nullptr, nullptr, &pResult, &nResultCap, 0, 1, -1, '/'));
    EXPECT_STREQ(pResult, "");
    EXPECT_EQ(0, dict->MMSegment("ab", nullptr, nullptr, nullptr, nullptr, false, true, -1, '/'));
    std::free(pHandles);
    std::free(pResult);
}

// Threads share one completed byte-mode dictionary; their first scans race
// to build its scan index (run under ThreadSanitizer by the test command).
TEST(PdatConcurrent, ConstScansFromManyThreadsAgreeWithOneThread) {
    std::vector<std::string> words;
    std::string text;
    for (unsigned k = 0; k < 3000; ++k) {
        words.push_back({char(0xB0 + k % 7), char(0xA1 + k % 13), char(0xB0 + k % 11),
                         char(0xA1 + k / 7 % 17)});
        text += words.back().substr(k % 3) + (k % 5 ? "" : "ab ");
    }
    const auto shared = Build(1, words);
    const auto scan = [&text](const CPDAT& d, std::string& out) {
        std::vector<_stScanSpan> spans;
        d.MMFullScanSpans(text.c_str(), spans);
        for (const auto& x : spans)
            out += std::to_string(x.iStart) + "+" + std::to_string(x.nLen) + "=" +
                   std::to_string(x.nHandle) + (x.bBlank ? "_ " : " ");
    };
    std::string want, got[4];
    scan(*Build(1, words), want);
    std::vector<std::thread> threads;
    for (auto& out : got) threads.emplace_back([&] { scan(*shared, out); });
    for (auto& t : threads) t.join();
    for (const auto& out : got) EXPECT_TRUE(out == want);
}

}  // namespace
