// The splitting, trimming, replacing and line-taking rules of Utility.h, as
// tables. (The import-entry rule is read through the imports of the word list
// and the id maps.)
#include "Utility.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Pieces = std::vector<std::string>;

TEST(SplitTest, PiecesFollowTheWholeStringDelimiterRule) {
    const std::tuple<const char*, const char*, Pieces> rows[] = {
        {"a##b####c", "##", {"a", "b", "c"}},
        {",", ",", {}},
        {"###", "##", {"#"}},        // hits do not overlap
        {"a,b;c", ",;", {"a,b;c"}},  // a string, not a set of bytes
        {"abc", "", {"abc"}},
        {"abc", nullptr, {"abc"}},
        {"", ",", {}},  // false for a null or empty text
        {nullptr, ",", {}},
        // 啊啊 split at A1 B0: bytes match across the character boundary.
        {"\xB0\xA1\xB0\xA1", "\xA1\xB0", {"\xB0", "\xA1"}},
    };
    for (const auto& [text, delim, pieces] : rows) {
        Pieces out = {"stale"};
        EXPECT_EQ(gfn_bSplit(text, out, delim), text && *text) << (text ? text : "(null)");
        EXPECT_EQ(out, pieces);
    }
}

TEST(TrimWordTest, BlanksAndGbkSpacesAreTrimmedAtBothEnds) {
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},  // false only for an empty word
        // 　 (A1 A1) and the A3 A0 form mixed with ASCII blanks: several rounds.
        {"\xA1\xA1 \t\xA3\xA0word\xA1\xA1\n \xA3\xA0", "word"},
        {" \xA1\xA1\xA3\xA0 \r\n\xA1\xA1", ""},
        // 　你　好　: the inner ideographic space stays.
        {"\xA1\xA1\xC4\xE3\xA1\xA1\xBA\xC3\xA1\xA1", "\xC4\xE3\xA1\xA1\xBA\xC3"},
        // The back test looks at the last two bytes only: 啊 + A1 loses A1 A1.
        {"\xB0\xA1\xA1", "\xB0"},
        // At the front, pairs are taken from the start: A1 B0 is not a space.
        {"\xA1\xB0\xA1\xA1", "\xA1\xB0"},
        {"\xA1\xA1\xA1", "\xA1"},
    };
    for (const auto& [in, out] : rows) {
        std::string word = in;
        EXPECT_EQ(gfn_bTrimWord(word), !in.empty()) << in;
        EXPECT_EQ(word, out) << in;
    }
}

TEST(ReplaceSubstrTest, HitsDoNotOverlapAndArgumentsMayPointIntoTheString) {
    // A null new text is ""; the search resumes behind the inserted text.
    const std::tuple<std::string, const char*, const char*, unsigned, std::string> rows[] = {
        {"abcabc", "bc", nullptr, 2, "aa"}, {"aaa", "aa", "b", 1, "ba"},
        {"aa", "a", "aa", 2, "aaaa"},       {"aa", "", "x", 0, "aa"},
        {"aa", nullptr, "x", 0, "aa"},      {"", "a", "x", 0, ""},
    };
    for (const auto& [in, sOld, sNew, n, out] : rows) {
        std::string s = in;
        EXPECT_EQ(gfn_vReplaceSubstr(s, sOld, sNew), n) << in;
        EXPECT_EQ(s, out) << in;
    }
    std::string t = "xyxy", u = t;
    EXPECT_EQ(gfn_vReplaceSubstr(t, t.c_str() + 2, t.c_str() + 1), 2u);  // "xy" -> "yxy"
    EXPECT_EQ(t, "yxyyxy");
    EXPECT_EQ(gfn_vReplaceSubstr(u, "y", u.c_str()), 2u);  // "y" -> "xyxy"
    EXPECT_EQ(u, "xxyxyxxyxy");
}

TEST(StrLineTest, OneCallFollowsTheLineAndMarkerRules) {
    // text, marked -> line ("(null)" for none), separator, status, offset of
    // *pNextRet (-1 for null)
    const std::tuple<std::string, bool, std::string, char, int, long> rows[] = {
        {"\n\t one\r\ntwo", false, "one", '\r', 0, 6},
        {" \r\n\t", true, "(null)", '\0', 0, -1},
        {"^^kept as is^^rest\n", true, "kept as is", 'r', 1, 14},
        {"^^kept as is^^rest\n", false, "^^kept as is^^rest", '\n', 0, 18},
        {"text ^^x^^\n", true, "text ", '^', 0, 5},
        // No line end at all: the run still comes out on its own.
        {"ab^^cd^^", true, "ab", '^', 0, 2},
        {"^^cd^^", true, "cd", '\0', 1, 6},
        // The closing marker is looked for beyond the line end.
        {"^^ab\ncd^^ef", true, "ab\ncd", 'e', 1, 9},
        // Not a marked run: the line ends within two bytes of the marker (a
        // later "^^" does not count), unclosed, closed by a single '^', no "^^".
        {"a^^\n^^b", true, "a^^", '\n', 0, 3},
        {"a^^b\n", true, "a^^b", '\n', 0, 4},
        {"^^x^y\n", true, "^^x^y", '\n', 0, 5},
        {"ab^", true, "ab^", '\0', 0, -1},
        // Without a line end the first '^' counts even if no '^' follows it.
        {"^a^^b", true, "", 'b', 1, 4},
    };
    for (const auto& [sText, bMarked, sLine, chWantSep, nWantStatus, nNext] : rows) {
        std::vector<char> buf(sText.begin(), sText.end());
        buf.push_back('\0');
        char* pNext = buf.data();
        char chSep = 'Z';
        int status = 7;
        const char* line = StrLine(buf.data(), &pNext, &chSep, &status, bMarked);
        EXPECT_EQ(std::make_tuple(std::string(line ? line : "(null)"), chSep, status,
                                  pNext ? long(pNext - buf.data()) : -1L),
                  std::tie(sLine, chWantSep, nWantStatus, nNext))
            << sText << (bMarked ? " marked" : "");
        EXPECT_TRUE(nNext < 0 || buf[static_cast<size_t>(nNext)] == '\0');
    }
    EXPECT_EQ(StrLine(nullptr, nullptr, nullptr, nullptr, true), nullptr);
    char buf[] = "text ^^x^^\nmore";  // null out-arguments are not written through
    EXPECT_STREQ(StrLine(buf, nullptr, nullptr, nullptr, true), "text ");
}

}  // namespace
