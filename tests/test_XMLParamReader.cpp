// Tests of the tagged parameter reader (XMLParamReader.h).
//
// PlainLookup below is the reference: the lookup read literally, one strstr
// over the whole text per tag. The indexed reader must give the same result,
// value and error text on every input.
#include "XMLParamReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "Global.h"
#include "TestUtil.h"
#include "Utility.h"

namespace {

// Success, value and the error text after a lookup.
using Outcome = std::tuple<bool, std::string, std::string>;

// The reference lookup over a zero-terminated text; `error` carries the error
// text in and out, as the reader's does.
Outcome PlainLookup(const std::string& sText, const std::string& sPath, std::string error) {
    const char* pCursor = sText.c_str();
    std::string sValue;
    for (size_t nFrom = 0, nDot = 0; nDot != std::string::npos; nFrom = nDot + 1) {
        nDot = sPath.find('.', nFrom);
        const std::string sSegment = sPath.substr(nFrom, std::min<size_t>(nDot - nFrom, 99));
        const std::string sOpen = "<" + sSegment + ">";
        const std::string sClose = "</" + sSegment.substr(0, sSegment.find(' ')) + ">";
        const char* pOpen = strstr(pCursor, sOpen.c_str());
        const char* pClose = pOpen ? strstr(pOpen + sOpen.size(), sClose.c_str()) : nullptr;
        if (!pClose) return {false, "", "Can't find the tag: " + sOpen};
        pCursor = pOpen + sOpen.size();
        sValue.assign(pCursor, pClose);
    }
    for (char c : {'\r', '\n', '\t'})
        sValue.erase(std::remove(sValue.begin(), sValue.end(), c), sValue.end());
    trim(sValue, ' ');
    return {true, sValue, error};
}

Outcome Lookup(CXMLParamReader& reader, const std::string& sPath) {
    std::string sValue = "stale";
    const bool ok = reader.getParamString(sPath.c_str(), sValue);
    return {ok, sValue, reader.getLastErrMsg()};
}

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

// ---- Lookups ----------------------------------------------------------------

TEST(XMLParamReaderTest, LookupsFollowThePlainSubstringRules) {
    const std::string kOk;  // a success leaves the error text empty
    struct Row {
        std::string text;  // may hold zero bytes
        const char* path;
        Outcome expected;
    } rows[] = {
        // The child is found after the parent's closing tag.
        {"<a>x</a><b>1</b>", "a.b", {true, "1", kOk}},
        // Line breaks and tabs vanish without a blank in their place; outer
        // blanks are trimmed.
        {"<value> \r\n\tab cd\r\n\tef \n</value>", "value", {true, "ab cdef", kOk}},
        // First occurrence only, even inside an earlier value.
        {"<note><b>9</b></note><b>1</b>", "b", {true, "9", kOk}},
        // The closing tag is the segment cut at its first blank.
        {"<rule id=\"3\">x</rule>", "rule id=\"3\"", {true, "x", kOk}},
        {"<a b>x</a b>", "a b", {false, "", "Can't find the tag: <a b>"}},
        {"<a><>v</></a>", "a.", {true, "v", kOk}},  // an empty segment is the tag "<>"
        {"<\xCC\xE5>\xD3\xFD</\xCC\xE5>", "\xCC\xE5", {true, "\xD3\xFD", kOk}},  // 体育
        // A missing closing tag is named by its opening tag.
        {"<a>x", "a", {false, "", "Can't find the tag: <a>"}},
        {"<rule id=\"10\"><c>x</c></rule>",
         "rule id=\"1\".c",
         {false, "", "Can't find the tag: <rule id=\"1\">"}},
        {std::string("<a>1\0</a>", 9), "a", {false, "", "Can't find the tag: <a>"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("text=" + row.text + " path=" + row.path);
        CXMLParamReader reader(row.text.data(), static_cast<int>(row.text.size()));
        EXPECT_EQ(Lookup(reader, row.path), row.expected);
    }
}

TEST(XMLParamReaderTest, ErrorTextChangesOnlyWhenATagIsMissing) {
    CXMLParamReader reader("<a>1</a>", 8);
    std::string sValue = "stale";
    EXPECT_FALSE(reader.getParamString(nullptr, sValue));
    EXPECT_EQ(Lookup(reader, "b"), (Outcome{false, "", "Can't find the tag: <b>"}));
    EXPECT_EQ(Lookup(reader, "a"), (Outcome{true, "1", "Can't find the tag: <b>"}));
    EXPECT_FALSE(reader.getParamString(nullptr, sValue));
    EXPECT_EQ(sValue, "");
    EXPECT_STREQ(reader.getLastErrMsg(), "Can't find the tag: <b>");
}

TEST(XMLParamReaderTest, LongSegmentsAreCutTo99Bytes) {
    const std::string sTag(99, 'x');
    const std::string sText = "<" + sTag + ">v</" + sTag + ">";
    CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
    EXPECT_EQ(Lookup(reader, sTag + "yz"), (Outcome{true, "v", ""}));
    EXPECT_EQ(Lookup(reader, sTag + "y.z"), (Outcome{false, "", "Can't find the tag: <z>"}));
}

TEST(XMLParamReaderDeathTest, BufferConstructorRequiresABuffer) {
    EXPECT_DEATH(CXMLParamReader(nullptr, 8), "sParamBuf!=NULL && nBufLen>0");
    EXPECT_DEATH(CXMLParamReader("<a>1</a>", 0), "sParamBuf!=NULL && nBufLen>0");
    EXPECT_DEATH(CXMLParamReader("<a>1</a>", -1), "sParamBuf!=NULL && nBufLen>0");
}

TEST(XMLParamReaderTest, NumbersAreReadAsAtoiAndAtofReadThem) {
    struct Row {
        const char* text;
        int i;
        float f;
        double d;
    } rows[] = {
        {"abc", 0, 0.0f, 0.0},
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
        EXPECT_TRUE(reader.getParamInt("n", i) && reader.getParamFloat("n", f) &&
                    reader.getParamDouble("n", d));
        // A missing key leaves every number untouched.
        EXPECT_FALSE(reader.getParamInt("m", i) || reader.getParamFloat("m", f) ||
                     reader.getParamDouble("m", d));
        EXPECT_EQ(i, row.i);
        EXPECT_EQ(f, row.f);
        EXPECT_EQ(d, row.d);
    }
}

// ---- Files ------------------------------------------------------------------

using XMLParamReaderFileTest = qxtest::SandboxTest;

TEST_F(XMLParamReaderFileTest, MissingFileFailsWithoutAMessageAndEmptyFileHasNoTags) {
    for (const char* sName : {"missing.xml", static_cast<const char*>(nullptr)}) {
        CXMLParamReader reader(sName ? m_dir.file(sName).c_str() : nullptr);
        EXPECT_EQ(Lookup(reader, "certainty"), (Outcome{false, "", ""}));
        int n = 7;
        EXPECT_FALSE(reader.getParamInt("rules.rulenum", n));
        EXPECT_EQ(n, 7);
    }
    CXMLParamReader empty(m_dir.write("empty.xml", "").c_str());
    EXPECT_EQ(Lookup(empty, "certainty"), (Outcome{false, "", "Can't find the tag: <certainty>"}));
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);  // the constructor reports nothing
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
    std::mt19937 rng(20240611);
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
    // The longest natural tag that is indexed (kMaxIndexedTag bytes).
    const std::string sLongest = "<" + std::string(CTagIndex::kMaxIndexedTag - 2, 'a') + ">";
    const std::string sText = "x" + sLongest;
    CTagIndex index;
    index.Build(sText.data(), sText.size());
    EXPECT_EQ(index.Find(sLongest, 0), 1u);
}

TEST(XMLParamReaderTest, RandomTextsReadAsThePlainLookupReadsThem) {
    std::mt19937 rng(7321);
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
            nFound += std::get<0>(expected);
        }
    }
    EXPECT_GT(nFound, 1000);
}

// A generated rule list in which some rules lack elements (found in a later
// rule instead) and rule numbers share prefixes (1, 10, 100). The file's text,
// like the buffer's, ends at its first zero byte.
TEST_F(XMLParamReaderFileTest, LargeRuleListReadsAsThePlainLookupFromBufferOrFile) {
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
    const std::string sBytes = sText + std::string("\0<tail>1</tail>", 15);
    CXMLParamReader fromBuffer(sBytes.data(), static_cast<int>(sBytes.size()));
    CXMLParamReader fromFile(m_dir.write("rules.xml", sBytes).c_str());
    for (CXMLParamReader* pReader : {&fromBuffer, &fromFile}) {
        std::vector<std::string> vecPaths = LoaderPaths(152, 4);
        vecPaths.push_back("tail");
        for (const std::string& sPath : vecPaths) {
            const Outcome expected = PlainLookup(sText, sPath, pReader->getLastErrMsg());
            ASSERT_EQ(Lookup(*pReader, sPath), expected) << sPath;
        }
    }
}

}  // namespace
