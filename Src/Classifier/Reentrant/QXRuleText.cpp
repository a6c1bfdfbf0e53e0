// QXRuleText.cpp - encoding detection and UTF-8 to GBK conversion of rule
// lists.
//
// UTF-8 is decoded here, strictly (RFC 3629: no overlong forms, no
// surrogates, nothing above U+10FFFF), one character at a time. ASCII is
// copied; any other character is converted by iconv from UTF-32 to GBK,
// with a cache per call because rule lists repeat their characters. The
// source offset of each character is written once per GBK byte it becomes.
// GBK lists are only checked, against glibc's own GBK table (the one the
// translator and the documents' conversion use).
#include "QXRuleText.h"

#include <algorithm>
#include <cstdio>
#include <unordered_map>

#include "Iconv.h"

namespace qx {
namespace {

constexpr unsigned char kBom[] = {0xEF, 0xBB, 0xBF};

bool InRange(unsigned char c, unsigned char lo, unsigned char hi) {
    return c >= lo && c <= hi;
}

// Length of the valid UTF-8 sequence at p (n bytes left) and its code point
// in cp; 0 when the bytes there are not a valid sequence.
size_t Utf8Sequence(const unsigned char* p, size_t n, char32_t& cp) {
    const unsigned char c = p[0];
    if (c < 0x80) return cp = c, 1;
    size_t len;
    unsigned char lo = 0x80, hi = 0xBF;  // the second byte's range
    if (InRange(c, 0xC2, 0xDF)) {
        len = 2, cp = c & 0x1F;
    } else if (InRange(c, 0xE0, 0xEF)) {
        len = 3, cp = c & 0x0F;
        if (c == 0xE0) lo = 0xA0;
        if (c == 0xED) hi = 0x9F;
    } else if (InRange(c, 0xF0, 0xF4)) {
        len = 4, cp = c & 0x07;
        if (c == 0xF0) lo = 0x90;
        if (c == 0xF4) hi = 0x8F;
    } else {
        return 0;
    }
    if (n < len || !InRange(p[1], lo, hi)) return 0;
    for (size_t i = 1; i < len; ++i) {
        if (!InRange(p[i], 0x80, 0xBF)) return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    return len;
}

bool StartsWithBom(std::string_view b) {
    return b.size() >= 3 && b.compare(0, 3, reinterpret_cast<const char*>(kBom), 3) == 0;
}

void Add(std::vector<Diagnostic>& vDiags, const std::string& sFile, const CLineTable& lines,
         size_t nOffset, Severity e, const std::string& sMessage) {
    Diagnostic d{sFile, 0, 0, e, sMessage};
    lines.Position(nOffset, d.nLine, d.nColumn);
    vDiags.push_back(std::move(d));
}

std::string Hex(unsigned v, int nDigits) {
    char s[16];
    std::snprintf(s, sizeof s, "%0*X", nDigits, v);
    return s;
}

// Which two-byte sequences glibc's GBK table holds, by (lead << 8 | trail);
// built once (thread-safe static initialisation).
const std::vector<bool>& GbkPairs() {
    static const std::vector<bool> vPairs = [] {
        std::vector<bool> v(65536, false);
        CIconv toUtf32("UTF-32LE", "GBK");
        std::string sOut;
        for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
            for (unsigned trail = 0x40; trail <= 0xFE; ++trail) {
                const char pair[2] = {char(lead), char(trail)};
                v[lead << 8 | trail] = toUtf32.Convert(pair, 2, sOut) && sOut.size() == 4;
            }
        }
        return v;
    }();
    return vPairs;
}

// GBK as glibc reads it: ASCII, 80 (the euro sign) and the pairs of its table.
void CheckGbk(std::string_view b, const std::string& sFile, const CLineTable& lines,
              std::vector<Diagnostic>& vDiags) {
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    const std::vector<bool>& vPairs = GbkPairs();
    for (size_t i = 0; i < b.size(); ++i) {
        if (p[i] <= 0x80) continue;
        if (i + 1 < b.size() && vPairs[p[i] << 8 | p[i + 1]]) {
            ++i;
            continue;
        }
        Add(vDiags, sFile, lines, i, Severity::kWarning,
            "byte 0x" + Hex(p[i], 2) + " is not valid GBK");
    }
}

void ConvertUtf8(std::string_view b, size_t nFrom, const std::string& sFile,
                 const CLineTable& lines, RuleText& out, std::vector<Diagnostic>& vDiags) {
    CIconv toGbk("GBK", "UTF-32LE");
    std::unordered_map<char32_t, std::string> cache;
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    std::string sGbk;
    for (size_t i = nFrom; i < b.size();) {
        char32_t cp = 0;
        const size_t len = Utf8Sequence(p + i, b.size() - i, cp);
        const std::string* pOut = &sGbk;
        if (len == 0) {
            Add(vDiags, sFile, lines, i, Severity::kWarning,
                "byte 0x" + Hex(p[i], 2) + " is not valid UTF-8");
            sGbk = kNoGbkPlaceholder;
        } else if (cp < 0x80) {
            sGbk.assign(1, static_cast<char>(cp));
        } else {
            auto it = cache.find(cp);
            if (it == cache.end()) {
                const char s32[4] = {char(cp), char(cp >> 8), char(cp >> 16), char(cp >> 24)};
                std::string sConv;
                if (!toGbk.Convert(s32, 4, sConv)) sConv.clear();
                it = cache.emplace(cp, sConv).first;
            }
            if (it->second.empty()) {
                Add(vDiags, sFile, lines, i, Severity::kError,
                    "character U+" + Hex(cp, 4) + " (" + std::string(b.substr(i, len)) +
                        ") has no GBK form");
                sGbk = kNoGbkPlaceholder;
            } else {
                pOut = &it->second;
            }
        }
        out.sGbk += *pOut;
        out.vSource.insert(out.vSource.end(), pOut->size(), static_cast<uint32_t>(i));
        i += len == 0 ? 1 : len;
    }
}

}  // namespace

size_t RuleText::SourceOffset(size_t nGbk) const {
    if (!bUtf8) return nGbk + nSkipped;
    return nGbk < vSource.size() ? vSource[nGbk]
                                 : (vSource.empty() ? nSkipped : vSource.back() + 1);
}

RuleEncoding DetectRuleEncoding(std::string_view b) {
    if (StartsWithBom(b)) return RuleEncoding::kUtf8;
    bool bMultiByte = false;
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    for (size_t i = 0; i < b.size();) {
        char32_t cp;
        const size_t len = Utf8Sequence(p + i, b.size() - i, cp);
        if (len == 0) return RuleEncoding::kGbk;
        bMultiByte |= len > 1;
        i += len;
    }
    return bMultiByte ? RuleEncoding::kUtf8 : RuleEncoding::kGbk;
}

bool DecodeRuleText(std::string_view bytes, RuleEncoding eEncoding, const std::string& sFile,
                    RuleText& out, std::vector<Diagnostic>& vDiags) {
    out = RuleText();
    if (eEncoding == RuleEncoding::kAuto) eEncoding = DetectRuleEncoding(bytes);
    const CLineTable lines(bytes);
    const size_t nBefore = vDiags.size();
    if (eEncoding == RuleEncoding::kGbk) {
        CheckGbk(bytes, sFile, lines, vDiags);
        out.sGbk.assign(bytes);
    } else {
        out.bUtf8 = true;
        out.nSkipped = StartsWithBom(bytes) ? 3 : 0;
        ConvertUtf8(bytes, out.nSkipped, sFile, lines, out, vDiags);
    }
    return std::none_of(vDiags.begin() + static_cast<std::ptrdiff_t>(nBefore), vDiags.end(),
                        [](const Diagnostic& d) { return d.eSeverity == Severity::kError; });
}

}  // namespace qx
