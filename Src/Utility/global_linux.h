// global_linux.h - whole-file reading and the data directory / file name paths.
//
// Text files the library takes in whole (the rule list, files to segment, the
// translator's source files) are read through CReadFile or the two free
// ReadFile wrappers. A CReadFile keeps the last file it opened and re-uses the
// handle, and the size measured at opening, while the same name (compared
// case-insensitively) is asked for again; another name replaces the handle.
// GetDefaultPath fixes the data directory g_sDefaultDir; GetAnsiFilename maps a
// file name given in UTF-8 to the GBK name under which the file exists.
//
// Failures follow the library's convention: 0 / false plus a log or error line
// (Global.h). Buffers from the array form of ReadFile are new[] arrays owned by
// the caller (delete[]).
//
// Thread-safety: one CReadFile may be shared by threads; its mutex is held for
// a whole ReadFile call, so opening, replacing and reading the handle never
// interleave. g_sDefaultDir is unguarded: callers serialise GetDefaultPath.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

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
