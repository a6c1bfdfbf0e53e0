// Tests of the tagged parameter reader (XMLParamReader.h).
//
// PlainLookup below is the reference: the lookup read literally, one strstr
// over the whole text per tag, a zeroed work buffer per segment. The indexed
// reader must give the same result, value and error text on every input.
#include "XMLParamReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "Global.h"
#include "TestUtil.h"
#include "Utility.h"

using namespace std::string_literals;

namespace {

struct Outcome {
    bool ok;
    std::string value;
    std::string error;  // the error text after the lookup
};

bool operator==(const Outcome& a, const Outcome& b) {
    return a.ok == b.ok && a.value == b.value && a.error == b.error;
}

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
    return os << "{" << o.ok << ", \"" << o.value << "\", \"" << o.error << "\"}";
}

// The reference lookup over a zero-terminated text; `error` carries the error
// text in and out, as the reader's does.
Outcome PlainLookup(const std::string& sText, const std::string& sPath, std::string error) {
    const char* pText = sText.c_str();
    std::vector<char> work(strlen(pText) + 1);
    const char* pCursor = pText;
    size_t nFrom = 0;
    while (true) {
        const size_t nDot = sPath.find('.', nFrom);
        const std::string sSegment = sPath.substr(
            nFrom,
            std::min<size_t>(nDot == std::string::npos ? std::string::npos : nDot - nFrom, 99));
        const std::string sOpen = "<" + sSegment + ">";
        const std::string sClose = "</" + sSegment.substr(0, sSegment.find(' ')) + ">";
        const char* pOpen = strstr(pCursor, sOpen.c_str());
        if (!pOpen) return {false, "", "Can't find the tag: " + sOpen};
        pCursor = pOpen + sOpen.size();
        const char* pClose = strstr(pCursor, sClose.c_str());
        if (!pClose) return {false, "", "Can't find the tag: " + sOpen};
        std::fill(work.begin(), work.end(), '\0');
        const unsigned nLen = static_cast<unsigned>(pClose - pCursor);
        memcpy(work.data(), pCursor, nLen);
        deleteChar(work.data(), nLen, '\r');
        deleteChar(work.data(), nLen, '\n');
        deleteChar(work.data(), nLen, '\t');
        if (nDot == std::string::npos) break;
        nFrom = nDot + 1;
    }
    std::string sValue = work.data();
    trim(sValue, ' ');
    return {true, sValue, error};
}

Outcome Lookup(CXMLParamReader& reader, const std::string& sPath) {
    std::string sValue = "stale";
    const bool ok = reader.getParamString(sPath.c_str(), sValue);
    return {ok, sValue, reader.getLastErrMsg()};
}

// The sample rule list: class 体育, keywords 足球 篮球 比赛 and 彩票.
const char kSampleRules[] =
    "<certainty>0.6</certainty>\r\n"
    "<rules><rulenum>1</rulenum>\r\n"
    "<rule id=\"0\"><classid>\xCC\xE5\xD3\xFD</classid><toprule>AND</toprule>\r\n"
    "<effectvalue>1.0</effectvalue><perfectvsmsim>0.9</perfectvsmsim>"
    "<imperfectvsmsim>0.5</imperfectvsmsim>\r\n"
    "<subrules><subrulenum>2</subrulenum>\r\n"
    "<subrule id=\"1\"><operator>OR/TEXT/1</operator>"
    "<value>\xD7\xE3\xC7\xF2 \xC0\xBA\xC7\xF2 \xB1\xC8\xC8\xFC</value></subrule>\r\n"
    "<subrule id=\"2\"><operator>NOT/TITLE/1</operator>"
    "<value>\xB2\xCA\xC6\xB1</value></subrule>\r\n"
    "</subrules></rule></rules>\r\n";

// The keys the rule loader asks for, rule i with sub-rules 1..n.
std::vector<std::string> LoaderPaths(int nRules, int nSubRules) {
    std::vector<std::string> paths = {"certainty", "rules.rulenum"};
    for (int i = 0; i < nRules; ++i) {
        const std::string sRule = "rule id=\"" + std::to_string(i) + "\".";
        for (const char* key : {"classid", "toprule", "effectvalue", "perfectvsmsim",
                                "imperfectvsmsim", "subrules.subrulenum"}) {
            paths.push_back(sRule + key);
        }
        for (int j = 1; j <= nSubRules; ++j) {
            const std::string sSub = sRule + "subrules.subrule id=\"" + std::to_string(j) + "\".";
            paths.push_back(sSub + "operator");
            paths.push_back(sSub + "value");
        }
    }
    return paths;
}

