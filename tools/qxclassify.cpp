// qxclassify - classifies every document of a directory with a rule list.
//
// Usage: qxclassify [--utf8] [--log] [--data DIR] [--encoding NAME] RULES DOCDIR
//
// Uses the library through its public header only. Loads RULES (a GBK rule
// list) with classifier_init(RULES, DIR, code, null), then takes the "*.txt"
// files of DOCDIR in byte order of their names and prints, per document, its
// classes with weights and the detail report of its best (first) class:
//
//   == <file name>
//     <class> <weight>          one line per class, or "  (no class)"
//   detail of <best class>:
//   <report lines as the library writes them>
//   <blank line>
//
// and a closing line "<n> documents, <m> with a class". When --encoding is
// given, a first line "encoding: <name> (code <code>)" names the choice.
//
// --encoding NAME says what the documents are written in: gbk (code 0, the
// default), utf8 (code 5), gb18030 (code 3), big5 (code 2), or a code 0..5
// itself (1 and 4 are UTF-8 too, translated against GB18030 inside). The
// documents are handed to the library as they are; codes 1..5 make the
// library translate, with the files of the "Data" folder under --data DIR
// (default: the working directory). The rule list stays GBK whatever the
// code.
//
// Output is in the documents' encoding, the library's bytes as it returns
// them; --utf8 converts it for UTF-8 terminals. --log switches on the
// library's log files (in the working directory); by default they are off.
// The loader's progress lines (one rule number per line) are kept off
// standard output.
//
// Document file: the first line is the title; directly after it, lines
// "author: X", "board: X" and "datatype: X" (any order, optional) set those
// fields, blanks around X trimmed; every byte after them is the content.
//
// Exit status: 0 done; 1 the rule list or the translator's data did not load
// (the library's last error is printed) or a document could not be read or
// classified; 2 bad usage or unreadable DOCDIR.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Iconv.h"
#include "QXClassifier.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    bool bUTF8 = false;
    bool bLog = false;
    const char* sDataDir = nullptr;
    const char* sEncodingArg = nullptr;  // --encoding as given, null without it
    int nEncoding = 0;                   // classifier_init's encoding code
    std::string sRules;
    std::string sDocDir;
};

// One "<class> <weight>" entry of a result text.
struct ClassWeight {
    std::string sClass;
    std::string sWeight;
};

const char kUsage[] =
    "usage: qxclassify [--utf8] [--log] [--data DIR] [--encoding NAME] RULES DOCDIR\n"
    "  --encoding NAME  the documents' encoding: gbk (code 0, default), utf8 (code 5),\n"
    "                   gb18030 (code 3), big5 (code 2), or a code 0..5; output\n"
    "                   comes in the same encoding. Codes 1..5 need the translator's\n"
    "                   files in the folder \"Data\" under --data DIR.\n"
    "  --data DIR       the library's data directory (default: working directory)\n"
    "  --utf8           convert the output to UTF-8\n"
    "  --log            let the library write its log files\n";

// The names --encoding takes; a bare code 0..5 is taken as well.
const struct {
    const char* sName;
    int nCode;
} kEncodingNames[] = {{"gbk", 0}, {"utf8", 5}, {"gb18030", 3}, {"big5", 2}};

// Per code 0..5, the encoding the caller (and so the output) speaks: its name
// in the "encoding:" line and its iconv name for --utf8.
const struct {
    const char* sName;
    const char* sCharset;
} kCallerSide[] = {{"gbk", "GBK"},         {"utf8", "UTF-8"}, {"big5", "BIG5"},
                   {"gb18030", "GB18030"}, {"utf8", "UTF-8"}, {"utf8", "UTF-8"}};

// The code an --encoding argument names; -1 for anything else.
int EncodingCode(const std::string& sArg) {
    for (const auto& e : kEncodingNames) {
        if (sArg == e.sName) return e.nCode;
    }
    if (sArg.size() == 1 && sArg[0] >= '0' && sArg[0] <= '5') return sArg[0] - '0';
    return -1;
}

bool ParseArgs(int argc, char** argv, Options& opts) {
    std::vector<std::string> vsPositional;
    for (int i = 1; i < argc; ++i) {
        const std::string sArg = argv[i];
        if (sArg == "--utf8") {
            opts.bUTF8 = true;
        } else if (sArg == "--log") {
            opts.bLog = true;
        } else if (sArg == "--data" && i + 1 < argc) {
            opts.sDataDir = argv[++i];
        } else if (sArg == "--encoding" && i + 1 < argc) {
            opts.sEncodingArg = argv[++i];
            opts.nEncoding = EncodingCode(opts.sEncodingArg);
            if (opts.nEncoding < 0) {
                fprintf(stderr, "qxclassify: unknown encoding '%s'\n", opts.sEncodingArg);
                return false;
            }
        } else if (!sArg.empty() && sArg[0] == '-') {
            return false;
        } else {
            vsPositional.push_back(sArg);
        }
    }
    if (vsPositional.size() != 2) return false;
    opts.sRules = vsPositional[0];
    opts.sDocDir = vsPositional[1];
    return true;
}

