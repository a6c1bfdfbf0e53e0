// test_TransData.cpp - the code translator's data folder written by qxmakedata.
//
// Loads the sixteen files of the build's data folder with the library's own
// classes and checks what translation depends on: every dictionary word comes
// back under its handle and has a map entry with a text in the target word
// list, characters survive GBK -> Unicode -> GBK, the two Unicode sides agree
// handle by handle, and known simplified/traditional pairs convert. The
// expected character data is read from glibc iconv again here.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "IDMaps.h"
#include "TransDataTestUtil.h"
#include "PDAT.h"
#include "WordList.h"

namespace {

const std::string kData = std::string(QX_DATA_DIR) + "/Data/";

using Conv = CIconv;

std::string Utf32(char32_t cp) {
    return {char(cp & 0xFF), char(cp >> 8 & 0xFF), char(cp >> 16 & 0xFF), char(cp >> 24)};
}

// Whether UTF-32LE bytes are exactly one code point of 0x80 or above.
bool IsOneNonAscii(const std::string& utf32) {
    return utf32.size() == 4 && (static_cast<unsigned char>(utf32[0]) >= 0x80 ||
                                 utf32.substr(1) != std::string(3, '\0'));
}

// One encoding's dictionary and word list.
struct Side {
    const char* sEncoding;  // iconv name
    std::unique_ptr<CPDAT> pDict;
    std::unique_ptr<CWordList> pList;
};

struct MapRow {
    const char* sFile;
    const char* sSrc;
    const char* sDst;
    bool bSameText;  // the target is the source's text in the other encoding
};

const MapRow kMaps[] = {
    {"UTF2GBKA.map", "UTF8", "GBKA", true}, {"GBKA2UTF.map", "GBKA", "UTF8", true},
    {"BIG2GBK.map", "BIG5", "GBK", false},  {"GBK2BIG.map", "GBK", "BIG5", false},
    {"GBKA2GBK.map", "GBKA", "GBK", true},  {"GBK2GBKA.map", "GBK", "GBKA", true},
    {"UTF2GBK.map", "UTF8", "GBK", true},   {"GBK2UTF.map", "GBK", "UTF8", true},
};

class TransData : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        const std::pair<const char*, const char*> sides[] = {
            {"GBK", "GBK"}, {"GBKA", "GB18030"}, {"UTF8", "UTF-8"}, {"BIG5", "BIG5"}};
        for (const auto& [name, encoding] : sides) {
            Side& s = Sides()[name];
            s.sEncoding = encoding;
            s.pDict = std::make_unique<CPDAT>(0);
            s.pList = std::make_unique<CWordList>(true, s.pDict.get());
            ASSERT_TRUE(s.pDict->Load((kData + name + ".pdat").c_str())) << name;
            ASSERT_TRUE(s.pList->Load((kData + name + ".wordlist").c_str())) << name;
        }
        for (const MapRow& m : kMaps) {
            auto& p = Maps()[m.sFile];
            p = std::make_unique<CIDMaps>();
            ASSERT_TRUE(p->Load((kData + m.sFile).c_str())) << m.sFile;
        }
    }
    static void TearDownTestSuite() {
        Maps().clear();
        Sides().clear();
    }

    static std::map<std::string, Side>& Sides() {
        static std::map<std::string, Side> sides;
        return sides;
    }
    static std::map<std::string, std::unique_ptr<CIDMaps>>& Maps() {
        static std::map<std::string, std::unique_ptr<CIDMaps>> maps;
        return maps;
    }
    static const CPDAT& Dict(const std::string& side) { return *Sides()[side].pDict; }

    // The translator's step for one handle: first target's word-list text, or "".
    static std::string Target(const MapRow& m, int handle) {
        int n = 0;
        const idmaps_info* targets = Maps()[m.sFile]->GetMaps(handle, &n);
        if (n < 1 || targets[0].handle2 < 0) return "";
        const CWordList& list = *Sides()[m.sDst].pList;
        return targets[0].handle2 < list.GetBound() ? list.GetWord(targets[0].handle2) : "";
    }
    // The same for a word of the source dictionary; "(no word)" when absent.
    static std::string Translate(const MapRow& m, const std::string& word) {
        const int h = Dict(m.sSrc).Find(word.c_str());
        return h < 0 ? "(no word)" : Target(m, h);
    }
    static const MapRow& MapRowOf(const std::string& file) {
        for (const MapRow& m : kMaps)
            if (file == m.sFile) return m;
        throw std::logic_error("no map " + file);
    }
};

