// CodeTran.cpp - loading the six resources and the word-by-word translation.
//
// CodeTrans copies the text once into a private buffer and takes it apart
// line by line with StrLine (marked runs enabled), restoring each saved
// separator byte before going on, so the text is walked once. The words of a
// line are what dictionary segmentation writes (each segment followed by a
// tab) read back between tabs, each looked up with Find. Instead of writing
// and re-reading that text, the line is segmented into spans of itself
// (CPDAT::MMSegmentSpans) and each span is taken apart at its tab bytes (it
// rarely has any), exactly as the tab walk would see it. The span buffer is
// kept between calls.
//
// Marker merging: the only question ever asked of "the text last appended as a
// unit" is whether it is "^^", so LineState keeps that one bit.
#include "CodeTran.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "Global.h"
#include "IDMaps.h"
#include "PDAT.h"
#include "Utility.h"
#include "WordList.h"
#include "global_linux.h"

namespace {

constexpr int kCodeCount = 5;
constexpr int kResourceCount = 6;  // per row, in load order

// File names per encoding code (row = code - 1), in load order: GBK-side
// dictionary, GBK-side word list, code-side dictionary, code-side word list,
// code-to-GBK map, GBK-to-code map. Row 4's maps are the other way round from
// row 1's (see CodeTran.h).
constexpr const char* kResourceNames[kCodeCount][kResourceCount] = {
    {"GBKA.pdat", "GBKA.wordlist", "UTF8.pdat", "UTF8.wordlist", "UTF2GBKA.map", "GBKA2UTF.map"},
    {"GBK.pdat", "GBK.wordlist", "BIG5.pdat", "BIG5.wordlist", "BIG2GBK.map", "GBK2BIG.map"},
    {"GBK.pdat", "GBK.wordlist", "GBKA.pdat", "GBKA.wordlist", "GBKA2GBK.map", "GBK2GBKA.map"},
    {"GBKA.pdat", "GBKA.wordlist", "UTF8.pdat", "UTF8.wordlist", "GBKA2UTF.map", "UTF2GBKA.map"},
    {"GBK.pdat", "GBK.wordlist", "UTF8.pdat", "UTF8.wordlist", "UTF2GBK.map", "GBK2UTF.map"},
};

constexpr char kBom[] = "\xEF\xBB\xBF";
// Longest line segmented as a whole (the dictionary's segmentation limit).
constexpr size_t kMaxLineLen = (INT_MAX - 1) / 6;
constexpr size_t kBomLen = 3;

bool StartsWithBom(const char* s) {
    return std::strncmp(s, kBom, kBomLen) == 0;
}

bool SkipsBom(int nEncoding) {
    return nEncoding == 1 || nEncoding == 4 || nEncoding == 5;
}

bool HighBit(char c) {
    return (static_cast<unsigned char>(c) & 0x80) != 0;
}

// The word is the marker "^^" itself.
bool IsMarker(const char* pWord, size_t nLen) {
    return nLen == 2 && pWord[0] == '^' && pWord[1] == '^';
}

// Loads one resource object from sPath into a fresh owner; null on failure.
template <typename T, typename... Args>
T* LoadResource(const std::string& sPath, Args... args) {
    T* pObj = new T(args...);
    if (pObj->Load(sPath.c_str())) return pObj;
    delete pObj;
    return nullptr;
}

// The translation being written: bytes go straight into the caller's string,
// which grows geometrically and is cut to length by Finish. (Appending word
// by word through std::string costs more than the translation itself.)
class OutText {
  public:
    OutText(std::string& s, size_t nExpected) : m_s(s) { m_s.resize(nExpected); }
    void Append(const char* p, size_t n) {
        if (m_n + n > m_s.size()) m_s.resize(std::max(2 * m_s.size(), m_n + n + 64));
        char* q = &m_s[m_n];
        if (n <= 8) {
            for (size_t k = 0; k < n; ++k) q[k] = p[k];
        } else {
            std::memcpy(q, p, n);
        }
        m_n += n;
    }
    void Append(const char* s) { Append(s, std::strlen(s)); }
    void Append(char c) { Append(&c, 1); }
    // Takes back the last n bytes written (as many as there are).
    void DropLast(size_t n) { m_n -= std::min(n, m_n); }
    const char* Finish() {
        m_s.resize(m_n);
        return m_s.c_str();
    }

  private:
    std::string& m_s;
    size_t m_n = 0;
};

}  // namespace

// What a source handle translates to through a map and a word list.
struct CCodeTran::Target {
    enum Kind : unsigned char { kNoMap, kText, kNoText };
    const char* pText = nullptr;  // kText: the word list's text
    unsigned int nLen = 0;        // its length
    Kind kind = kNoMap;           // kNoMap: no map entry; kNoText: mapped to an id without text
};

// The per-call state of one translation.
struct CCodeTran::LineState {
    OutText& out;
    CPDAT* pSrcDict;
    CIDMaps* pIDMaps;
    CWordList* pDsnWordList;
    const std::vector<Target>* pTargets;  // by handle, or null: ask the map and list
    bool bOutput;
    bool bPrevMarker;  // the text last appended as a unit was the closing "^^"
};

