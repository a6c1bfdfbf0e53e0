// Tests of the GBK / Unicode / UTF-8 conversions.
#include "STLCodeTrans.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "TestUtil.h"

namespace {

const size_t kStopped = static_cast<size_t>(-1);
const std::string kZhongGbk = "\xD6\xD0";       // 中
const std::string kZhongUtf8 = "\xE4\xB8\xAD";  // 中

TEST(STLCodeTransTest, ProseConvertsBothWaysWithoutTouchingLocaleOrOutput) {
    // GBK and UTF-8 (from an independent encoder) of real prose.
    const std::pair<std::string, std::string> kProse[] = {
        // 今天天气很好，我们一起去公园散步。
        {"\xBD\xF1\xCC\xEC\xCC\xEC\xC6\xF8\xBA\xDC\xBA\xC3\xA3\xAC\xCE\xD2\xC3\xC7\xD2\xBB\xC6"
         "\xF0\xC8\xA5\xB9\xAB\xD4\xB0\xC9\xA2\xB2\xBD\xA1\xA3",
         "\xE4\xBB\x8A\xE5\xA4\xA9\xE5\xA4\xA9\xE6\xB0\x94\xE5\xBE\x88\xE5\xA5\xBD\xEF\xBC\x8C"
         "\xE6\x88\x91\xE4\xBB\xAC\xE4\xB8\x80\xE8\xB5\xB7\xE5\x8E\xBB\xE5\x85\xAC\xE5\x9B\xAD"
         "\xE6\x95\xA3\xE6\xAD\xA5\xE3\x80\x82"},
        {"GBK\xB1\xE0\xC2\xEB 123", "GBK\xE7\xBC\x96\xE7\xA0\x81 123"},  // GBK编码 123
    };
    const std::string sLocale = std::setlocale(LC_ALL, nullptr);
    const std::string sPrinted = qxtest::CaptureStdout([&] {
        for (const auto& [sGbk, sUtf8] : kProse) {
            std::string sOut, sBack;
            EXPECT_EQ(ANSIToUTF8(sGbk.c_str(), sOut), sUtf8.size());
            EXPECT_EQ(sOut, sUtf8);
            EXPECT_EQ(UTF8ToANSI(("\xEF\xBB\xBF" + sUtf8).c_str(), sBack), 1);  // BOM skipped
            EXPECT_EQ(sBack, sGbk);
        }
        std::string s;
        UnicodeToANSI(L"\x0E01", s);  // a failing conversion prints nothing either
    });
    EXPECT_EQ(sPrinted, "");
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), sLocale);

    for (const char* sIn : {static_cast<const char*>(nullptr), "", "\xEF\xBB\xBF"}) {
        std::string sOut = "stale";
        EXPECT_EQ(UTF8ToANSI(sIn, sOut), 0);
        EXPECT_EQ(sOut, "");
    }
    std::string sOut = "stale";
    EXPECT_EQ(ANSIToUTF8(nullptr, sOut), 0u);
    EXPECT_EQ(sOut, "");
}

TEST(STLCodeTransTest, GbkStepsStopAtTheFirstUnconvertibleCharacterKeepingThePrefix) {
    // GBK -> Unicode: a bad trail byte, a lead byte at the end, an invalid first.
    const std::pair<std::string, std::wstring> kGbk[] = {
        {kZhongGbk + "\x81\x20" + kZhongGbk, L"\x4E2D"},
        {"ab" + kZhongGbk + "\x81", L"ab\x4E2D"},
        {"\x81\x7F", L""},
    };
    for (const auto& [sGbk, wPrefix] : kGbk) {
        std::wstring w = L"stale";
        EXPECT_EQ(ANSIToUnicode(sGbk, w), kStopped) << sGbk;
        EXPECT_EQ(w, wPrefix);
    }
    std::string sUtf8;
    EXPECT_EQ(ANSIToUTF8(("ab" + kZhongGbk + "\x81").c_str(), sUtf8), 5u);
    EXPECT_EQ(sUtf8, "ab" + kZhongUtf8);
    std::wstring w;
    EXPECT_EQ(ANSIToUnicode(std::string("ab\0\xD6\xD0", 5), w), 2u);  // ends at the zero byte
    EXPECT_EQ(w, L"ab");

    // Unicode -> GBK: Thai ko kai and a surrogate have no GBK form.
    const std::tuple<std::wstring, size_t, std::string> kUnits[] = {
        {L"a\x4E2D", 3, "a" + kZhongGbk},
        {L"\x4E2D\x0E01\x4E2D", kStopped, kZhongGbk},
        {std::wstring(1, static_cast<wchar_t>(0xD800)), kStopped, ""},
        {std::wstring(L"ab\0c", 4), 2, "ab"},
        {L"", 0, ""},
    };
    for (const auto& [wIn, nResult, sGbk] : kUnits) {
        std::string sOut = "stale";
        EXPECT_EQ(UnicodeToANSI(wIn, sOut), nResult);
        EXPECT_EQ(sOut, sGbk);
    }

    // UTF-8 -> GBK: 1 even when the prefix is all that is left, or nothing.
    EXPECT_EQ(UTF8ToANSI((kZhongUtf8 + "\xE0\xB8\x81" + kZhongUtf8).c_str(), sUtf8), 1);
    EXPECT_EQ(sUtf8, kZhongGbk);
    EXPECT_EQ(UTF8ToANSI("\xF0\x9F\x98\x80", sUtf8), 1);
    EXPECT_EQ(sUtf8, "");
}

