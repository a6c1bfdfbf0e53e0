// global_linux.cpp - the file reader and the path helpers.
//
// CReadFile holds at most one open FILE* and the size fstat gave when it was
// opened. A ReadFile call takes the mutex for its whole length: if the name
// differs from the held one (strcasecmp) it opens the new file first and only
// then closes the old handle, so a failed open leaves the held file in place;
// it then sizes the array (count + 1 bytes, value-initialised so bytes that
// fread does not deliver stay zero), seeks and reads once. The fread result is
// deliberately not used: callers get the requested count. m_bWriting and
// m_nReadThreadCount mark the replacement and the read while they run; with
// the mutex held throughout, nobody has to wait on them.
//
// The string form compacts out zero bytes, which also drops the zero fill of a
// short read, so its count is the number of real non-zero bytes.
//
// CFileIn measures its file once with fstat at opening and counts what it has
// read, so Read can refuse a request beyond the end before calling fread.

#include "global_linux.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <new>

#include "Global.h"
#include "STLCodeTrans.h"

std::string g_sDefaultDir;

namespace {

// The current working directory, or "" if it cannot be read.
std::string CurrentDirectory() {
    char* pDir = getcwd(nullptr, 0);
    std::string sDir = pDir ? pDir : "";
    std::free(pDir);
    return sDir;
}

bool FileExists(const std::string& sName) {
    return access(sName.c_str(), F_OK) == 0;
}

}  // namespace

// ---- CReadFile --------------------------------------------------------------

CReadFile::CReadFile()
    : m_fpFileRead(nullptr), m_nReadThreadCount(0), m_bWriting(false), m_nFileSize(0) {
    pthread_mutex_init(&m_mutex, nullptr);
}

CReadFile::~CReadFile() {
    pthread_mutex_destroy(&m_mutex);
    if (m_fpFileRead) std::fclose(m_fpFileRead);
}

bool CReadFile::OpenLocked(const char* sFilename) {
    FILE* fp = std::fopen(sFilename, "rb");
    if (fp == nullptr) {
        m_bWriting = false;
        WriteLog(std::string("Failed open file  ") + sFilename, nullptr, false);
        return false;
    }
    m_bWriting = true;
    if (m_fpFileRead) std::fclose(m_fpFileRead);
    m_fpFileRead = fp;
    struct stat st {};
    size_t nSize = 0;
    if (fstat(fileno(fp), &st) == 0) {
        nSize = static_cast<size_t>(st.st_size);
    } else {
        WriteError("_fstat( _fileno(m_fpFileRead) failed", nullptr);
        WriteError(sFilename, nullptr);
    }
    m_nFileSize = nSize;
    m_sFileRead = sFilename;
    m_bWriting = false;
    return true;
}

size_t CReadFile::ReadFile(const char* sFilename, char** pBuffer, long offset, size_t length,
                           bool bZeroIsAll) {
    if (sFilename == nullptr || pBuffer == nullptr) return 0;
    CMutexLock lock(&m_mutex);
    if (strcasecmp(sFilename, m_sFileRead.c_str()) != 0 && !OpenLocked(sFilename)) return 0;

    const size_t nCount = (length == 0 && bZeroIsAll) ? m_nFileSize : length;
    if (nCount == SIZE_MAX) return 0;
    char* pRead = new (std::nothrow) char[nCount + 1]();
    if (pRead == nullptr) return 0;
    *pBuffer = pRead;
    if (m_fpFileRead == nullptr) return 0;

    ++m_nReadThreadCount;
    if (std::fseek(m_fpFileRead, offset, SEEK_SET) == 0) {
        size_t nGot = std::fread(pRead, 1, nCount, m_fpFileRead);
        static_cast<void>(nGot);  // the requested count is reported regardless
    }
    --m_nReadThreadCount;
    return nCount;
}

size_t CReadFile::ReadFile(const char* sFilename, std::string& sBuffer, long offset, size_t length,
                           bool bZeroIsAll) {
    char* pRead = nullptr;
    const size_t nCount = ReadFile(sFilename, &pRead, offset, length, bZeroIsAll);
    if (nCount == 0) {
        delete[] pRead;
        sBuffer.clear();
        ReportError(std::string("Error read file ") + (sFilename ? sFilename : ""));
        return 0;
    }
    sBuffer.clear();
    sBuffer.reserve(nCount);
    for (size_t i = 0; i < nCount; ++i) {
        if (pRead[i] != '\0') sBuffer.push_back(pRead[i]);
    }
    delete[] pRead;
    return sBuffer.size();
}

size_t ReadFile(const char* sFilename, char** pBuffer, long offset, size_t length,
                bool bZeroIsAll) {
    CReadFile reader;
    return reader.ReadFile(sFilename, pBuffer, offset, length, bZeroIsAll);
}

size_t ReadFile(const char* sFilename, std::string& sBuffer, long offset, size_t length,
                bool bZeroIsAll) {
    CReadFile reader;
    return reader.ReadFile(sFilename, sBuffer, offset, length, bZeroIsAll);
}

// ---- Paths ------------------------------------------------------------------

const char* GetDefaultPath(const char* sPath) {
    if (sPath != nullptr && *sPath != '\0') {
        GetAnsiFilename(sPath, g_sDefaultDir, false);
    } else {
        g_sDefaultDir = CurrentDirectory();
    }
    return g_sDefaultDir.c_str();
}

bool GetAnsiFilename(const char* sFilename, std::string& sAnsi, bool bUTF8) {
    if (sFilename == nullptr) {
        sAnsi.clear();
        return false;
    }
    const std::string sGiven(sFilename);  // sFilename may point into sAnsi
    if (FileExists(sGiven)) {
        sAnsi = sGiven;
        return false;
    }
    std::string sConverted;
    UTF8ToANSI(sGiven.c_str(), sConverted);
    if (bUTF8 || FileExists(sConverted)) {
        sAnsi = sConverted;
        return true;
    }
    sAnsi = sGiven;
    return false;
}

// ---- Binary resource files ----------------------------------------------------

FilePtr OpenFile(const char* sPath, const char* sMode) {
    return FilePtr(sPath ? std::fopen(sPath, sMode) : nullptr, &std::fclose);
}

bool CloseWritten(FilePtr fp, bool bWritten, const std::string& sFailure) {
    if (std::fclose(fp.release()) == 0 && bWritten) return true;
    ReportError(sFailure);
    return false;
}

bool WriteAll(FILE* fp, const void* pData, size_t nBytes) {
    return nBytes == 0 || std::fwrite(pData, 1, nBytes, fp) == nBytes;
}

bool CFileIn::Open(const char* sPath, std::string& sWhy) {
    m_fp = OpenFile(sPath, "rb");
    struct stat st;
    if (!m_fp)
        sWhy = "cannot open the file";
    else if (fstat(fileno(m_fp.get()), &st) != 0 || !S_ISREG(st.st_mode))
        sWhy = "not a regular file";
    else
        m_nSize = st.st_size;
    return sWhy.empty();
}

bool CFileIn::Read(void* pDst, int64_t nBytes) {
    if (nBytes < 0 || nBytes > m_nSize - m_nPos) return false;
    if (nBytes == 0) return true;
    const size_t n = static_cast<size_t>(nBytes);
    if (std::fread(pDst, 1, n, m_fp.get()) != n) return false;
    m_nPos += nBytes;
    return true;
}
