// FuzzTargets.cpp - fuzz entry points over the rule-list loader, dictionary
// loading and the tagged parameter reader. Inputs go through a file because
// that is how the library receives them; logging is switched off so no files
// appear in the working directory.
#include "FuzzTargets.h"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "Global.h"
#include "PDAT.h"
#include "TextParser.h"
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

// The loader prints one line per rule; keep the fuzzer's output readable.
class QuietStdout {
  public:
    QuietStdout() : m_fd(dup(STDOUT_FILENO)) {
        fflush(stdout);
        if (FILE* fp = freopen("/dev/null", "w", stdout)) (void)fp;
    }
    ~QuietStdout() {
        fflush(stdout);
        if (m_fd >= 0) {
            dup2(m_fd, STDOUT_FILENO);
            close(m_fd);
        }
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

  private:
    int m_fd;
};

}  // namespace

int FuzzRuleList(const uint8_t* pData, size_t nSize) {
    g_bLog = 0;
    ScratchFile file(pData, nSize);
    if (!file.Ok()) return 0;
    CTextParser parser;
    bool bLoaded;
    {
        QuietStdout quiet;
        bLoaded = parser.fn_bInit("", file.Path());
    }
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
