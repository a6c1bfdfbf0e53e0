// WordList.cpp - building, indexing, saving and loading word lists.
//
// Texts are appended back to back, each with its NUL, to one malloc'd buffer
// (grown in steps of 1024000 bytes); every AddWord also records a pair
// (handle, offset) in a malloc'd array (grown in steps of 10000 pairs).
// AddWordComplete turns the pairs into the index, an int per handle below the
// bound holding its text's offset (0 for a handle without a word, so such a
// handle reads the first text).
//
// File layout, every integer 32-bit in native byte order (little-endian on
// the platforms served), no magic, version or checksum:
//
//   offset          size        field
//   0               4           word count N (unsigned)
//   4               4           bound B (signed, >= 0)
//   8               4 * (B+1)   text offset per handle 0..B (entry B unused)
//   12 + 4B         4           text block size D (signed, >= 0)
//   16 + 4B         D           NUL-terminated texts; XORed with g_sWordListKey
//                               from the block's first byte when scrambled
//
// So a file is exactly 16 + 4B + D bytes. Load checks that, that N <= D (every
// word takes at least its NUL) and that every offset below B lies inside the
// block, reading into local owners that replace the object's state only once
// all is well. The loaded block gets one spare NUL after its D bytes, so that
// any offset inside it reads a terminated text even when the block was
// unscrambled with the wrong choice.
#include "WordList.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "Global.h"
#include "PDAT.h"
#include "Utility.h"
#include "VQTEncript.h"
#include "global_linux.h"

namespace {

constexpr unsigned int kPairStep = 10000;
constexpr int kTextStep = 1024000;
constexpr int kLineBytes = 1024;

struct FreeBytes {
    void operator()(char* p) const { std::free(p); }
};

// Skips a leading UTF-8 byte-order mark.
const char* SkipBom(const char* s) {
    return std::strncmp(s, "\xEF\xBB\xBF", 3) == 0 ? s + 3 : s;
}

// ---- Reading a file -----------------------------------------------------------

// The content of a word-list file, checked.
struct LoadedList {
    uint32_t nSize = 0;
    int32_t nBound = 0;
    std::unique_ptr<int[]> pIndex;             // nBound + 1 entries; the last is not used
    std::unique_ptr<char[], FreeBytes> pText;  // nDataSize bytes and a spare NUL
    int32_t nDataSize = 0;
};

// Reads the header and the index; sWhy says what does not fit.
bool ReadIndex(CFileIn& in, LoadedList& list, std::string& sWhy) {
    const int64_t nFile = in.Size();
    if (!in.Read(&list.nSize, 4) || !in.Read(&list.nBound, 4)) {
        sWhy = "file of " + std::to_string(nFile) + " bytes is shorter than its 8-byte header";
        return false;
    }
    if (list.nBound < 0) {
        sWhy = "negative handle bound " + std::to_string(list.nBound);
        return false;
    }
    const int64_t nIndexBytes = 4 * (int64_t{list.nBound} + 1);
    if (12 + nIndexBytes > nFile) {
        sWhy = "handle bound " + std::to_string(list.nBound) + " needs " +
               std::to_string(12 + nIndexBytes) + " bytes, the file has " + std::to_string(nFile);
        return false;
    }
    list.pIndex.reset(new (std::nothrow) int[static_cast<size_t>(list.nBound) + 1]);
    if (!list.pIndex) {
        sWhy = "out of memory";
        return false;
    }
    return in.Read(list.pIndex.get(), nIndexBytes) && in.Read(&list.nDataSize, 4);
}

// Checks the text block size and the offsets, then reads the block.
bool ReadText(CFileIn& in, bool bScrambled, LoadedList& list, std::string& sWhy) {
    const int64_t nFile = in.Size();
    const int64_t nExpected = 16 + 4 * int64_t{list.nBound} + list.nDataSize;
    if (list.nDataSize < 0 || list.nDataSize == INT_MAX || nExpected != nFile) {
        sWhy = "text block of " + std::to_string(list.nDataSize) +
               " bytes does not fit a file of " + std::to_string(nFile) + " bytes";
        return false;
    }
    if (list.nSize > static_cast<uint32_t>(list.nDataSize)) {
        sWhy = "word count " + std::to_string(list.nSize) + " exceeds the text block of " +
               std::to_string(list.nDataSize) + " bytes";
        return false;
    }
    for (int h = 0; h < list.nBound; ++h) {
        const int nOffset = list.pIndex[h];
        if (nOffset != 0 && (nOffset < 0 || nOffset >= list.nDataSize)) {
            sWhy = "offset " + std::to_string(nOffset) + " of handle " + std::to_string(h) +
                   " lies outside the text block of " + std::to_string(list.nDataSize) + " bytes";
            return false;
        }
    }
    list.pText.reset(static_cast<char*>(std::malloc(static_cast<size_t>(list.nDataSize) + 1)));
    if (!list.pText || !in.Read(list.pText.get(), list.nDataSize)) {
        sWhy = list.pText ? "cannot read the text block" : "out of memory";
        return false;
    }
    list.pText[list.nDataSize] = '\0';
    if (bScrambled) CVQTEncript(g_sWordListKey).Encrypt(list.pText.get(), list.nDataSize);
    return true;
}

// ---- Writing a file -----------------------------------------------------------

// Writes the text block, scrambled when bScramble; buf is restored afterwards.
bool WriteText(FILE* fp, char* buf, int nBytes, bool bScramble) {
    if (nBytes <= 0) return true;
    CVQTEncript cScrambler(g_sWordListKey);
    if (bScramble) cScrambler.Encrypt(buf, nBytes);
    const bool bWritten = WriteAll(fp, buf, static_cast<size_t>(nBytes));
    if (bScramble) cScrambler.Encrypt(buf, nBytes);
    return bWritten;
}

}  // namespace

