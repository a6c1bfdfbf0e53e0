// ChineseVariants.h - simplified/traditional Chinese variants from OpenCC's
// conversion tables, and the conversion of one text segment with them.
//
// A table is OpenCC's text dump of one dictionary ("opencc_dict ... -t text"):
// UTF-8 lines "key<TAB>cand1 cand2 ...". Only the first candidate (the first
// blank-separated token) is used. Entries are kept sorted by key, so nothing
// depends on the order of the file's lines.
//
// Conversion of a segment (as OpenCC converts one segment): from left to
// right, the longest phrase-table key that starts at the position gives its
// first candidate; otherwise the character's character-table candidate if
// the target encoding holds it, else the character itself if the target
// holds it; else the segment is not convertible. A phrase candidate with a
// character the target does not hold makes the segment not convertible too,
// so every converted text can be written in the target encoding.
//
// Ownership: tables own their entries; a converter borrows its tables and
// character set, which must outlive it. Thread-safety: none needed; all
// lookups are const.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "CharTables.h"

// One OpenCC table: key -> first candidate, in code points.
class CVariantTable {
  public:
    // Replaces the table by the file at sPath. False, with the table empty
    // and sError "<path>: <reason>" or "<path>:<line>: <reason>", when the
    // file cannot be read or has no entries, or a line has no tab, an empty
    // key or candidate, or bytes that are not UTF-8. A key listed twice
    // keeps the smallest candidate. Blank lines and a last line without
    // "\n" are fine.
    bool Load(const std::string& sPath, CCodec& cUtf8, std::string& sError);

    // The first candidate of key, or null.
    const std::u32string* Find(std::u32string_view key) const;
    // The entries in key order.
    const std::map<std::u32string, std::u32string, std::less<>>& Entries() const {
        return m_mEntries;
    }
    // Length of the longest key, in code points (0 for an empty table).
    size_t MaxKeyLength() const { return m_nMaxKey; }

  private:
    std::map<std::u32string, std::u32string, std::less<>> m_mEntries;
    size_t m_nMaxKey = 0;
};

// Converts segments into the variant a target encoding holds.
class CVariantConverter {
  public:
    // Phrases and characters: the tables of one direction (e.g. TSPhrases and
    // TSCharacters); cTarget: the code points of the target encoding.
    CVariantConverter(const CVariantTable& cPhrases, const CVariantTable& cChars,
                      const CCharSet& cTarget)
        : m_cPhrases(cPhrases), m_cChars(cChars), m_cTarget(cTarget) {}

    // The conversion of text (see the file comment) into out. False when it
    // is not convertible (out unspecified). Empty text gives true and "".
    bool Convert(std::u32string_view text, std::u32string& out) const;

    // One character without the phrase table: its character-table candidate
    // if that is one character the target holds, else itself if held. False
    // when neither is.
    bool ConvertChar(char32_t cp, char32_t& out) const;

  private:
    const CVariantTable& m_cPhrases;
    const CVariantTable& m_cChars;
    const CCharSet& m_cTarget;
};

// An admitted phrase pair: a table key and its first candidate.
struct _stPhrasePair {
    std::u32string sKey;
    std::u32string sValue;
};

// The entries (k -> v) of cPhrases, in key order, that may become words: k
// has at least two characters, neither k nor v has an ASCII character, the
// key side holds every character of k, the value side every character of v,
// and cBack converts v (back towards the key side).
std::vector<_stPhrasePair> AdmitPhrases(const CVariantTable& cPhrases, const CCharSet& cKeySide,
                                        const CCharSet& cValueSide, const CVariantConverter& cBack);
