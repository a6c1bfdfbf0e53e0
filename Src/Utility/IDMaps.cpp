// IDMaps.cpp - collecting, sorting, packing, saving and loading id maps.
//
// MapAdd appends (source, target) pairs to a malloc'd array (10240 entries at
// first, then grown by 10000). MapComplete sorts them by (source, target) and
// walks the runs of equal sources: the first target of a run opens the
// source's range in the data array and every target that differs from the one
// stored before it extends the range, so repeated pairs are stored once. The
// data array keeps one entry per pair added; what the packing leaves free
// stays -1. Equal pairs are indistinguishable, so every correct sort yields
// the same packed map: completion uses std::sort, and the quadratic bublesort
// and the partition sort qksort are kept beside it with their exact rules.
//
// File layout, every integer 32-bit in native byte order (little-endian on
// the platforms served), no magic, version or checksum:
//
//   offset        size    field
//   0             4       pair count N (signed, >= 0)
//   4             4       bound B (signed, >= 0)
//   8             4 * N   target handle per data entry (>= -1)
//   8 + 4N        8 * B   start, end per source handle 0..B-1: -1, -1 for
//                         none, else 0 <= start <= end < N
//
// So a file is exactly 8 + 4N + 8B bytes. Load checks that and every range,
// reading into local owners that replace the map only once all is well.
#include "IDMaps.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "Global.h"
#include "PDAT.h"
#include "Utility.h"
#include "global_linux.h"

static_assert(sizeof(idmaps_info) == 4 && std::is_trivially_copyable_v<idmaps_info>,
              "a data entry is one 32-bit target handle in the file");
static_assert(sizeof(index_t) == 8 && std::is_trivially_copyable_v<index_t>,
              "an index entry is two 32-bit positions in the file");
static_assert(std::is_trivially_copyable_v<idmaps_elem>, "pairs live in a realloc'd array");

namespace {

constexpr int kFirstPairs = 10240;
constexpr int kPairStep = 10000;
constexpr int kLineBytes = 1024;

// Packs the sorted pairs a[0..n-1] into data and index (both all -1).
void Pack(const idmaps_elem* a, int n, idmaps_info* pData, index_t* pIndex) {
    int nPos = 0;
    for (int i = 0; i < n; ++i) {
        index_t& range = pIndex[a[i].handle1];
        if (i == 0 || a[i].handle1 != a[i - 1].handle1) {
            range.start = range.end = nPos;
            pData[nPos++].handle2 = a[i].handle2;
        } else if (a[i].handle2 != pData[nPos - 1].handle2) {
            range.end += 1;
            pData[nPos++].handle2 = a[i].handle2;
        }
    }
}

// ---- Reading a file -----------------------------------------------------------

// The content of a map file, checked.
struct LoadedMap {
    int32_t nSize = 0;
    int32_t nBound = 0;
    std::unique_ptr<idmaps_info[]> pData;
    std::unique_ptr<index_t[]> pIndex;
};

// Reads the counts and checks them against the file size.
bool ReadCounts(CFileIn& in, LoadedMap& map, std::string& sWhy) {
    const int64_t nFile = in.Size();
    if (!in.Read(&map.nSize, 4) || !in.Read(&map.nBound, 4)) {
        sWhy = "file of " + std::to_string(nFile) + " bytes is shorter than its 8-byte header";
        return false;
    }
    const int64_t nExpected = 8 + 4 * int64_t{map.nSize} + 8 * int64_t{map.nBound};
    if (map.nSize < 0 || map.nBound < 0 || nExpected != nFile) {
        sWhy = std::to_string(map.nSize) + " entries and " + std::to_string(map.nBound) +
               " sources do not fit a file of " + std::to_string(nFile) + " bytes";
        return false;
    }
    return true;
}

// Reads the data and index arrays and checks every entry.
bool ReadArrays(CFileIn& in, LoadedMap& map, std::string& sWhy) {
    map.pData.reset(new (std::nothrow) idmaps_info[map.nSize]);
    map.pIndex.reset(new (std::nothrow) index_t[map.nBound]);
    if (!map.pData || !map.pIndex) {
        sWhy = "out of memory";
        return false;
    }
    if (!in.Read(map.pData.get(), 4 * int64_t{map.nSize}) ||
        !in.Read(map.pIndex.get(), 8 * int64_t{map.nBound})) {
        sWhy = "cannot read the file";
        return false;
    }
    for (int i = 0; i < map.nSize; ++i) {
        if (map.pData[i].handle2 >= -1) continue;
        sWhy = "target " + std::to_string(map.pData[i].handle2) + " at entry " + std::to_string(i);
        return false;
    }
    for (int h = 0; h < map.nBound; ++h) {
        const index_t& r = map.pIndex[h];
        if ((r.start == -1 && r.end == -1) ||
            (r.start >= 0 && r.start <= r.end && r.end < map.nSize))
            continue;
        sWhy = "range " + std::to_string(r.start) + ".." + std::to_string(r.end) + " of source " +
               std::to_string(h) + " lies outside the " + std::to_string(map.nSize) + " entries";
        return false;
    }
    return true;
}

// ---- Import helpers -------------------------------------------------------------

// The fields of a line split at tabs, empty ones included.
std::vector<std::string> SplitTabs(const char* sLine) {
    std::vector<std::string> vecFields(1);
    for (const char* p = sLine; *p; ++p) {
        if (*p == '\t')
            vecFields.emplace_back();
        else
            vecFields.back() += *p;
    }
    return vecFields;
}

// A column of a two-column line: for a token starting with '[' the text from
// the line's first '[' up to its first ']' (or the line end), else the
// token; "_" becomes " ".
std::string ColumnText(const char* sLine, const char* sToken) {
    std::string sText = sToken;
    if (*sToken == '[') sText = BracketText(sLine);
    std::replace(sText.begin(), sText.end(), '_', ' ');
    return sText;
}

// Writes a column, bracketed when it holds a space or a tab, then cEnd.
void WriteColumn(FILE* fp, const std::string& sText, char cEnd) {
    const bool bBracket = sText.find_first_of(" \t") != std::string::npos;
    std::fprintf(fp, bBracket ? "[%s]%c" : "%s%c", sText.c_str(), cEnd);
}

}  // namespace

