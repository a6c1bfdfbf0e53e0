// Tests of the splitting, trimming and line-taking rules (Utility.h).
#include "Utility.h"

#include <gtest/gtest.h>

#include <random>
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
        // 　 and the A3 A0 form mixed with ASCII blanks: several rounds needed.
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

TEST(ReplaceSubstrTest, MatchesTheInPlaceRuleWithAliasedAndNullArguments) {
    std::string s = "abcabc";
    EXPECT_EQ(gfn_vReplaceSubstr(s, "bc", nullptr), 2u);  // null new text: ""
    EXPECT_EQ(s, "aa");
    EXPECT_EQ(gfn_vReplaceSubstr(s, "", "x") + gfn_vReplaceSubstr(s, nullptr, "x"), 0u);
    EXPECT_EQ(s, "aa");
    // Arguments pointing into the string itself.
    std::string t = "xyxy", u = t;
    EXPECT_EQ(gfn_vReplaceSubstr(t, t.c_str() + 2, t.c_str() + 1), 2u);  // "xy" -> "yxy"
    EXPECT_EQ(t, "yxyyxy");
    EXPECT_EQ(gfn_vReplaceSubstr(u, "y", u.c_str()), 2u);  // "y" -> "xyxy"
    EXPECT_EQ(u, "xxyxyxxyxy");

    // Oracle: the in-place rule as written (replace, resume behind the insertion).
    std::mt19937 rng(20240611);
    auto randomText = [&rng](size_t maxLen) {
        std::string s(rng() % (maxLen + 1), 'a');
        for (char& c : s) c = "ab^"[rng() % 3];
        return s;
    };
    for (int i = 0; i < 2000; ++i) {
        const std::string text = randomText(40), sOld = randomText(3), sNew = randomText(4);
        if (text.empty() || sOld.empty()) continue;
        std::string expected = text;
        unsigned n = 0;
        for (size_t pos = expected.find(sOld); pos != std::string::npos;
             pos = expected.find(sOld, pos + sNew.size()), ++n)
            expected.replace(pos, sOld.size(), sNew);
        std::string actual = text;
        ASSERT_EQ(gfn_vReplaceSubstr(actual, sOld.c_str(), sNew.c_str()), n) << text << "/" << sOld;
        ASSERT_EQ(actual, expected) << text << " / " << sOld << " -> " << sNew;
    }
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
        std::string line;  // "(null)" for a null result
        char sep;
        int status;
        long next;  // offset of *pNextRet; -1 for null, -2 if not written
    } rows[] = {
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
    for (const Row& row : rows) {
        SCOPED_TRACE("text=" + row.text + (row.marked ? " marked" : ""));
        std::vector<char> buf = Buffer(row.text);
        char unwritten = 0;
        char* pNext = &unwritten;
        char chSep = 'Z';
        int status = 7;
        const char* line = StrLine(buf.data(), &pNext, &chSep, &status, row.marked);
        EXPECT_EQ(line ? line : "(null)", row.line);
        EXPECT_EQ(chSep, row.sep);
        EXPECT_EQ(status, row.status);
        EXPECT_EQ(pNext == &unwritten ? -2 : pNext ? pNext - buf.data() : -1, row.next);
        EXPECT_TRUE(row.next < 0 || buf[static_cast<size_t>(row.next)] == '\0');
    }
    // Null arguments are not written through.
    EXPECT_EQ(StrLine(nullptr, nullptr, nullptr, nullptr, true), nullptr);
    std::vector<char> buf = Buffer("text ^^x^^\nmore");
    EXPECT_STREQ(StrLine(buf.data(), nullptr, nullptr, nullptr, true), "text ");
}

// Walks a text the way the readers do (take a line, put the saved byte back,
// continue from *pNextRet); lines joined by '|', a marked run flagged by '*'.
std::string WalkLines(const std::string& text) {
    std::vector<char> buf = Buffer(text);
    std::string sLines;
    char* pNext = buf.data();
    for (int n = 0; pNext && n < 100; ++n) {
        char chSep = 0;
        int status = 0;
        const char* line = StrLine(pNext, &pNext, &chSep, &status, true);
        if (!line) break;
        sLines += (n ? "|" : "") + std::string(line) + (status ? "*" : "");
        if (pNext) *pNext = chSep;
    }
    return sLines;
}

TEST(StrLineTest, WalkingATextYieldsEveryLineAndMarkedRun) {
    // 你好 on a line of its own, then marked runs mixed into lines.
    EXPECT_EQ(
        WalkLines("  first line\r\n\r\n\xC4\xE3\xBA\xC3\n^^raw^^\nplain ^^mark^^ tail\n\tlast"),
        "first line|\xC4\xE3\xBA\xC3|raw*|plain |mark*|tail|last");
    EXPECT_EQ(WalkLines("^^a^^^^b^^"), "a*|b*");
}

