// The translator with the build's "Data" folder (written by qxmakedata),
// against glibc iconv and OpenCC: every character of the repertoires and real
// prose (fortunes-zh and the zh_CN manual pages, tests/make_corpus.sh).
//
// QX_DATA_DIR holds the "Data" folder, QX_CORPUS_DIR the corpus.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "CodeTran.h"
#include "Iconv.h"
#include "TestUtil.h"

namespace {

const std::string kData = std::string(QX_DATA_DIR) + "/Data";

// sIn, UTF-8, in the encoding sTo (iconv's name).
std::string FromUtf8(const char* sTo, const std::string& sIn) {
    std::string sOut;
    EXPECT_TRUE(CIconv(sTo, "UTF-8").Convert(sIn, sOut)) << sTo;
    return sOut;
}

std::string Translate(CCodeTran& tran, const std::string& s, bool bToGbk) {
    std::string r;
    return bToGbk ? tran.CodeToGBK(s.c_str(), r) : tran.GBKToCode(s.c_str(), r);
}

// The lines of a text as the translator takes them: leading blanks, tabs,
// CRs and LFs skipped, each line up to (not including) its first CR or LF,
// paired with that byte (0 for a last line without one).
std::vector<std::pair<std::string, char>> TakeLines(const std::string& s) {
    std::vector<std::pair<std::string, char>> vLines;
    for (size_t i = s.find_first_not_of(" \t\r\n"); i != std::string::npos;
         i = s.find_first_not_of(" \t\r\n", i)) {
        const size_t j = s.find_first_of("\r\n", i);
        vLines.emplace_back(s.substr(i, j - i), j == std::string::npos ? '\0' : s[j]);
        i = j;
    }
    return vLines;
}

// The text a translation gives when every word converts: its lines without
// tab bytes (the word walk drops them), each followed by the byte that ended it.
std::string TranslatedLayout(const std::string& s) {
    std::string sOut;
    for (const auto& [sLine, chEnd] : TakeLines(s)) {
        for (char c : sLine)
            if (c != '\t') sOut += c;
        if (chEnd) sOut += chEnd;
    }
    return sOut;
}

// Names the first differing line of two long texts.
void ExpectSameText(const std::string& sActual, const std::string& sExpected, const char* sWhat) {
    if (sActual == sExpected) return;
    const size_t i =
        std::mismatch(sActual.begin(), sActual.end(), sExpected.begin(), sExpected.end()).second -
        sExpected.begin();
    const size_t nStart = sExpected.rfind('\n', i) + 1;  // 0 without an earlier line
    ADD_FAILURE() << sWhat << ": first difference at byte " << i
                  << "\n  expected: " << sExpected.substr(nStart, 120)
                  << "\n  actual:   " << sActual.substr(nStart, 120);
}

// BIG5 <-> GBK both ways: 發 <-> 发 (the first of 發 髮), and the phrases
// 計劃 <-> 计划, 頭髮 <-> 头发, 後面 <-> 后面; one way: BIG5 計畫 -> GBK 计划.
TEST(TransData, KnownTraditionalSimplifiedPairsConvert) {
    CCodeTran tran(kData.c_str(), 2);
    ASSERT_EQ(tran.GetStatus(), 1);
    const std::pair<const char*, const char*> rows[] = {
        {"\xB5\x6F", "\xB7\xA2"},
        {"\xAD\x70\xB9\xBA", "\xBC\xC6\xBB\xAE"},
        {"\xC0\x59\xBE\x76", "\xCD\xB7\xB7\xA2"},
        {"\xAB\xE1\xAD\xB1", "\xBA\xF3\xC3\xE6"},
    };
    for (const auto& [sBig5, sGbk] : rows) {
        EXPECT_EQ(Translate(tran, sBig5, true), sGbk) << testing::PrintToString(sBig5);
        EXPECT_EQ(Translate(tran, sGbk, false), sBig5) << testing::PrintToString(sGbk);
    }
    EXPECT_EQ(Translate(tran, "\xAD\x70\xB5\x65", true), "\xBC\xC6\xBB\xAE");
}

// ---- Every character and real prose -------------------------------------------

// Texts in UTF-8, one line per piece, each line ending in "\n": the pieces
// GBK holds, the others, and the characters among the others. The pieces are
// every code point UTF-8 and GB18030 both write, of the basic plane and
// samples of the ideograph planes 2 and 3, then the prose lines within those
// planes. Lines with '^' are left out: marked runs have tests of their own.
std::tuple<std::string, std::string, std::string> Texts() {
    std::tuple<std::string, std::string, std::string> t;
    auto& [sGbk, sOthers, sOtherChars] = t;
    CIconv toUtf8("UTF-8", "UTF-32LE"), toGb("GB18030", "UTF-32LE"), toGbk("GBK", "UTF-32LE"),
        fromUtf8("UTF-32LE", "UTF-8"), utf8ToGbk("GBK", "UTF-8");
    std::string s32, sPiece, sOut;
    std::vector<char32_t> vCodePoints = {0x20000, 0x2A6D6, 0x2F800, 0x30000, 0x3FFFD};
    for (char32_t cp = 0x80; cp < 0x10000; ++cp)
        if ((cp < 0xD800 || cp > 0xDFFF) && cp != 0xFEFF) vCodePoints.push_back(cp);
    for (char32_t cp : vCodePoints) {
        s32 = {char(cp), char(cp >> 8), char(cp >> 16), char(cp >> 24)};
        if (!toUtf8.Convert(s32, sPiece) || !toGb.Convert(s32, sOut)) continue;
        (toGbk.Convert(s32, sOut) ? sGbk : sOtherChars) += sPiece + "\n";
    }
    sOthers = sOtherChars;
    std::istringstream in(qxtest::ReadBytes(std::string(QX_CORPUS_DIR) + "/prose.u8"));
    while (std::getline(in, sPiece)) {
        if (sPiece.find('^') != std::string::npos || !fromUtf8.Convert(sPiece, s32) || s32.empty())
            continue;
        bool bInRange = true;
        for (size_t i = 0; i < s32.size(); i += 4)
            bInRange &= s32[i + 3] == 0 && uint8_t(s32[i + 2]) < 4 && uint8_t(s32[i + 2]) != 1;
        if (bInRange) (utf8ToGbk.Convert(sPiece, sOut) ? sGbk : sOthers) += sPiece + "\n";
    }
    return t;
}

// Into the engine's side the text is what iconv makes of it, laid out as the
// translator lays lines out, and it comes back as it went in; into GBK a
// character GBK cannot hold becomes "^^ ^^".
TEST(TransData, TextIntoTheEnginesSideIsIconvsConversionAndComesBack) {
    const auto [sGbk, sOthers, sOtherChars] = Texts();
    ASSERT_GT(sGbk.size(), 1000000u);
    ASSERT_GT(std::count(sOtherChars.begin(), sOtherChars.end(), '\n'), 40000);
    const std::string sAll = sGbk + sOthers;
    std::string sMarked;
    for (char c : sOtherChars)
        if (c == '\n') sMarked += "^^ ^^\n";
    const std::tuple<int, const char*, const char*, const std::string*> rows[] = {
        // code, caller's encoding, engine's encoding, text
        {5, "UTF-8", "GBK", &sGbk},
        {3, "GB18030", "GBK", &sGbk},
        {1, "UTF-8", "GB18030", &sAll},
        {4, "UTF-8", "GB18030", &sAll},
    };
    for (const auto& [nCode, sCaller, sEngine, pText] : rows) {
        SCOPED_TRACE(nCode);
        CCodeTran tran(kData.c_str(), nCode);
        ASSERT_EQ(tran.GetStatus(), 1);
        const std::string sLayout = TranslatedLayout(*pText);
        const std::string sIn = FromUtf8(sCaller, *pText);
        const std::string sEngineText = Translate(tran, sIn, true);
        ExpectSameText(sEngineText, FromUtf8(sEngine, sLayout), "into the engine");
        ExpectSameText(Translate(tran, sEngineText, false), FromUtf8(sCaller, sLayout), "back");
        if (pText == &sGbk)
            ExpectSameText(Translate(tran, FromUtf8(sCaller, sOtherChars), true), sMarked,
                           "marked");
    }
}

// Characters of the expected text the actual one has in order (longest common
// subsequence of their GBK characters).
size_t CommonChars(const std::string& sActual, const std::string& sExpected) {
    auto chars = [](const std::string& s) {
        std::vector<std::string> v;
        for (size_t i = 0, n; i < s.size(); i += n) {
            n = (static_cast<unsigned char>(s[i]) & 0x80) && i + 1 < s.size() ? 2 : 1;
            v.push_back(s.substr(i, n));
        }
        return v;
    };
    const std::vector<std::string> a = chars(sActual), b = chars(sExpected);
    if (a == b) return a.size();
    std::vector<size_t> prev(b.size() + 1, 0), cur(b.size() + 1, 0);
    for (size_t i = 1; i <= a.size(); ++i) {
        for (size_t j = 1; j <= b.size(); ++j)
            cur[j] = a[i - 1] == b[j - 1] ? prev[j - 1] + 1 : std::max(prev[j], cur[j - 1]);
        std::swap(prev, cur);
    }
    return prev[b.size()];
}

TEST(TransData, Big5ProseIntoSimplifiedGbkAgreesWithOpenccT2s) {
    std::string sOpencc;
    CIconv("GBK", "UTF-8")
        .Convert(TranslatedLayout(qxtest::ReadBytes(std::string(QX_CORPUS_DIR) + "/prose.t2s.u8")),
                 sOpencc, CIconv::OnBad::kSkip);
    CCodeTran tran(kData.c_str(), 2);
    ASSERT_EQ(tran.GetStatus(), 1);
    const auto vOurs = TakeLines(
        Translate(tran, qxtest::ReadBytes(std::string(QX_CORPUS_DIR) + "/prose.big5"), true));
    const auto vRef = TakeLines(sOpencc);
    ASSERT_EQ(vOurs.size(), vRef.size());
    size_t nTotal = 0, nSame = 0;
    for (size_t i = 0; i < vRef.size(); ++i) {
        nTotal += CommonChars(vRef[i].first, vRef[i].first);
        nSame += CommonChars(vOurs[i].first, vRef[i].first);
    }
    const double fRate = double(nSame) / double(nTotal);
    std::cout << "BIG5 -> GBK agreement with opencc t2s: " << nSame << " of " << nTotal
              << " characters (" << 100.0 * fRate << "%)\n";
    EXPECT_GE(fRate, 0.999);
}

}  // namespace