CWordList::CWordList(bool bEncript, CPDAT* pDict)
    : m_nSize(0),
      m_nBound(0),
      m_nWordListMemSize(0),
      m_nWordListDataSize(0),
      m_nMemSize(0),
      m_pDict(pDict),
      m_bEncript(bEncript),
      m_bAddCompleted(false),
      m_nIndexBound(0) {
    AddWordInit();
}

CWordList::~CWordList() = default;

// ---- Building -------------------------------------------------------------------

bool CWordList::ReserveText(int nNeeded) {
    int64_t nCap = m_nWordListMemSize;
    while (nCap <= nNeeded) nCap += kTextStep;
    if (nCap == m_nWordListMemSize) return true;
    if (nCap > INT_MAX) nCap = INT_MAX;
    if (nCap <= nNeeded) {
        ReportError("Word list text block full at " + std::to_string(m_nWordListDataSize) +
                    " bytes");
        return false;
    }
    void* p = std::realloc(m_pWordListBuf.get(), static_cast<size_t>(nCap));
    if (!p) {
        ReportError("Out of memory growing the word list text to " + std::to_string(nCap) +
                    " bytes");
        return false;
    }
    m_pWordListBuf.release();
    m_pWordListBuf.reset(static_cast<char*>(p));
    m_nWordListMemSize = static_cast<int>(nCap);
    return true;
}

bool CWordList::ReservePairs(unsigned int nNeeded) {
    uint64_t nCap = m_nMemSize;
    while (nCap <= nNeeded) nCap += kPairStep;
    if (nCap == m_nMemSize) return true;
    void* p = nCap > UINT_MAX ? nullptr : std::realloc(m_vecPair.get(), nCap * sizeof(word_elem));
    if (!p) {
        ReportError("Out of memory growing the word list to " + std::to_string(nCap) + " pairs");
        return false;
    }
    m_vecPair.release();
    m_vecPair.reset(static_cast<word_elem*>(p));
    m_nMemSize = static_cast<unsigned int>(nCap);
    return true;
}

int CWordList::AddWordInit() {
    m_nSize = 0;
    m_nWordListDataSize = 0;
    m_bAddCompleted = false;
    const bool bPairs = m_vecPair || ReservePairs(kPairStep - 1);
    const bool bText = m_pWordListBuf || ReserveText(kTextStep - 1);
    return bPairs && bText ? 1 : 0;
}

