// The GBK / UTF-8 conversions: every GBK character against glibc iconv's
// UTF-8, then the stopping rules and the hand-written UTF-8 decoder as tables.
#include "STLCodeTrans.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <tuple>
#include <vector>

#include "Iconv.h"
#include "TestUtil.h"

namespace {

TEST(STLCodeTransTest, EveryGbkCharacterConvertsAsIconvDoesAndBack) {
    CIconv toUtf8("UTF-8", "GBK");
    const std::string sLocale = std::setlocale(LC_ALL, nullptr);
    size_t nChars = 0;
    const std::string sPrinted = qxtest::CaptureStdout([&] {
        for (int lead = 0x81; lead <= 0xFE; ++lead) {
            for (int trail = 0x40; trail <= 0xFE; ++trail) {
                const std::string sGbk = {'a', char(lead), char(trail), ' '};
                std::string sWant, sOut, sBack;
                if (trail == 0x7F || !toUtf8.Convert(sGbk, sWant)) continue;
                ++nChars;
                ASSERT_EQ(ANSIToUTF8(sGbk.c_str(), sOut), sWant.size()) << lead << " " << trail;
                ASSERT_EQ(sOut, sWant);
                ASSERT_EQ(UTF8ToANSI(("\xEF\xBB\xBF" + sWant).c_str(), sBack), 1);  // BOM skipped
                ASSERT_EQ(sBack, sGbk);
            }
        }
    });
    EXPECT_GT(nChars, 21000u);
    EXPECT_EQ(sPrinted, "");  // nothing printed, the locale untouched
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), sLocale);
}

// A conversion stops at the first character it cannot convert and keeps the
// prefix; UTF8ToANSI says 1 even when nothing is left, 0 for no text;
// ANSIToUTF8 gives the length of its result.
TEST(STLCodeTransTest, ConversionsStopAtTheFirstUnconvertibleCharacter) {
    const std::tuple<bool, const char*, int, std::string> rows[] = {
        // into GBK, text -> result, converted text
        {true, "\xE4\xB8\xAD\xE0\xB8\x81\xE4\xB8\xAD", 1, "\xD6\xD0"},  // 中, Thai ko kai, 中 -> 中
        {true, "\xF0\x9F\x98\x80", 1, ""},                              // beyond the basic plane
        {true, nullptr, 0, ""},
        {true, "", 0, ""},
        {true, "\xEF\xBB\xBF", 0, ""},
        {false, "ab\xD6\xD0\x81", 5, "ab\xE4\xB8\xAD"},          // a lead byte at the end
        {false, "\xD6\xD0\x81\x20\xD6\xD0", 3, "\xE4\xB8\xAD"},  // a bad trail byte
        {false, "\x81\x7F", 0, ""},
        {false, nullptr, 0, ""},
    };
    for (const auto& [bToGbk, sIn, nResult, sOut] : rows) {
        std::string s = "stale";
        EXPECT_EQ(bToGbk ? UTF8ToANSI(sIn, s) : int(ANSIToUTF8(sIn, s)), nResult);
        EXPECT_EQ(s, sOut);
    }
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
}

}  // namespace