TEST(TrimTest, RemovesOnlyOuterRunsOfTheByte) {
    std::string s = "xxaxbxx", t = "xxx";
    trim(s, 'x');
    trim(t, 'x');
    EXPECT_EQ(s, "axb");
    EXPECT_EQ(t, "");
}

TEST(DeleteCharTest, CompactsKeptBytesAndZeroFillsTheTail) {
    struct Row {
        std::string buf;  // nLen bytes plus one guard byte
        char ch;
        unsigned kept;
        std::string want;  // the nLen bytes afterwards
    } rows[] = {
        {"a-b-c#", '-', 3, std::string("abc\0\0", 5)},
        {std::string("a\0-b#", 5), '-', 3, std::string("a\0b\0", 4)},
        {std::string("a\0b\0#", 5), '\0', 2, std::string("ab\0\0", 4)},
    };
    for (Row& row : rows) {
        const unsigned nLen = static_cast<unsigned>(row.buf.size() - 1);
        EXPECT_EQ(deleteChar(row.buf.data(), nLen, row.ch), row.kept);
        EXPECT_EQ(row.buf.substr(0, nLen), row.want);
        EXPECT_EQ(row.buf.back(), '#') << "wrote past nLen";
    }
    char untouched[] = "a-b";
    EXPECT_EQ(deleteChar(untouched, 0, '-'), 0u);
    EXPECT_STREQ(untouched, "a-b");
    EXPECT_EQ(deleteChar(nullptr, 5, '-'), 0u);
}

TEST(GbkCharTest, GetcharTakesOneCharacterAndFindStaysAligned) {
    // 你; ASCII; a lead byte at the end of the text; the terminator.
    const std::pair<const char*, std::string> rows[] = {
        {"\xC4\xE3x", "\xC4\xE3"}, {"ab", "a"}, {"\xC4", "\xC4"}, {"", ""}};
    for (const auto& [str, want] : rows) {
        char ch[3] = {'Z', 'Z', 'Z'};
        EXPECT_EQ(Getchar(str, ch), static_cast<int>(want.size()));
        EXPECT_EQ(std::string(ch), want);
    }
    EXPECT_EQ(Getchar(nullptr, nullptr), 0);
    EXPECT_EQ(Getchar("\xC4\xE3", nullptr), 2);

    // CC_Find accepts only a character-aligned first match.
    const char* kFullStop = "\xA1\xA3";        // 。
    const char* aligned = "\xC4\xE3\xA1\xA3";  // 你。
    EXPECT_EQ(CC_Find(aligned, kFullStop), aligned + 2);
    // 啊， holds A1 A3 at offset 1, straddling the two characters.
    EXPECT_EQ(CC_Find("\xB0\xA1\xA3\xAC", kFullStop), nullptr);
    EXPECT_NE(CC_Find("\xB0\xA1\xA3\xAC", "\xA3\xAC"), nullptr);  // ，
    // 啊，。: the real 。 at offset 4 is not looked for after the odd first hit.
    EXPECT_EQ(CC_Find("\xB0\xA1\xA3\xAC\xA1\xA3", kFullStop), nullptr);
    EXPECT_EQ(CC_Find(aligned, ""), nullptr);
    EXPECT_EQ(CC_Find(nullptr, kFullStop), nullptr);
    EXPECT_EQ(CC_Find(aligned, nullptr), nullptr);
}

}  // namespace

TEST(ImportEntryTest, FirstTokenOrBracketTextWithUnderscoresAsBlanks) {
    struct Row {
        const char* sLine;
        bool bOk;
        std::string sEntry;
    };
    const Row rows[] = {
        {"ab cd\r\n", true, "ab"},         // first token only
        {"[ab cd] 12\n", true, "[ab cd"},  // bracket text keeps its '[' and blanks
        {"[ab cd\r\n", true, "[ab cd"},    // unclosed: to the line end, CR/LF dropped
        {"ab_cd\tx", true, "ab cd"},       // '_' becomes a blank
        {"\xEF\xBB\xBF"
         "ab\n",
         true, "ab"},                      // byte-order mark skipped
        {"\xEF\xBB\xBF", true, ""},        // a token that was only the mark
        {"  \t\r\n", false, "untouched"},  // no token
    };
    for (const Row& row : rows) {
        std::string sEntry = "untouched";
        EXPECT_EQ(ParseImportEntry(row.sLine, sEntry), row.bOk) << row.sLine;
        EXPECT_EQ(sEntry, row.sEntry) << row.sLine;
    }
    std::string sEntry = "untouched";
    EXPECT_FALSE(ParseImportEntry(nullptr, sEntry));
    EXPECT_EQ(BracketText(nullptr), "");
}
