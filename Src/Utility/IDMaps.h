// IDMaps.h - id maps: a source word handle to one or more target handles.
//
// CIDMaps maps a handle of one dictionary (the source) to handles of another
// or the same dictionary (the targets). The code translator loads prebuilt
// maps (".map") and asks, for each source handle found in a text, for its
// targets. A map is built by MapInit, any number of MapAdd and MapComplete,
// which sorts the pairs by (source, target) and packs them: each source's
// distinct targets, ascending, lie in one run of the data array, and the index
// gives each source handle its run (or none). The data array keeps one entry
// per pair added, so a map with repeated pairs ends in a tail of -1 entries.
//
// File (".map", native 32-bit integers, no magic or version): the pair count
// N, the bound B (one more than the highest source), N target handles and B
// (start, end) ranges.
//
// Ownership: the object owns its data and index (new[]) and its pair array
// (malloc family). Pointers returned by GetMaps stay valid until the next
// MapComplete, Load or Import. Not copyable.
//
// Thread-safety: none; callers serialise all calls (failures write the
// library's unguarded last-error text).
#pragma once

#include <cstdlib>
#include <memory>
#include <vector>

#include "Global.h"
#include "MallocPtr.h"

class CPDAT;

// A target handle; -1 when default-built.
struct idmaps_info {
    int handle2 = -1;
};

// A (source, target) pair, ordered by source, then target.
struct idmaps_elem : idmaps_info {
    int handle1 = -1;

    bool operator<(const idmaps_elem& o) const {
        return handle1 < o.handle1 || (handle1 == o.handle1 && handle2 < o.handle2);
    }
    bool operator<=(const idmaps_elem& o) const { return !(o < *this); }
};

// First and last position of a source's targets in the data array,
// inclusive; -1/-1 for a source without targets.
struct index_t {
    int start = -1;
    int end = -1;
};

class CIDMaps {
  public:
    // An empty map: no arrays, no pairs; every lookup misses.
    CIDMaps();
    virtual ~CIDMaps();
    CIDMaps(const CIDMaps&) = delete;
    CIDMaps& operator=(const CIDMaps&) = delete;

    // Starts collecting pairs: allocates the pair array (10240 entries) if
    // absent; pair count and bound 0. The packed map stays until MapComplete.
    // Returns 1, or 0 with a message when memory runs out.
    int MapInit();

    // Adds the pair (handle1, handle2); a source below 0 or a target below -1
    // is ignored. A target of -1 is kept. Without pairs collected (a new or a
    // loaded map) this starts a collection as MapInit does. Returns 1; 0 with
    // a message when memory runs out.
    int MapAdd(int handle1, int handle2);

    // Sorts the collected pairs, packs them into the data array (pair-count
    // entries, -1 after the packed targets) and the index (bound entries) and
    // prints "Build map success!\n" to pProgress (null: silent). A loaded map
    // with nothing collected is kept as it is. Returns 1; 0 with a message
    // when memory runs out.
    int MapComplete(FILE* pProgress = ClassicProgress());

    // Writes the packed map. False with a message naming the file when it
    // cannot be created or written. Pairs added after the last MapComplete
    // are not in it.
    bool Save(const char* path);

    // Replaces the map with the file's content. False with a message naming
    // the file, and the object as it was, when the file cannot be opened, its
    // counts do not match its size, or a range lies outside the data.
    bool Load(const char* path);

    // The targets of handle1 (count in *count, which may be null): a pointer
    // into the data array, or null with count 0 for a source outside the
    // index or without targets.
    const idmaps_info* GetMaps(int handle1, int* count) const;

    // The smallest target of handle1 (which may be -1), or -1 when it has none.
    int GetMapID(int handle1) const;

    // Fills out with the targets of handle, following a single target t one
    // step to t's own targets; with two or more (final) targets, those equal
    // to handle are left out. Returns the final target count (0 out of range).
    int GetSimMaps(int handle, std::vector<int>& out) const;

    // Builds the map from tab-separated lines "w1 \t w2 ... \t target\n" of
    // pDict words: each earlier field maps to the last (whose last byte is
    // taken as the line end and cut). Prints "%d\r" every 100 lines (and
    // MapComplete's line) to pProgress. Returns the pair count; 0 when the
    // file cannot be opened or pDict is null.
    int Import(const char* path, CPDAT* pDict, FILE* pProgress = ClassicProgress());

    // Builds the map from two-column lines "source target" (a '['-token
    // reads from the line's first '[' to its first ']'; "_" is a space),
    // source words from pSrcDict, targets from pDstDict (a missing target maps
    // to -1). Writes the columns to path + "_map_export.txt" and prints
    // "Line %d: %s->%s\n" every 100 lines (and MapComplete's line) to
    // pProgress; a missing source is reported with " invalid argument!".
    // Returns the pair count; 0 when a file cannot be opened or a dictionary
    // is null.
    int Import(const char* path, CPDAT* pSrcDict, CPDAT* pDstDict,
               FILE* pProgress = ClassicProgress());

    // Sorts a[low..high] by (handle1, handle2): bublesort swaps each later
    // smaller element forward (quadratic); qksort partitions with qkpass
    // (first element as pivot) and falls back to bublesort on ranges of at
    // most 11 elements or after 10 unbalanced partitions in a row; fastsort
    // is an O(n log n) sort. All three give the same order. qksort keeps its
    // unbalanced-partition count between calls and, like bublesort, can take
    // quadratic time (and qksort deep recursion) on unlucky input; only
    // fastsort is fit for large maps.
    void bublesort(idmaps_elem* a, int low, int high);
    void qksort(idmaps_elem* a, int low, int high);
    int qkpass(idmaps_elem* a, int low, int high);
    void fastsort(idmaps_elem* a, int low, int high);

    // Pairs added (the data array's length) and one more than the highest source.
    int GetSize() const { return m_nSize; }
    int GetBound() const { return m_nBound; }

  private:
    bool ReservePairs(int nNeeded);

    int m_nMemSize;                          // capacity of m_vecBiWord
    int m_nSize;                             // pairs added; length of m_pData once packed
    std::unique_ptr<idmaps_info[]> m_pData;  // packed targets, -1 tail
    int m_nBound;                            // one more than the highest source
    std::unique_ptr<index_t[]> m_pIndex;     // per source: its range in m_pData
    MallocPtr<idmaps_elem> m_vecBiWord;      // pairs collected
    int m_nQKSortCount;                      // unbalanced partitions in a row (qksort)
    int m_nDataLen;                          // entries of m_pData (m_nSize when packed)
    int m_nIndexLen;                         // entries of m_pIndex (m_nBound when packed)
};
