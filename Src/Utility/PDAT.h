// PDAT.h - the dictionary: a double-array trie from GBK words to integer handles.
//
// A CPDAT is built in two phases. While words are added (AddWord, AddFilterWord,
// FindWord) they live in a construction tree of trie_elem nodes. AddWordComplete
// numbers every character by descending frequency (the character map) and lays
// the tree out into one flat array of state cells; the tree is then freed and
// the dictionary is read-only. Lookups (Find, GetWords, GetMaxWord) and the
// scans (MMFullScan, MMScan) walk that array. Handles are >= 0; -1 means "not
// found" throughout.
//
// Cell encoding: the child of a cell for dense character code c is at cell
// abs(base) + c and names its parent in `check` (-2 for a first character,
// which sits at cell m_charset[code]: the root has no cell). base <= 0 marks a
// word end; a word end without children stores minus its own index (a leaf).
// A free cell holds -1 in all three fields. The cells 0..m_nLowerBound, the
// character map, the item count and the mode are what a saved dictionary holds,
// so the layout is exactly reproducible from the insertion sequence.
//
// Characters: GetCharCode reads one character under the dictionary's mode
// (0: GBK with ASCII capitals folded, 1: single bytes, 2: GBK normalised, with
// a run of delimiters read as one character of code 9). Code 9 is never stored.
//
// Ownership: the object owns its cells (malloc/realloc), its construction tree
// (malloc/realloc per children array), and the scan result m_sResult (new[]);
// texts returned by MMFullScan, MMScan and GetTopWords stay valid until the
// next such call or destruction. Not copyable.
//
// Files: PDAT.cpp (lifecycle), PDATBuild.cpp (insertion, term counters),
// PDATLayout.cpp (AddWordComplete), PDATFind.cpp (lookups, MMScan),
// PDATScan.cpp (MMFullScan), PDATSegment.cpp (MMSegment), PDATFile.cpp
// (Save, Load, Import, Export); PDATChars.h and PDATWalk.h are internal.
//
// Thread-safety: on a completed dictionary the const calls (Find, GetWords,
// GetMaxWord, IsValidString, MMFullScanSpans, MMSegmentSpans) may run from
// any number of threads at once. The byte-mode scan index that
// MMFullScanSpans needs is built once, under a lock, by whichever call comes
// first (or ahead of time by PrepareScans). Every other call needs the
// dictionary to itself: callers serialise them.
#pragma once

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// One cell of the double array.
struct state {
    int base;    // children at abs(base) + code; <= 0 marks a word end; -1 when free
    int check;   // parent cell; -2 for a first character; -1 when free
    int handle;  // handle at a word end, else -1
};

// A node of the construction tree.
struct trie_elem {
    unsigned int node;    // raw character code of the edge into this node
    int child_count;      // number of children
    trie_elem* children;  // children in insertion order (realloc'd); null when none
    int position;         // cell index once laid out; before that 0, or the node's key in the
                          // child index of busy nodes (see PDATBuild.cpp)
    int check;            // parent cell, set during layout; -1 at creation
    int handle;           // handle if a word ends here, else -1
};

// Per-word counter; entry i of CPDAT::m_vecTermFreq belongs to handle i.
// A freq of -1 marks a filter word. Sorting puts the greatest freq first.
struct _stTermFreq {
    std::string word;
    int freq;

    _stTermFreq() : freq(0) {}
    explicit _stTermFreq(const std::string& sWord) : word(sWord), freq(1) {}
    bool operator<(const _stTermFreq& other) const { return freq > other.freq; }
};

// A counter over two sources; sorting puts the greatest total_freq first.
struct _stSameTermFreq : _stTermFreq {
    int freq2 = 0;
    int total_freq = 0;

    bool operator<(const _stSameTermFreq& other) const { return total_freq > other.total_freq; }
};

// A hit: handle, byte start and byte length in the scanned text, and a weight.
struct _stTermPosition {
    int nHandle;
    int iStartPos;
    int nWordLen;
    double weight;
};

// One word written by MMFullScan: bytes [iStart, iStart + nLen) of the
// scanned text and the handle of the dictionary word matched there, followed
// by one blank in the scan text when bBlank. The one span without a blank is
// the end-of-text copy (the last nLen bytes of the text, which need not be
// the match); its nHandle is -1 unless those bytes are the matched word.
struct _stScanSpan {
    int iStart;
    int nLen;
    int nHandle;
    bool bBlank;
};

// One segment of MMSegmentSpans: bytes [iStart, iStart + nLen) of the text.
struct _stSegSpan {
    int iStart;
    int nLen;
};