// sText from charset sFrom to UTF-8; a byte iconv cannot take becomes "?" and
// is skipped. Without a converter the text is returned unchanged.
std::string ToUTF8(const std::string& sText, const char* sFrom) {
    CIconv cConv("UTF-8", sFrom);
    if (!cConv.IsOpen()) return sText;
    std::string sOut;
    cConv.Convert(sText, sOut, CIconv::OnBad::kMark);
    return sOut;
}

// Writes texts as they are, or with --utf8 converted from their encoding:
// results and reports are in the caller's encoding of the code; the library's
// error messages are UTF-8 under code 1 and GBK under every other code.
class Printer {
  public:
    Printer(bool bUTF8, int nEncoding)
        : m_bUTF8(bUTF8),
          m_sOutCharset(kCallerSide[nEncoding].sCharset),
          m_sErrCharset(nEncoding == 1 ? "UTF-8" : "GBK") {}
    void Out(const std::string& sText) const { Write(stdout, sText, m_sOutCharset); }
    void Err(const std::string& sText) const { Write(stderr, sText, m_sErrCharset); }

  private:
    void Write(FILE* fp, const std::string& sText, const char* sCharset) const {
        const bool bConvert = m_bUTF8 && strcmp(sCharset, "UTF-8") != 0;
        const std::string sOut = bConvert ? ToUTF8(sText, sCharset) : sText;
        fwrite(sOut.data(), 1, sOut.size(), fp);
    }
    bool m_bUTF8;
    const char* m_sOutCharset;
    const char* m_sErrCharset;
};

// The library's last error without the line end some messages carry.
std::string LastError() {
    const char* sError = classifier_GetLastErrorMsg();
    std::string s = sError != nullptr ? sError : "";
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    return s;
}

std::string Trim(const std::string& s) {
    const size_t nFirst = s.find_first_not_of(" \t");
    if (nFirst == std::string::npos) return "";
    const size_t nLast = s.find_last_not_of(" \t");
    return s.substr(nFirst, nLast - nFirst + 1);
}

// The line starting at pos without its line end; pos moves past the "\n".
std::string TakeLine(const std::string& s, size_t& pos) {
    size_t nEnd = s.find('\n', pos);
    const size_t nNext = nEnd == std::string::npos ? s.size() : nEnd + 1;
    if (nEnd == std::string::npos) nEnd = s.size();
    std::string sLine = s.substr(pos, nEnd - pos);
    if (!sLine.empty() && sLine.back() == '\r') sLine.pop_back();
    pos = nNext;
    return sLine;
}

// The field a header line sets, with its value, or null when it is no header.
std::string* HeaderField(stDoc& d, const std::string& sLine, std::string& sValue) {
    static const struct {
        const char* sKey;
        std::string stDoc::*pField;
    } kHeaders[] = {
        {"author:", &stDoc::sAuthor}, {"board:", &stDoc::sBoard}, {"datatype:", &stDoc::sDatatype}};
    for (const auto& h : kHeaders) {
        const size_t nKey = strlen(h.sKey);
        if (sLine.compare(0, nKey, h.sKey) == 0) {
            sValue = Trim(sLine.substr(nKey));
            return &(d.*h.pField);
        }
    }
    return nullptr;
}

stDoc ParseDocument(const std::string& sBytes) {
    stDoc d;
    size_t pos = 0;
    d.sTitle = TakeLine(sBytes, pos);
    while (pos < sBytes.size()) {
        size_t nNext = pos;
        std::string sValue;
        std::string* pField = HeaderField(d, TakeLine(sBytes, nNext), sValue);
        if (pField == nullptr) break;
        *pField = sValue;
        pos = nNext;
    }
    d.sContent = sBytes.substr(pos);
    return d;
}

// Number of ASCII digits from pos on.
size_t CountDigits(const std::string& s, size_t pos) {
    size_t n = 0;
    while (pos + n < s.size() && s[pos + n] >= '0' && s[pos + n] <= '9') ++n;
    return n;
}

// Length of the weight " <digits>.<4 digits>" starting at pos, blank
// included; 0 when none starts there. Digits past the fourth decimal are not
// the weight's.
size_t WeightLength(const std::string& s, size_t pos) {
    if (s[pos] != ' ') return 0;
    const size_t nInt = CountDigits(s, pos + 1);
    const size_t nDot = pos + 1 + nInt;
    if (nInt == 0 || nDot >= s.size() || s[nDot] != '.') return 0;
    if (CountDigits(s, nDot + 1) < 4) return 0;
    return 1 + nInt + 1 + 4;
}

