// bench_resources - speed of the resource files the code translator loads.
//
// Each measurement is a small function in kMeasurements that prints its own
// result lines, so a new figure is one more function and one more row:
//   map_complete    MapAdd and MapComplete of an id map of --pairs pairs
//                   (default 500,000) with deterministic pseudo-random handles
//                   (sources below pairs / 2, targets below pairs, so most
//                   sources have several targets and some pairs repeat);
//   map_files       Save and Load of that map;
//   wordlist_files  AddWordComplete, Save and Load of a scrambled word list
//                   of --words texts (default 350,000) of 2 to 4 GBK characters;
//   dict_files      Save and Load of the dictionary (mode 0) of every word in
//                   DIR/words_all.txt (about 350,000 GBK words);
//   dict_segment    MMSegment of DIR/prose.txt (GBK, about 10 MB) with that
//                   dictionary, in one call, with handles kept for every
//                   segment (as the translator calls it), in MB/s.
// Every timing is the fastest of --repeat runs (default 3). Files go to a
// temporary directory that is removed at the end. MapComplete is timed with
// its progress line off.
//
// DIR is --data (default bench/data, written by bench/make_data.sh).
//
// Usage: bench_resources [--repeat N] [--pairs N] [--words N] [--data DIR] [--only NAME]

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "IDMaps.h"
#include "PDAT.h"
#include "WordList.h"

#include "BenchData.h"

namespace {

using Clock = std::chrono::steady_clock;

// Results of timed work are stored here so that it cannot be optimised out.
volatile long g_nSink = 0;

struct Options {
    int nRepeat = 3;
    int nPairs = 500000;
    int nWords = 350000;
    std::string sOnly;
    std::string sData = "bench/data";
    std::string sDir;  // temporary directory for files
};

[[noreturn]] void Fail(const std::string& sMessage) {
    std::fprintf(stderr, "bench_resources: %s\n", sMessage.c_str());
    std::exit(1);
}

// Milliseconds of the fastest of nRepeat runs of fn.
double BestMs(int nRepeat, const std::function<void()>& fn) {
    double fBest = std::numeric_limits<double>::infinity();
    for (int i = 0; i < nRepeat; ++i) {
        const Clock::time_point tStart = Clock::now();
        fn();
        fBest = std::min(fBest,
                         std::chrono::duration<double, std::milli>(Clock::now() - tStart).count());
    }
    return fBest;
}

void Report(const std::string& sWhat, double fMs) {
    std::printf("  %-56s %10.1f ms\n", sWhat.c_str(), fMs);
    std::fflush(stdout);
}

// A fixed pseudo-random sequence (64-bit LCG, high bits) for repeatable data.
class Lcg {
  public:
    explicit Lcg(unsigned long long nSeed) : m_nState(nSeed) {}
    unsigned int Below(unsigned int n) {
        m_nState = m_nState * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<unsigned int>((m_nState >> 33) % n);
    }

