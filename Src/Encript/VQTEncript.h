// VQTEncript.h - symmetric byte scrambling of data files with a repeating key.
//
// CVQTEncript hides the text of resource files from casual reading: every byte
// is XORed with the key, which repeats from its first byte every key-length
// bytes, starting at the first byte of each call. Applying it twice with the
// same key restores every byte, so one operation both scrambles and
// unscrambles. No state carries from one call to the next: data must be
// processed in one call (or in pieces whose lengths are multiples of the key
// length) to match. Files scrambled with one key are readable only with it.
//
// The word list scrambles its text block with the fixed g_sWordListKey.
//
// Ownership: the object owns a copy of its key. Buffers, strings and streams
// stay the caller's; the file forms open and close their own files.
//
// Failures follow the library's convention: 0 plus ReportError (Global.h).
//
// Thread-safety: the key is not changed after construction, but failures write
// the library's unguarded last-error text, so callers serialise all calls.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

// The word-list scrambling key: 136 GBK bytes, 58 two-byte characters then 20
// ASCII ones. Characters:
// "文本分类规则所用词表文件的加扰密钥样例仅供演示之用部署时请换成自选的同长度
//  文字内容并妥善保管切勿外传谢谢合作配合支持Sample-Key-0123-ABCD".
// Changing it makes every scrambled word list written before unreadable.
inline constexpr char g_sWordListKey[] =
    "\xCE\xC4\xB1\xBE\xB7\xD6\xC0\xE0\xB9\xE6\xD4\xF2\xCB\xF9\xD3\xC3"  // 文本分类规则所用
    "\xB4\xCA\xB1\xED\xCE\xC4\xBC\xFE\xB5\xC4\xBC\xD3\xC8\xC5\xC3\xDC"  // 词表文件的加扰密
    "\xD4\xBF\xD1\xF9\xC0\xFD\xBD\xF6\xB9\xA9\xD1\xDD\xCA\xBE\xD6\xAE"  // 钥样例仅供演示之
    "\xD3\xC3\xB2\xBF\xCA\xF0\xCA\xB1\xC7\xEB\xBB\xBB\xB3\xC9\xD7\xD4"  // 用部署时请换成自
    "\xD1\xA1\xB5\xC4\xCD\xAC\xB3\xA4\xB6\xC8\xCE\xC4\xD7\xD6\xC4\xDA"  // 选的同长度文字内
    "\xC8\xDD\xB2\xA2\xCD\xD7\xC9\xC6\xB1\xA3\xB9\xDC\xC7\xD0\xCE\xF0"  // 容并妥善保管切勿
    "\xCD\xE2\xB4\xAB\xD0\xBB\xD0\xBB\xBA\xCF\xD7\xF7\xC5\xE4\xBA\xCF"  // 外传谢谢合作配合
    "\xD6\xA7\xB3\xD6"                                                  // 支持
    "Sample-Key-0123-ABCD";

class CVQTEncript {
  public:
    // Copies the key up to its NUL; a null key is taken as empty. An empty
    // key (or no memory for the copy) is accepted here, and every Encrypt
    // then fails.
    explicit CVQTEncript(const char* key);
    virtual ~CVQTEncript();
    CVQTEncript(const CVQTEncript&) = delete;
    CVQTEncript& operator=(const CVQTEncript&) = delete;

    // Scrambles len bytes of buf in place: buf[i] ^= key[i mod key length].
    // Returns 1 (also for len 0, where buf may be null). Returns 0 with buf
    // untouched when the key is empty, or when buf is null and len is not 0.
    int Encrypt(char* buf, unsigned long len);

    // The same over all bytes of text, in place; 0 (text untouched) for an
    // empty key. An empty text gives 1.
    int Encrypt(std::string& text);

    // Writes the scrambled whole content of srcPath to dstPath (created or
    // truncated); the third argument is not used. The source is read in full
    // before the destination is opened, so srcPath == dstPath scrambles the
    // file in place, and a source that fails leaves dstPath untouched. An empty
    // source gives an empty destination and 1. Returns 0, with a message naming
    // the file, for an empty key, a null name, a missing, unreadable or
    // non-regular source, a destination that cannot be written, or no memory.
    int Encrypt(const char* srcPath, const char* dstPath, long);

    // Writes the scrambled whole content of the stream src, read from its
    // start whatever its position, to dstPath. The stream stays open, owned by
    // the caller, and is left at its end. Returns 0 as the file form, and for a
    // null stream or one that cannot be sized by seeking (a pipe).
    int Encrypt(FILE* src, const char* dstPath);

  private:
    // Reads all of src (from its start) into a new array of nSize + 1 bytes
    // and scrambles its nSize bytes. sWhat names the source in messages.
    // False after a report.
    bool ReadScrambled(FILE* src, const std::string& sWhat, std::unique_ptr<char[]>& pData,
                       long& nSize);

    std::unique_ptr<char[]> m_sKey;  // NUL-terminated copy of the key
    unsigned int m_nKeyLen;          // bytes before the NUL
};
