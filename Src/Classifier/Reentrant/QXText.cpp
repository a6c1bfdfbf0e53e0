// QXText.cpp - character-by-character conversion into GBK.
//
// The source is cut into characters by its own structure (UTF-8 after RFC
// 3629; GB18030 as one byte below 80, two bytes 81..FE + 40..7E|80..FE, or
// four bytes 81..FE + 30..39 + 81..FE + 30..39), then each character other
// than ASCII goes through iconv on its own (source encoding -> GBK). Results
// are cached per character, since texts repeat theirs; a character iconv
// refuses is checked once more against UTF-32 to tell a byte sequence the
// source encoding does not have from a character GBK does not have.
#include "QXText.h"

namespace qx {
namespace {

bool InRange(unsigned char c, unsigned char lo, unsigned char hi) {
    return c >= lo && c <= hi;
}

// Length of the GB18030 sequence at p (n > 0 bytes left) by its structure;
// 1 for a byte that starts none (iconv then finds it invalid).
size_t Gb18030SequenceLength(const unsigned char* p, size_t n) {
    if (p[0] < 0x81 || p[0] > 0xFE || n < 2) return 1;
    if (p[1] >= 0x40 && p[1] != 0x7F && p[1] != 0xFF) return 2;
    const bool bFour = n >= 4 && InRange(p[1], 0x30, 0x39) && InRange(p[2], 0x81, 0xFE) &&
                       InRange(p[3], 0x30, 0x39);
    return bFour ? 4 : 1;
}

}  // namespace

size_t Utf8SequenceLength(std::string_view s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    if (s.empty()) return 0;
    if (p[0] < 0x80) return 1;
    size_t len;
    unsigned char lo = 0x80, hi = 0xBF;  // the second byte's range
    if (InRange(p[0], 0xC2, 0xDF)) {
        len = 2;
    } else if (InRange(p[0], 0xE0, 0xEF)) {
        len = 3, lo = p[0] == 0xE0 ? 0xA0 : 0x80, hi = p[0] == 0xED ? 0x9F : 0xBF;
    } else if (InRange(p[0], 0xF0, 0xF4)) {
        len = 4, lo = p[0] == 0xF0 ? 0x90 : 0x80, hi = p[0] == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (s.size() < len || !InRange(p[1], lo, hi)) return 0;
    for (size_t i = 2; i < len; ++i)
        if (!InRange(p[i], 0x80, 0xBF)) return 0;
    return len;
}

CToGbk::CToGbk(TextEncoding eEncoding)
    : m_bUtf8(eEncoding == TextEncoding::kUtf8),
      m_cToGbk("GBK", m_bUtf8 ? "UTF-8" : "GB18030"),
      m_cToUtf32("UTF-32LE", m_bUtf8 ? "UTF-8" : "GB18030") {}

void CToGbk::Convert(std::string_view bytes, size_t nFrom, GbkText& out,
                     std::vector<TextProblem>& vProblems) {
    out.sGbk.clear();
    out.vSource.clear();
    out.nSourceSize = bytes.size();
    out.sGbk.reserve(bytes.size());
    out.vSource.reserve(bytes.size());
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    std::string sConv;
    for (size_t i = nFrom; i < bytes.size();) {
        const std::string_view rest = bytes.substr(i);
        size_t len = m_bUtf8 ? Utf8SequenceLength(rest) : Gb18030SequenceLength(p + i, rest.size());
        std::string_view sGbk = rest.substr(0, 1);
        if (len == 0 || p[i] >= 0x80) {
            const std::string_view c = rest.substr(0, len == 0 ? 1 : len);
            m_sKey.assign(c);
            auto it = m_mCache.find(m_sKey);
            if (it == m_mCache.end()) {
                if (len != 0 && m_cToGbk.Convert(c.data(), c.size(), sConv))
                    it = m_mCache.emplace(m_sKey, sConv).first;
                else
                    it = m_mCache
                             .emplace(m_sKey,
                                      len != 0 && m_cToUtf32.Convert(c.data(), c.size(), sConv)
                                          ? ""
                                          : "\1")
                             .first;
            }
            sGbk = it->second;
            if (sGbk.empty() || sGbk == "\1") {
                vProblems.push_back({i, c.size(), sGbk == "\1"});
                sGbk = kNoGbkPlaceholder;
            }
            len = c.size();
        }
        out.sGbk += sGbk;
        out.vSource.insert(out.vSource.end(), sGbk.size(), static_cast<uint32_t>(i));
        i += len;
    }
}

}  // namespace qx
