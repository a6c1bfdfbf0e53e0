// The tagged parameter reader (XMLParamReader.h).
//
// PlainLookup below is the model: one strstr over the whole text per tag,
// the cursor behind each opening tag. The indexed reader must give the same
// result, value and error text on every input.
#include "XMLParamReader.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// The model's lookup over a zero-terminated text; `error` carries the error
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

TEST(XMLParamReaderTest, LookupsFollowThePlainSubstringRules) {
    const std::string kOk;  // a success leaves the error text empty
    const std::string sLong(99, 'x');
    const std::string sLongText = "<" + sLong + ">v</" + sLong + ">";
    const std::tuple<std::string, std::string, Outcome> rows[] = {
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
        {"<\xCC\xE5>\xD3\xFD</\xCC\xE5>", "\xCC\xE5", {true, "\xD3\xFD", kOk}},  // <体>育</体>
        // A missing closing tag is named by its opening tag.
        {"<a>x", "a", {false, "", "Can't find the tag: <a>"}},
        {"<rule id=\"10\"><c>x</c></rule>",
         "rule id=\"1\".c",
         {false, "", "Can't find the tag: <rule id=\"1\">"}},
        {std::string("<a>1\0</a>", 9), "a", {false, "", "Can't find the tag: <a>"}},
        // Segments are cut to 99 bytes.
        {sLongText, sLong + "yz", {true, "v", kOk}},
        {sLongText, sLong + "y.z", {false, "", "Can't find the tag: <z>"}},
    };
    for (const auto& [sText, sPath, expected] : rows) {
        SCOPED_TRACE("text=" + sText + " path=" + sPath);
        CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
        EXPECT_EQ(Lookup(reader, sPath), expected);
    }
    // A null path fails and clears the value; the error text changes only
    // when a tag is missing.
    CXMLParamReader reader("<a>1</a>", 8);
    EXPECT_EQ(Lookup(reader, "b"), (Outcome{false, "", "Can't find the tag: <b>"}));
    std::string sValue = "stale";
    EXPECT_FALSE(reader.getParamString(nullptr, sValue));
    EXPECT_EQ(Lookup(reader, "a"), (Outcome{true, "1", "Can't find the tag: <b>"}));
    EXPECT_EQ(sValue, "");
}

TEST(XMLParamReaderDeathTest, BufferConstructorRequiresABuffer) {
    for (auto [p, n] : {std::pair<const char*, int>{nullptr, 8}, {"<a>1</a>", 0}, {"<a>", -1}})
        EXPECT_DEATH(CXMLParamReader(p, n), "sParamBuf!=NULL && nBufLen>0");
}

// Numbers are read as atoi and atof read the value (atof takes hexadecimal,
// atoi does not); a missing key leaves every number untouched.
TEST(XMLParamReaderTest, NumbersAreReadAsAtoiAndAtofReadThem) {
    const std::string sText = "<n>0x10</n><m>4294967297</m>";
    CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
    int i = 1234;
    float f = 5.5f;
    double d = 6.5;
    EXPECT_FALSE(reader.getParamInt("x", i) || reader.getParamFloat("x", f) ||
                 reader.getParamDouble("x", d));
    EXPECT_EQ(std::tie(i, f, d), std::make_tuple(1234, 5.5f, 6.5));
    EXPECT_TRUE(reader.getParamInt("n", i) && reader.getParamFloat("n", f) &&
                reader.getParamDouble("m", d));
    EXPECT_EQ(std::tie(i, f, d), std::make_tuple(0, 16.0f, 4294967297.0));
}

// A file is read up to its first zero byte; an unreadable one fails every
// lookup without a message.
TEST(XMLParamReaderTest, FileIsReadUpToItsFirstZeroByte) {
    qxtest::ScopedLog log;
    qxtest::TempDir dir;
    CXMLParamReader file(dir.write("a.xml", std::string("<a> x\t</a>\0<b>y</b>", 20)).c_str());
    EXPECT_EQ(Lookup(file, "a"), (Outcome{true, "x", ""}));
    EXPECT_EQ(Lookup(file, "b"), (Outcome{false, "", "Can't find the tag: <b>"}));
    CXMLParamReader missing(dir.file("missing.xml").c_str()), none(nullptr);
    EXPECT_EQ(Lookup(missing, "a"), (Outcome{false, "", ""}));
    EXPECT_EQ(Lookup(none, "a"), (Outcome{false, "", ""}));
    EXPECT_EQ(g_sLastErrorMessage, qxtest::kUntouched);  // the constructor reports nothing
}

TEST(XMLParamReaderTest, RandomTextsReadAsThePlainLookupReadsThem) {
    std::mt19937 rng(7321);
    // n pieces (nMin <= n <= nMax) drawn from pieces, joined by sJoin
    auto pick = [&rng](const std::vector<std::string>& pieces, int nMin, int nMax,
                       const char* sJoin) {
        std::string s;
        for (int k = std::uniform_int_distribution<int>(nMin, nMax)(rng); k > 0; --k)
            s += pieces[std::uniform_int_distribution<size_t>(0, pieces.size() - 1)(rng)] +
                 (k > 1 ? sJoin : "");
        return s;
    };
    const std::vector<std::string> textPieces = {
        "<a>x</a>", "<b> y\t</b>", "<a b>1</a>", "<a>",  "</a>", "<b>", "</b>", "<a b>",
        "<ab>",     "</ab>",       "<a>b>",      "<<a>", "<>",   "</>", "<",    ">",
        "/",        "a",           "b",          " ",    "\r\n", "\t",  "x",    "\xB0\xA1"};
    const std::vector<std::string> segments = {"a",   "b", "a",   "b",  "ab",
                                               "a b", "",  "a>b", "<a", "b "};
    int nFound = 0;
    for (int round = 0; round < 400; ++round) {
        const std::string sText = pick(textPieces, 1, 40, "");
        CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
        for (int q = 0; q < 20; ++q) {
            const std::string sPath = pick(segments, 1, 3, ".");
            const Outcome expected = PlainLookup(sText, sPath, reader.getLastErrMsg());
            ASSERT_EQ(Lookup(reader, sPath), expected)
                << "text=\"" << sText << "\" path=\"" << sPath << "\"";
            nFound += std::get<0>(expected);
        }
    }
    EXPECT_GT(nFound, 1000);
}

}  // namespace
