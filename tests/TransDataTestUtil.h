// TransDataTestUtil.h - glibc iconv, the built "Data" folder and the prose
// corpus for the translator's real-text tests.
//
// QX_DATA_DIR is the data directory whose "Data" folder the build wrote;
// QX_CORPUS_DIR holds the corpus of tests/make_corpus.sh.
#pragma once

#include <gtest/gtest.h>
#include <iconv.h>

#include <cerrno>
#include <string>
#include <vector>

#include "TestUtil.h"

namespace qxtest::trans {

// A glibc iconv converter between two encodings, kept open for many texts.
class IconvConverter {
  public:
    IconvConverter(const char* sTo, const char* sFrom) : m_cd(iconv_open(sTo, sFrom)) {}
    ~IconvConverter() {
        if (m_cd != kNone) iconv_close(m_cd);
    }
    IconvConverter(const IconvConverter&) = delete;
    IconvConverter& operator=(const IconvConverter&) = delete;

    // sText converted into sOut. A sequence that does not convert makes the
    // result false (what was converted before it stays in sOut) unless bSkip
    // is set, which drops it and goes on.
    bool operator()(const std::string& sText, std::string& sOut, bool bSkip = false) {
        sOut.clear();
        if (m_cd == kNone) return false;
        iconv(m_cd, nullptr, nullptr, nullptr, nullptr);
        std::vector<char> buf(4 * sText.size() + 16);
        char* pIn = const_cast<char*>(sText.data());
        size_t nIn = sText.size();
        bool bOk = true;
        while (nIn > 0) {
            char* pOut = buf.data();
            size_t nOut = buf.size();
            const size_t rc = iconv(m_cd, &pIn, &nIn, &pOut, &nOut);
            sOut.append(buf.data(), static_cast<size_t>(pOut - buf.data()));
            if (rc != static_cast<size_t>(-1) || errno == E2BIG) continue;
            bOk = false;
            if (!bSkip) return false;
            ++pIn;
            --nIn;
        }
        char* pOut = buf.data();
        size_t nOut = buf.size();
        if (iconv(m_cd, nullptr, nullptr, &pOut, &nOut) == static_cast<size_t>(-1)) bOk = false;
        sOut.append(buf.data(), static_cast<size_t>(pOut - buf.data()));
        return bOk;
    }

  private:
    static inline const iconv_t kNone = reinterpret_cast<iconv_t>(-1);
    iconv_t m_cd;
};

// One conversion from one encoding to another (see IconvConverter).
inline bool Iconv(const char* sFrom, const char* sTo, const std::string& sText, std::string& sOut,
                  bool bSkip = false) {
    return IconvConverter(sTo, sFrom)(sText, sOut, bSkip);
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
