// BenchDocs.h - the benchmark documents: prose.txt (GBK) cut into pieces of
// about a given size, and how many of them each word occurs in.
//
// A piece ends at a line end when it holds one, else at a GBK character
// boundary (a byte >= 0x80 starts a two-byte character); its first non-blank
// line is the title, the rest the content.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "BenchData.h"

namespace qxbench {

struct Document {
    std::string sTitle;
    std::string sContent;
};

// Length of the longest prefix of sText[nPos, nPos + nMax) that ends at a GBK
// character boundary (at least one character, so that cutting progresses).
inline size_t CharBoundaryLength(const std::string& sText, size_t nPos, size_t nMax) {
    size_t nLen = 0;
    while (nPos + nLen < sText.size()) {
        size_t nChar = static_cast<unsigned char>(sText[nPos + nLen]) >= 0x80 ? 2 : 1;
        if (nLen + nChar > nMax && nLen > 0) break;
        nLen = std::min(nLen + nChar, sText.size() - nPos);
    }
    return nLen;
}

// A piece of text as a document: its first non-blank line is the title.
inline Document MakeDocument(const std::string& sPiece) {
    size_t nStart = sPiece.find_first_not_of("\r\n");
    if (nStart == std::string::npos) return Document{"", sPiece};
    size_t nEol = sPiece.find('\n', nStart);
    if (nEol == std::string::npos) return Document{sPiece.substr(nStart), ""};
    return Document{sPiece.substr(nStart, nEol - nStart), sPiece.substr(nEol + 1)};
}

// Pieces of at most nMax bytes, ending at a line end when the piece holds
// one, else at a character boundary.
inline std::vector<Document> CutDocuments(const std::string& sText, size_t nMax) {
    std::vector<Document> vDocs;
    for (size_t nPos = 0; nPos < sText.size();) {
        size_t nLen = std::min(nMax, sText.size() - nPos);
        if (nPos + nLen < sText.size()) {
            size_t nEol = sText.rfind('\n', nPos + nLen - 1);
            nLen = (nEol != std::string::npos && nEol >= nPos)
                       ? nEol - nPos + 1
                       : CharBoundaryLength(sText, nPos, nMax);
        }
        vDocs.push_back(MakeDocument(sText.substr(nPos, nLen)));
        nPos += nLen;
    }
    return vDocs;
}

inline size_t TotalBytes(const std::vector<Document>& vDocs) {
    size_t nBytes = 0;
    for (const Document& doc : vDocs) nBytes += doc.sTitle.size() + doc.sContent.size();
    return nBytes;
}

// Number of documents in which each word occurs (anywhere in title or
// content). Words are 2 to 4 GBK characters, so the text is looked up in
// pieces of 4, 6 and 8 bytes starting at each character boundary.
inline std::vector<int> DocumentCounts(const Words& vWords, const std::vector<Document>& vDocs) {
    std::unordered_map<std::string_view, size_t> mapIndex;
    for (size_t i = 0; i < vWords.size(); ++i) mapIndex.emplace(vWords[i], i);
    std::vector<int> viCount(vWords.size(), 0);
    std::vector<size_t> viLastDoc(vWords.size(), SIZE_MAX);
    for (size_t nDoc = 0; nDoc < vDocs.size(); ++nDoc) {
        for (const std::string* pText : {&vDocs[nDoc].sTitle, &vDocs[nDoc].sContent}) {
            std::string_view text(*pText);
            for (size_t nPos = 0; nPos < text.size();) {
                for (size_t nLen = 4; nLen <= 8 && nPos + nLen <= text.size(); nLen += 2) {
                    auto it = mapIndex.find(text.substr(nPos, nLen));
                    if (it == mapIndex.end() || viLastDoc[it->second] == nDoc) continue;
                    viLastDoc[it->second] = nDoc;
                    ++viCount[it->second];
                }
                nPos += static_cast<unsigned char>(text[nPos]) >= 0x80 ? 2 : 1;
            }
        }
    }
    return viCount;
}

}  // namespace qxbench