  private:
    unsigned long long m_nState;
};

void AddPairs(CIDMaps& map, int nPairs) {
    Lcg rng(20240511);
    const unsigned int nSources = static_cast<unsigned int>(std::max(1, nPairs / 2));
    map.MapInit();
    for (int i = 0; i < nPairs; ++i)
        map.MapAdd(static_cast<int>(rng.Below(nSources)),
                   static_cast<int>(rng.Below(static_cast<unsigned int>(nPairs))));
}

// ---- measurements -------------------------------------------------------------

void MeasureMapComplete(const Options& opt) {
    double fAddMs = std::numeric_limits<double>::infinity(), fCompleteMs = fAddMs;
    for (int i = 0; i < opt.nRepeat; ++i) {
        CIDMaps map;
        fAddMs = std::min(fAddMs, BestMs(1, [&] { AddPairs(map, opt.nPairs); }));
        fCompleteMs = std::min(fCompleteMs, BestMs(1, [&] { map.MapComplete(nullptr); }));
        g_nSink = g_nSink + map.GetMapID(0);
    }
    Report("id map: MapAdd of " + std::to_string(opt.nPairs) + " pairs", fAddMs);
    Report("id map: MapComplete of " + std::to_string(opt.nPairs) + " pairs", fCompleteMs);
}

void MeasureMapFiles(const Options& opt) {
    CIDMaps map;
    AddPairs(map, opt.nPairs);
    map.MapComplete(nullptr);
    const std::string sPath = opt.sDir + "/bench.map";
    const double fSaveMs = BestMs(opt.nRepeat, [&] {
        if (!map.Save(sPath.c_str())) Fail("cannot save " + sPath);
    });
    const double fLoadMs = BestMs(opt.nRepeat, [&] {
        CIDMaps loaded;
        if (!loaded.Load(sPath.c_str())) Fail("cannot load " + sPath);
        g_nSink = g_nSink + loaded.GetMapID(1);
    });
    const std::string sSize = std::to_string(std::filesystem::file_size(sPath) / 1024) + " KiB";
    Report("id map: Save (" + sSize + ")", fSaveMs);
    Report("id map: Load (" + sSize + ")", fLoadMs);
}

// The i-th word: 2 to 4 GBK characters from the first ideograph rows.
std::string GbkWord(Lcg& rng) {
    std::string sWord;
    for (unsigned int n = 2 + rng.Below(3); n > 0; --n) {
        sWord += static_cast<char>(0xB0 + rng.Below(40));
        sWord += static_cast<char>(0xA1 + rng.Below(94));
    }
    return sWord;
}

void MeasureWordListFiles(const Options& opt) {
    Lcg rng(7);
    CWordList list(true, nullptr);
    for (int h = 0; h < opt.nWords; ++h) list.AddWord(GbkWord(rng).c_str(), h);
    const double fCompleteMs = BestMs(1, [&] { list.AddWordComplete(); });
    const std::string sPath = opt.sDir + "/bench.wordlist";
    const double fSaveMs = BestMs(opt.nRepeat, [&] {
        if (!list.Save(sPath.c_str())) Fail("cannot save " + sPath);
    });
    const double fLoadMs = BestMs(opt.nRepeat, [&] {
        CWordList loaded(true, nullptr);
        if (!loaded.Load(sPath.c_str())) Fail("cannot load " + sPath);
        g_nSink = g_nSink + loaded.GetWord(1)[0];
    });
    const std::string sWhat = std::to_string(opt.nWords) + " words, scrambled, " +
                              std::to_string(std::filesystem::file_size(sPath) / 1024) + " KiB";
    Report("word list: AddWordComplete (" + std::to_string(opt.nWords) + " words)", fCompleteMs);
    Report("word list: Save (" + sWhat + ")", fSaveMs);
    Report("word list: Load (" + sWhat + ")", fLoadMs);
}

std::string ReadData(const Options& opt, const char* sName) {
    return qxbench::ReadWholeFile(opt.sData + "/" + sName);
}

// The mode-0 dictionary of every line of words_all.txt; reports its build.
std::unique_ptr<CPDAT> BuildWordsDict(const Options& opt) {
    const std::string sWords = ReadData(opt, "words_all.txt");
    auto pDict = std::make_unique<CPDAT>(0);
    const double fMs = BestMs(1, [&] {
        size_t nStart = 0;
        for (size_t nEnd; (nEnd = sWords.find('\n', nStart)) != std::string::npos;
             nStart = nEnd + 1)
            pDict->AddWord(sWords.substr(nStart, nEnd - nStart).c_str(), false);
        pDict->AddWordComplete();
    });
    Report("dictionary: build (" + std::to_string(pDict->GetItemCount()) + " words, mode 0)", fMs);
    return pDict;
}

void MeasureDictFiles(const Options& opt) {
    std::unique_ptr<CPDAT> pDict = BuildWordsDict(opt);
    const std::string sPath = opt.sDir + "/bench.pdat";
    const double fSaveMs = BestMs(opt.nRepeat, [&] {
        if (!pDict->Save(sPath.c_str())) Fail("cannot save " + sPath);
    });
    const double fLoadMs = BestMs(opt.nRepeat, [&] {
        CPDAT loaded(0);
        if (!loaded.Load(sPath.c_str())) Fail("cannot load " + sPath);
        g_nSink = g_nSink + loaded.GetLowerBound();
    });
    const std::string sSize = std::to_string(std::filesystem::file_size(sPath) / 1024) + " KiB";
    Report("dictionary: Save (" + sSize + ")", fSaveMs);
    Report("dictionary: Load (" + sSize + ")", fLoadMs);
}

void MeasureDictSegment(const Options& opt) {
    std::unique_ptr<CPDAT> pDict = BuildWordsDict(opt);
    const std::string sProse = ReadData(opt, "prose.txt");
    int* pHandles = nullptr;
    char* pResult = nullptr;
    int nHandleCap = 0, nResultCap = 0;
    pDict->MMSegment(sProse.c_str(), &pHandles, &nHandleCap, &pResult, &nResultCap, false, true, -1,
                     '\t');  // sizes the buffers once, as a reused caller buffer is
    const double fMs = BestMs(opt.nRepeat, [&] {
        g_nSink = g_nSink + pDict->MMSegment(sProse.c_str(), &pHandles, &nHandleCap, &pResult,
                                             &nResultCap, false, true, -1, '\t');
    });
    std::free(pHandles);
    std::free(pResult);
    const double fMb = static_cast<double>(sProse.size()) / 1e6;
    std::printf(
        "  %-56s %10.1f MB/s\n",
        ("dictionary: MMSegment of prose (" + std::to_string(sProse.size() / 1024) + " KiB)")
            .c_str(),
        fMb / (fMs / 1000.0));
}

struct Measurement {
    const char* sName;
    void (*pfnRun)(const Options&);
};

const Measurement kMeasurements[] = {
    {"map_complete", MeasureMapComplete},     {"map_files", MeasureMapFiles},
    {"wordlist_files", MeasureWordListFiles}, {"dict_files", MeasureDictFiles},
    {"dict_segment", MeasureDictSegment},
};

// ---- driver -----------------------------------------------------------------------

Options ParseOptions(int argc, char** argv) {
    Options opt;
    for (int i = 1; i < argc; i += 2) {
        const std::string sArg = argv[i];
        if (i + 1 >= argc)
            Fail(
                "usage: bench_resources [--repeat N] [--pairs N] [--words N] [--data DIR] "
                "[--only NAME]");
        const char* pValue = argv[i + 1];
        if (sArg == "--repeat")
            opt.nRepeat = std::max(1, std::atoi(pValue));
        else if (sArg == "--pairs")
            opt.nPairs = std::max(1, std::atoi(pValue));
        else if (sArg == "--words")
            opt.nWords = std::max(1, std::atoi(pValue));
        else if (sArg == "--data")
            opt.sData = pValue;
        else if (sArg == "--only")
            opt.sOnly = pValue;
        else
            Fail("unknown option " + sArg);
    }
    return opt;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt = ParseOptions(argc, argv);
    char sTemplate[] = "/tmp/bench_resources.XXXXXX";
    if (!mkdtemp(sTemplate)) Fail("cannot create a temporary directory");
    opt.sDir = sTemplate;
    std::printf("bench_resources: resource files (fastest of %d runs)\n", opt.nRepeat);
    bool bRan = false;
    for (const Measurement& m : kMeasurements) {
        if (!opt.sOnly.empty() && opt.sOnly != m.sName) continue;
        m.pfnRun(opt);
        bRan = true;
    }
    std::error_code ec;
    std::filesystem::remove_all(opt.sDir, ec);
    if (!bRan) Fail("no measurement named " + opt.sOnly);
    return 0;
}
