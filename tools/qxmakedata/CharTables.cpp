// CharTables.cpp - iconv conversions and the enumeration of repertoires.
//
// Every conversion goes through UTF-32LE, which iconv reads and writes without
// a byte-order mark, so a code point is four little-endian bytes. A
// descriptor is reset before each use and flushed after it, so no shift state
// carries from one call to the next. An enumeration converts each candidate
// separately: a two-byte candidate is kept when iconv decodes it, as a whole,
// to exactly one code point of 0x80 or above; a Unicode code point is kept
// when both encoders accept it.
#include "CharTables.h"

#include <algorithm>
#include <cerrno>

namespace {

constexpr const char* kCodePoints = "UTF-32LE";

std::string ToUtf32(const std::u32string& text) {
    std::string s;
    s.reserve(text.size() * 4);
    for (char32_t c : text)
        for (int k = 0; k < 4; ++k) s.push_back(static_cast<char>((c >> (8 * k)) & 0xFF));
    return s;
}

std::u32string FromUtf32(const std::string& s) {
    std::u32string text;
    text.reserve(s.size() / 4);
    for (size_t i = 0; i + 3 < s.size(); i += 4) {
        char32_t c = 0;
        for (int k = 3; k >= 0; --k) c = c << 8 | static_cast<unsigned char>(s[i + k]);
        text.push_back(c);
    }
    return text;
}

// Trail byte ranges (inclusive) of the two-byte encodings.
struct TrailRange {
    unsigned char lo, hi;
};
const TrailRange kGbkTrails[] = {{0x40, 0x7E}, {0x80, 0xFE}};
const TrailRange kBig5Trails[] = {{0x40, 0x7E}, {0xA1, 0xFE}};

// Adds bytes to out when they decode to one non-ASCII code point.
void KeepIfCharacter(CCodec& cCodec, std::string bytes, std::vector<_stCharacter>& out) {
    std::u32string text;
    if (cCodec.Decode(bytes, text) && text.size() == 1 && text[0] >= 0x80)
        out.push_back({std::move(bytes), text[0]});
}

}  // namespace

// ---- CCodec -----------------------------------------------------------------------

CCodec::CCodec(const char* sEncoding)
    : m_sName(sEncoding), m_cEncode(sEncoding, kCodePoints), m_cDecode(kCodePoints, sEncoding) {}

bool CCodec::Encode(const std::u32string& text, std::string& out) {
    const std::string s = ToUtf32(text);
    return m_cEncode.Convert(s.data(), s.size(), out);
}

bool CCodec::Encode(char32_t cp, std::string& out) {
    return Encode(std::u32string(1, cp), out);
}

bool CCodec::Decode(const std::string& bytes, std::u32string& out) {
    out.clear();
    if (!m_cDecode.Convert(bytes.data(), bytes.size(), m_sBuf)) return false;
    out = FromUtf32(m_sBuf);
    return true;
}

// ---- Repertoires ------------------------------------------------------------------

std::vector<_stCharacter> ReadDoubleByteCharacters(CCodec& cCodec, bool bBig5,
                                                   const std::vector<unsigned char>& vSingles) {
    std::vector<_stCharacter> out;
    if (!cCodec.IsOpen()) return out;
    for (unsigned char b : vSingles) KeepIfCharacter(cCodec, std::string(1, char(b)), out);
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead)
        for (const TrailRange& r : bBig5 ? kBig5Trails : kGbkTrails)
            for (unsigned trail = r.lo; trail <= r.hi; ++trail)
                KeepIfCharacter(cCodec, {char(lead), char(trail)}, out);
    return out;
}

std::vector<char32_t> ReadUnicodeRepertoire(CCodec& cFirst, CCodec& cSecond,
                                            const std::vector<char32_t>& vSkip) {
    std::vector<char32_t> out;
    if (!cFirst.IsOpen() || !cSecond.IsOpen()) return out;
    std::string bytes;
    auto consider = [&](char32_t cp) {
        if (std::find(vSkip.begin(), vSkip.end(), cp) != vSkip.end()) return;
        if (cFirst.Encode(cp, bytes) && cSecond.Encode(cp, bytes)) out.push_back(cp);
    };
    for (char32_t cp = 0x80; cp <= 0xFFFF; ++cp)
        if (cp < 0xD800 || cp > 0xDFFF) consider(cp);
    for (char32_t cp = 0x20000; cp <= 0x3FFFF; ++cp) consider(cp);
    return out;
}

bool HasAscii(std::u32string_view text) {
    return std::any_of(text.begin(), text.end(), [](char32_t c) { return c < 0x80; });
}

// ---- CCharSet ---------------------------------------------------------------------

CCharSet::CCharSet(std::vector<char32_t> vCodePoints) : m_vSorted(std::move(vCodePoints)) {
    std::sort(m_vSorted.begin(), m_vSorted.end());
    m_vSorted.erase(std::unique(m_vSorted.begin(), m_vSorted.end()), m_vSorted.end());
}

bool CCharSet::Holds(char32_t cp) const {
    return std::binary_search(m_vSorted.begin(), m_vSorted.end(), cp);
}

bool CCharSet::HoldsAll(std::u32string_view text) const {
    return std::all_of(text.begin(), text.end(), [this](char32_t c) { return Holds(c); });
}
