// STLCodeTrans.h - character-level conversions between GBK, Unicode and UTF-8.
//
// The library's text is GBK inside. These routines convert single texts at the
// character level for two users: the last error text handed to UTF-8 callers
// (ANSIToUTF8) and file names given in UTF-8 that must be found under their GBK
// form (UTF8ToANSI). Documents themselves go through the dictionary-based
// translator, not through here.
//
// "Unicode" means wide text of 32-bit wchar_t code units in host byte order
// (little-endian on the supported Linux targets). GBK <-> Unicode uses the C
// library's iconv with its GBK table, the same table the "zh_CN.GBK" locale
// converts with, so results equal that locale's mbstowcs/wcstombs; the process
// locale is never read or changed and nothing is printed. Like those calls,
// a conversion stops at the first sequence it cannot convert and keeps what it
// converted before it.
//
// UTF-8 is coded here by hand and decodes the one- to three-byte forms only:
// characters outside the basic plane vanish on the way in (and are dropped on
// the way out), and continuation bytes are not checked.
//
// Ownership: unicode_to_utf8 returns a malloc'ed buffer the caller frees with
// free(); everything else writes into caller-owned objects.
// Thread-safety: all functions are reentrant (no shared state; every GBK
// conversion opens its own converter).
#pragma once

#include <cstddef>
#include <string>

// GBK text Str, up to its first zero byte, into wide text wStr.
// Returns the number of code units converted. If an invalid or truncated GBK
// sequence stops the conversion, returns (size_t)-1 as mbstowcs does, and wStr
// holds the units converted before that sequence (nothing if the C library
// has no GBK converter). Empty text: 0, wStr empty.
size_t ANSIToUnicode(const std::string& Str, std::wstring& wStr);

// Wide text wStr, up to its first zero unit, into GBK text Str.
// Returns the number of bytes produced. A unit GBK cannot represent (or that
// is no character, such as a surrogate) stops the conversion: returns (size_t)-1
// as wcstombs does, and Str holds the bytes of the units before it.
size_t UnicodeToANSI(const std::wstring& wStr, std::string& Str);

// GBK text to UTF-8 (via ANSIToUnicode and unicode_to_utf8); returns the number
// of UTF-8 bytes in sUTF8Str. Invalid GBK keeps the converted prefix. ASCII
// passes unchanged; a null or empty text gives "" and 0.
size_t ANSIToUTF8(const char* sAnsiStr, std::string& sUTF8Str);

// UTF-8 text to GBK (via utf8_to_unicode and UnicodeToANSI). sAnsiStr is
// emptied first; a leading byte-order mark EF BB BF is skipped. Returns 0 when
// nothing is left (null, "", BOM only), else 1, also when the conversion
// stopped early and sAnsiStr holds only a prefix (or nothing).
int UTF8ToANSI(const char* sUTF8Str, std::string& sAnsiStr);

// Decodes the UTF-8 text `in` into `out`, one unit per one-, two- or
// three-byte sequence, followed by a zero unit. Continuation bytes are not
// checked; every other byte with the high bit set (stray continuation, lead of
// a four-byte or longer form, a form cut short by the end) is skipped alone.
// Returns the bytes written, 4 per unit, terminator not counted. REQUIRES: out
// holds strlen(in) + 1 units (each input byte yields at most one unit). Null in
// writes only the terminator; null out returns 0.
size_t utf8_to_unicode(const char* in, wchar_t* out);

// Encodes insize units of `in` as UTF-8 into a new malloc'ed, zero-terminated
// buffer of 3 * insize + 1 bytes stored in *out (the caller frees it). Units
// below 0x10000 give one to three bytes; larger ones (and negative ones) are
// dropped. Returns the byte count. Null in is taken as no units; null out, or
// an allocation failure (then *out = null), returns 0.
size_t unicode_to_utf8(const wchar_t* in, size_t insize, char** out);

// Writes the classic UTF-8 form of one code point (one to six bytes, up to
// 0x7FFFFFFF) to pOutput, without terminator, and returns its length. Returns
// 0 and writes nothing if pOutput is null, outSize is below 6 (even for
// ASCII), or unic is above 0x7FFFFFFF.
int unicode_to_utf8_one(unsigned long unic, unsigned char* pOutput, int outSize);
