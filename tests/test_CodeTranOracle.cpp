// The translator against the literal procedure, on random dictionaries, maps,
// word lists and texts. The literal procedure writes each line's
// segmentation as text (segments followed by a tab) and walks the words
// between tabs; the product walks segment spans and splits them at tabs, and
// looks words up through a table per direction when the translator owns the
// resources. Texts are drawn from bytes that exercise the line, marker and
// word rules: blanks, tabs, quotes, byte-order marks, "^" markers, line ends,
// lone high bytes, capitals and mode-2 delimiters. The seed is
// printed; QX_DIFF_SEED picks another.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "CodeTran.h"
#include "IDMaps.h"
#include "PDAT.h"
#include "TestUtil.h"
#include "Utility.h"
#include "WordList.h"

namespace {

unsigned Seed() {
    const char* s = std::getenv("QX_DIFF_SEED");
    const unsigned n = s ? static_cast<unsigned>(std::strtoul(s, nullptr, 10)) : 20261123u;
    std::printf("QX_DIFF_SEED=%u\n", n);
    return n;
}

// Pieces texts and words are made of: ASCII of every kind the walks treat
// differently, GBK characters, UTF-8 byte-order-mark bytes, lone high bytes.
const std::vector<std::string> kPieces = {
    "a",    "b",    "A",    "1",    " ",    "\t",       "\"",       "^",        "^^",
    "\r",   "\n",   "-",    ",",    "x",    "\xD6\xD0", "\xCE\xC4", "\xB9\xFA", "\xEF\xBB\xBF",
    "\xEF", "\xBB", "\xE4", "\xB8", "\xAD", "\xA3\xC1", "\xA1\xA3", "_",        "/"};

std::string RandomText(std::mt19937& rng, int nMaxPieces, bool bWord) {
    std::uniform_int_distribution<int> count(1, nMaxPieces);
    std::uniform_int_distribution<size_t> piece(0, kPieces.size() - 1);
    std::string s;
    for (int n = count(rng); n > 0; --n) {
        const std::string& p = kPieces[piece(rng)];
        if (bWord && (p == "\r" || p == "\n")) continue;
        s += p;
    }
    return s;
}

struct Resources {
    std::unique_ptr<CPDAT> pDict;
    CIDMaps map;
    CWordList list{true, nullptr};  // scrambled when saved, as the translator loads it
};

// A dictionary of random words, a map sending most handles to random ids
// (some to -1 or to ids without text) and a word list with texts for most ids.
void MakeResources(std::mt19937& rng, int nMode, Resources& r) {
    r.pDict = std::make_unique<CPDAT>(nMode);
    const int nWords = std::uniform_int_distribution<int>(1, 40)(rng);
    for (int i = 0; i < nWords; ++i) r.pDict->AddWord(RandomText(rng, 3, true).c_str(), false);
    r.pDict->AddWordComplete();
    const int nItems = static_cast<int>(r.pDict->GetItemCount());
    r.map.MapInit();
    std::uniform_int_distribution<int> target(-1, nItems + 2);
    for (int h = 0; h < nItems; ++h)
        if (rng() % 5 != 0) r.map.MapAdd(h, target(rng));
    qxtest::CaptureStdout([&] { r.map.MapComplete(); });
    for (int id = 0; id < nItems; ++id)
        if (rng() % 6 != 0) r.list.AddWord(RandomText(rng, 2, true).c_str(), id);
    r.list.AddWordComplete();
}

// ---- The literal procedure ----

struct LiteralState {
    std::string& result;
    const Resources& r;
    bool bOutput;
    std::string sPrevChar;
};

void LiteralWord(const std::string& sWord, LiteralState& st) {
    const int nHandle = st.r.pDict->Find(sWord.c_str(), static_cast<unsigned int>(sWord.size()));
    if (nHandle >= 0) {
        int nCount = 0;
        const idmaps_info* pMaps = st.r.map.GetMaps(nHandle, &nCount);
        if (pMaps && nCount > 0) {
            const char* sText = st.r.list.GetWord(pMaps[0].handle2);
            if (sText && *sText) {
                st.result += sText;
                st.sPrevChar = sWord;
                return;
            }
        }
        st.sPrevChar = sWord;
    }
    const bool bInvalid = (static_cast<unsigned char>(sWord[0]) & 0x80) != 0;
    if (bInvalid && st.sPrevChar == "^^") {
        st.result.erase(st.result.size() - std::min<size_t>(2, st.result.size()));
    } else if (!st.bOutput && bInvalid) {
        st.result += "^^";
    }
    st.result += bInvalid ? std::string(" ") : sWord;
    if (!st.bOutput && bInvalid) {
        st.result += "^^";
        st.sPrevChar = "^^";
    } else {
        st.sPrevChar = sWord;
    }
}

std::string LiteralTrans(const std::string& sText, const Resources& r, bool bOutput) {
    std::string result;
    std::vector<char> buf(sText.begin(), sText.end());
    buf.push_back('\0');
    char* pCur = buf.data();
    while (pCur) {
        char* pNext = nullptr;
        char chSep = 0;
        int nStatus = 0;
        char* pLine = StrLine(pCur, &pNext, &chSep, &nStatus, true);
        if (!pLine) break;
        if (nStatus == 1) {
            result += pLine;
        } else {
            LiteralState st{result, r, bOutput, ""};
            std::string sSeg = r.pDict->MMSegment(pLine, -1, '\t');
            size_t i = 0;
            while (true) {
                while (i < sSeg.size() && sSeg[i] == '\t') ++i;
                if (i >= sSeg.size()) break;
                const size_t j = std::min(sSeg.find('\t', i), sSeg.size());
                LiteralWord(sSeg.substr(i, j - i), st);
                i = j;
            }
        }
        if (chSep != '^' && chSep != 0) result += chSep;
        if (pNext && chSep != 0) *pNext = chSep;
        pCur = pNext;
    }
    return result;
}

TEST(CodeTranOracle, TranslationEqualsTheLiteralProcedure) {
    std::mt19937 rng(Seed());
    qxtest::ScopedLog log(0);
    CCodeTran tran(nullptr, 0);  // CodeTrans takes its resources as arguments
    int nTexts = 0;
    for (int nRound = 0; nRound < 300; ++nRound) {
        Resources r;
        MakeResources(rng, nRound % 3, r);
        for (int k = 0; k < 20; ++k, ++nTexts) {
            const std::string sText = RandomText(rng, 30, false);
            for (bool bOutput : {false, true}) {
                std::string sOut;
                tran.CodeTrans(sText.c_str(), sOut, r.pDict.get(), &r.map, &r.list, bOutput);
                ASSERT_EQ(sOut, LiteralTrans(sText, r, bOutput))
                    << "round " << nRound << " mode " << nRound % 3 << " text "
                    << testing::PrintToString(sText);
            }
        }
    }
    EXPECT_EQ(nTexts, 6000);
}

// A translator loaded from files takes its words' targets from a table made
// once per direction: the same results.
TEST(CodeTranOracle, LoadedTranslatorEqualsTheLiteralProcedure) {
    std::mt19937 rng(Seed() + 2);
    qxtest::ScopedLog log(0);
    for (int nRound = 0; nRound < 40; ++nRound) {
        Resources r;
        MakeResources(rng, nRound % 2, r);
        qxtest::TempDir dir;
        for (const char* sSide : {"UTF8", "GBK"}) {
            ASSERT_TRUE(r.pDict->Save(dir.file(std::string(sSide) + ".pdat").c_str()));
            ASSERT_TRUE(r.list.Save(dir.file(std::string(sSide) + ".wordlist").c_str()));
        }
        for (const char* sMap : {"UTF2GBK.map", "GBK2UTF.map"})
            ASSERT_TRUE(r.map.Save(dir.file(sMap).c_str()));
        CCodeTran tran(dir.path().c_str(), 5);
        ASSERT_EQ(tran.GetStatus(), 1);
        for (int k = 0; k < 20; ++k) {
            std::string sText = RandomText(rng, 30, false);
            std::string sOut;
            const std::string sRead = sText.rfind("\xEF\xBB\xBF", 0) == 0 ? sText.substr(3) : sText;
            ASSERT_EQ(tran.CodeToGBK(sText.c_str(), sOut), LiteralTrans(sRead, r, false))
                << testing::PrintToString(sText);
            ASSERT_EQ(tran.GBKToCode(sText.c_str(), sOut), LiteralTrans(sRead, r, true))
                << testing::PrintToString(sText);
        }
    }
}

// The spans cover the text as MMSegment's segments do.
TEST(CodeTranOracle, SegmentSpansAreMMSegmentsSegments) {
    std::mt19937 rng(Seed() + 1);
    std::vector<_stSegSpan> spans;
    for (int nRound = 0; nRound < 300; ++nRound) {
        Resources r;
        MakeResources(rng, nRound % 3, r);
        for (int k = 0; k < 20; ++k) {
            const std::string sText = RandomText(rng, 30, true);
            const std::string sSeg = r.pDict->MMSegment(sText.c_str(), -1, '\x01');
            r.pDict->MMSegmentSpans(sText.c_str(), static_cast<int>(sText.size()), -1, spans);
            std::string sJoined;
            for (const _stSegSpan& s : spans) sJoined += sText.substr(s.iStart, s.nLen) + '\x01';
            ASSERT_EQ(sJoined, sSeg)
                << "mode " << nRound % 3 << " " << testing::PrintToString(sText);
        }
    }
}

}  // namespace