const char kNoError[] = "";

// ---- Lookups ----------------------------------------------------------------

TEST(XMLParamReaderTest, LookupsFollowThePlainSubstringRules) {
    struct Row {
        const char* text;
        const char* path;
        Outcome expected;
    };
    const Row rows[] = {
        {"<certainty> 0.8 </certainty>", "certainty", {true, "0.8", kNoError}},
        // The child is found after the parent's closing tag.
        {"<a>x</a><b>1</b>", "a.b", {true, "1", kNoError}},
        // A child missing in rule 1 is taken from rule 2.
        {"<rule id=\"1\"><x>1</x></rule><rule id=\"2\"><classid>C</classid></rule>",
         "rule id=\"1\".classid",
         {true, "C", kNoError}},
        // Line breaks and tabs vanish without a blank in their place.
        {"<value>\r\n\tab cd\r\n\tef\n</value>", "value", {true, "ab cdef", kNoError}},
        {"<v>  a  b  </v>", "v", {true, "a  b", kNoError}},
        {"<v> \t\r\n </v>", "v", {true, "", kNoError}},
        {"<v></v>", "v", {true, "", kNoError}},
        // First occurrence only, even inside an earlier value.
        {"<v>1</v><v>2</v>", "v", {true, "1", kNoError}},
        {"<note><b>9</b></note><b>1</b>", "b", {true, "9", kNoError}},
        // An element holding tags gives its raw inner text.
        {"<a> <b>1</b>\n</a>", "a", {true, "<b>1</b>", kNoError}},
        // The closing tag is the segment cut at its first blank.
        {"<rule id=\"3\">x</rule>", "rule id=\"3\"", {true, "x", kNoError}},
        {"<a b>x</a>", "a b", {true, "x", kNoError}},
        {"<a b>x</a b>", "a b", {false, "", "Can't find the tag: <a b>"}},
        // The cursor stays behind the opening tag, not the closing one.
        {"<b><b>2</b></b>", "b.b", {true, "2", kNoError}},
        {"<a><b><c>7</c></b></a>", "a.b.c", {true, "7", kNoError}},
        // An empty segment is the tag "<>".
        {"<>v</>", "", {true, "v", kNoError}},
        {"<a><>v</></a>", "a.", {true, "v", kNoError}},
        // 体育 inside tag and value.
        {"<\xCC\xE5>\xD3\xFD</\xCC\xE5>", "\xCC\xE5", {true, "\xD3\xFD", kNoError}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string("text=") + row.text + " path=" + row.path);
        CXMLParamReader reader(row.text, static_cast<int>(strlen(row.text)));
        EXPECT_EQ(Lookup(reader, row.path), row.expected);
    }
}

