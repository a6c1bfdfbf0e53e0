// PDATFile.cpp - the dictionary's files (binary save and load, text import
// and export) and its segmentation by forward maximum matching.
//
// Binary dictionary file, every integer 32-bit in native byte order
// (little-endian on the platforms served), no magic, version or checksum;
// B is the lower bound:
//
//   offset              size          field
//   0                   262144        character map: 65536 ints, raw code -> dense
//                                     code, -1 for an unused code
//   262144              4             lower bound B (signed, >= 0)
//   262148              4             item count (unsigned)
//   262152              12 * (B + 1)  cells 0..B: base, check, handle (signed)
//   262152 + 12(B + 1)  4             mode (0, 1 or 2)
//
// So a file is exactly 262156 + 12 * (B + 1) bytes; an empty dictionary (no
// cells at all) is written as 262156 bytes with B = 0. Load checks the size
// against B, that every dense code lies in -1..65535 and the mode is known,
// reading the map, the header and the cells in a few bulk reads into local
// owners that replace the object's state only once all is well. Cell
// contents are not checked: every walk bounds its indices by the lower bound,
// so any cell values are safe to read.
//
// Import text: one entry a line (lines of up to 3072 bytes). The line's first
// white-space-delimited token decides: none, and the line is skipped; a token
// starting with '[' (after a UTF-8 byte-order mark) takes the line from its
// first '[' up to, not including, its first ']' (or the line end), so the
// entry keeps its '[' and may hold spaces; else the token itself. Every '_'
// of an entry becomes ' '.
//
// Segmentation walks the cells from each start, remembering one candidate
// (the last word end reached, or the first character alone); on a failed or
// unknown character it writes the candidate and goes on right after it, so
// at most the bytes of one candidate's walk are read twice. Segments are
// consecutive, each at most its own bytes plus the separator, so the output
// never exceeds 2 * len + 1 bytes and the handles len entries.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Global.h"
#include "PDAT.h"

#include "PDATChars.h"
#include "Utility.h"
#include "global_linux.h"