CIDMaps::CIDMaps()
    : m_nMemSize(0), m_nSize(0), m_nBound(0), m_nQKSortCount(0), m_nDataLen(0), m_nIndexLen(0) {}

CIDMaps::~CIDMaps() = default;

// ---- Building -------------------------------------------------------------------

bool CIDMaps::ReservePairs(int nNeeded) {
    int64_t nCap = m_nMemSize;
    while (nCap < nNeeded) nCap += nCap == 0 ? kFirstPairs : kPairStep;
    if (nCap == m_nMemSize) return true;
    void* p =
        nCap > INT32_MAX ? nullptr : std::realloc(m_vecBiWord.get(), nCap * sizeof(idmaps_elem));
    if (!p) {
        ReportError("Out of memory growing the id map to " + std::to_string(nCap) + " pairs");
        return false;
    }
    m_vecBiWord.release();
    m_vecBiWord.reset(static_cast<idmaps_elem*>(p));
    m_nMemSize = static_cast<int>(nCap);
    return true;
}

int CIDMaps::MapInit() {
    m_nSize = 0;
    m_nBound = 0;
    return m_vecBiWord || ReservePairs(kFirstPairs) ? 1 : 0;
}

int CIDMaps::MapAdd(int handle1, int handle2) {
    if (handle1 < 0 || handle2 < -1) return 1;
    if (!m_vecBiWord && !MapInit()) return 0;
    if (handle1 == INT32_MAX || m_nSize == INT32_MAX || !ReservePairs(m_nSize + 1)) {
        if (handle1 == INT32_MAX || m_nSize == INT32_MAX) ReportError("Id map pair out of range");
        return 0;
    }
    idmaps_elem& pair = m_vecBiWord[m_nSize];
    pair.handle1 = handle1;
    pair.handle2 = handle2;
    m_nSize += 1;
    if (handle1 >= m_nBound) m_nBound = handle1 + 1;
    return 1;
}

