// CharTables.h - the character repertoires of the translator's encodings, as
// glibc iconv defines them.
//
// The translator's data covers four encodings: GBK, BIG5, GB18030 (the
// resource files' "GBKA") and UTF-8. Which byte sequences are characters of
// an encoding, and which code point each one stands for, is read from iconv in
// this process: the two-byte encodings are enumerated lead byte by trail byte,
// and the Unicode encodings are asked code point by code point. Code points
// are UTF-32 values (char32_t); text in code points is a std::u32string.
//
// CCodec pairs the two directions between an encoding and UTF-32 (each a
// library CIconv, which rejects any bad or lossy conversion). Not copyable.
// Thread-safety: none; an object is used by one thread at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Iconv.h"

// An encoding and its two conversions to and from code points.
class CCodec {
  public:
    // sEncoding is an iconv name ("GBK", "BIG5", "GB18030", "UTF-8").
    explicit CCodec(const char* sEncoding);

    const std::string& Name() const { return m_sName; }
    // False when iconv does not know the encoding.
    bool IsOpen() const { return m_cEncode.IsOpen() && m_cDecode.IsOpen(); }

    // The encoding's bytes for the code points of text (iconv's canonical
    // form). False when a code point cannot be encoded; empty text gives "".
    bool Encode(const std::u32string& text, std::string& out);
    // The same for one code point.
    bool Encode(char32_t cp, std::string& out);
    // The code points of bytes. False for invalid or incomplete input.
    bool Decode(const std::string& bytes, std::u32string& out);

  private:
    std::string m_sName;
    CIconv m_cEncode;  // UTF-32LE -> encoding
    CIconv m_cDecode;  // encoding -> UTF-32LE
    std::string m_sBuf;
};

// A character of a two-byte encoding: its bytes and the code point they decode to.
struct _stCharacter {
    std::string sBytes;
    char32_t cp;
};

// The characters of a two-byte encoding in byte order: every single byte of
// vSingles, then every lead 0x81-0xFE with every trail of the encoding's trail
// ranges, kept when the bytes decode to exactly one non-ASCII code point.
// bBig5 selects the trail ranges: 0x40-0x7E and 0xA1-0xFE for BIG5,
// 0x40-0x7E and 0x80-0xFE for GBK. Empty when the codec is not open.
std::vector<_stCharacter> ReadDoubleByteCharacters(CCodec& cCodec, bool bBig5,
                                                   const std::vector<unsigned char>& vSingles);

// The code points, ascending, that both codecs can encode: U+0080-U+FFFF
// without the surrogates, and U+20000-U+3FFFF. vSkip lists code points to
// leave out regardless. Empty when a codec is not open.
std::vector<char32_t> ReadUnicodeRepertoire(CCodec& cFirst, CCodec& cSecond,
                                            const std::vector<char32_t>& vSkip);

// True when text has a code point below 0x80.
bool HasAscii(std::u32string_view text);

// A set of code points (for "the encoding holds this character").
class CCharSet {
  public:
    CCharSet() = default;
    // The set of vCodePoints (any order, repeats allowed).
    explicit CCharSet(std::vector<char32_t> vCodePoints);

    bool Holds(char32_t cp) const;
    // True when every code point of text is held (also for empty text).
    bool HoldsAll(std::u32string_view text) const;
    size_t Size() const { return m_vSorted.size(); }

  private:
    std::vector<char32_t> m_vSorted;  // ascending, unique
};
