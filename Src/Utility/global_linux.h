// global_linux.h - whole-file reading and the data directory / file name paths.
//
// Text files the library takes in whole (the rule list, files to segment, the
// translator's source files) are read through CReadFile or the two free
// ReadFile wrappers. A CReadFile keeps the last file it opened and re-uses the
// handle, and the size measured at opening, while the same name (compared
// case-insensitively) is asked for again; another name replaces the handle.
// GetDefaultPath fixes the data directory g_sDefaultDir; GetAnsiFilename maps a
// file name given in UTF-8 to the GBK name under which the file exists.
// The binary resource files (dictionaries, word lists, id maps) are opened,
// checked and read through FilePtr, OpenFile, WriteAll and CFileIn.
// CMutexLock holds a pthread mutex for one scope.
//
// Failures follow the library's convention: 0 / false plus a log or error line
// (Global.h). Buffers from the array form of ReadFile are new[] arrays owned by
// the caller (delete[]).
//
// Thread-safety: one CReadFile may be shared by threads; its mutex is held for
// a whole ReadFile call, so opening, replacing and reading the handle never
// interleave. g_sDefaultDir is unguarded: callers serialise GetDefaultPath.
// A CFileIn belongs to one thread at a time.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

// Holds *pMutex from construction to the end of the scope.
class CMutexLock {
  public:
    explicit CMutexLock(pthread_mutex_t* pMutex) : m_pMutex(pMutex) {
        pthread_mutex_lock(m_pMutex);
    }
    ~CMutexLock() { pthread_mutex_unlock(m_pMutex); }
    CMutexLock(const CMutexLock&) = delete;
    CMutexLock& operator=(const CMutexLock&) = delete;

  private:
    pthread_mutex_t* m_pMutex;
};

class CReadFile {
  public:
    CReadFile();
    ~CReadFile();  // closes the handle
    CReadFile(const CReadFile&) = delete;
    CReadFile& operator=(const CReadFile&) = delete;

    // Reads `length` bytes from `offset` into a new zero-terminated array of
    // count + 1 bytes stored in *pBuffer; count is `length`, or the size of
    // the file when it was opened if length is 0 and bZeroIsAll (whatever the
    // offset). Returns count even where the file holds fewer bytes: the rest
    // of the array is zero-filled, as is all of it when offset cannot be
    // sought. Null sFilename or pBuffer, or a file that cannot be opened
    // (logged as "Failed open file  <name>"): returns 0, *pBuffer untouched.
    // An empty name while no file is held: a zeroed array, result 0.
    size_t ReadFile(const char* sFilename, char** pBuffer, long offset, size_t length,
                    bool bZeroIsAll);

    // The same delivered as text. Zero bytes in what was read are dropped and
    // the result is the number of bytes kept (0 for a file of zero bytes
    // only, without a report). When the array form returns 0 (missing, empty
    // or null name): sBuffer = "", reports "Error read file <name>", returns 0.
    size_t ReadFile(const char* sFilename, std::string& sBuffer, long offset, size_t length,
                    bool bZeroIsAll);

  private:
    // Opens sFilename and makes it the held file. REQUIRES: m_mutex held.
    // False (held file unchanged) if it cannot be opened.
    bool OpenLocked(const char* sFilename);

    std::string m_sFileRead;     // name of the held file; compared case-insensitively
    FILE* m_fpFileRead;          // handle of the held file, or null
    pthread_mutex_t m_mutex;     // held for a whole ReadFile call
    int32_t m_nReadThreadCount;  // reads in progress (0 or 1: calls are serialised)
    bool m_bWriting;             // true while the held handle is being replaced
    size_t m_nFileSize;          // size of the held file at opening; 0 before any
};

// One-shot reads through a temporary CReadFile (the file is closed on return).
// Defaults read the whole file. Same results as the members.
size_t ReadFile(const char* sFilename, char** pBuffer, long offset = 0, size_t length = 0,
                bool bZeroIsAll = true);
size_t ReadFile(const char* sFilename, std::string& sBuffer, long offset = 0, size_t length = 0,
                bool bZeroIsAll = true);

// The data directory; empty until GetDefaultPath sets it.
extern std::string g_sDefaultDir;

// Sets g_sDefaultDir and returns its text (valid until the next change).
// Non-empty sPath: stored as given (a trailing "/" is kept, none is added), or
// as its GBK form when only that exists (GetAnsiFilename with bUTF8 false).
// Null or "": the current working directory ("" if it cannot be read).
const char* GetDefaultPath(const char* sPath);

// The name to open for sFilename, in sAnsi. An existing name is kept (false).
// Otherwise the name is converted from UTF-8 to GBK: with bUTF8 the converted
// form is taken untested (true, even if byte-identical); without, it is taken
// only if it exists (true), else sAnsi = sFilename (false). Null: "" and false.
bool GetAnsiFilename(const char* sFilename, std::string& sAnsi, bool bUTF8 = false);

// ---- Binary resource files ----------------------------------------------------

// An owned FILE*, closed by std::fclose (its result unused) at the end of its life.
using FilePtr = std::unique_ptr<FILE, decltype(&std::fclose)>;

// std::fopen(sPath, sMode) as a FilePtr; empty for a null sPath or a failed open.
FilePtr OpenFile(const char* sPath, const char* sMode);

// Closes a file that was written through fp. True when bWritten (the writes
// succeeded) and the close succeeded (it flushes); otherwise reports
// sFailure (ReportError) and returns false. The file is closed either way.
bool CloseWritten(FilePtr fp, bool bWritten, const std::string& sFailure);

// Writes the nBytes at pData to fp. True when all were written (always for 0
// bytes, without touching fp or pData); false on a short write.
bool WriteAll(FILE* fp, const void* pData, size_t nBytes);

// A regular file opened for binary reading, with its size at opening. Read
// never reads short: it fails when fewer bytes remain than asked for.
class CFileIn {
  public:
    // Opens sPath ("rb") and measures it. False with sWhy = "cannot open the
    // file" (null sPath or failed open; IsOpen false) or "not a regular file"
    // (fstat fails or not a regular file; IsOpen true). sWhy is only written
    // on failure, and must come in empty.
    bool Open(const char* sPath, std::string& sWhy);
    // Whether a file is held (also after Open failed on the regular-file check).
    bool IsOpen() const { return static_cast<bool>(m_fp); }
    // The size measured at Open; 0 before.
    int64_t Size() const { return m_nSize; }
    // Reads exactly nBytes into pDst and advances. 0 bytes: true, nothing
    // read. False (pDst may be partly written) for a negative count, more than
    // remain of Size(), or a short fread.
    bool Read(void* pDst, int64_t nBytes);

  private:
    FilePtr m_fp{nullptr, &std::fclose};
    int64_t m_nSize = 0;
    int64_t m_nPos = 0;
};