TEST(XMLParamReaderTest, MalformedTagsAreNotFound) {
    struct Row {
        const char* name;
        std::string text;  // may hold zero bytes
        const char* path;
        const char* error;
    };
    const Row rows[] = {
        {"SingleQuotedAttributeIsNotFound", "<rule id='3'><classid>C</classid></rule>",
         "rule id=\"3\".classid", "Can't find the tag: <rule id=\"3\">"},
        {"TwoBlanksBeforeAttributeAreNotFound", "<rule  id=\"3\"><classid>C</classid></rule>",
         "rule id=\"3\".classid", "Can't find the tag: <rule id=\"3\">"},
        {"UnclosedTagIsNotFoundAndNamedByItsOpeningTag", "<a>x", "a", "Can't find the tag: <a>"},
        {"ClosingTagBeforeTheOpeningOneDoesNotClose", "</a><a>x", "a", "Can't find the tag: <a>"},
        {"UnclosedChildIsNotFound", "<a><b>1</a>", "a.b", "Can't find the tag: <b>"},
        {"PrefixOfATagIsNotTheTag", "<Rule10>x</Rule10>", "Rule1", "Can't find the tag: <Rule1>"},
        {"RuleOneIsNotFoundInRuleTen", "<rule id=\"10\"><c>x</c></rule>", "rule id=\"1\".c",
         "Can't find the tag: <rule id=\"1\">"},
        {"TagsAreCaseSensitive", "<A>1</A>", "a", "Can't find the tag: <a>"},
        {"EmptyTextHasNoTags", "\0"s, "a", "Can't find the tag: <a>"},
        {"TextEndsAtTheFirstZeroByte", "<a>1\0</a>"s, "a", "Can't find the tag: <a>"},
        {"GarbageIsSearchedLikeText", "<<<>>></<</>>\xFF\x80<", "<", "Can't find the tag: <<>"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CXMLParamReader reader(row.text.data(), static_cast<int>(row.text.size()));
        EXPECT_EQ(Lookup(reader, row.path), (Outcome{false, "", row.error}));
    }
}

TEST(XMLParamReaderTest, FailuresWithoutATextOrPathLeaveTheErrorText) {
    CXMLParamReader reader("<a>1</a>", 8);
    std::string sValue = "stale";
    EXPECT_FALSE(reader.getParamString(nullptr, sValue));
    EXPECT_EQ(sValue, "");
    EXPECT_STREQ(reader.getLastErrMsg(), "");
    EXPECT_FALSE(reader.getParamString("b", sValue));
    EXPECT_TRUE(reader.getParamString("a", sValue));  // a success keeps the last failure's text
    EXPECT_FALSE(reader.getParamString(nullptr, sValue));
    EXPECT_STREQ(reader.getLastErrMsg(), "Can't find the tag: <b>");
}

TEST(XMLParamReaderTest, LongSegmentsAreCutTo99Bytes) {
    const std::string sLong(120, 'x');
    const std::string sTag(99, 'x');
    const std::string sText = "<" + sTag + ">v</" + sTag + ">";
    CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
    EXPECT_EQ(Lookup(reader, sLong), (Outcome{true, "v", ""}));
    EXPECT_EQ(Lookup(reader, sLong + "y.z"), (Outcome{false, "", "Can't find the tag: <z>"}));
}

TEST(XMLParamReaderDeathTest, BufferConstructorRequiresABuffer) {
    const char sText[] = "<a>1</a>";
    EXPECT_DEATH(CXMLParamReader(nullptr, 8), "sParamBuf!=NULL && nBufLen>0");
    EXPECT_DEATH(CXMLParamReader(sText, 0), "sParamBuf!=NULL && nBufLen>0");
    EXPECT_DEATH(CXMLParamReader(sText, -1), "sParamBuf!=NULL && nBufLen>0");
}

// ---- Numbers ----------------------------------------------------------------

TEST(XMLParamReaderTest, NumbersAreReadAsAtoiAndAtofReadThem) {
    struct Row {
        const char* text;
        int i;
        float f;
        double d;
    };
    const Row rows[] = {
        {"42", 42, 42.0f, 42.0},
        {" -7 ", -7, -7.0f, -7.0},
        {"12abc", 12, 12.0f, 12.0},
        {"abc", 0, 0.0f, 0.0},
        {"+5", 5, 5.0f, 5.0},
        {"0x10", 0, 16.0f, 16.0},  // atof reads hexadecimal, atoi does not
        {"0.8", 0, 0.8f, 0.8},
        {"4294967297", 1, 4294967296.0f, 4294967297.0},  // fits a long, wraps in int
        {"99999999999999999999", -1, 1e20f, 1e20},       // LONG_MAX as int
        {"-99999999999999999999", 0, -1e20f, -1e20},     // LONG_MIN as int
        {"1e300", 1, HUGE_VALF, 1e300},
        {"-3.4028235e38", -3, -FLT_MAX, -3.4028235e38},  // rounds to the largest float
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const std::string sText = std::string("<n>") + row.text + "</n>";
        CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
        int i = 1234;
        float f = 5.5f;
        double d = 6.5;
        EXPECT_TRUE(reader.getParamInt("n", i));
        EXPECT_TRUE(reader.getParamFloat("n", f));
        EXPECT_TRUE(reader.getParamDouble("n", d));
        EXPECT_EQ(i, row.i);
        EXPECT_EQ(f, row.f);
        EXPECT_EQ(d, row.d);
        // A missing key leaves every number untouched.
        EXPECT_FALSE(reader.getParamInt("m", i));
        EXPECT_FALSE(reader.getParamFloat("m", f));
        EXPECT_FALSE(reader.getParamDouble("m", d));
        EXPECT_EQ(i, row.i);
        EXPECT_EQ(f, row.f);
        EXPECT_EQ(d, row.d);
    }
}

// ---- Files ------------------------------------------------------------------

// ReadFile logs unreadable files: the log goes into a temporary directory.
class XMLParamReaderFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_sSavedLogPath = g_sLogPath;
        g_sLogPath = m_dir.path();
        g_sLastErrorMessage = "marker";
    }
    void TearDown() override { g_sLogPath = m_sSavedLogPath; }

    qxtest::TempDir m_dir;
    std::string m_sSavedLogPath;
};

