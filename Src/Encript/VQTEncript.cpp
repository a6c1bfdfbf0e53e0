// VQTEncript.cpp - XOR with a repeating key over buffers, strings and files.
//
// The buffer form is the only transformation: a key index j starts at 0 for
// each call, byte i is XORed with key[j], and j wraps to 0 after the last key
// byte, so byte i always meets key[i mod key length]. The string form runs it
// over the string's bytes. The file and stream forms read the whole source
// into one array of size + 1 bytes (the size measured by seeking to the end),
// scramble it in one call, and only then create the destination and write the
// size bytes, so a failing source never clobbers the destination and a file
// can be scrambled onto itself. Sources must be regular files (or streams that
// can seek); a directory or a pipe is rejected before anything is allocated.

#include "VQTEncript.h"

#include <sys/stat.h>

#include <cstring>
#include <new>

#include "Global.h"
#include "global_linux.h"

namespace {

// Size of fp's content, found by seeking to its end; fp is left at its start.
// False for a stream that is not a regular file (when it has a descriptor) or
// that cannot seek or tell.
bool MeasureStream(FILE* fp, long& nSize) {
    struct stat stInfo;
    const int fd = fileno(fp);
    if (fd >= 0 && (fstat(fd, &stInfo) != 0 || !S_ISREG(stInfo.st_mode))) return false;
    if (std::fseek(fp, 0, SEEK_END) != 0) return false;
    nSize = std::ftell(fp);
    return nSize >= 0 && std::fseek(fp, 0, SEEK_SET) == 0;
}

// Reads the whole content of fp (from its start) into a new array of
// nSize + 1 bytes. Reports and returns false on any failure; sWhat names the
// source in the message ("file <path>", "the stream for <path>").
bool ReadWhole(FILE* fp, const std::string& sWhat, std::unique_ptr<char[]>& pData, long& nSize) {
    if (!MeasureStream(fp, nSize)) {
        ReportError("Cannot scramble " + sWhat + ": not a regular, seekable file");
        return false;
    }
    pData.reset(new (std::nothrow) char[static_cast<size_t>(nSize) + 1]);
    if (!pData) {
        ReportError("Out of memory scrambling " + sWhat + " (" + std::to_string(nSize) + " bytes)");
        return false;
    }
    if (std::fread(pData.get(), 1, static_cast<size_t>(nSize), fp) != static_cast<size_t>(nSize)) {
        ReportError("Cannot read " + sWhat);
        return false;
    }
    return true;
}

// Creates or truncates sPath and writes nSize bytes of pData to it.
bool WriteWhole(const char* sPath, const char* pData, long nSize) {
    FilePtr fp = OpenFile(sPath, "wb");
    if (!fp) {
        ReportError("Cannot open file " + NameOf(sPath) + " for writing");
        return false;
    }
    const bool bWritten =
        std::fwrite(pData, 1, static_cast<size_t>(nSize), fp.get()) == static_cast<size_t>(nSize);
    return CloseWritten(std::move(fp), bWritten, "Cannot write file " + NameOf(sPath));
}

}  // namespace

CVQTEncript::CVQTEncript(const char* key)
    : m_sKey(), m_nKeyLen(key ? static_cast<unsigned int>(std::strlen(key)) : 0) {
    m_sKey.reset(new (std::nothrow) char[m_nKeyLen + 1]);
    if (!m_sKey) {  // no memory for the copy: behave as an empty key
        m_nKeyLen = 0;
        return;
    }
    if (m_nKeyLen > 0) std::memcpy(m_sKey.get(), key, m_nKeyLen);
    m_sKey[m_nKeyLen] = '\0';
}

CVQTEncript::~CVQTEncript() = default;

int CVQTEncript::Encrypt(char* buf, unsigned long len) {
    if (m_nKeyLen == 0) {
        ReportError("Cannot scramble: the key is empty");
        return 0;
    }
    if (buf == nullptr && len > 0) {
        ReportError("Cannot scramble: null buffer of " + std::to_string(len) + " bytes");
        return 0;
    }
    unsigned int j = 0;
    for (unsigned long i = 0; i < len; ++i) {
        if (j == m_nKeyLen) j = 0;
        buf[i] = static_cast<char>(buf[i] ^ m_sKey[j]);
        ++j;
    }
    return 1;
}

int CVQTEncript::Encrypt(std::string& text) {
    return Encrypt(&text[0], text.size());
}

int CVQTEncript::Encrypt(const char* srcPath, const char* dstPath, long /*unused*/) {
    if (m_nKeyLen == 0) {
        ReportError("Cannot scramble " + NameOf(srcPath) + ": the key is empty");
        return 0;
    }
    if (srcPath == nullptr || dstPath == nullptr) {
        ReportError("Cannot scramble " + NameOf(srcPath) + " into " + NameOf(dstPath) +
                    ": missing file name");
        return 0;
    }
    FilePtr fp = OpenFile(srcPath, "rb");
    if (!fp) {
        ReportError("Cannot open file " + NameOf(srcPath) + " for reading");
        return 0;
    }
    std::unique_ptr<char[]> pData;
    long nSize = 0;
    if (!ReadScrambled(fp.get(), "file " + NameOf(srcPath), pData, nSize)) return 0;
    fp.reset();  // closed before the destination, which may be the same file, is truncated
    return WriteWhole(dstPath, pData.get(), nSize) ? 1 : 0;
}

int CVQTEncript::Encrypt(FILE* src, const char* dstPath) {
    if (m_nKeyLen == 0) {
        ReportError("Cannot scramble a stream into " + NameOf(dstPath) + ": the key is empty");
        return 0;
    }
    if (src == nullptr) {
        ReportError("Cannot scramble into " + NameOf(dstPath) + ": no stream");
        return 0;
    }
    if (dstPath == nullptr) {
        ReportError("Cannot scramble the stream: missing destination file name");
        return 0;
    }
    std::unique_ptr<char[]> pData;
    long nSize = 0;
    if (!ReadScrambled(src, "the stream for " + NameOf(dstPath), pData, nSize)) return 0;
    return WriteWhole(dstPath, pData.get(), nSize) ? 1 : 0;
}

bool CVQTEncript::ReadScrambled(FILE* src, const std::string& sWhat, std::unique_ptr<char[]>& pData,
                                long& nSize) {
    return ReadWhole(src, sWhat, pData, nSize) &&
           Encrypt(pData.get(), static_cast<unsigned long>(nSize)) == 1;
}