class CPDAT {
  public:
    // An empty dictionary in adding state. nMode: 0, 1 or 2 (see GetCharCode).
    explicit CPDAT(int nMode);
    CPDAT(const CPDAT&) = delete;
    CPDAT& operator=(const CPDAT&) = delete;

    // ---- Virtual operations (slot order is fixed) ----

    // Highest valid cell index (cells 0..GetLowerBound()).
    virtual int GetLowerBound() const;

    // Longest dictionary word that is a prefix of text (white space folded as
    // in Find). Returns its byte length, 0 if none. *handle gets its handle or
    // -1, *bHasSpace whether white space was walked up to it; either pointer
    // may be null. Null text: 0.
    virtual int GetMaxWord(const char* text, int* handle, bool* bHasSpace) const;

    // Handle of the exact word, or -1 (also for null). See Find(word, len).
    virtual int Find(const char* word) const;

    // Handle of the first len bytes as one word, or -1. A leading UTF-8 byte-order
    // mark is skipped, then a pair of enclosing '"' is dropped; a run of white
    // space (space, tab, CR, LF) matches one space. Empty text: -1.
    virtual int Find(const char* word, unsigned int len) const;

    // ---- Dictionary files (PDATFile.cpp) ----

    // Replaces this dictionary by the binary file at path (name converted with
    // GetAnsiFilename; a changed name is logged as "Changed utf-8 file name "
    // + path). The mode comes from the file; the result is completed and
    // read-only. False when the file cannot be opened ("Fail read file " + name)
    // or its size, lower bound, character map or mode do not fit together
    // ("Cannot load dictionary <name>: <reason>"); the object is then unchanged.
    virtual bool Load(const char* path);
    // Writes the binary file (path as given): character map, lower bound, item
    // count, cells 0..GetLowerBound() (none for an empty dictionary), mode.
    // False, without a message, when the file cannot be created or written.
    virtual bool Save(const char* path);
    // Import(path, pExclude, ClassicProgress()): progress lines on standard
    // output unless the classic progress switch (Global.h) is off.
    virtual int Import(const char* path, CPDAT* pExclude);

    virtual ~CPDAT();

    // Does nothing; returns 1.
    virtual int AddTrie(const char* path);
    // Does nothing.
    virtual void GetPos(char* text, int len);

    // Builds this dictionary from a text file, one entry a line (see
    // PDATFile.cpp), leaving out words pExclude (may be null) finds; writes
    // the normalised entries to path + "_export.txt" and prints
    // "<count>\t<entry> Completed!\r" to pProgress (null: silent) at every
    // hundredth word. Returns GetItemCount(), or 0 (dictionary untouched) if
    // either file cannot be opened.
    int Import(const char* path, CPDAT* pExclude, FILE* pProgress);

    // Writes every word, one a line, in cell order: each cell with a handle
    // >= 0 and base < 0 (so a childless one-character word in cell 0, whose
    // base is 0, is left out), spelled back through its parents. A word that
    // does not look up to its own handle is still written, and logged with
    // " handle error". Characters are spelled only over the raw codes from
    // the highest to the lowest ever counted: all codes for a fresh object
    // that loaded its cells, none (empty lines) for a dictionary built in
    // this object. False if the file cannot be created.
    bool Export(const char* path);

    // ---- Segmentation (PDATSegment.cpp) ----

    // Forward maximum matching of text (null reads as empty): each segment
    // followed by sep goes to *result; with handles, the segments' handles
    // go to *handles (every segment, -1 for a non-word, when bKeepUnknown;
    // else dictionary words only). Both are caller-owned malloc'd buffers
    // (or null) of *resultCap bytes / *handleCap ints, grown with realloc
    // to 6 * len + 1 bytes / len + 2 ints when smaller. maxLen >= 1 caps a
    // candidate's walk at maxLen bytes past its start. The unnamed flag is
    // ignored. Returns the number of handles written; 0 (buffers untouched)
    // when result or resultCap is null or memory runs out.
    int MMSegment(const char* text, int** handles, int* handleCap, char** result, int* resultCap,
                  bool, bool bKeepUnknown, int maxLen, char sep);
    // The same without handles, into the dictionary's own buffer; returns it
    // (valid until the next scan or segmentation; "" when memory runs out).
    char* MMSegment(const char* text, int maxLen, char sep);
    // The segments MMSegment would write for the first len bytes of text (no
    // terminator needed), as spans of the text in order (spans cleared first),
    // so a caller can walk them without writing and re-reading the segmented
    // text. Returns the span count; 0 for null text or len <= 0.
    int MMSegmentSpans(const char* text, int len, int maxLen, std::vector<_stSegSpan>& spans) const;
    // Segments the file inPath with tab separators into outPath (the result
    // and "\n"). Returns thousands of input bytes per second of segmentation
    // (process clock), or 0 when nothing could be read or outPath cannot be
    // created.
    float FileSegment(const char* inPath, const char* outPath);