// Whether a word of a side holds an ASCII byte as a character of its own.
bool HasAsciiCharacter(const std::string& side, const std::string& w) {
    for (size_t i = 0; i < w.size();) {
        const auto b = static_cast<unsigned char>(w[i]);
        if (b < 0x80) return true;
        if (side == "UTF8")
            i += 1;
        else if (side == "GBKA" && i + 1 < w.size() && w[i + 1] >= '0' && w[i + 1] <= '9')
            i += 4;
        else
            i += 2;
    }
    return false;
}

TEST_F(TransData, DictionariesHaveTheirModesAndOnlyNonAsciiWords) {
    const std::pair<const char*, int> modes[] = {{"GBK", 2}, {"GBKA", 2}, {"UTF8", 1}, {"BIG5", 2}};
    for (const auto& [name, charLen] : modes) {
        SCOPED_TRACE(name);
        const CPDAT& d = Dict(name);
        const CWordList& list = *Sides()[name].pList;
        int n = 0;
        d.GetCharCode("\xB0\xA1", 0, 2, &n);  // mode 0 reads a two-byte character, mode 1 a byte
        EXPECT_EQ(charLen, n);
        ASSERT_GT(d.GetItemCount(), 10000u);
        ASSERT_GE(list.GetBound(), static_cast<int>(d.GetItemCount()));
        for (int c = 1; c < 0x80; ++c) EXPECT_LT(d.Find(std::string(1, char(c)).c_str()), 0) << c;
        for (int h = 0; h < static_cast<int>(d.GetItemCount()); ++h) {
            const std::string w = list.GetWord(h);
            ASSERT_EQ(h, d.Find(w.c_str())) << "handle " << h;
            ASSERT_FALSE(HasAsciiCharacter(name, w)) << "handle " << h;
        }
    }
}

// Every GBK character, enumerated with iconv, through both Unicode sides and back.
TEST_F(TransData, EveryGbkCharacterRoundTripsThroughUnicode) {
    Conv toCp("UTF-32LE", "GBK"), fromCp("GBK", "UTF-32LE");
    std::vector<std::string> chars = {"\x80"};  // glibc's euro sign
    for (int lead = 0x81; lead <= 0xFE; ++lead)
        for (int trail = 0x40; trail <= 0xFE; ++trail)
            if (trail != 0x7F) chars.push_back({char(lead), char(trail)});
    const std::pair<const char*, const char*> routes[] = {{"GBK2UTF.map", "UTF2GBK.map"},
                                                          {"GBK2GBKA.map", "GBKA2GBK.map"}};
    for (const auto& [there, back] : routes) {
        const MapRow &mThere = MapRowOf(there), &mBack = MapRowOf(back);
        Conv toTarget(Sides()[mThere.sDst].sEncoding, "UTF-32LE");
        size_t nChars = 0;
        std::string cp, expected, canonical;
        for (const std::string& c : chars) {
            if (!toCp.Convert(c, cp) || !IsOneNonAscii(cp)) continue;
            ++nChars;
            ASSERT_TRUE(toTarget.Convert(cp, expected) && fromCp.Convert(cp, canonical));
            const std::string target = Translate(mThere, c);
            ASSERT_EQ(expected, target) << there << " of GBK " << testing::PrintToString(c);
            ASSERT_EQ(canonical, Translate(mBack, target)) << back;
        }
        EXPECT_GT(nChars, 21000u);
    }
}

