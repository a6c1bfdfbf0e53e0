// bench_pdat - speed of the dictionary (CPDAT) beside two peers.
//
// Measures, on the GBK data that bench/make_data.sh writes:
//   1. build time and size of the double-array trie for the 10k-word and the
//      full (~350k-word) lists in modes 0 and 1, beside a marisa-trie built
//      from the same words;
//   2. exact lookups per second (every word of the list, then as many misses
//      made by reversing each word's characters), beside marisa-trie;
//   3. MMFullScan throughput over prose.txt with the 1k, 10k and 100k lists
//      in mode 1, beside Hyperscan matching the same words as literals.
// The prose is scanned the way a document scanner would see it: in chunks of
// at most --chunk bytes (default 64 KiB) cut at line ends, one call per
// chunk (MMFullScan sizes its result at five times its input, so one call on
// the whole file is not what the engine does).
//
// Each timing repeats its work until --min-time seconds (default 1) have
// passed and reports the rate over all rounds; a build is repeated likewise
// and the fastest run is reported. Ratios are speeds, CPDAT over peer: above
// 1 means CPDAT is faster.
//
// Usage: bench_pdat [--data DIR] [--chunk BYTES] [--min-time SECONDS]
#include <hs.h>
#include <marisa.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "PDAT.h"

#ifndef QX_BENCH_MARISA_VERSION
#define QX_BENCH_MARISA_VERSION "?"
#endif
#ifndef QX_BENCH_DATA_DIR
#define QX_BENCH_DATA_DIR "bench/data"
#endif

#include "BenchData.h"

