// DataFolder.h - builds the code translator's data folder.
//
// The folder holds, for the four encodings GBK, BIG5, GB18030 ("GBKA") and
// UTF-8, a dictionary (".pdat") and a scrambled word list (".wordlist"), and
// eight id maps between them (".map"; "X2Y.map" takes handles of X's
// dictionary to ids of Y's word list):
//
//   GBK.pdat, BIG5.pdat   every character of the encoding (byte order), then
//                         the admitted OpenCC phrases of that side (by bytes)
//   GBKA.pdat, UTF8.pdat  every BMP and plane-2/3 character both encodings
//                         take (by code point), no phrases: the same character
//                         under the same handle; GBK.pdat's phrases reach
//                         them as word-list-only texts
//   BIG2GBK, GBK2BIG      traditional -> simplified and back (OpenCC tables)
//   the other six maps    the same text in the other encoding; UTF2GBKA and
//                         GBKA2UTF are therefore the identity on handles
//
// A handle's word-list text is its own word. A map target that is not a word
// of the target dictionary gets a word-list-only id, counted up from the
// dictionary's item count in byte order of the distinct such texts. No word
// contains an ASCII character, and the same inputs give the same bytes.
//
// Thread-safety: none; uses the library's unguarded error text.
#pragma once

#include <string>
#include <vector>

// One written file and what it holds ("words", "ids" or "pairs").
struct _stFileSummary {
    std::string sFile;
    std::string sUnit;
    size_t nCount;
};

// Reads STCharacters.txt, STPhrases.txt, TSCharacters.txt and TSPhrases.txt
// from sOpenCCDir (OpenCC text dumps), builds the sixteen files and writes
// them into sOutDir, which is created when missing. vSummary gets one entry
// per file in writing order. False with sError set for a missing or corrupt
// table, an encoding iconv lacks, a word the dictionary cannot give back
// under its handle, or a directory or file that cannot be written (files
// already written stay).
bool MakeDataFolder(const std::string& sOpenCCDir, const std::string& sOutDir,
                    std::vector<_stFileSummary>& vSummary, std::string& sError);
