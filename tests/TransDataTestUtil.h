// TransDataTestUtil.h - glibc iconv, the built "Data" folder and the prose
// corpus for the translator's real-text tests.
//
// QX_DATA_DIR is the data directory whose "Data" folder the build wrote;
// QX_CORPUS_DIR holds the corpus of tests/make_corpus.sh.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "Iconv.h"
#include "TestUtil.h"

namespace qxtest::trans {

// One conversion from one encoding to another; with bSkip a sequence that
// does not convert is dropped and the conversion goes on (the result is then
// false all the same).
inline bool Iconv(const char* sFrom, const char* sTo, const std::string& sText, std::string& sOut,
                  bool bSkip = false) {
    return CIconv(sTo, sFrom).Convert(sText, sOut,
                                      bSkip ? CIconv::OnBad::kSkip : CIconv::OnBad::kStop);
}

// The same when the conversion must succeed.
inline std::string MustIconv(const char* sFrom, const char* sTo, const std::string& sText) {
    std::string sOut;
    EXPECT_TRUE(Iconv(sFrom, sTo, sText, sOut)) << sFrom << " -> " << sTo;
    return sOut;
}

inline std::string DataDir() {
    return QX_DATA_DIR;
}

inline std::string CorpusFile(const std::string& sName) {
    return std::string(QX_CORPUS_DIR) + "/" + sName;
}

// The lines of a text as the translator takes them: leading blanks, tabs,
// CRs and LFs skipped, each line up to (not including) its first CR or LF,
// paired with that byte (0 for a last line without one).
struct TextLine {
    std::string sText;
    char chEnd;
};
inline std::vector<TextLine> TakeLines(const std::string& s) {
    std::vector<TextLine> vLines;
    size_t i = 0;
    while (true) {
        i = s.find_first_not_of(" \t\r\n", i);
        if (i == std::string::npos) break;
        const size_t j = s.find_first_of("\r\n", i);
        if (j == std::string::npos) {
            vLines.push_back({s.substr(i), '\0'});
            break;
        }
        vLines.push_back({s.substr(i, j - i), s[j]});
        i = j;
    }
    return vLines;
}

// The text a translation gives when every word converts: its lines as above,
// each without tab bytes (the word walk drops them) and followed by the byte
// that ended it.
inline std::string TranslatedLayout(const std::string& s) {
    std::string sOut;
    for (const TextLine& line : TakeLines(s)) {
        for (char c : line.sText)
            if (c != '\t') sOut += c;
        if (line.chEnd) sOut += line.chEnd;
    }
    return sOut;
}

}  // namespace qxtest::trans
