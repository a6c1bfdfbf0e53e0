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

bool Iconv(const char* sFrom, const char* sTo, const std::string& sIn, std::string& sOut,
           CIconv::OnBad eBad = CIconv::OnBad::kStop) {
    return CIconv(sTo, sFrom).Convert(sIn, sOut, eBad);
}

std::string MustIconv(const char* sFrom, const char* sTo, const std::string& sIn) {
    std::string sOut;
    EXPECT_TRUE(Iconv(sFrom, sTo, sIn, sOut)) << sFrom << " -> " << sTo;
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
    const size_t nStart =
        sExpected.rfind('\n', i) == std::string::npos ? 0 : sExpected.rfind('\n', i);
    ADD_FAILURE() << sWhat << ": first difference at byte " << i
                  << "\n  expected: " << sExpected.substr(nStart, 120)
                  << "\n  actual:   " << sActual.substr(nStart, 120);
}

// ---- Every character ----------------------------------------------------------

// Every code point UTF-8 and GB18030 both write, of the basic plane and the
// ideograph planes 2 and 3, converts between them (codes 1 and 4) as iconv
// converts it; into GBK (codes 5 and 3) it is iconv's GBK character, which
// comes back, or "^^ ^^" when GBK cannot hold it.
TEST(TransData, EveryCodePointConvertsAsIconvConvertsIt) {
    CCodeTran tran1(kData.c_str(), 1), tran4(kData.c_str(), 4), tran5(kData.c_str(), 5),
        tran3(kData.c_str(), 3);
    ASSERT_EQ(tran1.GetStatus() + tran4.GetStatus() + tran5.GetStatus() + tran3.GetStatus(), 4);
    std::vector<char32_t> vCodePoints;
    for (char32_t cp = 0x80; cp < 0x10000; ++cp)
        if ((cp < 0xD800 || cp > 0xDFFF) && cp != 0xFEFF) vCodePoints.push_back(cp);
    for (char32_t cp : {0x20000, 0x2A6D6, 0x2F800, 0x30000, 0x3FFFD}) vCodePoints.push_back(cp);
    CIconv toUtf8("UTF-8", "UTF-32LE"), toGb("GB18030", "UTF-32LE"), toGbk("GBK", "UTF-32LE");
    size_t nChars = 0, nGbk = 0;
    std::string sUtf8, sGb, sGbk;
    for (char32_t cp : vCodePoints) {
        const std::string s32 = {char(cp), char(cp >> 8), char(cp >> 16), char(cp >> 24)};
        if (!toUtf8.Convert(s32, sUtf8) || !toGb.Convert(s32, sGb)) continue;
        ++nChars;
        for (CCodeTran* pTran : {&tran1, &tran4}) {
            ASSERT_EQ(Translate(*pTran, sUtf8, true), sGb) << std::hex << cp;
            ASSERT_EQ(Translate(*pTran, sGb, false), sUtf8) << std::hex << cp;
        }
        const bool bGbk = toGbk.Convert(s32, sGbk);
        nGbk += bGbk;
        ASSERT_EQ(Translate(tran5, sUtf8, true), bGbk ? sGbk : "^^ ^^") << std::hex << cp;
        ASSERT_EQ(Translate(tran3, sGb, true), bGbk ? sGbk : "^^ ^^") << std::hex << cp;
        if (!bGbk) continue;
        ASSERT_EQ(Translate(tran5, sGbk, false), sUtf8) << std::hex << cp;
        ASSERT_EQ(Translate(tran3, sGbk, false), sGb) << std::hex << cp;
    }
    EXPECT_GT(nChars, 60000u);
    EXPECT_GT(nGbk, 21000u);
}

