// STLCodeTrans.cpp - GBK <-> Unicode through iconv, UTF-8 coded by hand.
//
// GBK and wide text are converted by one iconv pass over the whole text with a
// converter opened for the call ("WCHAR_T" <-> "GBK"). The input ends at its
// first zero byte or unit, as for the C string calls whose results these
// equal. The output buffer is sized so that it cannot run short (a GBK byte
// yields at most one unit, a unit at most two GBK bytes); iconv stops at the
// first invalid (EILSEQ) or truncated (EINVAL) sequence and what it wrote
// before stays. Such a stop is reported as (size_t)-1, mbstowcs's value.
//
// UTF-8 forms produced and accepted (x = payload bits):
//   U+0000..U+007F          0xxxxxxx
//   U+0080..U+07FF          110xxxxx 10xxxxxx
//   U+0800..U+FFFF          1110xxxx 10xxxxxx 10xxxxxx
// unicode_to_utf8_one alone also writes the four- to six-byte forms
// (11110xxx, 111110xx, 1111110x leads) up to 0x7FFFFFFF.

#include "STLCodeTrans.h"

#include "Iconv.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <vector>

static_assert(sizeof(wchar_t) == 4, "wide text is 32-bit code units");

namespace {

constexpr size_t kMaxGbkBytesPerUnit = 2;

// The one- to six-byte form of cp into pOut (room for 6); returns its length,
// 0 above 0x7FFFFFFF.
int EncodeUtf8(uint32_t cp, unsigned char* pOut) {
    if (cp < 0x80) {
        pOut[0] = static_cast<unsigned char>(cp);
        return 1;
    }
    int nLen;
    unsigned char cLead;
    if (cp < 0x800) {
        nLen = 2, cLead = 0xC0;
    } else if (cp < 0x10000) {
        nLen = 3, cLead = 0xE0;
    } else if (cp < 0x200000) {
        nLen = 4, cLead = 0xF0;
    } else if (cp < 0x4000000) {
        nLen = 5, cLead = 0xF8;
    } else if (cp <= 0x7FFFFFFF) {
        nLen = 6, cLead = 0xFC;
    } else {
        return 0;
    }
    for (int i = nLen - 1; i > 0; --i) {
        pOut[i] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        cp >>= 6;
    }
    pOut[0] = static_cast<unsigned char>(cLead | cp);
    return nLen;
}

}  // namespace

size_t ANSIToUnicode(const std::string& Str, std::wstring& wStr) {
    wStr.clear();
    const size_t nBytes = std::strlen(Str.c_str());
    if (nBytes == 0) return 0;
    std::vector<wchar_t> vUnits(nBytes + 1, 0);
    CIconv conv("WCHAR_T", "GBK");
    bool bComplete;
    size_t nWritten = conv.Run(Str.c_str(), nBytes, reinterpret_cast<char*>(vUnits.data()),
                               nBytes * sizeof(wchar_t), bComplete);
    wStr.assign(vUnits.data(), nWritten / sizeof(wchar_t));
    return bComplete ? wStr.size() : static_cast<size_t>(-1);
}

size_t UnicodeToANSI(const std::wstring& wStr, std::string& Str) {
    Str.clear();
    const size_t nUnits = std::wcslen(wStr.c_str());
    if (nUnits == 0) return 0;
    std::vector<char> vBytes(nUnits * kMaxGbkBytesPerUnit + 1, 0);
    CIconv conv("GBK", "WCHAR_T");
    bool bComplete;
    size_t nWritten =
        conv.Run(reinterpret_cast<const char*>(wStr.c_str()), nUnits * sizeof(wchar_t),
                 vBytes.data(), vBytes.size() - 1, bComplete);
    Str.assign(vBytes.data(), nWritten);
    return bComplete ? nWritten : static_cast<size_t>(-1);
}

size_t ANSIToUTF8(const char* sAnsiStr, std::string& sUTF8Str) {
    sUTF8Str.clear();
    std::wstring wStr;
    ANSIToUnicode(sAnsiStr ? sAnsiStr : "", wStr);
    char* pUtf8 = nullptr;
    size_t nBytes = unicode_to_utf8(wStr.c_str(), wStr.size(), &pUtf8);
    if (pUtf8) sUTF8Str.assign(pUtf8, nBytes);
    std::free(pUtf8);
    return sUTF8Str.size();
}

int UTF8ToANSI(const char* sUTF8Str, std::string& sAnsiStr) {
    sAnsiStr.clear();
    if (sUTF8Str == nullptr) return 0;
    if (std::strncmp(sUTF8Str, "\xEF\xBB\xBF", 3) == 0) sUTF8Str += 3;
    const size_t nBytes = std::strlen(sUTF8Str);
    if (nBytes == 0) return 0;
    std::vector<wchar_t> vUnits(nBytes + 1, 0);
    size_t nUnits = utf8_to_unicode(sUTF8Str, vUnits.data()) / sizeof(wchar_t);
    UnicodeToANSI(std::wstring(vUnits.data(), nUnits), sAnsiStr);
    return 1;
}

size_t utf8_to_unicode(const char* in, wchar_t* out) {
    if (out == nullptr) return 0;
    const auto* p = reinterpret_cast<const unsigned char*>(in ? in : "");
    const size_t nLen = std::strlen(reinterpret_cast<const char*>(p));
    size_t nUnits = 0;
    size_t i = 0;
    while (i < nLen) {
        const uint32_t c = p[i];
        if (c < 0x80) {
            out[nUnits++] = static_cast<wchar_t>(c);
            i += 1;
        } else if ((c & 0xE0) == 0xC0 && i + 1 < nLen) {
            out[nUnits++] = static_cast<wchar_t>(((c & 0x1F) << 6) | (p[i + 1] & 0x3F));
            i += 2;
        } else if ((c & 0xF0) == 0xE0 && i + 2 < nLen) {
            out[nUnits++] = static_cast<wchar_t>(((c & 0x0F) << 12) | ((p[i + 1] & 0x3F) << 6) |
                                                 (p[i + 2] & 0x3F));
            i += 3;
        } else {
            i += 1;  // not decodable here: skipped on its own
        }
    }
    out[nUnits] = 0;
    return nUnits * sizeof(wchar_t);
}

size_t unicode_to_utf8(const wchar_t* in, size_t insize, char** out) {
    if (out == nullptr) return 0;
    *out = nullptr;
    if (in == nullptr) insize = 0;
    if (insize > (SIZE_MAX - 1) / 3) return 0;
    auto* pBuf = static_cast<unsigned char*>(std::calloc(3 * insize + 1, 1));
    if (pBuf == nullptr) return 0;
    size_t nBytes = 0;
    for (size_t i = 0; i < insize; ++i) {
        const auto cp = static_cast<uint32_t>(in[i]);
        if (cp < 0x10000) nBytes += EncodeUtf8(cp, pBuf + nBytes);
    }
    pBuf[nBytes] = 0;
    *out = reinterpret_cast<char*>(pBuf);
    return nBytes;
}

int unicode_to_utf8_one(unsigned long unic, unsigned char* pOutput, int outSize) {
    if (pOutput == nullptr || outSize < 6 || unic > 0x7FFFFFFFUL) return 0;
    return EncodeUtf8(static_cast<uint32_t>(unic), pOutput);
}
