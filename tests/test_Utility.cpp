// Tests of the splitting, trimming and line-taking rules (Utility.h).
#include "Utility.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Pieces = std::vector<std::string>;

// ---- gfn_bSplit ----

TEST(SplitTest, PiecesFollowTheWholeStringDelimiterRule) {
    struct Row {
        const char* text;
        const char* delim;
        bool ok;
        Pieces pieces;
    };
    const Row rows[] = {
        {"a##b####c", "##", true, {"a", "b", "c"}},
        {"a,,b,", ",", true, {"a", "b"}},
        {",a", ",", true, {"a"}},
        {",", ",", true, {}},
        {"###", "##", true, {"#"}},          // hits do not overlap
        {"a,b;c", ",;", true, {"a,b;c"}},    // a string, not a set of bytes
        {"aXbxc", "x", true, {"aXb", "c"}},  // case-sensitive
        {"abc", "", true, {"abc"}},
        {"abc", nullptr, true, {"abc"}},
        {"", ",", false, {}},
        {nullptr, ",", false, {}},
        // 啊啊 split at A1 B0: bytes match across the character boundary.
        {"\xB0\xA1\xB0\xA1", "\xA1\xB0", true, {"\xB0", "\xA1"}},
        // title + 分割符号 + content, as the scanner splits its word list.
        {"\xC4\xE3\xBA\xC3\xB7\xD6\xB8\xEE\xB7\xFB\xBA\xC5\xD2\xBB",
         "\xB7\xD6\xB8\xEE\xB7\xFB\xBA\xC5",
         true,
         {"\xC4\xE3\xBA\xC3", "\xD2\xBB"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string("text=") + (row.text ? row.text : "(null)") +
                     " delim=" + (row.delim ? row.delim : "(null)"));
        Pieces out = {"stale"};
        EXPECT_EQ(gfn_bSplit(row.text, out, row.delim), row.ok);
        EXPECT_EQ(out, row.pieces);
    }
}

// ---- gfn_bTrimWord ----

TEST(TrimWordTest, BlanksAndGbkSpacesAreTrimmedAtBothEnds) {
    struct Row {
        std::string in;
        bool ok;
        std::string out;
    };
    const Row rows[] = {
        {"", false, ""},
        {"  a b \r\n", true, "a b"},
        {" \t\r\n", true, ""},
        // 　 and the A3 A0 form mixed with ASCII blanks: several rounds needed.
        {"\xA1\xA1 \t\xA3\xA0word\xA1\xA1\n \xA3\xA0", true, "word"},
        {" \xA1\xA1\xA3\xA0 \r\n\xA1\xA1", true, ""},
        // 　你　好　: the inner ideographic space stays.
        {"\xA1\xA1\xC4\xE3\xA1\xA1\xBA\xC3\xA1\xA1", true, "\xC4\xE3\xA1\xA1\xBA\xC3"},
        // The back test looks at the last two bytes only: 啊 + A1 loses A1 A1.
        {"\xB0\xA1\xA1", true, "\xB0"},
        // At the front, pairs are taken from the start: A1 B0 is not a space.
        {"\xA1\xB0\xA1\xA1", true, "\xA1\xB0"},
        {"\xA1", true, "\xA1"},
        {"\xA1\xA1\xA1", true, "\xA1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("in=" + row.in);
        std::string word = row.in;
        EXPECT_EQ(gfn_bTrimWord(word), row.ok);
        EXPECT_EQ(word, row.out);
    }
}

// ---- gfn_vReplaceSubstr ----

TEST(ReplaceSubstrTest, ReplacesLeftToRightWithoutRevisitingInsertedText) {
    struct Row {
        std::string in;
        const char* oldSub;
        const char* newSub;
        std::string out;
        unsigned count;
    };
    const Row rows[] = {
        {"aaa", "a", "aa", "aaaaaa", 3},
        {"aaa", "aa", "b", "ba", 1},
        {"abab", "ab", "ba", "baba", 2},
        {"abcabc", "bc", nullptr, "aa", 2},
        {"\xC4\xE3^^x^^", "^^", "", "\xC4\xE3x", 2},  // 你^^x^^
        {"abc", "x", "y", "abc", 0},
        {"", "a", "b", "", 0},
        {"abc", "", "x", "abc", 0},
        {"abc", nullptr, "x", "abc", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("in=" + row.in);
        std::string s = row.in;
        EXPECT_EQ(gfn_vReplaceSubstr(s, row.oldSub, row.newSub), row.count);
        EXPECT_EQ(s, row.out);
    }
}

TEST(ReplaceSubstrTest, ArgumentsMayPointIntoTheString) {
    std::string s = "xyxy";
    std::string copy = s;
    EXPECT_EQ(gfn_vReplaceSubstr(s, s.c_str() + 2, s.c_str() + 1), 2u);  // "xy" -> "yxy"
    EXPECT_EQ(s, "yxyyxy");
    EXPECT_EQ(gfn_vReplaceSubstr(copy, "y", copy.c_str()), 2u);  // "y" -> "xyxy"
    EXPECT_EQ(copy, "xxyxyxxyxy");
}

// The in-place rule as written: replace, then resume behind the inserted text.
unsigned NaiveReplace(std::string& s, const std::string& sOld, const std::string& sNew) {
    unsigned n = 0;
    for (size_t pos = s.find(sOld); pos != std::string::npos; pos = s.find(sOld, pos)) {
        s.replace(pos, sOld.size(), sNew);
        pos += sNew.size();
        ++n;
    }
    return n;
}

TEST(ReplaceSubstrTest, MatchesTheInPlaceRuleOnRandomText) {
    const unsigned kSeed = 20240611;
    SCOPED_TRACE("seed=" + std::to_string(kSeed));
    std::mt19937 rng(kSeed);
    auto randomText = [&rng](size_t maxLen) {
        std::string s(rng() % (maxLen + 1), 'a');
        for (char& c : s) c = "ab^"[rng() % 3];
        return s;
    };
    for (int i = 0; i < 2000; ++i) {
        std::string text = randomText(40);
        std::string sOld = randomText(3);
        std::string sNew = randomText(4);
        if (text.empty() || sOld.empty()) continue;
        std::string expected = text;
        const unsigned n = NaiveReplace(expected, sOld, sNew);
        std::string actual = text;
        ASSERT_EQ(gfn_vReplaceSubstr(actual, sOld.c_str(), sNew.c_str()), n)
            << text << " / " << sOld << " -> " << sNew;
        ASSERT_EQ(actual, expected) << text << " / " << sOld << " -> " << sNew;
    }
}

// ---- StrLine ----

struct LineCall {
    std::string line;  // "(null)" for a null result
    char sep;
    int status;
    long next;  // offset of *pNextRet in the buffer, -1 for null, -2 unwritten
};

LineCall TakeLine(std::vector<char>& buf, bool bMarked) {
    char unwritten = 0;
    char* pNext = &unwritten;
    char chSep = 'Z';
    int status = 7;
    const char* line = StrLine(buf.data(), &pNext, &chSep, &status, bMarked);
    const long next = pNext == &unwritten ? -2 : pNext ? pNext - buf.data() : -1;
    return {line ? line : "(null)", chSep, status, next};
}

std::vector<char> Buffer(const std::string& s) {
    std::vector<char> buf(s.begin(), s.end());
    buf.push_back('\0');
    return buf;
}

TEST(StrLineTest, OneCallFollowsTheLineAndMarkerRules) {
    struct Row {
        std::string text;
        bool marked;
        LineCall want;
    };
    const Row rows[] = {
        {"  one\r\ntwo", false, {"one", '\r', 0, 5}},
        {"\n\tone\ntwo", false, {"one", '\n', 0, 5}},
        {"last", false, {"last", '\0', 0, -1}},
        {"", false, {"(null)", '\0', 0, -1}},
        {" \r\n\t", true, {"(null)", '\0', 0, -1}},
        {"^^kept as is^^rest\n", true, {"kept as is", 'r', 1, 14}},
        {"^^kept as is^^rest\n", false, {"^^kept as is^^rest", '\n', 0, 18}},
        {"text ^^x^^\n", true, {"text ", '^', 0, 5}},
        // No line end at all: the run still comes out on its own.
        {"ab^^cd^^", true, {"ab", '^', 0, 2}},
        {"^^cd^^", true, {"cd", '\0', 1, 6}},
        // The closing marker is looked for beyond the line end.
        {"^^ab\ncd^^ef", true, {"ab\ncd", 'e', 1, 9}},
        // Not a marked run: marker too close to the end, unclosed, single '^'.
        {"a^^\nb", true, {"a^^", '\n', 0, 3}},
        {"a^^b\n", true, {"a^^b", '\n', 0, 4}},
        {"^^x^y\n", true, {"^^x^y", '\n', 0, 5}},
        {"ab^", true, {"ab^", '\0', 0, -1}},
        {"ab^x", true, {"ab^x", '\0', 0, -1}},
        // Without a line end the first '^' counts even if no '^' follows it.
        {"^a^^b", true, {"", 'b', 1, 4}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("text=" + row.text + (row.marked ? " marked" : ""));
        std::vector<char> buf = Buffer(row.text);
        const LineCall got = TakeLine(buf, row.marked);
        EXPECT_EQ(got.line, row.want.line);
        EXPECT_EQ(got.sep, row.want.sep);
        EXPECT_EQ(got.status, row.want.status);
        EXPECT_EQ(got.next, row.want.next);
        if (got.next >= 0) {
            EXPECT_EQ(buf[static_cast<size_t>(got.next)], '\0');
        }
    }
}

TEST(StrLineTest, NullArgumentsAreNotWrittenThrough) {
    EXPECT_EQ(StrLine(nullptr, nullptr, nullptr, nullptr, true), nullptr);
    char unwritten = 0;
    char* pNext = &unwritten;
    EXPECT_EQ(StrLine(nullptr, &pNext, nullptr, nullptr, false), nullptr);
    EXPECT_EQ(pNext, nullptr);
    std::vector<char> buf = Buffer("text ^^x^^\nmore");
    EXPECT_STREQ(StrLine(buf.data(), nullptr, nullptr, nullptr, true), "text ");
}

// Walks a whole text the way the readers do: take a line, put the saved byte
// back, continue from *pNextRet.
std::vector<std::pair<std::string, int>> WalkLines(const std::string& text, bool bMarked) {
    std::vector<char> buf = Buffer(text);
    std::vector<std::pair<std::string, int>> lines;
    char* pNext = buf.data();
    while (pNext && lines.size() < 100) {
        char chSep = 0;
        int status = 0;
        const char* line = StrLine(pNext, &pNext, &chSep, &status, bMarked);
        if (!line) break;
        lines.emplace_back(line, status);
        if (pNext) *pNext = chSep;
    }
    return lines;
}

TEST(StrLineTest, WalkingATextYieldsEveryLineAndMarkedRun) {
    // 你好 on a line of its own, then marked runs mixed into lines.
    const std::string text =
        "  first line\r\n\r\n\xC4\xE3\xBA\xC3\n^^raw^^\nplain ^^mark^^ tail\n\tlast";
    using Lines = std::vector<std::pair<std::string, int>>;
    EXPECT_EQ(WalkLines(text, true), (Lines{{"first line", 0},
                                            {"\xC4\xE3\xBA\xC3", 0},
                                            {"raw", 1},
                                            {"plain ", 0},
                                            {"mark", 1},
                                            {"tail", 0},
                                            {"last", 0}}));
    EXPECT_EQ(WalkLines(text, false), (Lines{{"first line", 0},
                                             {"\xC4\xE3\xBA\xC3", 0},
                                             {"^^raw^^", 0},
                                             {"plain ^^mark^^ tail", 0},
                                             {"last", 0}}));
    EXPECT_EQ(WalkLines("^^a^^^^b^^", true), (Lines{{"a", 1}, {"b", 1}}));
    EXPECT_TRUE(WalkLines("\r\n \n", true).empty());
}

// ---- trim, deleteChar ----

TEST(TrimTest, RemovesOnlyOuterRunsOfTheByte) {
    const std::pair<std::string, std::string> rows[] = {
        {"xxaxbxx", "axb"}, {"xxx", ""}, {"", ""}, {"abc", "abc"}, {"x", ""}, {"ax", "a"},
    };
    for (const auto& [in, out] : rows) {
        std::string s = in;
        trim(s, 'x');
        EXPECT_EQ(s, out) << "in=" << in;
    }
}

TEST(DeleteCharTest, CompactsKeptBytesAndZeroFillsTheTail) {
    struct Row {
        std::string buf;  // nLen bytes plus one guard byte
        char ch;
        unsigned kept;
        std::string want;  // the nLen bytes afterwards
    };
    const Row rows[] = {
        {std::string("a-b-c#"), '-', 3, std::string("abc\0\0", 5)},
        {std::string("---#"), '-', 0, std::string("\0\0\0", 3)},
        {std::string("abc#"), '-', 3, "abc"},
        {std::string("a\0-b#", 5), '-', 3, std::string("a\0b\0", 4)},
        {std::string("a\0b\0#", 5), '\0', 2, std::string("ab\0\0", 4)},
    };
    for (const Row& row : rows) {
        std::string buf = row.buf;
        const unsigned nLen = static_cast<unsigned>(buf.size() - 1);
        EXPECT_EQ(deleteChar(buf.data(), nLen, row.ch), row.kept);
        EXPECT_EQ(buf.substr(0, nLen), row.want);
        EXPECT_EQ(buf.back(), '#') << "wrote past nLen";
    }
    char untouched[] = "a-b";
    EXPECT_EQ(deleteChar(untouched, 0, '-'), 0u);
    EXPECT_STREQ(untouched, "a-b");
    EXPECT_EQ(deleteChar(nullptr, 5, '-'), 0u);
}

// ---- Getchar, CC_Find ----

TEST(GetcharTest, TakesOneGbkOrSingleByteCharacter) {
    struct Row {
        const char* str;
        int len;
        std::string ch;
    };
    const Row rows[] = {
        {"\xC4\xE3x", 2, "\xC4\xE3"},  // 你
        {"ab", 1, "a"},
        {"\xC4", 1, "\xC4"},  // lead byte at the end of the text
        {"", 0, ""},
    };
    for (const Row& row : rows) {
        char ch[3] = {'Z', 'Z', 'Z'};
        EXPECT_EQ(Getchar(row.str, ch), row.len);
        EXPECT_EQ(std::string(ch), row.ch);
    }
    EXPECT_EQ(Getchar(nullptr, nullptr), 0);
    EXPECT_EQ(Getchar("\xC4\xE3", nullptr), 2);
}

TEST(CCFindTest, AcceptsOnlyACharacterAlignedFirstMatch) {
    const char* kFullStop = "\xA1\xA3";        // 。
    const char* kComma = "\xA3\xAC";           // ，
    const char* aligned = "\xC4\xE3\xA1\xA3";  // 你。
    EXPECT_EQ(CC_Find(aligned, kFullStop), aligned + 2);
    EXPECT_EQ(CC_Find(aligned + 2, kFullStop), aligned + 2);
    // 啊， holds A1 A3 at offset 1, straddling the two characters.
    EXPECT_EQ(CC_Find("\xB0\xA1\xA3\xAC", kFullStop), nullptr);
    EXPECT_NE(CC_Find("\xB0\xA1\xA3\xAC", kComma), nullptr);
    // 啊，。: the real 。 at offset 4 is not looked for after the odd first hit.
    EXPECT_EQ(CC_Find("\xB0\xA1\xA3\xAC\xA1\xA3", kFullStop), nullptr);
    EXPECT_EQ(CC_Find(aligned, ""), nullptr);
    EXPECT_EQ(CC_Find(nullptr, kFullStop), nullptr);
    EXPECT_EQ(CC_Find(aligned, nullptr), nullptr);
}

}  // namespace