namespace {

constexpr int kCodes = 65536;
constexpr int64_t kMapBytes = 4 * int64_t{kCodes};
constexpr int64_t kEmptyFileBytes = kMapBytes + 12;  // map, bound, count, mode
constexpr int kLineBytes = 3072;
constexpr int kMaxSegmentLen = (INT_MAX - 1) / 6;  // keeps 6 * len + 1 in an int

struct FreeCells {
    void operator()(state* p) const { std::free(p); }
};

// ---- Loading ----------------------------------------------------------------------

// The content of a dictionary file, checked.
struct LoadedDict {
    std::unique_ptr<int[]> pCharset;  // kCodes entries
    int32_t nLowerBound = 0;
    uint32_t nItemCount = 0;
    std::unique_ptr<state, FreeCells> pCells;  // nLowerBound + 1 cells, or null
    int32_t nMode = 0;
};

// The number of cells a file of nFile bytes with bound B holds (0 or B + 1),
// or -1 with sWhy when the two do not fit together.
int64_t CellCount(int64_t nFile, int32_t nBound, std::string& sWhy) {
    if (nBound < 0) {
        sWhy = "negative lower bound " + std::to_string(nBound);
        return -1;
    }
    if (nFile == kEmptyFileBytes && nBound == 0) return 0;
    const int64_t nCells = int64_t{nBound} + 1;
    if (kEmptyFileBytes + 12 * nCells != nFile) {
        sWhy = "lower bound " + std::to_string(nBound) + " needs " +
               std::to_string(kEmptyFileBytes + 12 * nCells) + " bytes, the file has " +
               std::to_string(nFile);
        return -1;
    }
    return nCells;
}

bool CheckCharset(const int* pCharset, std::string& sWhy) {
    for (int c = 0; c < kCodes; ++c) {
        if (pCharset[c] < -1 || pCharset[c] >= kCodes) {
            sWhy =
                "character " + std::to_string(c) + " has dense code " + std::to_string(pCharset[c]);
            return false;
        }
    }
    return true;
}

// Reads and checks the whole file; sWhy says what does not fit.
bool ReadDict(CFileIn& in, LoadedDict& d, std::string& sWhy) {
    const int64_t nFile = in.Size();
    if (nFile < kEmptyFileBytes) {
        sWhy = "file of " + std::to_string(nFile) + " bytes is shorter than the " +
               std::to_string(kEmptyFileBytes) + " bytes of an empty dictionary";
        return false;
    }
    d.pCharset.reset(new (std::nothrow) int[kCodes]);
    if (!d.pCharset) {
        sWhy = "out of memory";
        return false;
    }
    if (!in.Read(d.pCharset.get(), kMapBytes) || !in.Read(&d.nLowerBound, 4) ||
        !in.Read(&d.nItemCount, 4)) {
        sWhy = "cannot read the character map";
        return false;
    }
    const int64_t nCells = CellCount(nFile, d.nLowerBound, sWhy);
    if (nCells < 0 || !CheckCharset(d.pCharset.get(), sWhy)) return false;
    const int64_t nCellBytes = int64_t{sizeof(state)} * nCells;
    if (nCells > 0) {
        d.pCells.reset(static_cast<state*>(std::malloc(static_cast<size_t>(nCellBytes))));
        if (!d.pCells) {
            sWhy = "out of memory for " + std::to_string(nCells) + " cells";
            return false;
        }
    }
    if (!in.Read(d.pCells.get(), nCellBytes) || !in.Read(&d.nMode, 4)) {
        sWhy = "cannot read the cells";
        return false;
    }
    if (d.nMode < 0 || d.nMode > 2) {
        sWhy = "unknown mode " + std::to_string(d.nMode);
        return false;
    }
    return true;
}

// ---- Import and export --------------------------------------------------------------

// The text of each dense code from the raw codes upper..lower (inclusive)
// that are mapped: one byte below 256, else two (high byte first).
std::vector<std::string> CharTexts(const int* pCharset, int nUpper, int nLower) {
    std::vector<std::string> vecText(kCodes);
    for (int c = std::max(nUpper, 0); c <= std::min(nLower, kCodes - 1); ++c) {
        const int d = pCharset[c];
        if (d < 0 || d >= kCodes) continue;
        vecText[d] = c < 256 ? std::string(1, static_cast<char>(c))
                             : std::string{static_cast<char>(c / 256), static_cast<char>(c % 256)};
    }
    return vecText;
}

const std::string& TextOf(const std::vector<std::string>& vecText, long long code) {
    static const std::string s_sNone;
    return code >= 0 && code < static_cast<long long>(vecText.size()) ? vecText[code] : s_sNone;
}

long long Abs(int x) {
    return x < 0 ? -static_cast<long long>(x) : x;
}

// The word ending at cell k, spelled from its last character back through
// the parents (at most last steps, so a damaged loop of parents ends).
std::string SpellWord(const state* cells, int last, int k,
                      const std::vector<std::string>& vecText) {
    std::vector<const std::string*> vecRev;
    long long cur = k;
    for (int nSteps = 0; nSteps <= last && cells[cur].check >= 0; ++nSteps) {
        const int parent = cells[cur].check;
        if (parent > last) break;
        vecRev.push_back(&TextOf(vecText, cur - Abs(cells[parent].base)));
        cur = parent;
    }
    std::string sWord = TextOf(vecText, cur);
    for (auto it = vecRev.rbegin(); it != vecRev.rend(); ++it) sWord += **it;
    return sWord;
}

// ---- Segmentation ---------------------------------------------------------------------

// Bytes that end (and are never part of) an ASCII run. A table: the test
// runs for every byte of an ASCII run.
struct RunStopTable {
    bool stop[256] = {};
    RunStopTable() {
        stop[0] = true;
        for (const char* p = " \t-_,.:/~#%^*()"; *p; ++p)
            stop[static_cast<unsigned char>(*p)] = true;
    }
};
const RunStopTable kRunStops;

bool IsRunStop(unsigned char c) {
    return kRunStops.stop[c];
}

// Writes the segments as MMSegment's text (each followed by sep) and,
// when handles is not null, their handles (every segment's with
// bKeepUnknown, else dictionary words' only). Buffers sized by the caller.
struct TextSink {
    const unsigned char* s;
    int* handles;
    char* out;
    bool bKeepUnknown;
    char sep;
    int count = 0, nOut = 0;

