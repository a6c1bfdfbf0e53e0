// The translator with the built "Data" folder over real Chinese prose (the
// fortunes-zh texts and the zh_CN manual pages): UTF-8 and GB18030 text goes
// into GBK exactly as glibc iconv converts it and comes back unchanged (apart
// from the translator's line layout); characters GBK cannot hold become "^^ ^^"
// marks; BIG5 text becomes simplified GBK agreeing with OpenCC's t2s.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "CodeTran.h"
#include "TestUtil.h"
#include "TransDataTestUtil.h"

namespace {

using namespace qxtest::trans;

// Code points the UTF-8 and GB18030 dictionaries hold: the BMP and the
// ideograph planes 2 and 3.
bool InTranslatorRange(uint32_t cp) {
    return cp < 0x10000 || (cp >= 0x20000 && cp < 0x40000);
}

std::vector<uint32_t> CodePoints(const std::string& sUTF8) {
    std::string s32;
    if (!Iconv("UTF-8", "UTF-32LE", sUTF8, s32)) return {};
    std::vector<uint32_t> v(s32.size() / 4);
    for (size_t i = 0; i < v.size(); ++i) {
        const auto* p = reinterpret_cast<const unsigned char*>(s32.data() + 4 * i);
        v[i] = p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t(p[3]) << 24);
    }
    return v;
}

// The prose, line by line, split into lines GBK holds and lines it does not
// (valid UTF-8 within the dictionaries' range only). Lines with '^' are left
// out: marked runs have tests of their own.
struct Prose {
    std::string sHeld;    // lines GBK holds, joined by "\n"
    std::string sUnheld;  // the other lines, joined by "\n"
};

const Prose& LoadProse() {
    static const Prose prose = [] {
        Prose p;
        std::istringstream in(qxtest::ReadBytes(CorpusFile("prose.u8")));
        std::string sLine, sGBK;
        while (std::getline(in, sLine)) {
            if (sLine.find('^') != std::string::npos) continue;
            const std::vector<uint32_t> cps = CodePoints(sLine);
            if (cps.empty() || !std::all_of(cps.begin(), cps.end(), InTranslatorRange)) continue;
            (Iconv("UTF-8", "GBK", sLine, sGBK) ? p.sHeld : p.sUnheld) += sLine + "\n";
        }
        return p;
    }();
    return prose;
}

std::string ToGBK(CCodeTran& tran, const std::string& s) {
    std::string r;
    tran.CodeToGBK(s.c_str(), r);
    return r;
}

std::string ToCode(CCodeTran& tran, const std::string& s) {
    std::string r;
    tran.GBKToCode(s.c_str(), r);
    return r;
}

// Compares two long texts line by line, naming the first differing line.
void ExpectSameText(const std::string& sActual, const std::string& sExpected, const char* sWhat) {
    if (sActual == sExpected) return;
    size_t i = 0;
    while (i < sActual.size() && i < sExpected.size() && sActual[i] == sExpected[i]) ++i;
    const size_t nStart =
        sExpected.rfind('\n', i) == std::string::npos ? 0 : sExpected.rfind('\n', i);
    ADD_FAILURE() << sWhat << ": first difference at byte " << i
                  << "\n  expected: " << sExpected.substr(nStart, 120)
                  << "\n  actual:   " << sActual.substr(nStart, 120);
}

class ProseRoundTripTest : public ::testing::Test {
  protected:
    static std::string Data() { return DataDir() + "/Data"; }
};

TEST_F(ProseRoundTripTest, Utf8IntoGbkIsIconvsConversionAndComesBack) {
    const std::string& sText = LoadProse().sHeld;
    ASSERT_GT(sText.size(), 1000000u);
    const std::string sLayout = TranslatedLayout(sText);
    CCodeTran tran(Data().c_str(), 5);
    ASSERT_EQ(tran.GetStatus(), 1);
    const std::string sGBK = ToGBK(tran, sText);
    ExpectSameText(sGBK, MustIconv("UTF-8", "GBK", sLayout), "code 5 into GBK");
    ExpectSameText(ToCode(tran, sGBK), sLayout, "code 5 back to UTF-8");
}

TEST_F(ProseRoundTripTest, Utf8AgainstGb18030SideIsIconvsConversionForCodesOneAndFour) {
    const std::string sText = LoadProse().sHeld + LoadProse().sUnheld;
    const std::string sLayout = TranslatedLayout(sText);
    const std::string sExpected = MustIconv("UTF-8", "GB18030", sLayout);
    for (int nCode : {1, 4}) {
        CCodeTran tran(Data().c_str(), nCode);
        ASSERT_EQ(tran.GetStatus(), 1);
        const std::string sOut = ToGBK(tran, sText);
        ExpectSameText(sOut, sExpected, "into GB18030");
        ExpectSameText(ToCode(tran, sOut), sLayout, "back to UTF-8");
    }
}