namespace {

using Clock = std::chrono::steady_clock;
using qxbench::Words;
constexpr double kNotMeasured = std::numeric_limits<double>::quiet_NaN();

// Results of timed loops are stored here so that the work cannot be optimised out.
volatile long g_nSink = 0;

struct Options {
    std::string sDataDir = QX_BENCH_DATA_DIR;
    size_t nChunkBytes = 64 * 1024;
    double fMinSeconds = 1.0;
};

[[noreturn]] void Fail(const std::string& sMessage) {
    std::fprintf(stderr, "bench_pdat: %s\n", sMessage.c_str());
    std::exit(1);
}

double SecondsSince(Clock::time_point tStart) {
    return std::chrono::duration<double>(Clock::now() - tStart).count();
}

// ---- options and data --------------------------------------------------------

Options ParseOptions(int argc, char** argv) {
    Options opt;
    for (int i = 1; i < argc; ++i) {
        std::string sArg = argv[i];
        if (i + 1 >= argc) Fail("usage: bench_pdat [--data DIR] [--chunk BYTES] [--min-time S]");
        const char* pValue = argv[++i];
        if (sArg == "--data") {
            opt.sDataDir = pValue;
        } else if (sArg == "--chunk") {
            opt.nChunkBytes = std::strtoul(pValue, nullptr, 10);
        } else if (sArg == "--min-time") {
            opt.fMinSeconds = std::strtod(pValue, nullptr);
        } else {
            Fail("unknown option " + sArg);
        }
    }
    if (opt.nChunkBytes == 0) Fail("--chunk must be positive");
    return opt;
}

using qxbench::ReadWholeFile;
using qxbench::ReadWords;

// Chunks of at most nMax bytes, each ending at a line end when the chunk
// holds one (a longer line is cut at nMax).
Words SplitIntoChunks(const std::string& sText, size_t nMax) {
    Words vChunks;
    for (size_t nPos = 0; nPos < sText.size();) {
        size_t nLen = std::min(nMax, sText.size() - nPos);
        if (nPos + nLen < sText.size()) {
            size_t nEol = sText.rfind('\n', nPos + nLen - 1);
            if (nEol != std::string::npos && nEol >= nPos) nLen = nEol - nPos + 1;
        }
        vChunks.push_back(sText.substr(nPos, nLen));
        nPos += nLen;
    }
    return vChunks;
}

// GBK characters of a word: a byte with the high bit set and a following byte
// form one character, any other byte is one by itself.
Words SplitCharacters(const std::string& sWord) {
    Words vChars;
    for (size_t i = 0; i < sWord.size();) {
        size_t nLen =
            (static_cast<unsigned char>(sWord[i]) >= 0x80 && i + 1 < sWord.size()) ? 2 : 1;
        vChars.push_back(sWord.substr(i, nLen));
        i += nLen;
    }
    return vChars;
}

// Mode 0 looks words up with ASCII capitals folded; a miss must miss that way too.
std::string FoldAscii(const std::string& sWord) {
    std::string sFolded;
    for (const std::string& sChar : SplitCharacters(sWord)) {
        sFolded += (sChar.size() == 1 && sChar[0] >= 'A' && sChar[0] <= 'Z')
                       ? std::string(1, static_cast<char>(sChar[0] + 32))
                       : sChar;
    }
    return sFolded;
}

// One miss per word whose characters, reversed, are no word of the list
// (under either mode's folding).
Words MakeMisses(const Words& vWords) {
    std::unordered_set<std::string> setFolded;
    for (const std::string& sWord : vWords) setFolded.insert(FoldAscii(sWord));
    Words vMisses;
    for (const std::string& sWord : vWords) {
        Words vChars = SplitCharacters(sWord);
        std::reverse(vChars.begin(), vChars.end());
        std::string sReversed;
        for (const std::string& sChar : vChars) sReversed += sChar;
        if (setFolded.count(FoldAscii(sReversed)) == 0) vMisses.push_back(sReversed);
    }
    return vMisses;
}

// ---- timing ------------------------------------------------------------------

// Runs fnRound until fMinSeconds have passed; returns rounds per second.
template <typename F>
double RoundsPerSecond(double fMinSeconds, F fnRound) {
    long nRounds = 0;
    auto tStart = Clock::now();
    double fElapsed = 0;
    do {
        fnRound();
        ++nRounds;
        fElapsed = SecondsSince(tStart);
    } while (fElapsed < fMinSeconds);
    return nRounds / fElapsed;
}

// Runs fnBuild (which returns the built object) until fMinSeconds have
// passed, at least once and at most 5 times; returns the fastest run's
// seconds and keeps the last object in *pBuilt. Destruction is not timed.
template <typename T, typename F>
double FastestBuild(double fMinSeconds, std::unique_ptr<T>* pBuilt, F fnBuild) {
    double fBest = std::numeric_limits<double>::infinity(), fTotal = 0;
    for (int nRun = 0; nRun < 5 && (nRun == 0 || fTotal < fMinSeconds); ++nRun) {
        pBuilt->reset();
        auto tStart = Clock::now();
        *pBuilt = fnBuild();
        double fSeconds = SecondsSince(tStart);
        fBest = std::min(fBest, fSeconds);
        fTotal += fSeconds;
    }
    return fBest;
}

// Repeats fnRound over the list until the minimum time; lookups per second.
template <typename F>
double LookupsPerSecond(double fMinSeconds, const Words& vKeys, F fnLookup) {
    if (vKeys.empty()) return kNotMeasured;
    long nSink = 0;
    double fRounds = RoundsPerSecond(fMinSeconds, [&] {
        for (const std::string& sKey : vKeys) nSink += fnLookup(sKey);
    });
    g_nSink = nSink;
    return fRounds * vKeys.size();
}

// ---- our side: CPDAT ---------------------------------------------------------

struct PdatBuild {
    double fSeconds = kNotMeasured;
    long nCells = 0;
    std::unique_ptr<CPDAT> pDat;
};

PdatBuild BuildPdat(const Words& vWords, int nMode, double fMinSeconds) {
    PdatBuild build;
    build.fSeconds = FastestBuild(fMinSeconds, &build.pDat, [&] {
        auto pDat = std::make_unique<CPDAT>(nMode);
        for (const std::string& sWord : vWords) pDat->AddWord(sWord.c_str(), false);
        pDat->AddWordComplete();
        return pDat;
    });
    build.nCells = build.pDat->GetLowerBound() + 1L;
    return build;
}

// Lookups per second of hits and misses; counts wrong answers in *pWrong.
std::pair<double, double> PdatLookups(CPDAT& dat, const Words& vHits, const Words& vMisses,
                                      double fMinSeconds, long* pWrong) {
    for (const std::string& s : vHits) *pWrong += dat.Find(s.c_str(), s.size()) < 0;
    for (const std::string& s : vMisses) *pWrong += dat.Find(s.c_str(), s.size()) >= 0;
    auto fnFind = [&](const std::string& s) { return dat.Find(s.c_str(), s.size()); };
    return {LookupsPerSecond(fMinSeconds, vHits, fnFind),
            LookupsPerSecond(fMinSeconds, vMisses, fnFind)};
}

// Words reported by MMFullScan over all chunks (counted outside the timing).
long PdatScanWordCount(CPDAT& dat, const Words& vChunks) {
    long nWords = 0;
    for (const std::string& sChunk : vChunks) {
        std::istringstream in(dat.MMFullScan(sChunk.c_str()));
        for (std::string sWord; in >> sWord;) ++nWords;
    }
    return nWords;
}

// Rounds per second of one MMFullScan call per chunk; the result is only
// touched, not read.
double PdatScanRounds(CPDAT& dat, const Words& vChunks, double fMinSeconds) {
    long nSink = 0;
    double fRounds = RoundsPerSecond(fMinSeconds, [&] {
        for (const std::string& sChunk : vChunks) nSink += dat.MMFullScan(sChunk.c_str())[0];
    });
    g_nSink = nSink;
    return fRounds;
}

// ---- peer: marisa-trie -------------------------------------------------------

struct MarisaBuild {
    double fSeconds = 0;
    std::unique_ptr<marisa::Trie> pTrie;
};

MarisaBuild BuildMarisa(const Words& vWords, double fMinSeconds) {
    MarisaBuild build;
    build.fSeconds = FastestBuild(fMinSeconds, &build.pTrie, [&] {
        marisa::Keyset keyset;
        for (const std::string& sWord : vWords) keyset.push_back(sWord.data(), sWord.size());
        auto pTrie = std::make_unique<marisa::Trie>();
        pTrie->build(keyset);
        return pTrie;
    });
    return build;
}

std::pair<double, double> MarisaLookups(const marisa::Trie& trie, const Words& vHits,
                                        const Words& vMisses, double fMinSeconds) {
    marisa::Agent agent;
    auto fnLookup = [&](const std::string& s) {
        agent.set_query(s.data(), s.size());
        return trie.lookup(agent) ? static_cast<long>(agent.key().id()) : -1L;
    };
    return {LookupsPerSecond(fMinSeconds, vHits, fnLookup),
            LookupsPerSecond(fMinSeconds, vMisses, fnLookup)};
}

// ---- peer: Hyperscan ---------------------------------------------------------

struct HsDeleter {
    void operator()(hs_database_t* p) const { hs_free_database(p); }
    void operator()(hs_scratch_t* p) const { hs_free_scratch(p); }
};

struct Hyperscan {
    double fCompileSeconds = 0;
    std::unique_ptr<hs_database_t, HsDeleter> pDb;
    std::unique_ptr<hs_scratch_t, HsDeleter> pScratch;
};

// The words as literal patterns, every match reported, block mode.
Hyperscan CompileHyperscan(const Words& vWords) {
    std::vector<const char*> vPatterns;
    std::vector<size_t> vLengths;
    std::vector<unsigned> vFlags(vWords.size(), 0), vIds;
    for (size_t i = 0; i < vWords.size(); ++i) {
        vPatterns.push_back(vWords[i].data());
        vLengths.push_back(vWords[i].size());
        vIds.push_back(static_cast<unsigned>(i));
    }
    Hyperscan hs;
    hs_database_t* pDb = nullptr;
    hs_compile_error_t* pError = nullptr;
    auto tStart = Clock::now();
    if (hs_compile_lit_multi(vPatterns.data(), vFlags.data(), vIds.data(), vLengths.data(),
                             static_cast<unsigned>(vWords.size()), HS_MODE_BLOCK, nullptr, &pDb,
                             &pError) != HS_SUCCESS) {
        std::string sMessage = pError ? pError->message : "unknown error";
        hs_free_compile_error(pError);
        Fail("Hyperscan compile failed: " + sMessage);
    }
    hs.fCompileSeconds = SecondsSince(tStart);
    hs.pDb.reset(pDb);
    hs_scratch_t* pScratch = nullptr;
    if (hs_alloc_scratch(pDb, &pScratch) != HS_SUCCESS) Fail("Hyperscan scratch failed");
    hs.pScratch.reset(pScratch);
    return hs;
}

int CountMatch(unsigned, unsigned long long, unsigned long long, unsigned, void* pContext) {
    ++*static_cast<long*>(pContext);
    return 0;
}

long HyperscanRound(const Hyperscan& hs, const Words& vChunks) {
    long nMatches = 0;
    for (const std::string& sChunk : vChunks) {
        hs_scan(hs.pDb.get(), sChunk.data(), static_cast<unsigned>(sChunk.size()), 0,
                hs.pScratch.get(), CountMatch, &nMatches);
    }
    return nMatches;
}

// ---- report ------------------------------------------------------------------

std::string Num(double fValue, const char* pFormat) {
    if (std::isnan(fValue)) return "n/a";
    char sBuf[64];
    std::snprintf(sBuf, sizeof sBuf, pFormat, fValue);
    return sBuf;
}

double Ratio(double fOurs, double fPeer) {
    return fOurs / fPeer;
}

struct Dictionary {
    std::string sName;
    Words vWords;
};

// One line of the build-and-lookup table; NaN where not measured.
struct LookupRow {
    double fBuild = kNotMeasured, fHit = kNotMeasured, fMiss = kNotMeasured;
    long nCells = 0, nBytes = 0, nWrong = 0;
};

LookupRow MeasurePdatLookups(const Options& opt, const Words& vWords, const Words& vMisses,
                             int nMode) {
    LookupRow row;
    PdatBuild pdat = BuildPdat(vWords, nMode, opt.fMinSeconds);
    std::tie(row.fHit, row.fMiss) =
        PdatLookups(*pdat.pDat, vWords, vMisses, opt.fMinSeconds, &row.nWrong);
    row.fBuild = pdat.fSeconds;
    row.nCells = pdat.nCells;
    row.nBytes = row.nCells * static_cast<long>(sizeof(state));
    return row;
}

void PrintLookupHeader() {
    std::printf("%-4s %6s %6s %4s | %7s %7s %9s %6s %6s | %7s %9s %6s %6s | %5s %5s %5s\n", "dict",
                "words", "misses", "mode", "build s", "cells", "bytes", "hit", "miss", "build s",
                "bytes", "hit", "miss", "build", "hit", "miss");
    std::printf("%-4s %6s %6s %4s | %-39s | %-31s | %s\n", "", "", "", "",
                "CPDAT (bytes = cells * 12)", "marisa-trie (bytes = io_size)", "ratio");
}

void PrintLookupRow(const Dictionary& dict, size_t nMisses, int nMode, const LookupRow& ours,
                    const LookupRow& peer) {
    std::printf("%-4s %6zu %6zu %4d | %7.3f %7ld %9ld %6s %6s | %7.3f %9ld %6s %6s | %5s %5s %5s\n",
                dict.sName.c_str(), dict.vWords.size(), nMisses, nMode, ours.fBuild, ours.nCells,
                ours.nBytes, Num(ours.fHit / 1e6, "%.2f").c_str(),
                Num(ours.fMiss / 1e6, "%.2f").c_str(), peer.fBuild, peer.nBytes,
                Num(peer.fHit / 1e6, "%.2f").c_str(), Num(peer.fMiss / 1e6, "%.2f").c_str(),
                Num(Ratio(peer.fBuild, ours.fBuild), "%.2f").c_str(),
                Num(Ratio(ours.fHit, peer.fHit), "%.2f").c_str(),
                Num(Ratio(ours.fMiss, peer.fMiss), "%.2f").c_str());
    if (ours.nWrong != 0) {
        std::printf("      WARNING: %ld wrong Find answers in mode %d\n", ours.nWrong, nMode);
    }
    std::fflush(stdout);
}

// marisa-trie has no modes: its one build serves both rows.
void ReportBuildAndLookup(const Options& opt, const Dictionary& dict) {
    Words vMisses = MakeMisses(dict.vWords);
    MarisaBuild marisa = BuildMarisa(dict.vWords, opt.fMinSeconds);
    LookupRow peer;
    peer.fBuild = marisa.fSeconds;
    peer.nBytes = static_cast<long>(marisa.pTrie->io_size());
    std::tie(peer.fHit, peer.fMiss) =
        MarisaLookups(*marisa.pTrie, dict.vWords, vMisses, opt.fMinSeconds);
    for (int nMode = 0; nMode <= 1; ++nMode) {
        PrintLookupRow(dict, vMisses.size(), nMode,
                       MeasurePdatLookups(opt, dict.vWords, vMisses, nMode), peer);
    }
}

// One line of the scan table.
struct ScanRow {
    double fBuild = kNotMeasured, fRate = kNotMeasured;
    long nFound = -1;
};

ScanRow MeasurePdatScan(const Options& opt, const Words& vWords, const Words& vChunks, double fMB) {
    ScanRow row;
    PdatBuild pdat = BuildPdat(vWords, 1, opt.fMinSeconds);
    row.fBuild = pdat.fSeconds;
    row.nFound = PdatScanWordCount(*pdat.pDat, vChunks);
    row.fRate = fMB * PdatScanRounds(*pdat.pDat, vChunks, opt.fMinSeconds);
    return row;
}

ScanRow MeasureHyperscan(const Options& opt, const Words& vWords, const Words& vChunks,
                         double fMB) {
    Hyperscan hs = CompileHyperscan(vWords);
    ScanRow row;
    row.fBuild = hs.fCompileSeconds;
    row.nFound = HyperscanRound(hs, vChunks);
    row.fRate = fMB * RoundsPerSecond(opt.fMinSeconds, [&] { HyperscanRound(hs, vChunks); });
    return row;
}

void PrintScanHeader(const Options& opt, size_t nChunks, double fMB) {
    std::printf("MMFullScan in mode 1 over prose.txt, %.2f MB in %zu chunks of at most %zu bytes\n",
                fMB, nChunks, opt.nChunkBytes);
    std::printf(
        "cut at line ends, one call per chunk. CPDAT lists words by maximum matching\n"
        "from every start; Hyperscan counts every occurrence of every literal in a\n"
        "callback. The two counts measure different things; MB/s is over the whole text.\n");
    std::printf("%-5s %7s | %8s %8s %10s | %8s %8s %10s | %5s\n", "dict", "words", "build s",
                "MB/s", "words out", "build s", "MB/s", "matches", "ratio");
    std::printf("%-5s %7s | %-28s | %-28s |\n", "", "", "CPDAT", "Hyperscan (literals)");
}

void ReportScan(const Options& opt, const Dictionary& dict, const Words& vChunks, double fMB) {
    ScanRow ours = MeasurePdatScan(opt, dict.vWords, vChunks, fMB);
    ScanRow peer = MeasureHyperscan(opt, dict.vWords, vChunks, fMB);
    std::printf("%-5s %7zu | %8s %8s %10ld | %8.3f %8.1f %10ld | %5s\n", dict.sName.c_str(),
                dict.vWords.size(), Num(ours.fBuild, "%.3f").c_str(),
                Num(ours.fRate, "%.1f").c_str(), ours.nFound, peer.fBuild, peer.fRate, peer.nFound,
                Num(Ratio(ours.fRate, peer.fRate), "%.2f").c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    Options opt = ParseOptions(argc, argv);
    auto fnDict = [&](const char* pName, const char* pFile) {
        return Dictionary{pName, ReadWords(opt.sDataDir + "/" + pFile)};
    };
    std::string sProse = ReadWholeFile(opt.sDataDir + "/prose.txt");
    Words vChunks = SplitIntoChunks(sProse, opt.nChunkBytes);
    double fMB = sProse.size() / 1e6;

    std::printf("QXClassifier dictionary benchmark: CPDAT beside marisa-trie %s, Hyperscan %s\n",
                QX_BENCH_MARISA_VERSION, hs_version());
    std::printf(
        "Data %s (GBK). Each rate runs for at least %.2f s; build times are the\n"
        "fastest of up to 5 builds. Ratios are CPDAT speed / peer speed (> 1: CPDAT faster).\n\n",
        opt.sDataDir.c_str(), opt.fMinSeconds);

    std::printf(
        "Build and Find: hits are the list's words, misses each word's characters\n"
        "reversed (when that is no word); hit and miss rates in million lookups/s.\n");
    PrintLookupHeader();
    ReportBuildAndLookup(opt, fnDict("10k", "words_10k.txt"));
    ReportBuildAndLookup(opt, fnDict("all", "words_all.txt"));

    std::printf("\n");
    PrintScanHeader(opt, vChunks.size(), fMB);
    ReportScan(opt, fnDict("1k", "words_1k.txt"), vChunks, fMB);
    ReportScan(opt, fnDict("10k", "words_10k.txt"), vChunks, fMB);
    ReportScan(opt, fnDict("100k", "words_100k.txt"), vChunks, fMB);
    return 0;
}
