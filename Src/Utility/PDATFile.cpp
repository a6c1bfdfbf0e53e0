// PDATFile.cpp - the dictionary's files: binary save and load, text import
// and export.
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
// Export spells each word back from its last cell through the parents: the
// character of a cell is its index less abs(base) of its parent, and a
// first-character cell's index is its own dense code.
#include "PDAT.h"

#include "Global.h"
#include "MallocPtr.h"
#include "PDATWalk.h"
#include "Utility.h"
#include "global_linux.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

using pdat_walk::Abs;

namespace {

constexpr int kCodes = 65536;
constexpr int64_t kMapBytes = 4 * int64_t{kCodes};
constexpr int64_t kEmptyFileBytes = kMapBytes + 12;  // map, bound, count, mode
constexpr int kLineBytes = 3072;

// ---- Loading ----------------------------------------------------------------------

// The content of a dictionary file, checked.
struct LoadedDict {
    std::unique_ptr<int[]> pCharset;  // kCodes entries
    int32_t nLowerBound = 0;
    uint32_t nItemCount = 0;
    MallocPtr<state> pCells;  // nLowerBound + 1 cells, or null
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
    return Import(path, pExclude, ClassicProgress());
}

int CPDAT::Import(const char* path, CPDAT* pExclude, FILE* pProgress) {
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
            Progress(pProgress, "%d\t%s Completed!\r", static_cast<int>(m_nItemCount),
                     sEntry.c_str());
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
