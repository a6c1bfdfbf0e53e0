// QXText.h - text in a caller's encoding as the engine's GBK, exactly, with
// every GBK byte's place in the caller's text.
//
// The reentrant interface converts documents and rule lists with glibc iconv
// character by character, so that nothing is lost or moved: tabs, leading
// blanks and line ends stay, and each character's offset in the caller's
// bytes is known (explanations and diagnostics report places in the
// caller's own text). A character that GBK cannot hold becomes
// kNoGbkPlaceholder; a byte that is no character of the source encoding
// becomes the placeholder too. Both are reported as problems.
//
// Thread-safety: a CToGbk is used by one thread at a time (its iconv
// descriptors and cache are its own); make one per thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Iconv.h"

namespace qx {

// GBK of 〓 (U+3013, the geta mark that typesetters put where a glyph is
// missing): what a character without a GBK form becomes. No keyword can
// match it, since a keyword that contains it is refused.
inline constexpr char kNoGbkPlaceholder[] = "\xA1\xFE";

// Encodings converted character by character (GBK itself needs no
// conversion: the engine reads its bytes as they are).
enum class TextEncoding { kUtf8, kGb18030 };

// A character that did not convert: its place in the source and why.
struct TextProblem {
    size_t nOffset = 0;     // in the source bytes
    size_t nLen = 0;        // bytes of the character (1 for an invalid byte)
    bool bInvalid = false;  // not a character of the source encoding; else no GBK form
};

struct GbkText {
    std::string sGbk;               // the text as the engine reads it
    std::vector<uint32_t> vSource;  // source offset of each byte of sGbk
    size_t nSourceSize = 0;         // bytes of the source

    // The source offset of GBK byte n; the source's end at or past the end.
    size_t SourceOffset(size_t n) const { return n < vSource.size() ? vSource[n] : nSourceSize; }
};

// A converter from one encoding into GBK, kept for many texts: it opens
// its iconv descriptors once and remembers every character it has
// converted, so that a text costs one table look-up per character.
class CToGbk {
  public:
    explicit CToGbk(TextEncoding eEncoding);

    // Converts bytes[nFrom..] (nFrom skips a byte-order mark) into out
    // (replaced) and appends a TextProblem per placeholder written. ASCII
    // stays ASCII; every other character takes its GBK form.
    void Convert(std::string_view bytes, size_t nFrom, GbkText& out,
                 std::vector<TextProblem>& vProblems);

  private:
    bool m_bUtf8;
    CIconv m_cToGbk, m_cToUtf32;
    // character bytes -> its GBK form; "" when GBK has none, "\1" (which no
    // conversion of a non-ASCII character yields) when the bytes are invalid
    std::unordered_map<std::string, std::string> m_mCache;
    std::string m_sKey;  // look-up key, reused
};

// Length of the valid UTF-8 sequence at the start of s (RFC 3629: no
// overlong forms, surrogates or code points above U+10FFFF); 0 when s does
// not start with one (or is empty).
size_t Utf8SequenceLength(std::string_view s);

}  // namespace qx