    // ---- Construction (PDATBuild.cpp, PDATLayout.cpp) ----

    // Starts a new word set: empty construction tree, character counts cleared,
    // item count 0, adding state. Term counters, the character range and any
    // laid-out cells are kept (the next AddWordComplete replaces the cells).
    // Returns 1.
    int AddWordInit();

    // Inserts word with handle GetItemCount(); see AddWord(word, handle, bFreq).
    int AddWord(const char* word, bool bFreq);

    // Inserts word with the given handle. Returns the word's handle: the
    // existing one for a word already present (not counted again; with bFreq
    // its counter goes up by 1 unless it is a filter word). Returns -1 for
    // null or empty words, a word whose last character has code 9, a word below
    // a filter word (bFreq only), or a completed dictionary. With bFreq a new
    // word appends its counter, so handles must follow GetItemCount().
    int AddWord(const char* word, int handle, bool bFreq);

    // AddWord(word, true) and marks the word as a filter word (counter -1):
    // no word may then be added below it with bFreq. Returns the handle or -1.
    int AddFilterWord(const char* word);

    // Handle of word in the construction tree, or -1; inserts nothing but
    // counts the characters walked towards the character map. -1 once completed.
    int FindWord(const char* word);

    // Lays the tree out into the cell array and frees it; returns 1. A second
    // call does nothing. With no words the array is empty and lookups fail.
    // Out of memory: the dictionary is left completed and empty; returns 0.
    int AddWordComplete();

    // Forgets the words (lower bound and item count 0; cells kept). Returns 1.
    int SetEmpty();
    // True when the dictionary holds no words.
    bool IsEmpty() const { return m_nItemCount == 0; }
    // Number of distinct words inserted (or loaded).
    unsigned int GetItemCount() const { return m_nItemCount; }

    // Raw code of the character at byte i of text (0 <= i < len) and its
    // length in *pCharLen, under the dictionary's mode. Outside that range,
    // or for null arguments, returns 0 with length 0.
    int GetCharCode(const char* text, int i, int len, int* pCharLen) const;

    // ---- Lookup and scans (completed dictionary; PDATFind.cpp, PDATScan.cpp) ----

    // Handle of the one-character word with raw code code, or -1. A word in
    // the highest valid cell is not found this way.
    int Find(int code) const;

    // Every dictionary word that is a prefix of text and longer than minLen
    // bytes: its handle and byte length go to (*handles)[k], (*ends)[k] for
    // k < *count. The caller-owned arrays (malloc'd or null, *capacity entries)
    // are grown with realloc by 5 entries when full. Returns the byte length of
    // the longest prefix word (0 if none). No white-space folding.
    int GetWords(const char* text, unsigned int** handles, unsigned int** ends,
                 unsigned int* capacity, unsigned int* count, int minLen) const;

    // Every word found in text by maximum matching from each start (the
    // shortest word at a start, then the longest that ends in a leaf), each
    // followed by one space; a word ending the text has none. Matches that
    // would cut a Latin word or a number are left out. Returns m_sResult,
    // valid until the next scan; empty for null or empty text.
    char* MMFullScan(const char* text);

    // Builds what the full scan needs (the byte-mode scan index) now rather
    // than on the first scan, so that later scans only read. Does nothing
    // when it is built already or the dictionary is not in mode 1.
    void PrepareScans() const { GetScanIndex(); }

    // The words MMFullScan(text) writes, in order, as spans of text (cleared
    // first): each span's bytes, plus a blank where bBlank, concatenated give
    // MMFullScan's result exactly, output cap included. Lets a caller take
    // the handles without reading the words back. Returns the span count.
    int MMFullScanSpans(const char* text, std::vector<_stScanSpan>& spans) const;

    // The first-hit scan: words go to *result (a new[] buffer of *resultCap
    // bytes, or null; replaced with 3 * len + 1 bytes when too small), each
    // followed by a space. With bFound the scan stops at the first word found
    // and sets *bFound. Returns *result, or null when no buffer was given.
    char* MMScan(const char* text, char** result, int* resultCap, bool* bFound);
    // MMScan into the dictionary's own buffer; returns m_sResult.
    char* MMScan(const char* text, bool* bFound);

    // False when a match of bytes [start, end) of text (len bytes) would start
    // or end inside a run of ASCII letters or of digits; true otherwise.
    bool IsValidString(const char* text, int start, int end, int len) const;

    // ---- Term counters (need the construction tree) ----

