// QXRuleText.cpp - encoding detection and UTF-8 to GBK conversion of rule
// lists.
//
// UTF-8 lists are converted by CToGbk (QXText.h), whose problems become
// diagnostics at their places.
// GBK lists are only checked, against glibc's own GBK table (the one the
// translator and the documents' conversion use).
#include "QXRuleText.h"

#include <algorithm>
#include <cstdio>

#include "Iconv.h"

namespace qx {
namespace {

constexpr unsigned char kBom[] = {0xEF, 0xBB, 0xBF};

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

// "U+XXXX (c)" for the valid multi-byte UTF-8 sequence c.
std::string Named(std::string_view c) {
    unsigned cp = static_cast<unsigned char>(c[0]) & (0x7F >> c.size());
    for (size_t i = 1; i < c.size(); ++i) cp = cp << 6 | (static_cast<unsigned char>(c[i]) & 0x3F);
    return "U+" + Hex(cp, 4) + " (" + std::string(c) + ")";
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

}  // namespace

RuleEncoding DetectRuleEncoding(std::string_view b) {
    if (StartsWithBom(b)) return RuleEncoding::kUtf8;
    bool bMultiByte = false;
    for (size_t i = 0; i < b.size();) {
        const size_t len = Utf8SequenceLength(b.substr(i));
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
        std::vector<TextProblem> vProblems;
        CToGbk(TextEncoding::kUtf8).Convert(bytes, StartsWithBom(bytes) ? 3 : 0, out, vProblems);
        for (const TextProblem& x : vProblems) {
            const std::string_view c = bytes.substr(x.nOffset, x.nLen);
            Add(vDiags, sFile, lines, x.nOffset, x.bInvalid ? Severity::kWarning : Severity::kError,
                x.bInvalid
                    ? "byte 0x" + Hex(static_cast<unsigned char>(c[0]), 2) + " is not valid UTF-8"
                    : "character " + Named(c) + " has no GBK form");
        }
    }
    out.nSourceSize = bytes.size();  // GbkText's for UTF-8; set here for GBK
    return std::none_of(vDiags.begin() + static_cast<std::ptrdiff_t>(nBefore), vDiags.end(),
                        [](const Diagnostic& d) { return d.eSeverity == Severity::kError; });
}

}  // namespace qx