TEST_F(ProseRoundTripTest, Gb18030IntoGbkIsIconvsConversionAndComesBack) {
    const std::string sLayout = TranslatedLayout(LoadProse().sHeld);
    const std::string sText = MustIconv("UTF-8", "GB18030", LoadProse().sHeld);
    CCodeTran tran(Data().c_str(), 3);
    ASSERT_EQ(tran.GetStatus(), 1);
    const std::string sGBK = ToGBK(tran, sText);
    ExpectSameText(sGBK, MustIconv("UTF-8", "GBK", sLayout), "code 3 into GBK");
    ExpectSameText(ToCode(tran, sGBK), MustIconv("UTF-8", "GB18030", sLayout), "code 3 back");
}

// Each character GBK cannot hold is a dictionary word without a map entry,
// so it becomes its own "^^ ^^"; everything else converts as iconv does.
TEST_F(ProseRoundTripTest, CharactersGbkCannotHoldBecomeMarkedBlanks) {
    const std::string& sText = LoadProse().sUnheld;
    ASSERT_FALSE(sText.empty());
    std::string sExpected, sUTF8, sGBK;
    for (uint32_t cp : CodePoints(TranslatedLayout(sText))) {
        const char b[4] = {char(cp), char(cp >> 8), char(cp >> 16), char(cp >> 24)};
        ASSERT_TRUE(Iconv("UTF-32LE", "UTF-8", std::string(b, 4), sUTF8));
        sExpected += Iconv("UTF-8", "GBK", sUTF8, sGBK) ? sGBK : "^^ ^^";
    }
    for (int nCode : {5, 3}) {
        CCodeTran tran(Data().c_str(), nCode);
        const std::string sIn = nCode == 5 ? sText : MustIconv("UTF-8", "GB18030", sText);
        ExpectSameText(ToGBK(tran, sIn), sExpected, nCode == 5 ? "code 5" : "code 3");
    }
}

// GBK characters of the two texts, line by line, and how many of the
// expected ones the actual text has in order (longest common subsequence).
size_t CommonChars(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    if (a == b) return a.size();
    std::vector<size_t> prev(b.size() + 1, 0), cur(b.size() + 1, 0);
    for (size_t i = 1; i <= a.size(); ++i) {
        for (size_t j = 1; j <= b.size(); ++j)
            cur[j] = a[i - 1] == b[j - 1] ? prev[j - 1] + 1 : std::max(prev[j], cur[j - 1]);
        std::swap(prev, cur);
    }
    return prev[b.size()];
}

std::vector<std::string> GbkChars(const std::string& s) {
    std::vector<std::string> v;
    for (size_t i = 0; i < s.size();) {
        const size_t n = (static_cast<unsigned char>(s[i]) & 0x80) && i + 1 < s.size() ? 2 : 1;
        v.push_back(s.substr(i, n));
        i += n;
    }
    return v;
}

TEST_F(ProseRoundTripTest, Big5IntoSimplifiedGbkAgreesWithOpenccT2s) {
    const std::string sBig5 = qxtest::ReadBytes(CorpusFile("prose.big5"));
    std::string sReference;
    Iconv("UTF-8", "GBK", TranslatedLayout(qxtest::ReadBytes(CorpusFile("prose.t2s.u8"))),
          sReference, true);
    CCodeTran tran(Data().c_str(), 2);
    ASSERT_EQ(tran.GetStatus(), 1);
    const std::vector<TextLine> vOurs = TakeLines(ToGBK(tran, sBig5));
    const std::vector<TextLine> vRef = TakeLines(sReference);
    ASSERT_EQ(vOurs.size(), vRef.size());
    size_t nTotal = 0, nSame = 0;
    for (size_t i = 0; i < vRef.size(); ++i) {
        const std::vector<std::string> vExpected = GbkChars(vRef[i].sText);
        nTotal += vExpected.size();
        nSame += CommonChars(GbkChars(vOurs[i].sText), vExpected);
    }
    const double fRate = double(nSame) / double(nTotal);
    std::cout << "BIG5 -> GBK agreement with opencc t2s: " << nSame << " of " << nTotal
              << " characters (" << 100.0 * fRate << "%)\n";
    RecordProperty("agreement_ppm", static_cast<int>(fRate * 1e6));
    EXPECT_GE(fRate, 0.999);
}

}  // namespace
