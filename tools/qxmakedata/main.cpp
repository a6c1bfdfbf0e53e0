// qxmakedata - writes the code translator's data folder.
//
// Usage: qxmakedata --opencc DIR --out FOLDER
//
// DIR holds OpenCC's text dumps STCharacters.txt, STPhrases.txt,
// TSCharacters.txt and TSPhrases.txt ("opencc_dict -f ocd2 -t text"). The
// sixteen dictionaries, word lists and id maps the translator loads are
// written into FOLDER itself (created when missing); see DataFolder.h for what
// they hold. Prints one line per file ("<file> <count> words|ids|pairs") and
// a closing "total <seconds> s" line to standard output; the id maps add
// their own "Build map success!" lines.
//
// Exit status: 0 done; 1 a table is missing or corrupt, iconv lacks an
// encoding, or a file cannot be written (message on standard error); 2 bad
// usage.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "DataFolder.h"
#include "Global.h"

namespace {

int Usage() {
    std::fprintf(stderr, "usage: qxmakedata --opencc DIR --out FOLDER\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string sOpenCC, sOut;
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 >= argc) return Usage();
        if (std::strcmp(argv[i], "--opencc") == 0)
            sOpenCC = argv[i + 1];
        else if (std::strcmp(argv[i], "--out") == 0)
            sOut = argv[i + 1];
        else
            return Usage();
    }
    if (sOpenCC.empty() || sOut.empty()) return Usage();
    g_bLog = 0;  // failures are reported here, not in dated files in the working directory

    const auto start = std::chrono::steady_clock::now();
    std::vector<_stFileSummary> vSummary;
    std::string sError;
    bool bOk = false;
    try {
        bOk = MakeDataFolder(sOpenCC, sOut, vSummary, sError);
    } catch (const std::bad_alloc&) {
        sError = "out of memory";
    }
    if (!bOk) {
        std::fprintf(stderr, "qxmakedata: %s\n", sError.c_str());
        return 1;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    for (const _stFileSummary& s : vSummary)
        std::printf("%-14s %8zu %s\n", s.sFile.c_str(), s.nCount, s.sUnit.c_str());
    std::printf("total %.2f s\n", took.count());
    return 0;
}
