// DataFolder.cpp - planning and writing the translator's data folder.
//
// Everything is planned in memory first. A Side is one encoding's word set in
// handle order (bytes and code points side by side); a MapPlan lists, per
// source handle, the target text in the target encoding's bytes. Planning
// runs in this order: repertoires from iconv, OpenCC tables, phrase
// admission, the four sides, the eight map plans, and last the word-list-only
// ids, because a target side's extra texts come from every map that targets
// it. Writing then builds each CPDAT with explicit handles, checks that every
// word looks up to its own handle, and saves it, its word list and the maps.
// All containers iterated are ordered (vectors in handle order, std::map and
// std::set by bytes; the one hash map is only looked up), so the output
// depends on nothing but the inputs.
#include "DataFolder.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <system_error>
#include <unordered_map>

#include "CharTables.h"
#include "ChineseVariants.h"
#include "IDMaps.h"
#include "PDAT.h"
#include "WordList.h"

namespace {

namespace fs = std::filesystem;

// U+FEFF is left out of the Unicode sides: its UTF-8 form is the byte-order
// mark, which the dictionary skips in every word it adds or looks up.
constexpr char32_t kByteOrderMark = 0xFEFF;
// GBK's one single-byte character (glibc reads 0x80 as the euro sign).
constexpr unsigned char kGbkSingle = 0x80;

const char* const kTables[] = {"STCharacters", "STPhrases", "TSCharacters", "TSPhrases"};

bool Fail(std::string& sError, const std::string& sWhy) {
    sError = sWhy;
    return false;
}

// One encoding's dictionary and word list.
struct Side {
    Side(const char* name, int mode, CCodec* codec) : sName(name), nMode(mode), pCodec(codec) {}

    const char* sName;  // file name stem
    int nMode;          // dictionary character mode
    CCodec* pCodec;
    std::vector<std::string> vWords;                // handle -> bytes
    std::vector<std::u32string> vTexts;             // handle -> code points
    std::unordered_map<std::string, int> mHandles;  // bytes -> handle (lookups only)
    std::vector<std::string> vExtras;               // word-list-only texts; id = word count + index

    // Appends a word under the next handle; false for a repeated word.
    bool Add(const std::string& bytes, const std::u32string& text) {
        if (!mHandles.emplace(bytes, static_cast<int>(vWords.size())).second) return false;
        vWords.push_back(bytes);
        vTexts.push_back(text);
        return true;
    }
    // Handle or word-list-only id of a text; -1 when it has neither.
    int IdOf(const std::string& bytes) const {
        auto it = mHandles.find(bytes);
        if (it != mHandles.end()) return it->second;
        auto x = std::lower_bound(vExtras.begin(), vExtras.end(), bytes);
        if (x == vExtras.end() || *x != bytes) return -1;
        return static_cast<int>(vWords.size() + (x - vExtras.begin()));
    }
};

// One id map: target text (target encoding's bytes) per source handle.
struct MapPlan {
    const char* sFile;
    const Side* pSrc;
    Side* pDst;
    std::vector<std::pair<int, std::string>> vTargets;
};

// Text of a source word -> text in the target's variant; false for none.
using TextRule = std::function<bool(const std::u32string&, std::u32string&)>;

struct Codecs {
    CCodec cGbk{"GBK"}, cBig5{"BIG5"}, cGb18030{"GB18030"}, cUtf8{"UTF-8"};

    bool Check(std::string& sError) const {
        for (const CCodec* p : {&cGbk, &cBig5, &cGb18030, &cUtf8})
            if (!p->IsOpen()) return Fail(sError, "iconv cannot convert " + p->Name());
        return true;
    }
};

struct Tables {
    CVariantTable cSTChars, cSTPhrases, cTSChars, cTSPhrases;

