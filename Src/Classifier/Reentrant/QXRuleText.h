// QXRuleText.h - a rule list's bytes as the engine's GBK text, from GBK or
// UTF-8, with every byte's place in the caller's file.
//
// The engine reads rule lists in GBK. The reentrant interface also takes
// UTF-8 lists: DecodeRuleText decides the encoding (or takes the caller's),
// converts UTF-8 to GBK with iconv, and keeps for every byte of the GBK text
// the offset in the caller's bytes it came from, so that diagnostics about
// the GBK text point into the file the author edits.
//
// Auto detection: UTF-8 when the bytes start with the byte-order mark EF BB
// BF, or when they are valid UTF-8 and hold at least one multi-byte
// sequence; GBK otherwise (plain ASCII reads the same either way).
//
// A character of a UTF-8 list that GBK cannot hold is an error at its place
// and becomes kNoGbkPlaceholder, as in documents, so that the rest of the
// list still converts and is checked. Bytes that are not valid in the
// encoding the list is read in are warnings (the caller's strict option turns
// warnings into errors): in GBK they pass unchanged, as the classic loader
// takes them; in UTF-8 each becomes the placeholder.
//
// Thread-safety: DecodeRuleText is reentrant (its iconv descriptor is its
// own); a RuleText is a plain value.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "QXDiagnostic.h"
#include "QXText.h"

namespace qx {

enum class RuleEncoding { kAuto, kGbk, kUtf8 };

// The list as the engine reads it (sGbk) with its source offsets. A GBK list
// is taken as it is: vSource stays empty, since every offset is its own.
struct RuleText : GbkText {
    bool bUtf8 = false;  // read as UTF-8 (and converted)

    // The offset in the caller's bytes of byte nGbk of sGbk (the end of the
    // source for nGbk at or past the end).
    size_t SourceOffset(size_t nGbk) const {
        return bUtf8 ? GbkText::SourceOffset(nGbk) : std::min(nGbk, nSourceSize);
    }
};

// The encoding auto detection picks for these bytes (never kAuto).
RuleEncoding DetectRuleEncoding(std::string_view bytes);

// Reads bytes (a rule list named sFile in diagnostics) as eEncoding, or as
// detected for kAuto, into out (replaced). Appends a diagnostic for every
// character without a GBK form (error) and every invalid byte (warning),
// positioned in bytes. Returns false when it appended an error.
bool DecodeRuleText(std::string_view bytes, RuleEncoding eEncoding, const std::string& sFile,
                    RuleText& out, std::vector<Diagnostic>& vDiags);

}  // namespace qx