int CWordList::AddWord(const char* text, int handle) {
    if (!text) {
        ReportError("Cannot add a null text to the word list");
        return 0;
    }
    if (handle < 0) {
        WriteLog(text, nullptr, false);
        return 1;
    }
    if (handle == INT_MAX) {
        ReportError("Handle " + std::to_string(handle) + " is too large for the word list");
        return 0;
    }
    const size_t nLen = std::strlen(text);
    if (nLen >= static_cast<size_t>(INT_MAX - m_nWordListDataSize) || !ReservePairs(m_nSize + 1) ||
        !ReserveText(m_nWordListDataSize + static_cast<int>(nLen) + 1))
        return 0;
    m_vecPair[m_nSize] = word_elem{handle, m_nWordListDataSize};
    std::memcpy(m_pWordListBuf.get() + m_nWordListDataSize, text, nLen + 1);
    m_nWordListDataSize += static_cast<int>(nLen) + 1;
    m_nSize += 1;
    if (handle >= m_nBound) m_nBound = handle + 1;
    return 1;
}

int CWordList::AddWord(const char* text) {
    if (!text) return AddWord(text, -1);
    const char* sWord = SkipBom(text);
    return AddWord(sWord, m_pDict ? m_pDict->Find(sWord) : -1);
}

int CWordList::AddWordComplete() {
    if (m_bAddCompleted) return 1;
    std::unique_ptr<int[]> pIndex(new (std::nothrow) int[m_nBound]());
    if (!pIndex) {
        ReportError("Out of memory indexing " + std::to_string(m_nBound) + " word list handles");
        return 0;
    }
    for (unsigned int i = 0; i < m_nSize; ++i)
        pIndex[m_vecPair[i].handle] = m_vecPair[i].nWordIndex;
    m_pData = std::move(pIndex);
    m_nIndexBound = m_nBound;
    m_bAddCompleted = true;
    return 1;
}

const char* CWordList::GetWord(int handle) const {
    static const char kEmpty[] = "";
    if (handle < 0 || handle >= m_nBound || handle >= m_nIndexBound) return kEmpty;
    const int nOffset = m_pData[handle];
    if (nOffset < 0 || nOffset >= m_nWordListDataSize) return kEmpty;
    return m_pWordListBuf.get() + nOffset;
}

// ---- Files ------------------------------------------------------------------------

bool CWordList::Save(const char* path) {
    if (!m_bAddCompleted && !AddWordComplete()) return false;
    FilePtr fp = OpenFile(path, "wb");
    if (!fp) {
        ReportError("Cannot create word list file " + NameOf(path));
        return false;
    }
    std::vector<int32_t> vecHead = {static_cast<int32_t>(m_nSize), m_nBound};
    vecHead.resize(2 + static_cast<size_t>(m_nBound) + 1, 0);  // entry B stays 0
    for (int h = 0; h < m_nBound && h < m_nIndexBound; ++h) vecHead[2 + h] = m_pData[h];
    vecHead.push_back(m_nWordListDataSize);
    bool bOk = WriteAll(fp.get(), vecHead.data(), vecHead.size() * 4) &&
               WriteText(fp.get(), m_pWordListBuf.get(), m_nWordListDataSize, m_bEncript);
    return CloseWritten(std::move(fp), bOk, "Cannot write word list file " + NameOf(path));
}

bool CWordList::Load(const char* path) {
    CFileIn in;
    LoadedList list;
    std::string sWhy;
    if (!in.Open(path, sWhy) || !ReadIndex(in, list, sWhy) ||
        !ReadText(in, m_bEncript, list, sWhy)) {
        if (sWhy.empty()) sWhy = "cannot read the file";
        ReportError("Cannot load word list " + NameOf(path) + ": " + sWhy);
        return false;
    }
    m_nSize = list.nSize;
    m_nBound = list.nBound;
    m_nIndexBound = list.nBound;
    m_pData = std::move(list.pIndex);
    m_pWordListBuf.reset(list.pText.release());
    m_nWordListMemSize = list.nDataSize + 1;
    m_nWordListDataSize = list.nDataSize;
    m_bAddCompleted = true;
    return true;
}

// ---- Import and export ---------------------------------------------------------