TEST(TransData, KnownTraditionalSimplifiedPairsConvert) {
    CCodeTran tran(kData.c_str(), 2);
    ASSERT_EQ(tran.GetStatus(), 1);
    const std::tuple<bool, const char*, const char*> rows[] = {
        // characters: BIG5 發 -> GBK 发 -> BIG5 發 (the first of 發 髮)
        {true, "\xB5\x6F", "\xB7\xA2"},
        {false, "\xB7\xA2", "\xB5\x6F"},
        // a traditional -> simplified phrase: BIG5 計畫 -> GBK 计划
        {true, "\xAD\x70\xB5\x65", "\xBC\xC6\xBB\xAE"},
        // simplified -> traditional phrases: GBK 计划 -> BIG5 計劃, 头发 -> 頭髮, 后面 -> 後面
        {false, "\xBC\xC6\xBB\xAE", "\xAD\x70\xB9\xBA"},
        {false, "\xCD\xB7\xB7\xA2", "\xC0\x59\xBE\x76"},
        {false, "\xBA\xF3\xC3\xE6", "\xAB\xE1\xAD\xB1"},
        // and back character by character: BIG5 計劃 -> 计划, 頭髮 -> 头发, 後面 -> 后面
        {true, "\xAD\x70\xB9\xBA", "\xBC\xC6\xBB\xAE"},
        {true, "\xC0\x59\xBE\x76", "\xCD\xB7\xB7\xA2"},
        {true, "\xAB\xE1\xAD\xB1", "\xBA\xF3\xC3\xE6"},
    };
    for (const auto& [bToGbk, sFrom, sTo] : rows)
        EXPECT_EQ(Translate(tran, sFrom, bToGbk), sTo)
            << testing::PrintToString(std::string(sFrom));
}

// ---- Real prose ---------------------------------------------------------------

// The prose lines GBK holds and the others (valid UTF-8 within the basic and
// ideograph planes only), each set joined by "\n". Lines with '^' are left
// out: marked runs have tests of their own.
const std::pair<std::string, std::string>& Prose() {
    static const std::pair<std::string, std::string> prose = [] {
        std::pair<std::string, std::string> p;
        std::istringstream in(qxtest::ReadBytes(std::string(QX_CORPUS_DIR) + "/prose.u8"));
        std::string sLine, s32, sGbk;
        while (std::getline(in, sLine)) {
            if (sLine.find('^') != std::string::npos || !Iconv("UTF-8", "UTF-32LE", sLine, s32) ||
                s32.empty())
                continue;
            bool bInRange = true;
            for (size_t i = 0; i < s32.size(); i += 4)
                bInRange &= s32[i + 3] == 0 && uint8_t(s32[i + 2]) < 4 && uint8_t(s32[i + 2]) != 1;
            if (bInRange) (Iconv("UTF-8", "GBK", sLine, sGbk) ? p.first : p.second) += sLine + "\n";
        }
        return p;
    }();
    return prose;
}

// Into the engine's side the text is what iconv makes of it, laid out as the
// translator lays lines out, and it comes back as it went in.
TEST(ProseRoundTrip, TextIntoTheGbkSideIsIconvsConversionAndComesBack) {
    ASSERT_GT(Prose().first.size(), 1000000u);
    const std::string sAll = Prose().first + Prose().second;
    const std::tuple<int, const char*, const char*, const std::string*> rows[] = {
        // code, caller's encoding, engine's encoding, text
        {5, "UTF-8", "GBK", &Prose().first},
        {3, "GB18030", "GBK", &Prose().first},
        {1, "UTF-8", "GB18030", &sAll},
        {4, "UTF-8", "GB18030", &sAll},
    };
    for (const auto& [nCode, sCaller, sEngine, pText] : rows) {
        SCOPED_TRACE(nCode);
        CCodeTran tran(kData.c_str(), nCode);
        ASSERT_EQ(tran.GetStatus(), 1);
        const std::string sLayout = TranslatedLayout(*pText);
        const std::string sIn = MustIconv("UTF-8", sCaller, *pText);
        const std::string sEngineText = Translate(tran, sIn, true);
        ExpectSameText(sEngineText, MustIconv("UTF-8", sEngine, sLayout), "into the engine");
        ExpectSameText(Translate(tran, sEngineText, false), MustIconv("UTF-8", sCaller, sLayout),
                       "back");
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

TEST(ProseRoundTrip, Big5IntoSimplifiedGbkAgreesWithOpenccT2s) {
    std::string sOpencc;
    Iconv("UTF-8", "GBK",
          TranslatedLayout(qxtest::ReadBytes(std::string(QX_CORPUS_DIR) + "/prose.t2s.u8")),
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