    void Segment(int from, int n, int handle) {
        std::memcpy(out + nOut, s + from, static_cast<size_t>(n));
        nOut += n;
        out[nOut++] = sep;
        if (handles && (bKeepUnknown || handle != -1)) handles[count++] = handle;
    }
};

// Collects the segments as spans of the text.
struct SpanSink {
    std::vector<_stSegSpan>& spans;

    void Segment(int from, int n, int /*handle*/) { spans.push_back({from, n}); }
};

// What one segmentation reads: the cells, the highest valid cell, the
// character map, the text and the cap on a candidate's walk.
struct SegmentInput {
    const state* cells;
    long long last;
    const int* charset;
    const unsigned char* s;
    int len;
    int maxLen;
};

// One segmentation of len bytes of s: the cursor state of the forward
// maximum matching walk, handing each segment to the sink in text order.
template <int kMode, typename Sink>
struct Segmenter : SegmentInput {
    Sink& sink;

    int i = 0, start = 0, cand = 0, prev = -2, handle = -1;
    long long base = 0;

    void Reset() {
        cand = 0;
        base = 0;
        prev = -2;
    }

    void EmitWord(int from, int n) {
        sink.Segment(from, n, handle);
        handle = -1;
    }

    // The character of charLen bytes ending at i, and, when it is one byte
    // (below 0x80 if bAsciiOnly) outside the stop set, the ASCII run after it.
    void EmitRun(int charLen, bool bAsciiOnly) {
        const int from = i - charLen;
        const unsigned char c = s[i - 1];
        if (charLen == 1 && (!bAsciiOnly || c < 0x80) && !IsRunStop(c))
            while (i < len && s[i] < 0x80 && !IsRunStop(s[i])) ++i;
        sink.Segment(from, i - from, -1);
    }

    void Known(int dense, int charLen) {
        const long long p = base + dense;
        if (p >= 0 && p <= last && cells[p].check == prev) {
            const state& c = cells[p];
            prev = static_cast<int>(p);
            if (c.base >= 0) {
                base = c.base;
                if (cand == 0) cand = charLen;
                return;
            }
            base = -static_cast<long long>(c.base);
            cand = i - start;
            handle = c.handle;
            if (base != p) return;  // an inner word end: look for a longer word
            EmitWord(start, cand);
        } else if (cand < 1) {
            EmitRun(charLen, true);
        } else {
            EmitWord(start, cand);
            i = start + cand;
        }
        Reset();
        start = i;
    }

    void Unknown(int charLen) {
        if (cand > 0) EmitWord(start, cand);
        if (cand == 0 || start + cand >= i - charLen) {
            EmitRun(charLen, false);
            start = i;
        } else {  // rescan the bytes between the candidate and this character
            start += cand;
            i = start;
        }
        Reset();
    }

    void Run() {
        while (!(i >= len && (start >= len || cand < 1))) {
            if (cand > 0 && (i == len || (maxLen >= 1 && i > start + maxLen))) {
                EmitWord(start, cand);
                start += cand;
                i = start;
                Reset();
            }
            if (i >= len) break;
            int charLen = 0;
            const int code = pdat_chars::CharCodeAt<kMode>(s, i, len, &charLen);
            i += std::max(charLen, 1);
            const int dense = code >= 0 && code < kCodes ? charset[code] : -1;
            if (dense >= 0)
                Known(dense, std::max(charLen, 1));
            else
                Unknown(std::max(charLen, 1));
        }
    }
};

// Segments in.s with the character reader of nMode.
template <typename Sink>
void RunSegmenter(int nMode, const SegmentInput& in, Sink& sink) {
    pdat_chars::DispatchMode(nMode, [&](auto mode) {
        Segmenter<decltype(mode)::value, Sink> seg{in, sink};
        seg.Run();
    });
}

// Makes *pBuf (malloc'd or null, *pCap elements) hold at least nNeed
// elements; false, leaving both untouched, when memory runs out.
template <typename T>
bool Reserve(T** pBuf, int* pCap, int nNeed) {
    if (*pBuf && *pCap >= nNeed) return true;
    void* p = std::realloc(*pBuf, sizeof(T) * static_cast<size_t>(nNeed));
    if (!p) return false;
    *pBuf = static_cast<T*>(p);
    *pCap = nNeed;
    return true;
}

}  // namespace