TEST_F(TransData, KnownTraditionalSimplifiedPairsConvert) {
    struct Row {
        const char* sMap;
        const char* sFrom;
        const char* sTo;
    };
    const Row rows[] = {
        // characters: BIG5 發 -> GBK 发 -> BIG5 發 (the first of 發 髮)
        {"BIG2GBK.map", "\xB5\x6F", "\xB7\xA2"},
        {"GBK2BIG.map", "\xB7\xA2", "\xB5\x6F"},
        // a traditional -> simplified phrase: BIG5 計畫 -> GBK 计划
        {"BIG2GBK.map", "\xAD\x70\xB5\x65", "\xBC\xC6\xBB\xAE"},
        // simplified -> traditional phrases: GBK 计划 -> BIG5 計劃, 头发 -> 頭髮, 后面 -> 後面
        {"GBK2BIG.map", "\xBC\xC6\xBB\xAE", "\xAD\x70\xB9\xBA"},
        {"GBK2BIG.map", "\xCD\xB7\xB7\xA2", "\xC0\x59\xBE\x76"},
        {"GBK2BIG.map", "\xBA\xF3\xC3\xE6", "\xAB\xE1\xAD\xB1"},
        // and back character by character: BIG5 計劃 -> 计划, 頭髮 -> 头发, 後面 -> 后面
        {"BIG2GBK.map", "\xAD\x70\xB9\xBA", "\xBC\xC6\xBB\xAE"},
        {"BIG2GBK.map", "\xC0\x59\xBE\x76", "\xCD\xB7\xB7\xA2"},
        {"BIG2GBK.map", "\xAB\xE1\xAD\xB1", "\xBA\xF3\xC3\xE6"},
    };
    for (const Row& r : rows)
        EXPECT_EQ(r.sTo, Translate(MapRowOf(r.sMap), r.sFrom))
            << r.sMap << " " << testing::PrintToString(std::string(r.sFrom));
}

TEST_F(TransData, UnicodeSidesShareHandles) {
    const CPDAT &utf8 = Dict("UTF8"), &gbka = Dict("GBKA");
    ASSERT_EQ(utf8.GetItemCount(), gbka.GetItemCount());
    Conv fromUtf8("UTF-32LE", "UTF-8"), fromGbka("UTF-32LE", "GB18030");
    std::string a, b;
    for (int h = 0; h < static_cast<int>(utf8.GetItemCount()); ++h) {
        ASSERT_TRUE(fromUtf8.Convert(Sides()["UTF8"].pList->GetWord(h), a)) << h;
        ASSERT_TRUE(fromGbka.Convert(Sides()["GBKA"].pList->GetWord(h), b)) << h;
        ASSERT_EQ(a, b) << "handle " << h;
        ASSERT_EQ(Sides()["GBKA"].pList->GetWord(h), Target(MapRowOf("UTF2GBKA.map"), h)) << h;
        ASSERT_EQ(Sides()["UTF8"].pList->GetWord(h), Target(MapRowOf("GBKA2UTF.map"), h)) << h;
    }
    // Plane 2 and 3 characters: present in both, beyond GBK.
    Conv toUtf8("UTF-8", "UTF-32LE"), toGbka("GB18030", "UTF-32LE");
    for (char32_t cp : {0x20000, 0x2A6D6, 0x2F800, 0x30000, 0x3FFFD}) {
        ASSERT_TRUE(toUtf8.Convert(Utf32(cp), a) && toGbka.Convert(Utf32(cp), b));
        EXPECT_GE(utf8.Find(a.c_str()), 0) << std::hex << cp;
        EXPECT_EQ(utf8.Find(a.c_str()), gbka.Find(b.c_str())) << std::hex << cp;
        EXPECT_EQ("", Translate(MapRowOf("UTF2GBK.map"), a)) << std::hex << cp;
    }
}

// Every handle of every map's source gets a text, except a character whose
// code point the target encoding cannot write. Same-text targets decode to
// the source's code points.
TEST_F(TransData, EveryHandleHasATarget) {
    for (const MapRow& m : kMaps) {
        SCOPED_TRACE(m.sFile);
        Conv srcToCp("UTF-32LE", Sides()[m.sSrc].sEncoding);
        Conv dstToCp("UTF-32LE", Sides()[m.sDst].sEncoding);
        Conv cpToDst(Sides()[m.sDst].sEncoding, "UTF-32LE");
        const CWordList& src = *Sides()[m.sSrc].pList;
        size_t nMissing = 0;
        std::string cp, dstCp, dst;
        for (int h = 0; h < static_cast<int>(Dict(m.sSrc).GetItemCount()); ++h) {
            ASSERT_TRUE(srcToCp.Convert(src.GetWord(h), cp)) << h;
            const std::string target = Target(m, h);
            if (target.empty()) {
                ASSERT_EQ(4u, cp.size()) << "phrase without target, handle " << h;
                ASSERT_FALSE(cpToDst.Convert(cp, dst)) << "character without target, handle " << h;
                ++nMissing;
                continue;
            }
            ASSERT_TRUE(dstToCp.Convert(target, dstCp)) << h;
            if (m.bSameText) {
                ASSERT_EQ(cp, dstCp) << h;
            }
        }
        EXPECT_LT(nMissing, Dict(m.sSrc).GetItemCount());
    }
}

}  // namespace