    bool Load(const fs::path& dir, CCodec& cUtf8, std::string& sError) {
        CVariantTable* all[] = {&cSTChars, &cSTPhrases, &cTSChars, &cTSPhrases};
        for (size_t i = 0; i < 4; ++i)
            if (!all[i]->Load((dir / (std::string(kTables[i]) + ".txt")).string(), cUtf8, sError))
                return false;
        return true;
    }
};

// Code points of chars that the codec writes back (the characters it holds).
CCharSet HeldSet(const std::vector<_stCharacter>& vChars, CCodec& cCodec) {
    std::vector<char32_t> held;
    std::string bytes;
    for (const _stCharacter& c : vChars)
        if (cCodec.Encode(c.cp, bytes)) held.push_back(c.cp);
    return CCharSet(std::move(held));
}

// Characters in byte order, then the phrases sorted by their bytes.
bool FillTwoByteSide(Side& side, const std::vector<_stCharacter>& vChars,
                     const std::set<std::u32string>& phrases) {
    for (const _stCharacter& c : vChars)
        if (!side.Add(c.sBytes, std::u32string(1, c.cp))) return false;
    std::map<std::string, std::u32string> byBytes;
    std::string bytes;
    for (const std::u32string& p : phrases)
        if (side.pCodec->Encode(p, bytes)) byBytes.emplace(bytes, p);
    for (const auto& [b, p] : byBytes)
        if (!side.Add(b, p)) return false;
    return true;
}

// The same characters under the same handles in both sides, by code point.
// No phrases: these sides translate character by character (a phrase of the
// GBK side maps to a word-list-only text here), which keeps their
// segmentation free of phrase look-ahead.
bool FillUnicodeSides(Side& first, Side& second, const std::vector<char32_t>& vCodePoints) {
    std::string a, b;
    for (char32_t cp : vCodePoints) {
        const std::u32string text(1, cp);
        if (!first.pCodec->Encode(text, a) || !second.pCodec->Encode(text, b) ||
            !first.Add(a, text) || !second.Add(b, text))
            return false;
    }
    return true;
}

// The variant rule of a map: characters by the character rule, longer words
// by the segment conversion.
TextRule VariantRule(const CVariantConverter& cConv) {
    return [&cConv](const std::u32string& text, std::u32string& out) {
        if (text.size() != 1) return cConv.Convert(text, out);
        char32_t c;
        if (!cConv.ConvertChar(text[0], c)) return false;
        out.assign(1, c);
        return true;
    };
}

bool SameText(const std::u32string& text, std::u32string& out) {
    out = text;
    return true;
}

void PlanMap(MapPlan& plan, const TextRule& rule) {
    std::u32string out;
    std::string bytes;
    const Side& src = *plan.pSrc;
    for (size_t h = 0; h < src.vTexts.size(); ++h)
        if (rule(src.vTexts[h], out) && plan.pDst->pCodec->Encode(out, bytes))
            plan.vTargets.emplace_back(static_cast<int>(h), bytes);
}

// Gives every target text that is no word of its side a word-list-only id.
void AssignExtras(const std::vector<MapPlan>& vPlans, const std::vector<Side*>& vSides) {
    std::map<const Side*, std::set<std::string>> extras;
    for (const MapPlan& plan : vPlans)
        for (const auto& target : plan.vTargets)
            if (!plan.pDst->mHandles.count(target.second)) extras[plan.pDst].insert(target.second);
    for (Side* side : vSides) {
        const std::set<std::string>& texts = extras[side];
        side->vExtras.assign(texts.begin(), texts.end());
    }
}

// ---- Writing ----------------------------------------------------------------------

bool BuildDictionary(const Side& side, CPDAT& dict, std::string& sError) {
    const std::string name = std::string(side.sName) + ".pdat";
    for (size_t h = 0; h < side.vWords.size(); ++h)
        if (dict.AddWord(side.vWords[h].c_str(), static_cast<int>(h), false) != int(h))
            return Fail(sError, name + ": cannot add word " + std::to_string(h));
    if (!dict.AddWordComplete()) return Fail(sError, name + ": out of memory");
    for (size_t h = 0; h < side.vWords.size(); ++h)
        if (dict.Find(side.vWords[h].c_str()) != int(h))
            return Fail(sError, name + ": word " + std::to_string(h) + " is not found again");
    return true;
}

bool WriteSide(const Side& side, const fs::path& dir, std::vector<_stFileSummary>& vSummary,
               std::string& sError) {
    CPDAT dict(side.nMode);
    if (!BuildDictionary(side, dict, sError)) return false;
    const std::string stem = side.sName;
    if (!dict.Save((dir / (stem + ".pdat")).string().c_str()))
        return Fail(sError, "cannot write " + (dir / (stem + ".pdat")).string());
    vSummary.push_back({stem + ".pdat", "words", side.vWords.size()});

    CWordList list(true, &dict);
    const int nWords = static_cast<int>(side.vWords.size());
    bool bOk = true;
    for (int h = 0; h < nWords; ++h) bOk = bOk && list.AddWord(side.vWords[h].c_str(), h);
    for (size_t i = 0; i < side.vExtras.size(); ++i)
        bOk = bOk && list.AddWord(side.vExtras[i].c_str(), nWords + static_cast<int>(i));
    if (!bOk) return Fail(sError, stem + ".wordlist: out of memory");
    if (!list.Save((dir / (stem + ".wordlist")).string().c_str()))
        return Fail(sError, "cannot write " + (dir / (stem + ".wordlist")).string());
    vSummary.push_back({stem + ".wordlist", "ids", side.vWords.size() + side.vExtras.size()});
    return true;
}

bool WriteMap(const MapPlan& plan, const fs::path& dir, std::vector<_stFileSummary>& vSummary,
              std::string& sError) {
    CIDMaps map;
    bool bOk = map.MapInit();
    for (const auto& [h, bytes] : plan.vTargets) bOk = bOk && map.MapAdd(h, plan.pDst->IdOf(bytes));
    if (!bOk || !map.MapComplete())
        return Fail(sError, std::string(plan.sFile) + ": out of memory");
    if (!map.Save((dir / plan.sFile).string().c_str()))
        return Fail(sError, "cannot write " + (dir / plan.sFile).string());
    vSummary.push_back({plan.sFile, "pairs", plan.vTargets.size()});
    return true;
}

// The phrase words of each two-byte side from the admitted pairs.
void CollectPhrases(const std::vector<_stPhrasePair>& vTS, const std::vector<_stPhrasePair>& vST,
                    std::set<std::u32string>& gbk, std::set<std::u32string>& big5) {
    for (const _stPhrasePair& p : vTS) {
        big5.insert(p.sKey);
        if (p.sValue.size() >= 2) gbk.insert(p.sValue);
    }
    for (const _stPhrasePair& p : vST) {
        gbk.insert(p.sKey);
        if (p.sValue.size() >= 2) big5.insert(p.sValue);
    }
}

}  // namespace