// ---- Binary files ------------------------------------------------------------------

bool CPDAT::Save(const char* path) {
    FilePtr fp = OpenFile(path, "wb");
    if (!fp) return false;
    const int32_t nHead[2] = {m_nLowerBound, static_cast<int32_t>(m_nItemCount)};
    bool bOk = WriteAll(fp.get(), m_charset, kMapBytes) && WriteAll(fp.get(), nHead, 8);
    if (m_pData) {
        const int nCells = m_nLowerBound + 1;
        const int nHeld = std::min(nCells, std::max(m_nLength, 0));
        bOk = bOk && WriteAll(fp.get(), m_pData, sizeof(state) * static_cast<size_t>(nHeld));
        const state cFree = {-1, -1, -1};  // never needed: the array covers the bound
        for (int k = nHeld; k < nCells && bOk; ++k) bOk = WriteAll(fp.get(), &cFree, sizeof cFree);
    }
    bOk = WriteAll(fp.get(), &m_nMode, 4) && bOk;
    return std::fclose(fp.release()) == 0 && bOk;
}

bool CPDAT::Load(const char* path) {
    std::string sName;
    if (GetAnsiFilename(path, sName)) ReportInfo("Changed utf-8 file name " + NameOf(path));
    CFileIn in;
    LoadedDict d;
    std::string sWhy;
    const bool bOpened = in.Open(sName.c_str(), sWhy);
    if (!in.IsOpen()) {
        ReportError("Fail read file " + sName);
        return false;
    }
    if (!bOpened || !ReadDict(in, d, sWhy)) {
        ReportError("Cannot load dictionary " + sName + ": " + sWhy);
        return false;
    }
    std::copy(d.pCharset.get(), d.pCharset.get() + kCodes, m_charset);
    m_charsetSize = static_cast<int>(
        std::count_if(m_charset, m_charset + kCodes, [](int code) { return code >= 0; }));
    FreeTree();  // a loaded dictionary is read-only, like a completed one
    free(m_pData);
    m_pData = d.pCells.release();
    m_nLowerBound = d.nLowerBound;
    m_nLength = m_pData ? m_nLowerBound + 1 : 0;
    m_nItemCount = d.nItemCount;
    m_nMode = d.nMode;
    m_bWordAddCompleted = true;
    InvalidateScanIndex();
    return true;
}

// ---- Text import and export -------------------------------------------------------

int CPDAT::Import(const char* path, CPDAT* pExclude) {
    FilePtr in = OpenFile(path, "r");
    const std::string sExport = NameOf(path) + "_export.txt";
    FilePtr out = OpenFile(in ? sExport.c_str() : nullptr, "w");
    if (!in || !out) return 0;
    AddWordInit();
    char sLine[kLineBytes];
    std::string sEntry;
    while (std::fgets(sLine, sizeof sLine, in.get())) {
        if (!ParseImportEntry(sLine, sEntry)) continue;
        const bool bBracket = sEntry.find_first_of(" \t") != std::string::npos;
        std::fprintf(out.get(), bBracket ? "[%s]\n" : "%s\n", sEntry.c_str());
        if (pExclude && pExclude->Find(sEntry.c_str()) >= 0) continue;
        AddWord(sEntry.c_str(), false);
        if (m_nItemCount % 100 == 0)
            std::printf("%d\t%s Completed!\r", static_cast<int>(m_nItemCount), sEntry.c_str());
    }
    in.reset();
    out.reset();
    AddWordComplete();
    return static_cast<int>(m_nItemCount);
}