    // ResetFreq, then AddWord(word, true) for each word in order. Returns the
    // number of counter entries.
    int WordFreq(const std::vector<std::string>& words);
    // Sets every counter to 0, filter words included.
    void ResetFreq();
    // Sorts the counters by descending freq (ties in any order; entry index no
    // longer equals handle) and returns them.
    const std::vector<_stTermFreq>& GetTopWordVector();
    // The first n sorted counters (all for n == -1) as "word/freq#" each; a
    // word over 4 bytes containing an earlier word over 3 bytes is left out
    // but uses up its place. Returns m_sTopWords, valid until the next call.
    const char* GetTopWords(int n);

    // ---- Read-only views for tests and tools ----

    // The cell array (GetLowerBound() + 1 valid cells), or null when empty.
    const state* GetStates() const { return m_pData; }
    // Dense code of raw character code, -1 if unmapped or out of range.
    int GetCharsetCode(unsigned int code) const { return code < 65536 ? m_charset[code] : -1; }
    // Number of dense codes assigned by the last layout.
    int GetCharsetSize() const { return m_charsetSize; }

  private:
    struct ChildIndex;  // (node key, code) -> child slot for busy nodes (PDATBuild.cpp)
    struct LayoutWork;  // work queue and free-cell index of one layout (PDATLayout.cpp)
    struct ScanIndex;   // the byte-mode full scan's copy of the cells (PDATScan.cpp)
    // Deleters defined beside their types, so that no other file needs them complete.
    struct ChildIndexDelete {
        void operator()(ChildIndex* p) const;
    };
    struct ScanIndexDelete {
        void operator()(ScanIndex* p) const;
    };

    int BuildTRIE(const char* word, int handle, bool bFreq, bool bFindOnly);
    int InsertWalk(const char* word, int len, int handle, bool bFreq, bool bFindOnly);
    trie_elem* AppendChild(trie_elem* pNode, unsigned int code);
    int FindChild(const trie_elem* pNode, unsigned int code) const;
    void MarkWordEnd(trie_elem* pNode, int handle, bool bFreq, const char* word);
    bool IsFilterHandle(int handle) const;
    void FreeTree();

    void GetCharMap();
    void Init(LayoutWork& work);
    trie_elem* OptimumSelect(LayoutWork& work);
    void SetState(LayoutWork& work, trie_elem* pElem);

    int LastCell() const;

    // The segmentation loop of MMSegment over len bytes of s into out (room
    // for 2 * len + 1 bytes) and, when non-null, handles (len + 1 ints).
    // Returns the handle count; *pOut gets the bytes written (no NUL).
    int SegmentInto(const unsigned char* s, int len, int* handles, char* out, bool bKeepUnknown,
                    int maxLen, char sep, int* pOut) const;

    // Drops the scan index; the next full scan builds it again. Called
    // wherever the cells, the character map or the lower bound change.
    void InvalidateScanIndex();
    // The scan index, built on first use; null when the full scan takes the
    // general walk (modes 0 and 2, a damaged layout, no memory).
    const ScanIndex* GetScanIndex() const;
    // The full scan of len > 0 bytes of s into sink o (the sinks live in PDATWalk.h).
    template <typename Sink>
    void FullScan(const unsigned char* s, int len, Sink& o) const;

    trie_elem* m_word_trie;     // construction tree (calloc'd root); null once completed
    state* m_pData;             // the cells (malloc'd); null when there are none
    int m_nLength;              // cells allocated; m_nLowerBound + 1 after layout
    int m_nLowerBound;          // highest valid cell
    unsigned int m_nItemCount;  // distinct words
    char* m_sResult;            // scan result (new[])
    int m_nResultLen;           // its capacity
    int m_charset[65536];       // raw code -> dense code, -1 if unmapped
    int m_charsetSize;          // dense codes assigned
    int m_charsetfreq[65536];   // raw code -> count that ranked it
    int m_freq[65536];          // raw code -> count while adding
    int m_LowerChar;            // lowest raw code counted (65536 before any)
    int m_UpperChar;            // highest raw code counted (0 before any)
    std::vector<_stTermFreq> m_vecTermFreq;  // counters by handle
    int m_nMode;                             // character mode 0, 1 or 2
    std::string m_sTopWords;                 // GetTopWords text
    bool m_bWordAddCompleted;
    std::unique_ptr<ChildIndex, ChildIndexDelete> m_pChildIndex;  // construction only
    // The scan index and its state: m_bScanIndexBuilt is set (release) once
    // m_pScanIndex is current; the build runs under m_scanIndexLock, so
    // concurrent const scans build it once and then only read it.
    mutable std::unique_ptr<ScanIndex, ScanIndexDelete> m_pScanIndex;
    mutable std::atomic<bool> m_bScanIndexBuilt{false};
    mutable std::mutex m_scanIndexLock;
};
