// PDAT.cpp - the dictionary's lifecycle and its character reader.
//
// A CPDAT moves once from adding (construction tree present) to completed
// (cells only). The unit's files follow that life:
//   PDATBuild.cpp    insertion into the construction tree, term counters
//   PDATLayout.cpp   AddWordComplete: the tree laid out into cells
//   PDATFind.cpp     Find, GetWords, GetMaxWord, MMScan, the general full scan
//   PDATScan.cpp     MMFullScan and the byte-mode scan index
//   PDATSegment.cpp  MMSegment, MMSegmentSpans, FileSegment
//   PDATFile.cpp     Save, Load, Import, Export
// with PDATChars.h (reading one character) and PDATWalk.h (one transition
// over the cells) shared between them. This file holds what every phase
// needs: construction and destruction, the fixed virtual operations, and
// the bounds of the cells a walk may read (LastCell: the lower bound, cut to
// what is allocated, so an empty or inconsistent dictionary fails every
// transition instead of reading past its array).
#include "PDAT.h"

#include "PDATChars.h"

#include <algorithm>
#include <cstdlib>

// ---- Lifecycle ----

CPDAT::CPDAT(int nMode)
    : m_word_trie(nullptr),
      m_pData(nullptr),
      m_nLength(0),
      m_nLowerBound(0),
      m_nItemCount(0),
      m_sResult(nullptr),
      m_nResultLen(0),
      m_charsetSize(0),
      m_LowerChar(65536),
      m_UpperChar(0),
      m_nMode(nMode),
      m_bWordAddCompleted(false) {
    std::fill(m_charset, m_charset + 65536, -1);
    std::fill(m_charsetfreq, m_charsetfreq + 65536, 0);
    AddWordInit();
}

CPDAT::~CPDAT() {
    FreeTree();
    free(m_pData);
    delete[] m_sResult;
}

int CPDAT::GetLowerBound() const {
    return m_nLowerBound;
}

int CPDAT::AddTrie(const char*) {
    return 1;
}

void CPDAT::GetPos(char*, int) {}

int CPDAT::SetEmpty() {
    m_nLowerBound = 0;
    m_nItemCount = 0;
    InvalidateScanIndex();
    return 1;
}

// ---- Characters ----

int CPDAT::GetCharCode(const char* text, int i, int len, int* pCharLen) const {
    int n = 0, code = 0;
    if (text && i >= 0 && i < len)
        code = pdat_chars::CharCodeFor(m_nMode)(reinterpret_cast<const unsigned char*>(text), i,
                                                len, &n);
    if (pCharLen) *pCharLen = n;
    return code;
}

int CPDAT::LastCell() const {
    if (!m_pData || m_nLength <= 0) return -1;
    return std::min(m_nLowerBound, m_nLength - 1);
}