// Splits a result text "<class> <weight>\t..." into its entries. The tab
// cannot be relied on: with an encoding code the library translates the
// result, and the translator drops tab bytes, so "A 2.0000\tB 1.0000\t"
// comes back as "A 2.0000B 1.0000". An entry therefore ends after its weight,
// which the library writes with "%.4f": a blank, digits, '.', exactly four
// digits, then a tab or not. Class names may hold blanks (and digits, even
// right after a weight); only a name holding such a weight pattern itself
// would be cut. Text after the last weight counts as tab-separated names
// without weights. The blank is ASCII in every encoding the tool takes and
// never the second byte of a character, so the scan can go byte by byte.
std::vector<ClassWeight> ParseResult(const std::string& sResult) {
    std::vector<ClassWeight> vResult;
    size_t nStart = 0;
    size_t pos = 0;
    while (pos < sResult.size()) {
        const size_t nLen = WeightLength(sResult, pos);
        if (nLen == 0) {
            ++pos;
            continue;
        }
        vResult.push_back(
            {sResult.substr(nStart, pos - nStart), sResult.substr(pos + 1, nLen - 1)});
        pos += nLen;
        if (pos < sResult.size() && sResult[pos] == '\t') ++pos;
        nStart = pos;
    }
    for (size_t nEnd; nStart < sResult.size(); nStart = nEnd + 1) {
        nEnd = std::min(sResult.find('\t', nStart), sResult.size());
        if (nEnd > nStart) vResult.push_back({sResult.substr(nStart, nEnd - nStart), ""});
    }
    return vResult;
}

bool ListDocuments(const std::string& sDir, std::vector<fs::path>& vPaths) {
    std::error_code ec;
    fs::directory_iterator it(sDir, ec);
    if (ec) return false;
    for (const auto& entry : it) {
        if (entry.is_regular_file(ec) && entry.path().extension() == ".txt") {
            vPaths.push_back(entry.path());
        }
    }
    std::sort(vPaths.begin(), vPaths.end(), [](const fs::path& a, const fs::path& b) {
        return a.filename().string() < b.filename().string();
    });
    return true;
}

bool ReadWhole(const fs::path& path, std::string& sBytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    sBytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// classifier_init with the loader's progress lines off, so that they do not
// mix with the report.
bool InitQuietly(const Options& opts) {
    classifier_setprogress(0);
    return classifier_init(opts.sRules.c_str(), opts.sDataDir, opts.nEncoding, nullptr);
}

enum class Outcome { kFailed, kNoClass, kClassified };

// Classifies one document and prints its block.
Outcome ReportDocument(const fs::path& path, const Printer& printer) {
    const std::string sName = path.filename().string();
    std::string sBytes;
    if (!ReadWhole(path, sBytes)) {
        printer.Err("qxclassify: cannot read " + path.string() + "\n");
        return Outcome::kFailed;
    }
    stDoc d = ParseDocument(sBytes);
    const char* sResult = classifier_exec1(d, 1);
    if (sResult == nullptr) {
        printer.Err("qxclassify: " + sName + ": " + LastError() + "\n");
        return Outcome::kFailed;
    }
    const std::vector<ClassWeight> vClasses = ParseResult(sResult);
    std::string sBlock = "== " + sName + "\n";
    for (const auto& cw : vClasses) sBlock += "  " + cw.sClass + " " + cw.sWeight + "\n";
    if (vClasses.empty()) {
        sBlock += "  (no class)\n";
    } else {
        const char* sDetail = classifier_detail(vClasses.front().sClass.c_str());
        sBlock += "detail of " + vClasses.front().sClass + ":\n";
        sBlock += sDetail != nullptr ? sDetail : "";
    }
    printer.Out(sBlock + "\n");
    return vClasses.empty() ? Outcome::kNoClass : Outcome::kClassified;
}

}  // namespace

int main(int argc, char** argv) {
    Options opts;
    if (!ParseArgs(argc, argv, opts)) {
        fputs(kUsage, stderr);
        return 2;
    }
    g_bLog = opts.bLog ? 1 : 0;
    const Printer printer(opts.bUTF8, opts.nEncoding);

    std::vector<fs::path> vPaths;
    if (!ListDocuments(opts.sDocDir, vPaths)) {
        fprintf(stderr, "qxclassify: cannot read directory %s\n", opts.sDocDir.c_str());
        return 2;
    }
    if (!InitQuietly(opts)) {
        printer.Err("qxclassify: " + LastError() + "\n");
        classifier_exit();
        return 1;
    }

    if (opts.sEncodingArg != nullptr) {
        const std::string sCode = std::to_string(opts.nEncoding);
        printer.Out("encoding: " + std::string(kCallerSide[opts.nEncoding].sName) + " (code " +
                    sCode + ")\n");
    }
    int nFailed = 0;
    int nClassified = 0;
    for (const auto& path : vPaths) {
        const Outcome outcome = ReportDocument(path, printer);
        nFailed += outcome == Outcome::kFailed ? 1 : 0;
        nClassified += outcome == Outcome::kClassified ? 1 : 0;
    }
    printer.Out(std::to_string(vPaths.size()) + " documents, " + std::to_string(nClassified) +
                " with a class\n");
    classifier_exit();
    return nFailed == 0 ? 0 : 1;
}