int CIDMaps::MapComplete(FILE* pProgress) {
    if (m_vecBiWord) {
        std::unique_ptr<idmaps_info[]> pData(new (std::nothrow) idmaps_info[m_nSize]);
        std::unique_ptr<index_t[]> pIndex(new (std::nothrow) index_t[m_nBound]);
        if (!pData || !pIndex) {
            ReportError("Out of memory packing an id map of " + std::to_string(m_nSize) + " pairs");
            return 0;
        }
        fastsort(m_vecBiWord.get(), 0, m_nSize - 1);
        Pack(m_vecBiWord.get(), m_nSize, pData.get(), pIndex.get());
        m_pData = std::move(pData);
        m_pIndex = std::move(pIndex);
        m_nDataLen = m_nSize;
        m_nIndexLen = m_nBound;
    }
    Progress(pProgress, "Build map success!\n");
    return 1;
}

// ---- Sorting ----------------------------------------------------------------------

void CIDMaps::bublesort(idmaps_elem* a, int low, int high) {
    for (int i = low; i <= high; ++i)
        for (int j = i + 1; j <= high; ++j)
            if (a[j] < a[i]) std::swap(a[i], a[j]);
}

void CIDMaps::qksort(idmaps_elem* a, int low, int high) {
    if (low < high && high > low + 9 && m_nQKSortCount <= 9) {
        const int p = qkpass(a, low, high);
        if (p > low && p < high)
            m_nQKSortCount = 0;
        else
            m_nQKSortCount += 1;
        qksort(a, low, p - 1);
        qksort(a, p + 1, high);
    } else if (m_nQKSortCount > 9 && low < high) {
        bublesort(a, low, high);
        m_nQKSortCount = 0;
    } else if (high <= low + 10 && low < high) {
        bublesort(a, low, high);
        m_nQKSortCount = 0;
    }
}

int CIDMaps::qkpass(idmaps_elem* a, int low, int high) {
    const idmaps_elem pivot = a[low];
    while (low < high) {
        while (low < high && pivot <= a[high]) --high;
        a[low] = a[high];
        while (low < high && a[low] <= pivot) ++low;
        a[high] = a[low];
    }
    a[low] = pivot;
    return low;
}

void CIDMaps::fastsort(idmaps_elem* a, int low, int high) {
    if (low < high) std::sort(a + low, a + high + 1);
}

// ---- Lookups ----------------------------------------------------------------------

const idmaps_info* CIDMaps::GetMaps(int handle1, int* count) const {
    if (count) *count = 0;
    if (handle1 < 0 || handle1 >= m_nIndexLen || m_pIndex[handle1].start == -1) return nullptr;
    const index_t& range = m_pIndex[handle1];
    if (count) *count = range.end - range.start + 1;
    return &m_pData[range.start];
}

int CIDMaps::GetMapID(int handle1) const {
    int nCount = 0;
    const idmaps_info* pTargets = GetMaps(handle1, &nCount);
    if (!pTargets) return -1;
    int nMin = pTargets[0].handle2;
    for (int i = 1; i < nCount; ++i) nMin = std::min(nMin, pTargets[i].handle2);
    return nMin;
}

int CIDMaps::GetSimMaps(int handle, std::vector<int>& out) const {
    out.clear();
    int nCount = 0;
    const idmaps_info* pTargets = GetMaps(handle, &nCount);
    if (nCount == 1) {
        const int nOnly = pTargets[0].handle2;
        out.push_back(nOnly);
        pTargets = GetMaps(nOnly, &nCount);
    }
    if (nCount < 2) return nCount;
    for (int i = 0; i < nCount; ++i)
        if (pTargets[i].handle2 != handle) out.push_back(pTargets[i].handle2);
    return nCount;
}

// ---- Files ------------------------------------------------------------------------

bool CIDMaps::Save(const char* path) {
    FilePtr fp = OpenFile(path, "wb");
    if (!fp) {
        ReportError("Cannot create id map file " + NameOf(path));
        return false;
    }
    const int32_t nHead[2] = {m_nDataLen, m_nIndexLen};
    const size_t nData = static_cast<size_t>(m_nDataLen), nIndex = static_cast<size_t>(m_nIndexLen);
    bool bOk = std::fwrite(nHead, 4, 2, fp.get()) == 2 &&
               (nData == 0 || std::fwrite(m_pData.get(), 4, nData, fp.get()) == nData) &&
               (nIndex == 0 || std::fwrite(m_pIndex.get(), 8, nIndex, fp.get()) == nIndex);
    return CloseWritten(std::move(fp), bOk, "Cannot write id map file " + NameOf(path));
}

