// qxclassify - classifies every document of a directory with a rule list.
//
// Usage: qxclassify [--utf8] [--log] [--data DIR] RULES DOCDIR
//
// Uses the library through its public header only. Loads RULES (a GBK rule
// list) with classifier_init(RULES, DIR, 0, null), then takes the "*.txt"
// files of DOCDIR in byte order of their names and prints, per document, its
// classes with weights and the detail report of its best (first) class:
//
//   == <file name>
//     <class> <weight>          one line per class, or "  (no class)"
//   detail of <best class>:
//   <report lines as the library writes them>
//   <blank line>
//
// and a closing line "<n> documents, <m> with a class". Output is GBK, the
// library's own bytes; --utf8 converts it for UTF-8 terminals. --log switches
// on the library's log files (in the working directory); by default they are
// off. The loader's progress lines (one rule number per line) are kept off
// standard output.
//
// Document file (GBK): the first line is the title; directly after it, lines
// "author: X", "board: X" and "datatype: X" (any order, optional) set those
// fields, blanks around X trimmed; every byte after them is the content.
//
// Exit status: 0 done; 1 the rule list did not load (the library's last error
// is printed) or a document could not be read or classified; 2 bad usage or
// unreadable DOCDIR.
#include <fcntl.h>
#include <iconv.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "QXClassifier.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    bool bUTF8 = false;
    bool bLog = false;
    const char* sDataDir = nullptr;
    std::string sRules;
    std::string sDocDir;
};

// One "<class> <weight>" entry of a result text.
struct ClassWeight {
    std::string sClass;
    std::string sWeight;
};

const char kUsage[] = "usage: qxclassify [--utf8] [--log] [--data DIR] RULES DOCDIR\n";

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

// GBK to UTF-8; a byte iconv cannot take becomes "?" and is skipped.
std::string GBKToUTF8(const std::string& sGBK) {
    iconv_t cd = iconv_open("UTF-8", "GBK");
    if (cd == reinterpret_cast<iconv_t>(-1)) return sGBK;
    std::string sOut;
    std::vector<char> vcBuf(4 * sGBK.size() + 16);
    char* pIn = const_cast<char*>(sGBK.data());
    size_t nIn = sGBK.size();
    while (nIn > 0) {
        char* pOut = vcBuf.data();
        size_t nOut = vcBuf.size();
        const size_t rc = iconv(cd, &pIn, &nIn, &pOut, &nOut);
        sOut.append(vcBuf.data(), static_cast<size_t>(pOut - vcBuf.data()));
        if (rc == static_cast<size_t>(-1) && errno != E2BIG) {
            sOut += '?';  // EILSEQ or a truncated last character
            ++pIn;
            --nIn;
        }
    }
    iconv_close(cd);
    return sOut;
}

class Printer {
  public:
    explicit Printer(bool bUTF8) : m_bUTF8(bUTF8) {}
    void Out(const std::string& sGBK) const { Write(stdout, sGBK); }
    void Err(const std::string& sGBK) const { Write(stderr, sGBK); }

  private:
    void Write(FILE* fp, const std::string& sGBK) const {
        const std::string sText = m_bUTF8 ? GBKToUTF8(sGBK) : sGBK;
        fwrite(sText.data(), 1, sText.size(), fp);
    }
    bool m_bUTF8;
};

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

// Splits "<class> <weight>\t..." into its entries; the weight follows the
// last blank of an entry, so class names may hold blanks.
std::vector<ClassWeight> ParseResult(const std::string& sResult) {
    std::vector<ClassWeight> vResult;
    size_t pos = 0;
    while (pos < sResult.size()) {
        size_t nEnd = sResult.find('\t', pos);
        if (nEnd == std::string::npos) nEnd = sResult.size();
        const std::string sEntry = sResult.substr(pos, nEnd - pos);
        const size_t nBlank = sEntry.rfind(' ');
        if (!sEntry.empty()) {
            if (nBlank == std::string::npos) {
                vResult.push_back({sEntry, ""});
            } else {
                vResult.push_back({sEntry.substr(0, nBlank), sEntry.substr(nBlank + 1)});
            }
        }
        pos = nEnd + 1;
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

// classifier_init with standard output sent to /dev/null, so that the loader's
// progress lines do not mix with the report.
bool InitQuietly(const Options& opts) {
    fflush(stdout);
    const int nSaved = dup(STDOUT_FILENO);
    const int nNull = open("/dev/null", O_WRONLY);
    if (nSaved >= 0 && nNull >= 0) dup2(nNull, STDOUT_FILENO);
    const bool bOk = classifier_init(opts.sRules.c_str(), opts.sDataDir, 0, nullptr);
    fflush(stdout);
    if (nSaved >= 0) {
        dup2(nSaved, STDOUT_FILENO);
        close(nSaved);
    }
    if (nNull >= 0) close(nNull);
    return bOk;
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
        const char* sError = classifier_GetLastErrorMsg();
        printer.Err("qxclassify: " + sName + ": " + (sError ? sError : "") + "\n");
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
    const Printer printer(opts.bUTF8);

    std::vector<fs::path> vPaths;
    if (!ListDocuments(opts.sDocDir, vPaths)) {
        fprintf(stderr, "qxclassify: cannot read directory %s\n", opts.sDocDir.c_str());
        return 2;
    }
    if (!InitQuietly(opts)) {
        const char* sError = classifier_GetLastErrorMsg();
        printer.Err(std::string("qxclassify: ") + (sError ? sError : "") + "\n");
        classifier_exit();
        return 1;
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