bool MakeDataFolder(const std::string& sOpenCCDir, const std::string& sOutDir,
                    std::vector<_stFileSummary>& vSummary, std::string& sError) {
    vSummary.clear();
    Codecs c;
    Tables t;
    if (!c.Check(sError) || !t.Load(sOpenCCDir, c.cUtf8, sError)) return false;

    const auto gbkChars = ReadDoubleByteCharacters(c.cGbk, false, {kGbkSingle});
    const auto big5Chars = ReadDoubleByteCharacters(c.cBig5, true, {});
    const auto uniChars = ReadUnicodeRepertoire(c.cGb18030, c.cUtf8, {kByteOrderMark});
    if (gbkChars.empty() || big5Chars.empty() || uniChars.empty())
        return Fail(sError, "iconv gives no characters");
    const CCharSet gbkHeld = HeldSet(gbkChars, c.cGbk), big5Held = HeldSet(big5Chars, c.cBig5);
    const CVariantConverter t2s(t.cTSPhrases, t.cTSChars, gbkHeld);
    const CVariantConverter s2t(t.cSTPhrases, t.cSTChars, big5Held);

    std::set<std::u32string> gbkPhrases, big5Phrases;
    CollectPhrases(AdmitPhrases(t.cTSPhrases, big5Held, gbkHeld, s2t),
                   AdmitPhrases(t.cSTPhrases, gbkHeld, big5Held, t2s), gbkPhrases, big5Phrases);
    Side gbk("GBK", 0, &c.cGbk), big5("BIG5", 0, &c.cBig5);
    Side gbka("GBKA", 0, &c.cGb18030), utf8("UTF8", 1, &c.cUtf8);
    if (!FillTwoByteSide(gbk, gbkChars, gbkPhrases) ||
        !FillTwoByteSide(big5, big5Chars, big5Phrases) || !FillUnicodeSides(gbka, utf8, uniChars))
        return Fail(sError, "a character or phrase is listed twice");

    std::vector<MapPlan> plans = {
        {"UTF2GBKA.map", &utf8, &gbka, {}}, {"GBKA2UTF.map", &gbka, &utf8, {}},
        {"BIG2GBK.map", &big5, &gbk, {}},   {"GBK2BIG.map", &gbk, &big5, {}},
        {"GBKA2GBK.map", &gbka, &gbk, {}},  {"GBK2GBKA.map", &gbk, &gbka, {}},
        {"UTF2GBK.map", &utf8, &gbk, {}},   {"GBK2UTF.map", &gbk, &utf8, {}}};
    for (MapPlan& plan : plans) {
        const bool bBig5ToGbk = plan.pSrc == &big5, bGbkToBig5 = plan.pDst == &big5;
        PlanMap(plan, bBig5ToGbk   ? VariantRule(t2s)
                      : bGbkToBig5 ? VariantRule(s2t)
                                   : TextRule(SameText));
    }
    AssignExtras(plans, {&gbk, &gbka, &utf8, &big5});

    std::error_code ec;
    fs::create_directories(sOutDir, ec);
    if (ec) return Fail(sError, "cannot create " + sOutDir + ": " + ec.message());
    for (const Side* side : {&gbk, &gbka, &utf8, &big5})
        if (!WriteSide(*side, sOutDir, vSummary, sError)) return false;
    for (const MapPlan& plan : plans)
        if (!WriteMap(plan, sOutDir, vSummary, sError)) return false;
    return true;
}