bool CIDMaps::Load(const char* path) {
    CFileIn in;
    LoadedMap map;
    std::string sWhy;
    if (!in.Open(path, sWhy) || !ReadCounts(in, map, sWhy) || !ReadArrays(in, map, sWhy)) {
        ReportError("Cannot load id map " + NameOf(path) + ": " + sWhy);
        return false;
    }
    m_nSize = m_nDataLen = map.nSize;
    m_nBound = m_nIndexLen = map.nBound;
    m_pData = std::move(map.pData);
    m_pIndex = std::move(map.pIndex);
    m_vecBiWord.reset();  // a loaded map is complete; a new MapAdd starts afresh
    m_nMemSize = 0;
    return true;
}

// ---- Import -----------------------------------------------------------------------

int CIDMaps::Import(const char* path, CPDAT* pDict, FILE* pProgress) {
    FilePtr in = OpenFile(pDict ? path : nullptr, "r");
    if (!in) {
        ReportError("Cannot import id map " + NameOf(path) +
                    (pDict ? ": cannot open the file" : ": no dictionary"));
        return 0;
    }
    MapInit();
    char sLine[kLineBytes];
    int nLines = 0;
    while (std::fgets(sLine, sizeof sLine, in.get())) {
        std::vector<std::string> vecFields = SplitTabs(sLine);
        if (vecFields.size() < 2) continue;
        std::string& sLast = vecFields.back();
        if (!sLast.empty()) sLast.pop_back();  // taken to be the line end
        const int nTarget = pDict->Find(sLast.c_str());
        for (size_t i = 0; i + 1 < vecFields.size() && nTarget >= 0; ++i) {
            const int nSource = pDict->Find(vecFields[i].c_str());
            if (nSource != nTarget)
                MapAdd(nSource, nTarget);
            else
                ReportError(" invalid argument!");
        }
        if (nLines % 100 == 0) Progress(pProgress, "%d\r", nLines);
        ++nLines;
    }
    in.reset();
    MapComplete(pProgress);
    return m_nSize;
}

int CIDMaps::Import(const char* path, CPDAT* pSrcDict, CPDAT* pDstDict, FILE* pProgress) {
    const std::string sExport = NameOf(path) + "_map_export.txt";
    FilePtr in = OpenFile(pSrcDict && pDstDict ? path : nullptr, "r");
    FilePtr out = OpenFile(in ? sExport.c_str() : nullptr, "w");
    if (!in || !out) {
        ReportError("Cannot import id map " + NameOf(path) + ": " +
                    (!pSrcDict || !pDstDict ? "no dictionary"
                                            : "cannot open " + (in ? sExport : NameOf(path))));
        return 0;
    }
    MapInit();
    char sLine[kLineBytes];
    int nLines = 0;
    while (std::fgets(sLine, sizeof sLine, in.get())) {
        char sTok1[kLineBytes] = "", sTok2[kLineBytes] = "";
        std::sscanf(sLine, "%1023s %1023s", sTok1, sTok2);
        const char* pTok1 = std::strncmp(sTok1, "\xEF\xBB\xBF", 3) == 0 ? sTok1 + 3 : sTok1;
        const std::string sSource = ColumnText(sLine, pTok1), sTarget = ColumnText(sLine, sTok2);
        WriteColumn(out.get(), sSource, '\t');
        WriteColumn(out.get(), sTarget, '\n');
        if (++nLines % 100 == 0) Progress(pProgress, "Line %d: %s->%s\n", nLines, sTok1, sTok2);
        const int s = pSrcDict->Find(sSource.c_str()), t = pDstDict->Find(sTarget.c_str());
        if (s >= 0 && (pSrcDict != pDstDict || s != t))
            MapAdd(s, t);
        else
            ReportError((s < 0 ? sSource : "") + (t < 0 ? " " + sTarget : "") +
                        " invalid argument!");
    }
    in.reset();
    out.reset();
    MapComplete(pProgress);
    return m_nSize;
}