bool CPDAT::Export(const char* path) {
    FilePtr fp = OpenFile(path, "wt");
    if (!fp) return false;
    const std::vector<std::string> vecText = CharTexts(m_charset, m_UpperChar, m_LowerChar);
    const int last = LastCell();
    for (int k = 0; k <= last; ++k) {
        const state& c = m_pData[k];
        if (c.handle < 0 || c.base >= 0) continue;
        const std::string sWord = SpellWord(m_pData, last, k, vecText);
        if (Find(sWord.c_str()) != c.handle) WriteLog(sWord + " handle error", nullptr, false);
        std::fputs(sWord.c_str(), fp.get());
        std::fputc('\n', fp.get());
    }
    return std::fclose(fp.release()) == 0;
}

// ---- Segmentation ---------------------------------------------------------------------

int CPDAT::SegmentInto(const unsigned char* s, int len, int* handles, char* out, bool bKeepUnknown,
                       int maxLen, char sep, int* pOut) const {
    TextSink sink{s, handles, out, bKeepUnknown, sep};
    if (len > 0) RunSegmenter(m_nMode, {m_pData, LastCell(), m_charset, s, len, maxLen}, sink);
    *pOut = sink.nOut;
    return sink.count;
}

int CPDAT::MMSegmentSpans(const char* text, int len, int maxLen,
                          std::vector<_stSegSpan>& spans) const {
    spans.clear();
    if (!text || len <= 0) return 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
    SpanSink sink{spans};
    RunSegmenter(m_nMode, {m_pData, LastCell(), m_charset, s, len, maxLen}, sink);
    return static_cast<int>(spans.size());
}

int CPDAT::MMSegment(const char* text, int** handles, int* handleCap, char** result, int* resultCap,
                     bool, bool bKeepUnknown, int maxLen, char sep) {
    if (!result || !resultCap) return 0;
    const int len = text ? static_cast<int>(std::min<size_t>(strlen(text), kMaxSegmentLen)) : 0;
    if (!*result || len * 6 >= *resultCap) {
        int nCap = 0;
        if (!Reserve(result, &nCap, len * 6 + 1)) return 0;
        *resultCap = nCap;
    }
    int* pHandles = nullptr;
    if (handles && handleCap) {
        if (!*handles || len + 1 >= *handleCap) {
            int nCap = 0;
            if (!Reserve(handles, &nCap, len + 2)) return 0;
            *handleCap = nCap;
        }
        pHandles = *handles;
    }
    int nOut = 0;
    const int count = SegmentInto(reinterpret_cast<const unsigned char*>(text), len, pHandles,
                                  *result, bKeepUnknown, maxLen, sep, &nOut);
    (*result)[nOut] = '\0';
    return count;
}

char* CPDAT::MMSegment(const char* text, int maxLen, char sep) {
    static char s_sNoText[1] = {0};
    const int len = text ? static_cast<int>(std::min<size_t>(strlen(text), kMaxSegmentLen)) : 0;
    if (!m_sResult || len * 6 >= m_nResultLen) {
        char* p = new (std::nothrow) char[static_cast<size_t>(len) * 6 + 1];
        if (!p) return s_sNoText;
        delete[] m_sResult;
        m_sResult = p;
        m_nResultLen = len * 6 + 1;
    }
    int nOut = 0;
    SegmentInto(reinterpret_cast<const unsigned char*>(text), len, nullptr, m_sResult, false,
                maxLen, sep, &nOut);
    m_sResult[nOut] = '\0';
    return m_sResult;
}

float CPDAT::FileSegment(const char* inPath, const char* outPath) {
    char* pRead = nullptr;
    const size_t nRead = ReadFile(inPath, &pRead);
    const std::unique_ptr<char[]> pText(pRead);
    if (nRead == 0) return 0;
    FilePtr out = OpenFile(outPath, "w");
    if (!out) return 0;
    const clock_t tStart = clock();
    const char* sResult = MMSegment(pText.get(), -1, '\t');
    const clock_t tEnd = clock();
    std::fputs(sResult, out.get());
    std::fputs("\n", out.get());
    out.reset();
    // Seconds as ticks / 1000000; a run below one tick counts as one.
    const double dSeconds = std::max<double>(static_cast<double>(tEnd - tStart), 1.0) / 1000000.0;
    return static_cast<float>(static_cast<double>(nRead) / dSeconds / 1000.0);
}
