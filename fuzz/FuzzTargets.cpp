// FuzzTargets.cpp - fuzz entry points over the rule-list loader, dictionary
// loading, the tagged parameter reader and the code translator. Inputs go through a file because
// that is how the library receives them; logging is switched off so no files
// appear in the working directory.
#include "FuzzTargets.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "CodeTran.h"
#include "Global.h"
#include "IDMaps.h"
#include "PDAT.h"
#include "TextParser.h"
#include "WordList.h"
#include "XMLParamReader.h"

namespace {

// A scratch file holding the input, removed on destruction.
class ScratchFile {
  public:
    ScratchFile(const uint8_t* pData, size_t nSize) {
        char sPath[] = "/tmp/qxfuzz.XXXXXX";
        const int fd = mkstemp(sPath);
        if (fd < 0) return;
        m_sPath = sPath;
        size_t nDone = 0;
        while (nDone < nSize) {
            const ssize_t n = write(fd, pData + nDone, nSize - nDone);
            if (n <= 0) break;
            nDone += static_cast<size_t>(n);
        }
        close(fd);
    }
    ~ScratchFile() {
        if (!m_sPath.empty()) unlink(m_sPath.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    const char* Path() const { return m_sPath.c_str(); }
    bool Ok() const { return !m_sPath.empty(); }

  private:
    std::string m_sPath;
};

}  // namespace

int FuzzRuleList(const uint8_t* pData, size_t nSize) {
    g_bLog = 0;
    ScratchFile file(pData, nSize);
    if (!file.Ok()) return 0;
    CTextParser parser;
    const bool bLoaded = parser.fn_bInit("", file.Path(), nullptr);  // no progress lines
    if (bLoaded) {
        // The rule list's own bytes make a document full of its keywords.
        const std::string sText(reinterpret_cast<const char*>(pData), nSize);
        _stDoc doc;
        doc.sTitle = sText.substr(0, nSize / 4);
        doc.sContent = sText;
        doc.sAuthor = doc.sBoard = doc.sDatatype = sText.substr(0, 16);
        parser.fn_bClassify(doc, 1);
        for (const _stRule& rule : parser.m_vstRules) parser.fn_vGetDetail(rule.sClass);
    }
    parser.fn_vClear();
    return 0;
}

int FuzzPdatLoad(const uint8_t* pData, size_t nSize) {
    g_bLog = 0;
    ScratchFile file(pData, nSize);
    if (!file.Ok()) return 0;
    CPDAT dict(1);
    if (dict.Load(file.Path())) {
        const std::string sText(reinterpret_cast<const char*>(pData), nSize < 4096 ? nSize : 4096);
        dict.Find(sText.c_str());
        dict.MMFullScan(sText.c_str());
        int nHandle = -1;
        bool bSpace = false;
        dict.GetMaxWord(sText.c_str(), &nHandle, &bSpace);
    }
    return 0;
}

int FuzzParamReader(const uint8_t* pData, size_t nSize) {
    if (nSize == 0) return 0;
    // The first line is the path to look up; the rest is the tagged text.
    const std::string sAll(reinterpret_cast<const char*>(pData), nSize);
    const size_t nEol = sAll.find('\n');
    const std::string sPath = sAll.substr(0, nEol);
    const std::string sText = nEol == std::string::npos ? sAll : sAll.substr(nEol + 1);
    if (sText.empty()) return 0;
    CXMLParamReader reader(sText.data(), static_cast<int>(sText.size()));
    std::string sValue;
    int nValue = 0;
    double dValue = 0;
    reader.getParamString(sPath.c_str(), sValue);
    reader.getParamInt(sPath.c_str(), nValue);
    reader.getParamDouble(sPath.c_str(), dValue);
    return 0;
}

int FuzzCodeTran(const uint8_t* pData, size_t nSize) {
    if (nSize == 0) return 0;
    g_bLog = 0;
    // Byte 0 picks the dictionary's mode; up to the first 0x01 byte come the
    // dictionary's words, one a line; the rest is the text. Word h maps to
    // itself and reads back as its own bytes, except every third, which maps
    // to an id without text.
    const std::string sAll(reinterpret_cast<const char*>(pData) + 1, nSize - 1);
    const size_t nSplit = sAll.find('\x01');
    const std::string sWords = sAll.substr(0, nSplit);
    const std::string sText = nSplit == std::string::npos ? sAll : sAll.substr(nSplit + 1);
    CPDAT dict(pData[0] % 3);
    CIDMaps map;
    CWordList list(true, nullptr);
    map.MapInit();
    size_t nFrom = 0;
    for (int h = 0; nFrom <= sWords.size() && h < 200; ++h) {
        const size_t nEnd = std::min(sWords.find('\n', nFrom), sWords.size());
        const std::string sWord = sWords.substr(nFrom, nEnd - nFrom);
        nFrom = nEnd + 1;
        const int nHandle = dict.AddWord(sWord.c_str(), false);
        if (nHandle < 0) continue;
        map.MapAdd(nHandle, nHandle % 3 == 2 ? nHandle + 1000 : nHandle);
        list.AddWord(sWord.c_str(), nHandle);
    }
    dict.AddWordComplete();
    map.MapComplete(nullptr);
    list.AddWordComplete();
    CCodeTran tran(nullptr, 0);
    std::string sOut;
    tran.CodeTrans(sText.c_str(), sOut, &dict, &map, &list, false);
    tran.CodeTrans(sOut.c_str(), sOut, &dict, &map, &list, true);  // in place
    return 0;
}
