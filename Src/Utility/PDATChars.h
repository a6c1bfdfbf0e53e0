// PDATChars.h - how the dictionary reads one character of a text (internal).
//
// Shared by insertion (PDATBuild.cpp), the lookups and scans (PDATFind.cpp)
// and the segmentation (PDATSegment.cpp), so all read characters identically
// and the hot loops can take the reader as a compile-time mode. Mode 0: GBK, a byte
// with its high bit set and a following byte form one character, ASCII
// capitals fold to small letters. Mode 1: single bytes. Mode 2: GBK with
// brackets, quotes and full-width letters/digits normalised and a run of
// delimiters read as one character of code 9.
#pragma once

#include <type_traits>

namespace pdat_chars {

inline bool IsNarrowDelimiter(unsigned int b) {
    return b == ' ' || b == '\t' || b == '\r' || b == '\n' || b == ',' || b == '/' || b == '_';
}

// Mode-2 two-byte delimiters: ＼ ｜ ， ． 。 、 － — and AA A4.
inline bool IsWideDelimiter(unsigned int code) {
    switch (code) {
        case 0xA3DC:
        case 0xA3FC:
        case 0xA3AC:
        case 0xA3AE:
        case 0xA1A3:
        case 0xA1A2:
        case 0xA3AD:
        case 0xA1AA:
        case 0xAAA4:
            return true;
        default:
            return false;
    }
}

// Byte length of the delimiter at byte j, 0 if there is none.
inline int DelimiterLen(const unsigned char* s, int j, int len) {
    const unsigned int b = s[j];
    if (b >= 0x80) return (j + 1 < len && IsWideDelimiter(b << 8 | s[j + 1])) ? 2 : 0;
    return IsNarrowDelimiter(b) ? 1 : 0;
}

inline int DelimiterRun(const unsigned char* s, int i, int len) {
    int j = i;
    for (int d; j < len && (d = DelimiterLen(s, j, len)) > 0;) j += d;
    return j - i;
}

// Mode-2 replacement of a two-byte character: brackets and quotes to their
// ASCII forms, full-width digits and letters to ASCII digits and small
// letters. -1 when the character is kept.
inline int NormaliseWide(unsigned int code) {
    switch (code) {
        case 0xA3A8:
        case 0xA1BE:
            return '(';  // （ 【
        case 0xA3A9:
        case 0xA1BF:
            return ')';  // ） 】
        case 0xA1B0:
        case 0xA1B1:
        case 0xA1AE:
        case 0xA3A7:
            return '"';  // “ ” ‘ ＇
        default:
            break;
    }
    if ((code >> 8) != 0xA3) return -1;
    const int lo = code & 0xFF;
    if (lo >= 0xB0 && lo <= 0xB9) return lo - 128;
    if (lo >= 0xC1 && lo <= 0xDA) return lo - 96;
    if (lo >= 0xE1 && lo <= 0xFA) return lo - 128;
    return -1;
}

inline int FoldAscii(unsigned int b) {
    return static_cast<int>(b - 'A' < 26u ? b + 32 : b);
}

// Raw code and byte length of the character at byte i (0 <= i < len).
template <int kMode>
inline int CharCodeAt(const unsigned char* s, int i, int len, int* pLen) {
    const unsigned int b = s[i];
    if (kMode == 1) {
        *pLen = 1;
        return static_cast<int>(b);
    }
    if (b >= 0x80 && i + 1 < len) {
        const unsigned int code = b << 8 | s[i + 1];
        if (kMode == 2) {
            const int n = NormaliseWide(code);
            if (n >= 0) {
                *pLen = 2;
                return n;
            }
            if (IsWideDelimiter(code)) {
                *pLen = DelimiterRun(s, i, len);
                return 9;
            }
        }
        *pLen = 2;
        return static_cast<int>(code);
    }
    if (kMode == 2 && IsNarrowDelimiter(b)) {
        *pLen = DelimiterRun(s, i, len);
        return 9;
    }
    *pLen = 1;
    return FoldAscii(b);
}

using CharCodeFn = int (*)(const unsigned char*, int, int, int*);

inline CharCodeFn CharCodeFor(int nMode) {
    if (nMode == 1) return &CharCodeAt<1>;
    if (nMode == 2) return &CharCodeAt<2>;
    return &CharCodeAt<0>;
}

// Calls fn with the mode as a compile-time constant (unknown modes read as 0).
template <typename Fn>
decltype(auto) DispatchMode(int nMode, Fn&& fn) {
    if (nMode == 1) return fn(std::integral_constant<int, 1>());
    if (nMode == 2) return fn(std::integral_constant<int, 2>());
    return fn(std::integral_constant<int, 0>());
}

}  // namespace pdat_chars