TEST_F(XMLParamReaderFileTest, MissingFileFailsEveryLookupWithoutAMessage) {
    CXMLParamReader reader(m_dir.file("missing.xml").c_str());
    EXPECT_EQ(Lookup(reader, "certainty"), (Outcome{false, "", ""}));
    int n = 7;
    EXPECT_FALSE(reader.getParamInt("rules.rulenum", n));
    EXPECT_EQ(n, 7);
    EXPECT_EQ(g_sLastErrorMessage, "marker");  // the constructor reports nothing

    CXMLParamReader nullName(static_cast<const char*>(nullptr));
    EXPECT_EQ(Lookup(nullName, "certainty"), (Outcome{false, "", ""}));
}

TEST_F(XMLParamReaderFileTest, EmptyFileHasNoTags) {
    qxtest::WriteBytes(m_dir.file("empty.xml"), "");
    CXMLParamReader reader(m_dir.file("empty.xml").c_str());
    EXPECT_EQ(Lookup(reader, "certainty"), (Outcome{false, "", "Can't find the tag: <certainty>"}));
    EXPECT_EQ(g_sLastErrorMessage, "marker");
}

TEST_F(XMLParamReaderFileTest, SampleRuleListReadsLikeTheBuffer) {
    qxtest::WriteBytes(m_dir.file("rules.xml"), kSampleRules);
    CXMLParamReader fromFile(m_dir.file("rules.xml").c_str());
    CXMLParamReader fromBuffer(kSampleRules, static_cast<int>(strlen(kSampleRules)));
    for (const std::string& sPath : LoaderPaths(2, 3)) {
        SCOPED_TRACE(sPath);
        const Outcome expected = PlainLookup(kSampleRules, sPath, fromFile.getLastErrMsg());
        EXPECT_EQ(Lookup(fromFile, sPath), expected);
        EXPECT_EQ(Lookup(fromBuffer, sPath), expected);
    }
    float fCertainty = 0;
    int nRules = 0;
    std::string sValue;
    EXPECT_TRUE(fromFile.getParamFloat("certainty", fCertainty));
    EXPECT_EQ(fCertainty, 0.6f);
    EXPECT_TRUE(fromFile.getParamInt("rules.rulenum", nRules));
    EXPECT_EQ(nRules, 1);
    EXPECT_TRUE(fromFile.getParamString("rule id=\"0\".classid", sValue));
    EXPECT_EQ(sValue, "\xCC\xE5\xD3\xFD");  // 体育
    EXPECT_TRUE(fromFile.getParamString("rule id=\"0\".subrules.subrule id=\"1\".value", sValue));
    EXPECT_EQ(sValue, "\xD7\xE3\xC7\xF2 \xC0\xBA\xC7\xF2 \xB1\xC8\xC8\xFC");  // 足球 篮球 比赛
    EXPECT_FALSE(fromFile.getParamString("rule id=\"0\".subrules.subrule id=\"3\".value", sValue));
    EXPECT_STREQ(fromFile.getLastErrMsg(), "Can't find the tag: <subrule id=\"3\">");
}

TEST_F(XMLParamReaderFileTest, FileTextEndsAtTheFirstZeroByte) {
    qxtest::WriteBytes(m_dir.file("zero.xml"), "<a>1</a>\0<b>2</b>"s);
    CXMLParamReader reader(m_dir.file("zero.xml").c_str());
    EXPECT_EQ(Lookup(reader, "a"), (Outcome{true, "1", ""}));
    EXPECT_EQ(Lookup(reader, "b"), (Outcome{false, "", "Can't find the tag: <b>"}));
}

// ---- The index against the plain search --------------------------------------

std::string RandomPick(std::mt19937& rng, const std::vector<std::string>& pieces, int nMin,
                       int nMax, const char* sJoin) {
    std::string s;
    const int n = std::uniform_int_distribution<int>(nMin, nMax)(rng);
    for (int k = 0; k < n; ++k) {
        if (k > 0) s += sJoin;
        s += pieces[std::uniform_int_distribution<size_t>(0, pieces.size() - 1)(rng)];
    }
    return s;
}