TEST(STLCodeTransTest, Utf8ToUnicodeDecodesOneToThreeByteFormsOnly) {
    const std::pair<std::string, std::vector<wchar_t>> kCases[] = {
        {"A\x7F", {0x41, 0x7F}},
        {"\xC2\x80\xDF\xBF", {0x80, 0x7FF}},
        {"\xE0\xA0\x80\xEF\xBF\xBF", {0x800, 0xFFFF}},
        {"\xC3\x41", {0xC1}},          // continuation byte not checked
        {"\xF0\x9F\x98\x80x", {'x'}},  // lead and continuations skipped one by one
        {"a\xF8z", {'a', 'z'}},        // a five-byte lead skipped alone
        {"\xE4\xB8", {}},              // three-byte form cut short
        {"a\xC3", {L'a'}},             // two-byte form cut short
        {"", {}},
    };
    for (const auto& [sIn, vUnits] : kCases) {
        // Exactly strlen + 1 units: the documented capacity (ASan checks it).
        std::vector<wchar_t> vOut(sIn.size() + 1, 0x5A5A);
        EXPECT_EQ(utf8_to_unicode(sIn.c_str(), vOut.data()), 4 * vUnits.size());
        std::vector<wchar_t> vWant = vUnits;
        vWant.push_back(0);  // the terminator
        vOut.resize(vWant.size());
        EXPECT_EQ(vOut, vWant);
    }
    wchar_t unit = 0x5A5A;
    EXPECT_EQ(utf8_to_unicode(nullptr, &unit), 0u);
    EXPECT_EQ(unit, 0);
    EXPECT_EQ(utf8_to_unicode("abc", nullptr), 0u);
}

TEST(STLCodeTransTest, UnicodeToUtf8EncodesTheBasicPlaneAndDropsTheRest) {
    const wchar_t kUnits[] = {0x41, 0x7F, 0x80, 0x7FF, 0x800, 0x10000, 0xFFFF, 0x10FFFF, -1, 0x42};
    char* pOut = nullptr;
    EXPECT_EQ(unicode_to_utf8(kUnits, 10, &pOut), 13u);
    ASSERT_NE(pOut, nullptr);
    EXPECT_EQ(std::string(pOut), "\x41\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\x42");
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
    const std::pair<unsigned long, std::string> kCases[] = {
        {0x41, "A"},
        {0x7FF, "\xDF\xBF"},
        {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xF0\x90\x80\x80"},
        {0x1FFFFF, "\xF7\xBF\xBF\xBF"},
        {0x200000, "\xF8\x88\x80\x80\x80"},
        {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"},
        {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
        {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
        {0x80000000, ""},
        {0x100000041UL, ""},  // not read as 0x41
    };
    for (const auto& [unic, sBytes] : kCases) {
        unsigned char buf[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
        const int n = unicode_to_utf8_one(unic, buf, 6);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), n), sBytes) << unic;
        // A five-byte buffer is refused even for ASCII, and left untouched.
        EXPECT_EQ(unicode_to_utf8_one(unic, buf, 5), 0);
    }
    unsigned char buf[5] = {0xAA};
    EXPECT_EQ(unicode_to_utf8_one(0x41, buf, 5), 0);
    EXPECT_EQ(buf[0], 0xAA);
    EXPECT_EQ(unicode_to_utf8_one(0x41, nullptr, 6), 0);
}

}  // namespace
