// WordList.h - the word list: a dictionary handle back to its text.
//
// CWordList is the reverse of a CPDAT: for each handle that a dictionary gives
// to a word it keeps a text (the word itself, or another text to emit for it).
// The code translator pairs each dictionary with a word list saved beside it
// (".wordlist") and turns the handles it finds into text with GetWord.
//
// Building: AddWordInit, then AddWord (text with an explicit handle, or a text
// whose handle the dictionary finds), then AddWordComplete, which builds the
// handle -> text index. The same handle may be added twice; the later text
// wins. Import builds the list from a text file or from word records in one go.
//
// File (".wordlist", native 32-bit integers, no magic or version): the word
// count, the bound B (one more than the highest handle), B + 1 byte offsets
// (the last carries no meaning), the text block size D and the D bytes of
// NUL-terminated texts. With scrambling on, the text block is stored XORed
// with g_sWordListKey (VQTEncript.h); the choice is the object's, not the
// file's, so a list must be loaded as it was saved.
//
// Ownership: the object owns its index (new[]), its text buffer and its pair
// array (malloc family); the dictionary is borrowed and must outlive its use.
// Texts returned by GetWord stay valid until the next AddWord, Load or Import.
// Not copyable.
//
// Thread-safety: none; callers serialise all calls (failures write the
// library's unguarded last-error text).
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Global.h"
#include "MallocPtr.h"

class CPDAT;

// One collected pair: a handle and the byte offset of its text.
struct word_elem {
    int handle;
    int nWordIndex;
};

// A record for Import(records, ...): a dictionary word and the text to store
// for it when store_info is asked for.
struct _stWordRecord {
    std::string word;
    std::string store_info;
};

class CWordList {
  public:
    // An empty list that scrambles its file's text block when bEncript is
    // set and finds handles in pDict (may be null: AddWord(text) then adds
    // nothing). Ends with AddWordInit().
    CWordList(bool bEncript, CPDAT* pDict);
    virtual ~CWordList();
    CWordList(const CWordList&) = delete;
    CWordList& operator=(const CWordList&) = delete;

    // Starts a new set of words: allocates the pair array (10000 entries) and
    // text buffer (1024000 bytes) if absent; word count and text size 0, index
    // not built. The bound and the old index are kept until AddWordComplete.
    // Returns 1, or 0 with a message when memory runs out.
    int AddWordInit();

    // Adds text for handle. A negative handle (a word not in the dictionary)
    // writes the text to the log and adds nothing. Returns 1; 0 (nothing
    // added) when text is null, handle is INT_MAX or memory runs out.
    int AddWord(const char* text, int handle);

    // Skips a leading UTF-8 byte-order mark and adds the text under the
    // handle the dictionary gives it. Returns 1 (0 as above).
    int AddWord(const char* text);

    // Builds the index from the pairs added since AddWordInit; later pairs win.
    // Returns 1; does nothing once built. 0 with a message when out of memory.
    int AddWordComplete();

    // Text for handle: for 0 <= handle < bound the text at its offset (a
    // handle that never got a word yields the first text added); otherwise,
    // and before the index is built, an empty string.
    const char* GetWord(int handle) const;

    // Number of words added (or loaded).
    int GetItemCount() const { return static_cast<int>(m_nSize); }
    // One more than the highest handle added (or loaded).
    int GetBound() const { return m_nBound; }

    // Writes the list (building the index first if it is not built). The
    // object keeps plain text whatever the scrambling. False with a message
    // naming the file when it cannot be created or written.
    bool Save(const char* path);

    // Replaces the list with the file's content, unscrambled when this object
    // scrambles. False with a message naming the file, and the object as it
    // was, when the file cannot be opened or its sizes or offsets do not fit
    // what it holds.
    bool Load(const char* path);

    // Builds the list from a text file, one entry per line (first token, or
    // "[...]" up to the first ']' with the '[' kept; "_" read as a space),
    // handles from pDict (when not null it replaces the list's dictionary).
    // Writes the entries to path + "_wordlist_export.txt" and "Line %d\r"
    // every 100 entries to pProgress (null: silent). Returns the word count; 0
    // when a file cannot be opened.
    int Import(const char* path, CPDAT* pDict, FILE* pProgress = ClassicProgress());

    // Builds the list from records whose word pDict holds (others skipped),
    // storing store_info when bStoreInfo is set, else the word. The bound is
    // pDict's item count (raised to cover every handle found). Returns the
    // word count; 0 with a message for a null pDict or no memory.
    int Import(const std::vector<_stWordRecord>& vecRecords, CPDAT* pDict, bool bStoreInfo);

    // Writes GetWord(h) and "\n" for every handle 0..n-1 of pDict (the list's
    // dictionary when null), leaving out handles of filter-file words (first
    // token of a line, in pDict, non-ASCII first byte, over 2 bytes). Returns
    // 0; 1 after printing "Error open file %s.\n" when path cannot be created,
    // and 1 with a message when there is no dictionary or the write fails.
    int Export(const char* path, CPDAT* pDict, const char* filterPath);

  private:
    bool ReserveText(int nNeeded);
    bool ReservePairs(unsigned int nNeeded);

    unsigned int m_nSize;            // words added
    int m_nBound;                    // one more than the highest handle; index size
    std::unique_ptr<int[]> m_pData;  // handle -> text offset; 0 for no word
    MallocPtr<char> m_pWordListBuf;  // NUL-terminated texts back to back
    int m_nWordListMemSize;          // capacity of m_pWordListBuf
    int m_nWordListDataSize;         // bytes of it in use
    MallocPtr<word_elem> m_vecPair;  // pairs collected while adding
    unsigned int m_nMemSize;         // capacity of m_vecPair
    CPDAT* m_pDict;                  // borrowed
    bool m_bEncript;                 // scramble the file's text block
    bool m_bAddCompleted;            // index built
    int m_nIndexBound;               // handles m_pData covers (bound when it was built)
};
