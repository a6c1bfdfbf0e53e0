// CodeTran.h - the map-based translator between GBK and the caller's encoding.
//
// The engine reads GBK only. A caller that speaks UTF-8, BIG5 or GB18030
// ("GBKA" in the resource names) gets its text translated word by word: the
// text is cut into words by forward maximum matching against a dictionary of
// the source encoding (CPDAT::MMSegment), each word's handle is mapped through
// an id map (first target only) and the target word list gives the text to
// emit. CodeToGBK goes from the caller's encoding into GBK, GBKToCode back.
//
// Resources: one row of six files per encoding code, loaded from the data path
// given to the constructor (normally "<data directory>/Data"):
//   code  GBK-side dict / list          code-side dict / list        code->GBK map   GBK->code map
//   1     GBKA.pdat / GBKA.wordlist     UTF8.pdat / UTF8.wordlist    UTF2GBKA.map    GBKA2UTF.map
//   2     GBK.pdat / GBK.wordlist       BIG5.pdat / BIG5.wordlist    BIG2GBK.map     GBK2BIG.map
//   3     GBK.pdat / GBK.wordlist       GBKA.pdat / GBKA.wordlist    GBKA2GBK.map    GBK2GBKA.map
//   4     GBKA.pdat / GBKA.wordlist     UTF8.pdat / UTF8.wordlist    GBKA2UTF.map    UTF2GBKA.map
//   5     GBK.pdat / GBK.wordlist       UTF8.pdat / UTF8.wordlist    UTF2GBK.map     GBK2UTF.map
// Row 4 names its maps the other way round from row 1: a data folder
// serves codes 1 and 4 with the same two map files, so code 4 translates
// with the directions swapped, and callers of code 4 rely on that. Word lists are scrambled files.
//
// Text rules (both directions): lines are taken with StrLine, so leading
// blanks and the LF of a CR/LF pair are dropped and each line ends in the one
// byte that ended it; a "^^...^^" run is copied through without its markers.
// Words that neither dictionary, map nor word list can translate become one
// blank each; into GBK, a run of adjacent such non-ASCII words is enclosed in
// one pair of "^^" markers. ASCII words pass through unchanged. Under codes 1,
// 4 and 5 a leading UTF-8 byte-order mark is skipped.
//
// Ownership: the translator owns its six resources and its scratch buffers;
// returned pointers are result.c_str() of the caller's string.
// Thread-safety: none (shared scratch buffers, the library's error text);
// callers serialise all calls.
#pragma once

#include <string>
#include <vector>

class CPDAT;
struct _stSegSpan;
class CWordList;
class CIDMaps;

class CCodeTran {
  public:
    // Loads the row of nEncoding (1..5) from sDataPath + "/" + each name, in
    // the order GBK-side dictionary, GBK-side word list, code-side dictionary,
    // code-side word list, code-to-GBK map, GBK-to-code map. Status 1 when all
    // six loaded. A code outside 1..5 loads and reports nothing (status 0). At
    // the first failure the path followed by " cannot load!\n" becomes the
    // last-error text (and goes to the error file), what was loaded is
    // released and the status stays 0. A null sDataPath reads as "".
    CCodeTran(const char* sDataPath, int nEncoding);
    virtual ~CCodeTran();
    CCodeTran(const CCodeTran&) = delete;
    CCodeTran& operator=(const CCodeTran&) = delete;

    // 1 when all six resources loaded, else 0.
    int GetStatus() const { return m_nStatus; }
    // The encoding code once loaded, else 0.
    int GetEncodeType() const { return m_nEncoding; }

    // Text of the translator's encoding into GBK, untranslatable runs marked
    // with "^^". Returns result.c_str(); null or empty sLine, or a translator
    // that did not load, gives "".
    const char* CodeToGBK(const char* sLine, std::string& result);
    // GBK text into the translator's encoding (no markers written). Same
    // contract as CodeToGBK.
    const char* GBKToCode(const char* sLine, std::string& result);

    // Whole-file forms: read sSrcFile, translate, write the result and "\n"
    // to sDsnFile (created). Under code 1 a leading byte-order mark of the
    // source is skipped (CodeToGBKFile) or one is written first
    // (GBKToCodeFile). False when the source cannot be read (or is empty) or
    // the destination cannot be created.
    bool CodeToGBKFile(const char* sSrcFile, const char* sDsnFile);
    bool GBKToCodeFile(const char* sSrcFile, const char* sDsnFile);

    // The common engine: segments sLine with pSrcDict, maps each word with
    // pIDMaps and emits pDsnWordList's text. bOutput: producing the caller's
    // final text, so no markers are written. A word found in the dictionary
    // and mapped to an id the word list has no text for is reported in the
    // error file ("Cannot find map info of <word>") and left untranslated.
    // sLine may be result's own text. Returns result.c_str(); "" for null or
    // empty sLine or a null resource.
    const char* CodeTrans(const char* sLine, std::string& result, CPDAT* pSrcDict, CIDMaps* pIDMaps,
                          CWordList* pDsnWordList, bool bOutput);

  private:
    struct Target;
    struct LineState;

    bool LoadAll(const std::string& sDir, int nEncoding);
    void ReleaseAll();
    static Target LookUpTarget(int nHandle, const CIDMaps& map, const CWordList& list);
    const std::vector<Target>* TargetsFor(CPDAT* pSrcDict, CIDMaps* pIDMaps,
                                          CWordList* pDsnWordList);
    void TranslateLine(const char* sLine, size_t nLen, LineState& st);
    void TranslateWord(const char* pWord, size_t nLen, int nHandle, LineState& st);
    bool TransFile(const char* sSrcFile, const char* sDsnFile, bool bToGBK);

    CPDAT* m_pGBKSrcDict;        // GBK side: segments GBK text for GBKToCode
    CWordList* m_pGBKWordList;   // GBK side: GBK text for CodeToGBK
    CPDAT* m_pCodeDict;          // caller's side: segments input for CodeToGBK
    CWordList* m_pCodeWordList;  // caller's side: its text for GBKToCode
    CIDMaps* m_pCode2GBKMap;     // m_pCodeDict handles -> m_pGBKWordList ids
    CIDMaps* m_pGBK2CodeMap;     // m_pGBKSrcDict handles -> m_pCodeWordList ids
    int m_nEncoding;             // encoding code, 0 until loaded
    int m_nStatus;               // 1 when all six resources loaded

    std::vector<char> m_vLine;         // modifiable copy of the text
    std::vector<_stSegSpan> m_vSpans;  // segments of the current line
    std::vector<Target> m_vToGBK;      // CodeToGBK's targets by handle, made on first use
    std::vector<Target> m_vToCode;     // GBKToCode's targets by handle, made on first use
};