TEST(TagIndexTest, FindAgreesWithThePlainSearch) {
    const unsigned kSeed = 20240611;
    std::printf("TagIndexTest seed %u\n", kSeed);
    std::mt19937 rng(kSeed);
    const std::vector<std::string> textPieces = {
        "<", ">", "/", "a", "b", " ", "<a>", "</a>", std::string(130, 'a')};
    const std::vector<std::string> needlePieces = {"<", ">", "/", "a", "b", " "};
    int nHits = 0;
    for (int round = 0; round < 300; ++round) {
        const std::string sText = RandomPick(rng, textPieces, 0, 60, "");
        CTagIndex index;
        index.Build(sText.data(), sText.size());
        for (int q = 0; q < 50; ++q) {
            std::string sNeedle = RandomPick(rng, needlePieces, 0, 5, "");
            if (q % 2 == 0) sNeedle = "<" + sNeedle + ">";
            if (q % 25 == 0) sNeedle = "<" + std::string(130, 'a') + ">";
            const size_t nFrom = std::uniform_int_distribution<size_t>(0, sText.size() + 1)(rng);
            const size_t nExpected =
                nFrom > sText.size() ? CTagIndex::npos : sText.find(sNeedle, nFrom);
            ASSERT_EQ(index.Find(sNeedle, nFrom), nExpected)
                << "text=\"" << sText << "\" needle=\"" << sNeedle << "\" from=" << nFrom;
            nHits += nExpected != CTagIndex::npos;
        }
    }
    EXPECT_GT(nHits, 1000);
}

TEST(XMLParamReaderTest, RandomTextsReadAsThePlainLookupReadsThem) {
    const unsigned kSeed = 7321;
    std::printf("XMLParamReaderTest seed %u\n", kSeed);
    std::mt19937 rng(kSeed);
    const std::vector<std::string> textPieces = {
        "<a>x</a>", "<b> y\t</b>", "<a b>1</a>", "<a>",  "</a>", "<b>", "</b>", "<a b>",
        "<ab>",     "</ab>",       "<a>b>",      "<<a>", "<>",   "</>", "<",    ">",
        "/",        "a",           "b",          " ",    "\r\n", "\t",  "x",    "\xB0\xA1"};
    const std::vector<std::string> segments = {"a",   "b", "a",   "b",  "ab",
                                               "a b", "",  "a>b", "<a", "b "};
    int nFound = 0;
    for (int round = 0; round < 400; ++round) {
        const std::string sText = RandomPick(rng, textPieces, 1, 40, "");
        CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
        for (int q = 0; q < 20; ++q) {
            const std::string sPath = RandomPick(rng, segments, 1, 3, ".");
            const Outcome expected = PlainLookup(sText, sPath, reader.getLastErrMsg());
            ASSERT_EQ(Lookup(reader, sPath), expected)
                << "text=\"" << sText << "\" path=\"" << sPath << "\"";
            nFound += expected.ok;
        }
    }
    EXPECT_GT(nFound, 1000);
}

// A generated rule list in which some rules lack elements (found in a later
// rule instead) and rule numbers share prefixes (1, 10, 100).
TEST(XMLParamReaderTest, LargeRuleListReadsAsThePlainLookupReadsIt) {
    std::string sText = "<certainty>0.5</certainty><rules><rulenum>150</rulenum>\n";
    for (int i = 0; i < 150; ++i) {
        sText += "<rule id=\"" + std::to_string(i) + "\">\n\t<classid> C" + std::to_string(i) +
                 " </classid><toprule>OR</toprule>";
        if (i % 7 != 3) sText += "<effectvalue>1.0</effectvalue>";
        if (i % 5 != 1) sText += "<imperfectvsmsim>0.1</imperfectvsmsim>";
        sText += "<subrules><subrulenum>" + std::to_string(i % 4) + "</subrulenum>";
        for (int j = 1; j <= i % 4; ++j) {
            sText += "<subrule id=\"" + std::to_string(j) + "\"><operator>OR/TEXT/" +
                     std::to_string(j) + "</operator><value>w" + std::to_string(i * 10 + j) +
                     "</value></subrule>\n";
        }
        sText += "</subrules></rule>\n";
    }
    sText += "</rules>\n";
    CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
    for (const std::string& sPath : LoaderPaths(152, 4)) {
        const Outcome expected = PlainLookup(sText, sPath, reader.getLastErrMsg());
        ASSERT_EQ(Lookup(reader, sPath), expected) << sPath;
    }
}

}  // namespace
