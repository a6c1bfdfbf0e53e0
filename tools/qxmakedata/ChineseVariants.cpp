// ChineseVariants.cpp - reading OpenCC tables and converting segments.
//
// A table file is read whole; each line is cut at its first tab into key and
// candidates, the candidates at their first blank, and both parts are decoded
// from UTF-8 with iconv into code points. Entries go into a map ordered by
// key, which also answers the converter's lookups by string view. The
// converter tries, at each position, the phrase keys from the longest the
// table has down to one, then the character rules.
#include "ChineseVariants.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace {

bool Fail(std::string& sError, const std::string& sWhere, const std::string& sWhy) {
    sError = sWhere + ": " + sWhy;
    return false;
}

// The bytes of the file at sPath; false when it cannot be opened or read.
bool ReadWhole(const std::string& sPath, std::string& out) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> fp(std::fopen(sPath.c_str(), "rb"),
                                                       &std::fclose);
    if (!fp) return false;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, fp.get())) > 0) out.append(buf, n);
    return !std::ferror(fp.get());
}

// Splits one line into key and first candidate (bytes); false with sWhy set.
bool SplitLine(std::string_view line, std::string& sKey, std::string& sCand, std::string& sWhy) {
    const size_t tab = line.find('\t');
    if (tab == std::string_view::npos) return (sWhy = "no tab between key and candidates"), false;
    std::string_view cands = line.substr(tab + 1);
    const size_t start = cands.find_first_not_of(' ');
    cands = start == std::string_view::npos ? std::string_view() : cands.substr(start);
    cands = cands.substr(0, cands.find(' '));
    sKey.assign(line.substr(0, tab));
    sCand.assign(cands);
    if (sKey.empty()) return (sWhy = "empty key"), false;
    if (sCand.empty()) return (sWhy = "no candidate"), false;
    return true;
}

}  // namespace

// ---- CVariantTable ----------------------------------------------------------------

bool CVariantTable::Load(const std::string& sPath, CCodec& cUtf8, std::string& sError) {
    m_mEntries.clear();
    m_nMaxKey = 0;
    std::string text;
    if (!ReadWhole(sPath, text)) return Fail(sError, sPath, "cannot read");
    std::map<std::u32string, std::u32string, std::less<>> entries;
    size_t nMaxKey = 0, lineNo = 0;
    std::string sKey, sCand, sWhy;
    std::u32string key, cand;
    for (size_t pos = 0; pos < text.size();) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string_view line(text.data() + pos, end - pos);
        pos = end + 1;
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.empty()) continue;
        const std::string where = sPath + ":" + std::to_string(lineNo);
        if (!SplitLine(line, sKey, sCand, sWhy)) return Fail(sError, where, sWhy);
        if (!cUtf8.Decode(sKey, key) || !cUtf8.Decode(sCand, cand))
            return Fail(sError, where, "not UTF-8");
        auto [it, bNew] = entries.emplace(key, cand);
        if (!bNew && cand < it->second) it->second = cand;
        nMaxKey = std::max(nMaxKey, key.size());
    }
    if (entries.empty()) return Fail(sError, sPath, "no entries");
    m_mEntries = std::move(entries);
    m_nMaxKey = nMaxKey;
    return true;
}

const std::u32string* CVariantTable::Find(std::u32string_view key) const {
    auto it = m_mEntries.find(key);
    return it == m_mEntries.end() ? nullptr : &it->second;
}

// ---- CVariantConverter ------------------------------------------------------------

bool CVariantConverter::ConvertChar(char32_t cp, char32_t& out) const {
    const std::u32string* cand = m_cChars.Find(std::u32string_view(&cp, 1));
    if (cand && cand->size() == 1 && m_cTarget.Holds((*cand)[0])) {
        out = (*cand)[0];
        return true;
    }
    out = cp;
    return m_cTarget.Holds(cp);
}

bool CVariantConverter::Convert(std::u32string_view text, std::u32string& out) const {
    out.clear();
    for (size_t i = 0; i < text.size();) {
        size_t n = std::min(m_cPhrases.MaxKeyLength(), text.size() - i);
        const std::u32string* cand = nullptr;
        while (n >= 1 && !(cand = m_cPhrases.Find(text.substr(i, n)))) --n;
        if (cand) {
            if (!m_cTarget.HoldsAll(*cand)) return false;
            out += *cand;
            i += n;
            continue;
        }
        char32_t c;
        if (!ConvertChar(text[i], c)) return false;
        out.push_back(c);
        i += 1;
    }
    return true;
}

// ---- Phrase admission -------------------------------------------------------------

std::vector<_stPhrasePair> AdmitPhrases(const CVariantTable& cPhrases, const CCharSet& cKeySide,
                                        const CCharSet& cValueSide,
                                        const CVariantConverter& cBack) {
    std::vector<_stPhrasePair> out;
    std::u32string back;
    for (const auto& [k, v] : cPhrases.Entries()) {
        if (k.size() < 2 || HasAscii(k) || HasAscii(v)) continue;
        if (!cKeySide.HoldsAll(k) || !cValueSide.HoldsAll(v)) continue;
        if (!cBack.Convert(v, back)) continue;
        out.push_back({k, v});
    }
    return out;
}