int CWordList::Import(const char* path, CPDAT* pDict, FILE* pProgress) {
    const std::string sExport = NameOf(path) + "_wordlist_export.txt";
    FilePtr in = OpenFile(path, "r");
    FilePtr out = OpenFile(in ? sExport.c_str() : nullptr, "w");
    if (!in || !out) {
        ReportError("Cannot import word list: cannot open " + (in ? sExport : NameOf(path)));
        return 0;
    }
    if (pDict) m_pDict = pDict;
    AddWordInit();
    char sLine[kLineBytes];
    std::string sEntry;
    int nCount = 0;
    while (std::fgets(sLine, sizeof sLine, in.get())) {
        if (!ParseImportEntry(sLine, sEntry)) continue;
        const bool bBracket = sEntry.find_first_of(" \t") != std::string::npos;
        std::fprintf(out.get(), bBracket ? "[%s]\n" : "%s\n", sEntry.c_str());
        if (++nCount % 100 == 0) Progress(pProgress, "Line %d\r", nCount);
        AddWord(sEntry.c_str());
    }
    in.reset();
    out.reset();
    AddWordComplete();
    return GetItemCount();
}

int CWordList::Import(const std::vector<_stWordRecord>& vecRecords, CPDAT* pDict, bool bStoreInfo) {
    if (!pDict) {
        ReportError("Cannot import word records: no dictionary");
        return 0;
    }
    m_nSize = 0;
    m_nWordListDataSize = 0;
    std::vector<word_elem> vecPairs;
    vecPairs.reserve(kPairStep);
    int nBound = static_cast<int>(pDict->GetItemCount());
    for (const _stWordRecord& rec : vecRecords) {
        const int h = pDict->Find(rec.word.c_str());
        if (h < 0) continue;
        const char* sText = bStoreInfo ? rec.store_info.c_str() : rec.word.c_str();
        const size_t nLen = std::strlen(sText);
        if (nLen >= static_cast<size_t>(INT_MAX - m_nWordListDataSize) ||
            !ReserveText(m_nWordListDataSize + static_cast<int>(nLen) + 1))
            return 0;
        vecPairs.push_back(word_elem{h, m_nWordListDataSize});
        std::memcpy(m_pWordListBuf.get() + m_nWordListDataSize, sText, nLen + 1);
        m_nWordListDataSize += static_cast<int>(nLen) + 1;
        m_nSize += 1;
        nBound = std::max(nBound, h == INT_MAX ? h : h + 1);
    }
    std::unique_ptr<int[]> pIndex(new (std::nothrow) int[nBound]());
    if (!pIndex) {
        ReportError("Out of memory indexing " + std::to_string(nBound) + " word list handles");
        return 0;
    }
    for (const word_elem& pair : vecPairs)
        if (pair.handle < nBound) pIndex[pair.handle] = pair.nWordIndex;
    m_pData = std::move(pIndex);
    m_nBound = m_nIndexBound = nBound;
    m_bAddCompleted = true;
    return GetItemCount();
}

int CWordList::Export(const char* path, CPDAT* pDict, const char* filterPath) {
    CPDAT* pUse = pDict ? pDict : m_pDict;
    if (!pUse) {
        ReportError("Cannot export word list " + NameOf(path) + ": no dictionary");
        return 1;
    }
    const int n = static_cast<int>(pUse->GetItemCount());
    std::vector<bool> vecSkip(static_cast<size_t>(n), false);
    char sLine[kLineBytes];
    char sToken[kLineBytes];
    if (FilePtr filter = OpenFile(filterPath, "r")) {
        while (std::fgets(sLine, sizeof sLine, filter.get())) {
            if (std::sscanf(sLine, "%1023s", sToken) != 1) continue;
            const int h = pUse->Find(sToken);
            if (h >= 0 && h < n && (sToken[0] & 0x80) && std::strlen(sToken) > 2) vecSkip[h] = true;
        }
    }
    FilePtr out = OpenFile(path, "w");
    if (!out) {
        std::printf("Error open file %s.\n", NameOf(path).c_str());
        return 1;
    }
    for (int h = 0; h < n; ++h) {
        if (vecSkip[h]) continue;
        std::fputs(GetWord(h), out.get());
        std::fputc('\n', out.get());
    }
    if (std::fclose(out.release()) != 0) {
        ReportError("Cannot write word list export " + NameOf(path));
        return 1;
    }
    return 0;
}