// The target of nHandle (>= 0) read from the map and the word list.
CCodeTran::Target CCodeTran::LookUpTarget(int nHandle, const CIDMaps& map, const CWordList& list) {
    Target t;
    int nCount = 0;
    const idmaps_info* pMaps = map.GetMaps(nHandle, &nCount);
    if (!pMaps || nCount <= 0) return t;
    const char* sText = list.GetWord(pMaps[0].handle2);
    if (sText && *sText) {
        t.pText = sText;
        t.nLen = static_cast<unsigned int>(std::strlen(sText));
        t.kind = Target::kText;
    } else {
        t.kind = Target::kNoText;
    }
    return t;
}

// The target table of one direction of the translator's own resources, made
// on first use: the resources never change after loading, and a table lookup
// per word is much cheaper than the map's and the list's.
const std::vector<CCodeTran::Target>* CCodeTran::TargetsFor(CPDAT* pSrcDict, CIDMaps* pIDMaps,
                                                            CWordList* pDsnWordList) {
    std::vector<Target>* pTable = nullptr;
    if (pSrcDict == m_pCodeDict && pIDMaps == m_pCode2GBKMap && pDsnWordList == m_pGBKWordList) {
        pTable = &m_vToGBK;
    } else if (pSrcDict == m_pGBKSrcDict && pIDMaps == m_pGBK2CodeMap &&
               pDsnWordList == m_pCodeWordList) {
        pTable = &m_vToCode;
    } else {
        return nullptr;
    }
    if (pTable->empty() && pIDMaps->GetBound() > 0) {
        pTable->resize(static_cast<size_t>(pIDMaps->GetBound()));
        for (int h = 0; h < pIDMaps->GetBound(); ++h)
            (*pTable)[static_cast<size_t>(h)] = LookUpTarget(h, *pIDMaps, *pDsnWordList);
    }
    return pTable;
}

CCodeTran::CCodeTran(const char* sDataPath, int nEncoding)
    : m_pGBKSrcDict(nullptr),
      m_pGBKWordList(nullptr),
      m_pCodeDict(nullptr),
      m_pCodeWordList(nullptr),
      m_pCode2GBKMap(nullptr),
      m_pGBK2CodeMap(nullptr),
      m_nEncoding(0),
      m_nStatus(0) {
    if (nEncoding < 1 || nEncoding > kCodeCount) return;
    if (!LoadAll(sDataPath ? sDataPath : "", nEncoding)) {
        ReleaseAll();
        return;
    }
    m_nEncoding = nEncoding;
    m_nStatus = 1;
}

CCodeTran::~CCodeTran() {
    ReleaseAll();
}

bool CCodeTran::LoadAll(const std::string& sDir, int nEncoding) {
    const char* const* names = kResourceNames[nEncoding - 1];
    std::string sPath;  // the file being loaded: the failing one when a load fails
    auto path = [&](int i) -> const std::string& { return sPath = sDir + "/" + names[i]; };
    // In the row's order; && stops at the first file that does not load.
    const bool bLoaded = (m_pGBKSrcDict = LoadResource<CPDAT>(path(0), 0)) &&
                         (m_pGBKWordList = LoadResource<CWordList>(path(1), true, m_pGBKSrcDict)) &&
                         (m_pCodeDict = LoadResource<CPDAT>(path(2), 0)) &&
                         (m_pCodeWordList = LoadResource<CWordList>(path(3), true, m_pCodeDict)) &&
                         (m_pCode2GBKMap = LoadResource<CIDMaps>(path(4))) &&
                         (m_pGBK2CodeMap = LoadResource<CIDMaps>(path(5)));
    if (!bLoaded) ReportError(sPath + " cannot load!\n");
    return bLoaded;
}

void CCodeTran::ReleaseAll() {
    delete m_pGBKSrcDict;
    delete m_pGBKWordList;
    delete m_pCodeDict;
    delete m_pCodeWordList;
    delete m_pCode2GBKMap;
    delete m_pGBK2CodeMap;
    m_pGBKSrcDict = m_pCodeDict = nullptr;
    m_pGBKWordList = m_pCodeWordList = nullptr;
    m_pCode2GBKMap = m_pGBK2CodeMap = nullptr;
}

const char* CCodeTran::CodeToGBK(const char* sLine, std::string& result) {
    return CodeTrans(sLine, result, m_pCodeDict, m_pCode2GBKMap, m_pGBKWordList, false);
}

const char* CCodeTran::GBKToCode(const char* sLine, std::string& result) {
    return CodeTrans(sLine, result, m_pGBKSrcDict, m_pGBK2CodeMap, m_pCodeWordList, true);
}

