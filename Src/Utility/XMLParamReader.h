// XMLParamReader.h - named values out of a tagged parameter text (the rule list).
//
// CXMLParamReader holds one parameter text and answers lookups by dotted
// paths such as "rules.rulenum" or `rule id="3".subrules.subrule id="1".value`.
// It is not an XML parser: each path segment S becomes the opening tag
// "<S>" (attributes exactly as written in the path) and the closing tag
// "</S'>" (S cut at its first blank), and both are searched as plain
// substrings. Rule lists in use rely on the consequences, so they are part
// of the format:
//   - a segment's opening tag is searched from just behind the previous
//     segment's opening tag, not bounded by that element's closing tag, so a
//     child missing inside its parent is found in a later element;
//   - only the first occurrence at or after the cursor counts, even one that
//     lies inside an earlier value; "<rule id=\"1\">" is not a substring of
//     "<rule id=\"10\">", but "</a>" closes "<a b>" as well as "<a>";
//   - the value is the raw text between the last segment's tags (inner tags
//     included) with every CR, LF and TAB deleted and blanks trimmed at both
//     ends; inner blanks stay.
// Lookups go through a CTagIndex built once per text, so each tag search is a
// hash lookup and a binary search instead of a scan of the whole text; the
// results are those of the plain search.
//
// Ownership: the reader owns its copy of the text (malloc'd, freed by the
// destructor) and its index; it is not copyable.
//
// Thread-safety: none. A lookup writes the reader's error text; callers
// serialise all calls on one reader. Distinct readers share nothing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// Finds tag strings in one fixed text with the result of a plain substring
// search: Find(needle, from) is the offset of the first occurrence of needle
// starting at or after `from`, overlapping occurrences included, exactly as
// strstr(text + from, needle) would report it. Occurrences are indexed by the
// "natural tag" at each '<' (the bytes from it to the next '>'), so needles
// that start with '<' cost a hash lookup and a binary search; any other
// needle, or one whose text up to its first '>' is longer than
// kMaxIndexedTag bytes, is searched plainly.
//
// The text is not copied: it must stay alive and unchanged while the index is
// used. Not copyable (its keys point into the text).
class CTagIndex {
  public:
    static constexpr size_t npos = static_cast<size_t>(-1);
    // Longest natural tag that is indexed; path segments are at most 99 bytes,
    // so every tag the reader builds fits.
    static constexpr size_t kMaxIndexedTag = 128;

    CTagIndex() = default;
    CTagIndex(const CTagIndex&) = delete;
    CTagIndex& operator=(const CTagIndex&) = delete;

    // Indexes the text [pText, pText + nLen) (zero bytes inside are ordinary
    // bytes). Replaces any earlier index. Never throws: if memory runs out the
    // index is dropped and Find searches plainly (same results, slower).
    void Build(const char* pText, size_t nLen) noexcept;

    // Offset of the first occurrence of sNeedle that starts at or after nFrom
    // and ends inside the text; npos if there is none or nFrom is past the
    // end. An empty needle is found at nFrom. Before Build: as an empty text.
    size_t Find(std::string_view sNeedle, size_t nFrom) const;

  private:
    size_t FindPlain(std::string_view sNeedle, size_t nFrom) const;

    const char* m_pText = nullptr;
    size_t m_nLen = 0;
    bool m_bIndexed = false;
    // natural tag -> ascending offsets of its occurrences
    std::unordered_map<std::string_view, std::vector<size_t>> m_mTagOffsets;
};

class CXMLParamReader {
  public:
    // Reads the whole file with ReadFile. Reports nothing: a file that cannot
    // be read leaves the text null and every lookup then fails without a
    // message. An empty file gives an empty text (lookups fail with the
    // not-found message). The text ends at the file's first zero byte.
    explicit CXMLParamReader(const char* sParamFile);

    // Copies nBufLen bytes of sParamBuf; the text ends at the first zero byte
    // among them. REQUIRES: sParamBuf non-null and nBufLen > 0; otherwise the
    // program stops with the assertion "sParamBuf!=NULL && nBufLen>0" (in
    // every build type).
    CXMLParamReader(const char* sParamBuf, int nBufLen);

    virtual ~CXMLParamReader();
    CXMLParamReader(const CXMLParamReader&) = delete;
    CXMLParamReader& operator=(const CXMLParamReader&) = delete;

    // Looks paramPath up; value is set to "" first in every case. The path is
    // split at every '.' (empty segments kept, each cut to its first 99
    // bytes). True with the trimmed value when every segment's opening and
    // closing tag are found. False for a null path or a null text (error text
    // untouched), or when a tag is missing: the error text becomes
    // "Can't find the tag: <S>", naming the segment's opening tag even when
    // the closing one is missing. A success leaves the error text as it was.
    bool getParamString(const char* paramPath, std::string& value);

    // getParamString, then atoi (int) or atof (float, double) of the value;
    // on failure value is left untouched. Malformed numbers read as atoi/atof
    // read them: the leading number, else 0. An int is read as glibc's atoi
    // reads it, (int)strtol: "4294967297" gives 1, anything beyond the range
    // of long gives (int)LONG_MAX = -1 or (int)LONG_MIN = 0. A float out of
    // range rounds as IEEE does: to infinity or to the largest float.
    bool getParamInt(const char* paramPath, int& value);
    bool getParamFloat(const char* paramPath, float& value);
    bool getParamDouble(const char* paramPath, double& value);

    // The text of the last failed lookup; "" if none failed yet.
    const char* getLastErrMsg() const { return m_sErrMsg; }

  private:
    // The lookup proper. REQUIRES: paramPath and m_pParamBuffer non-null.
    bool LookUp(const char* paramPath, std::string& value);
    // Sets the error text to "Can't find the tag: " + sOpenTag; returns false.
    bool TagNotFound(const std::string& sOpenTag);

    char* m_pParamBuffer = nullptr;  // zero-terminated text, malloc'd; may be null
    size_t m_nTextLen = 0;           // strlen(m_pParamBuffer)
    char m_sErrMsg[1024] = {0};
    CTagIndex m_cTagIndex;  // over [m_pParamBuffer, m_pParamBuffer + m_nTextLen)
};
