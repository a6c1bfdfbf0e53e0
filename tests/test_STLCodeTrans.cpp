// Tests of the GBK / Unicode / UTF-8 conversions.
#include "STLCodeTrans.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <vector>

#include "TestUtil.h"

namespace {

const size_t kStopped = static_cast<size_t>(-1);

// Real prose with its GBK and UTF-8 bytes (the UTF-8 from an independent encoder).
struct ProseCase {
    const char* sGbk;
    const char* sUtf8;
};

const ProseCase kProse[] = {
    // 今天天气很好，我们一起去公园散步。
    {"\xBD\xF1\xCC\xEC\xCC\xEC\xC6\xF8\xBA\xDC\xBA\xC3\xA3\xAC\xCE\xD2\xC3\xC7\xD2\xBB\xC6\xF0"
     "\xC8\xA5\xB9\xAB\xD4\xB0\xC9\xA2\xB2\xBD\xA1\xA3",
     "\xE4\xBB\x8A\xE5\xA4\xA9\xE5\xA4\xA9\xE6\xB0\x94\xE5\xBE\x88\xE5\xA5\xBD\xEF\xBC\x8C\xE6"
     "\x88\x91\xE4\xBB\xAC\xE4\xB8\x80\xE8\xB5\xB7\xE5\x8E\xBB\xE5\x85\xAC\xE5\x9B\xAD\xE6\x95"
     "\xA3\xE6\xAD\xA5\xE3\x80\x82"},
    // 规则分类器把中文文档分到不同的类别里。
    {"\xB9\xE6\xD4\xF2\xB7\xD6\xC0\xE0\xC6\xF7\xB0\xD1\xD6\xD0\xCE\xC4\xCE\xC4\xB5\xB5\xB7\xD6"
     "\xB5\xBD\xB2\xBB\xCD\xAC\xB5\xC4\xC0\xE0\xB1\xF0\xC0\xEF\xA1\xA3",
     "\xE8\xA7\x84\xE5\x88\x99\xE5\x88\x86\xE7\xB1\xBB\xE5\x99\xA8\xE6\x8A\x8A\xE4\xB8\xAD\xE6"
     "\x96\x87\xE6\x96\x87\xE6\xA1\xA3\xE5\x88\x86\xE5\x88\xB0\xE4\xB8\x8D\xE5\x90\x8C\xE7\x9A"
     "\x84\xE7\xB1\xBB\xE5\x88\xAB\xE9\x87\x8C\xE3\x80\x82"},
    // 春眠不觉晓，处处闻啼鸟。
    {"\xB4\xBA\xC3\xDF\xB2\xBB\xBE\xF5\xCF\xFE\xA3\xAC\xB4\xA6\xB4\xA6\xCE\xC5\xCC\xE4\xC4\xF1"
     "\xA1\xA3",
     "\xE6\x98\xA5\xE7\x9C\xA0\xE4\xB8\x8D\xE8\xA7\x89\xE6\x99\x93\xEF\xBC\x8C\xE5\xA4\x84\xE5"
     "\xA4\x84\xE9\x97\xBB\xE5\x95\xBC\xE9\xB8\x9F\xE3\x80\x82"},
    // GBK编码abc 123
    {"GBK\xB1\xE0\xC2\xEB"
     "abc 123",
     "GBK\xE7\xBC\x96\xE7\xA0\x81"
     "abc 123"},
    {"plain ASCII, unchanged.", "plain ASCII, unchanged."},
};

const char kZhongGbk[] = "\xD6\xD0";       // 中
const char kZhongUtf8[] = "\xE4\xB8\xAD";  // 中

TEST(STLCodeTransTest, ChineseProseConvertsBothWaysAndRoundTrips) {
    for (const ProseCase& c : kProse) {
        SCOPED_TRACE(c.sUtf8);
        std::string sUtf8, sBack;
        EXPECT_EQ(ANSIToUTF8(c.sGbk, sUtf8), std::string(c.sUtf8).size());
        EXPECT_EQ(sUtf8, c.sUtf8);
        EXPECT_EQ(UTF8ToANSI(sUtf8.c_str(), sBack), 1);
        EXPECT_EQ(sBack, c.sGbk);
        // The same with a byte-order mark in front.
        EXPECT_EQ(UTF8ToANSI(("\xEF\xBB\xBF" + sUtf8).c_str(), sBack), 1);
        EXPECT_EQ(sBack, c.sGbk);
    }
}

TEST(STLCodeTransTest, ConversionsLeaveTheLocaleAloneAndPrintNothing) {
    const std::string sBefore = std::setlocale(LC_ALL, nullptr);
    std::string out = qxtest::CaptureStdout([] {
        std::string s;
        std::wstring w;
        ANSIToUTF8(kProse[0].sGbk, s);
        UTF8ToANSI(kProse[0].sUtf8, s);
        ANSIToUnicode("\x81", w);
        UnicodeToANSI(L"\x0E01", s);
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), sBefore);
}

TEST(STLCodeTransTest, Utf8ToAnsiOfNothingIsEmptyAndZero) {
    const char* kEmpty[] = {nullptr, "", "\xEF\xBB\xBF"};
    for (const char* sIn : kEmpty) {
        std::string sOut = "stale";
        EXPECT_EQ(UTF8ToANSI(sIn, sOut), 0);
        EXPECT_EQ(sOut, "");
    }
    std::string sOut = "stale";
    EXPECT_EQ(ANSIToUTF8(nullptr, sOut), 0u);
    EXPECT_EQ(sOut, "");
    EXPECT_EQ(ANSIToUTF8("", sOut), 0u);
}

// UTF-8 input that is cut, malformed or outside GBK: decoding skips what it
// cannot read, and the GBK step stops at the first unconvertible character.
TEST(STLCodeTransTest, Utf8ToAnsiSkipsOrStopsButKeepsThePrefix) {
    struct {
        const char* sName;
        std::string sUtf8;
        std::string sGbk;
    } kCases[] = {
        {"four-byte character vanishes", "A\xF0\x9F\x98\x80" + std::string(kZhongUtf8) + "B",
         "A" + std::string(kZhongGbk) + "B"},
        {"stray continuation skipped",
         "a\x80\xBF"
         "b",
         "ab"},
        {"three-byte form cut by the end", "ab\xE4\xB8", "ab"},
        {"two-byte lead at the end", "ab\xC3", "ab"},
        {"five-byte lead skipped alone", "a\xF8z", "az"},
        {"char outside GBK stops", std::string(kZhongUtf8) + "\xE0\xB8\x81" + kZhongUtf8,
         kZhongGbk},
        {"surrogate stops", "x\xED\xA0\x80y", "x"},
        {"only a four-byte character", "\xF0\x9F\x98\x80", ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.sName);
        std::string sOut = "stale";
        EXPECT_EQ(UTF8ToANSI(c.sUtf8.c_str(), sOut), 1);
        EXPECT_EQ(sOut, c.sGbk);
    }
}

TEST(STLCodeTransTest, InvalidGbkStopsAndKeepsThePrefix) {
    struct {
        const char* sName;
        std::string sGbk;
        std::wstring wExpected;
    } kCases[] = {
        {"bad trail byte", std::string(kZhongGbk) + "\x81\x20" + kZhongGbk, L"\x4E2D"},
        {"truncated lead at the end", "ab" + std::string(kZhongGbk) + "\x81", L"ab\x4E2D"},
        {"0xFF is no lead",
         "a\xFF"
         "b",
         L"a"},
        {"invalid first character",
         "\x81\x7F"
         "abc",
         L""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.sName);
        std::wstring w = L"stale";
        EXPECT_EQ(ANSIToUnicode(c.sGbk, w), kStopped);
        EXPECT_EQ(w, c.wExpected);
        // The UTF-8 result is exactly the valid prefix.
        std::string sUtf8, sKept, sBack;
        const size_t nUtf8 = ANSIToUTF8(c.sGbk.c_str(), sUtf8);
        EXPECT_EQ(nUtf8, sUtf8.size());
        UnicodeToANSI(c.wExpected, sKept);
        UTF8ToANSI(sUtf8.c_str(), sBack);
        EXPECT_EQ(sBack, sKept);
        EXPECT_EQ(c.sGbk.compare(0, sKept.size(), sKept), 0);
    }
    std::wstring w;
    EXPECT_EQ(ANSIToUnicode(std::string("ab\0\xD6\xD0", 5), w), 2u);  // ends at the zero byte
    EXPECT_EQ(w, L"ab");
    EXPECT_EQ(ANSIToUnicode("", w), 0u);
    EXPECT_EQ(w, L"");
}

TEST(STLCodeTransTest, UnicodeToAnsiStopsAtUnconvertibleUnits) {
    struct {
        std::wstring wIn;
        size_t nResult;
        std::string sGbk;
    } kCases[] = {
        {L"a\x4E2D", 3, "a" + std::string(kZhongGbk)},
        {L"\x4E2D\x0E01\x4E2D", kStopped, kZhongGbk},  // Thai ko kai has no GBK form
        {std::wstring(1, static_cast<wchar_t>(0xD800)), kStopped, ""},
        {std::wstring(1, static_cast<wchar_t>(-1)), kStopped, ""},
        {std::wstring(L"ab\0c", 4), 2, "ab"},
        {L"", 0, ""},
    };
    for (const auto& c : kCases) {
        std::string sOut = "stale";
        EXPECT_EQ(UnicodeToANSI(c.wIn, sOut), c.nResult);
        EXPECT_EQ(sOut, c.sGbk);
    }
}

TEST(STLCodeTransTest, Utf8ToUnicodeDecodesOneToThreeByteFormsOnly) {
    struct {
        std::string sIn;
        std::vector<wchar_t> vUnits;
    } kCases[] = {
        {"A\x7F", {0x41, 0x7F}},
        {"\xC2\x80\xDF\xBF", {0x80, 0x7FF}},
        {"\xE0\xA0\x80\xEF\xBF\xBF", {0x800, 0xFFFF}},
        {"\xC3\x41", {0xC1}},  // continuation byte not checked
        {"\xF0\x9F\x98\x80"
         "x",
         {'x'}},            // lead and three continuations skipped one by one
        {"\xE4\xB8", {}},   // three-byte form cut short
        {"a\xC3", {L'a'}},  // two-byte form cut short
        {"", {}},
    };
    for (const auto& c : kCases) {
        // Exactly strlen + 1 units: the documented capacity (ASan checks it).
        std::vector<wchar_t> vOut(c.sIn.size() + 1, 0x5A5A);
        EXPECT_EQ(utf8_to_unicode(c.sIn.c_str(), vOut.data()), 4 * c.vUnits.size());
        EXPECT_EQ(std::vector<wchar_t>(vOut.begin(), vOut.begin() + c.vUnits.size()), c.vUnits);
        EXPECT_EQ(vOut[c.vUnits.size()], 0);
    }
    wchar_t unit = 0x5A5A;
    EXPECT_EQ(utf8_to_unicode(nullptr, &unit), 0u);
    EXPECT_EQ(unit, 0);
    EXPECT_EQ(utf8_to_unicode("abc", nullptr), 0u);
}

TEST(STLCodeTransTest, UnicodeToUtf8EncodesTheBasicPlaneAndDropsTheRest) {
    const wchar_t kUnits[] = {0x41, 0x7F, 0x80, 0x7FF, 0x800, 0x10000, 0xFFFF, 0x10FFFF, -1, 0x42};
    char* pOut = nullptr;
    size_t nBytes = unicode_to_utf8(kUnits, sizeof(kUnits) / sizeof(kUnits[0]), &pOut);
    ASSERT_NE(pOut, nullptr);
    const std::string kExpected = "\x41\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\x42";
    EXPECT_EQ(nBytes, kExpected.size());
    EXPECT_EQ(std::string(pOut), kExpected);
    std::free(pOut);

    EXPECT_EQ(unicode_to_utf8(kUnits, 0, &pOut), 0u);
    ASSERT_NE(pOut, nullptr);
    EXPECT_EQ(pOut[0], '\0');
    std::free(pOut);
    EXPECT_EQ(unicode_to_utf8(nullptr, 5, &pOut), 0u);
    std::free(pOut);
    EXPECT_EQ(unicode_to_utf8(kUnits, 2, nullptr), 0u);
}

TEST(STLCodeTransTest, Utf8OneWritesTheClassicSixByteForms) {
    struct {
        unsigned long unic;
        std::string sBytes;
    } kCases[] = {
        {0x0, std::string(1, '\0')},
        {0x41, "A"},
        {0x7FF, "\xDF\xBF"},
        {0x4E2D, kZhongUtf8},
        {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xF0\x90\x80\x80"},
        {0x1FFFFF, "\xF7\xBF\xBF\xBF"},
        {0x200000, "\xF8\x88\x80\x80\x80"},
        {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"},
        {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
        {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
        {0x80000000, ""},
        {0xFFFFFFFFFUL, ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.unic);
        unsigned char buf[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
        int n = unicode_to_utf8_one(c.unic, buf, 6);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), n), c.sBytes);
        // A five-byte buffer is refused even for ASCII, and left untouched.
        unsigned char small[5] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
        EXPECT_EQ(unicode_to_utf8_one(c.unic, small, 5), 0);
        EXPECT_EQ(small[0], 0xAA);
    }
    EXPECT_EQ(unicode_to_utf8_one(0x41, nullptr, 6), 0);
}

}  // namespace