const char* CCodeTran::CodeTrans(const char* sLine, std::string& result, CPDAT* pSrcDict,
                                 CIDMaps* pIDMaps, CWordList* pDsnWordList, bool bOutput) {
    if (!sLine || !pSrcDict || !pIDMaps || !pDsnWordList) {
        result.clear();
        return result.c_str();
    }
    if (SkipsBom(m_nEncoding) && StartsWithBom(sLine)) sLine += kBomLen;
    const size_t nLen = std::strlen(sLine);
    m_vLine.assign(sLine, sLine + nLen + 1);  // before result changes: sLine may be its text
    result.clear();
    if (nLen == 0) return result.c_str();
    OutText out(result, nLen + nLen / 2 + 16);

    LineState st{
        out,     pSrcDict, pIDMaps, pDsnWordList, TargetsFor(pSrcDict, pIDMaps, pDsnWordList),
        bOutput, false};
    char* pCur = m_vLine.data();
    while (pCur) {
        char* pNext = nullptr;
        char chSep = 0;
        int nStatus = 0;
        const char* pLine = StrLine(pCur, &pNext, &chSep, &nStatus, true);
        if (!pLine) break;
        // StrLine zeroed the line's end byte at pNext (when there is one).
        const size_t nLine = pNext ? static_cast<size_t>(pNext - pLine) : std::strlen(pLine);
        if (nStatus == 1) {
            out.Append(pLine, std::strlen(pLine));  // a marked run, copied without its markers
        } else {
            TranslateLine(pLine, nLine, st);
        }
        if (chSep != '^' && chSep != 0) out.Append(chSep);
        if (pNext && chSep != 0) *pNext = chSep;
        pCur = pNext;
    }
    return out.Finish();
}

void CCodeTran::TranslateLine(const char* sLine, size_t nLen, LineState& st) {
    const int nSegLen = static_cast<int>(std::min(nLen, kMaxLineLen));
    st.pSrcDict->MMSegmentSpans(sLine, nSegLen, -1, m_vSpans);
    st.bPrevMarker = false;  // the merging of marked runs does not cross lines
    // The words are the segments read back between tabs: a segment holding
    // tab bytes falls apart into its pieces between them.
    const bool bTabs = std::memchr(sLine, '\t', static_cast<size_t>(nSegLen)) != nullptr;
    for (const _stSegSpan& span : m_vSpans) {
        const char* p = sLine + span.iStart;
        const char* const pSegEnd = p + span.nLen;
        while (p < pSegEnd) {
            const char* pTab =
                bTabs ? static_cast<const char*>(std::memchr(p, '\t', pSegEnd - p)) : nullptr;
            const char* pEnd = pTab ? pTab : pSegEnd;
            const unsigned int n = static_cast<unsigned int>(pEnd - p);
            if (n > 0) TranslateWord(p, n, st.pSrcDict->Find(p, n), st);
            p = pEnd + 1;
        }
    }
}

void CCodeTran::TranslateWord(const char* pWord, size_t nLen, int nHandle, LineState& st) {
    OutText& out = st.out;
    if (nHandle >= 0) {
        const std::vector<Target>* pTable = st.pTargets;
        const Target t = !pTable ? LookUpTarget(nHandle, *st.pIDMaps, *st.pDsnWordList)
                         : static_cast<size_t>(nHandle) < pTable->size()
                             ? (*pTable)[static_cast<size_t>(nHandle)]
                             : Target();
        st.bPrevMarker = IsMarker(pWord, nLen);
        if (t.kind == Target::kText) {
            out.Append(t.pText, t.nLen);
            return;
        }
        if (t.kind == Target::kNoText)
            WriteError("Cannot find map info of " + std::string(pWord, nLen), nullptr);
    }
    const bool bInvalid = HighBit(pWord[0]);
    if (bInvalid && st.bPrevMarker) {
        out.DropLast(2);  // one pair of markers for the whole run
    } else if (!st.bOutput && bInvalid) {
        out.Append("^^", 2);
    }
    if (bInvalid) {
        out.Append(' ');
    } else {
        out.Append(pWord, nLen);
    }
    if (!st.bOutput && bInvalid) {
        out.Append("^^", 2);
        st.bPrevMarker = true;
    } else {
        st.bPrevMarker = IsMarker(pWord, nLen);
    }
}

bool CCodeTran::CodeToGBKFile(const char* sSrcFile, const char* sDsnFile) {
    return TransFile(sSrcFile, sDsnFile, true);
}

bool CCodeTran::GBKToCodeFile(const char* sSrcFile, const char* sDsnFile) {
    return TransFile(sSrcFile, sDsnFile, false);
}

bool CCodeTran::TransFile(const char* sSrcFile, const char* sDsnFile, bool bToGBK) {
    std::string sText;
    if (ReadFile(sSrcFile, sText) == 0) return false;
    FilePtr fp = OpenFile(sDsnFile, "wt");
    if (!fp) return false;
    const char* pText = sText.c_str();
    if (m_nEncoding == 1 && bToGBK && StartsWithBom(pText)) pText += kBomLen;
    if (m_nEncoding == 1 && !bToGBK) WriteAll(fp.get(), kBom, kBomLen);
    std::string sResult;
    if (bToGBK) {
        CodeToGBK(pText, sResult);
    } else {
        GBKToCode(pText, sResult);
    }
    sResult += '\n';
    return WriteAll(fp.get(), sResult.data(), sResult.size());
}
