// bench_threads - documents per second of the reentrant engine against the
// number of threads sharing one rule set.
//
// The rule list and the documents are the engine benchmark's (BenchRuleList.h,
// BenchDocs.h): a generated list of --rules rules (default 1,000) over the
// 2,048-byte pieces of prose.txt. One qx::Engine is built (matchers follow
// its current set, as a service's do); for each thread
// count 1..--max-threads (default: the machine's cores) every thread gets its
// own qx::Matcher and classifies the whole document set, pass after pass, for
// at least --min-time seconds (default 1); the rate is all documents done by
// all threads over the wall time. The thread counts are measured in turn,
// --runs times (default 5), alternating, and the median rate of each is
// printed with its ratio to one thread.
//
// Then the reload figures: with --reload-rules rules (default 10,000) loaded
// in a qx::Engine, one thread classifies without pause while the main thread
// reloads the same list --runs times; it prints the median time from the
// start of Reload to the swap, and the classification rate while reloads run
// beside that of the same thread alone.
//
// Usage: bench_threads [--data DIR] [--rules N] [--max-threads N]
//                      [--min-time S] [--runs N] [--reload-rules N]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#ifndef QX_BENCH_DATA_DIR
#define QX_BENCH_DATA_DIR "bench/data"
#endif

#include "BenchDocs.h"
#include "BenchRuleList.h"
#include "QXEngine.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string sDataDir = QX_BENCH_DATA_DIR;
    int nRules = 1000;
    int nMaxThreads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    double fMinSeconds = 1.0;
    int nRuns = 5;
    int nReloadRules = 10000;
};

Options ParseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string sArg = argv[i], sValue = argv[i + 1];
        if (sArg == "--data")
            o.sDataDir = sValue;
        else if (sArg == "--rules")
            o.nRules = std::atoi(sValue.c_str());
        else if (sArg == "--max-threads")
            o.nMaxThreads = std::atoi(sValue.c_str());
        else if (sArg == "--min-time")
            o.fMinSeconds = std::atof(sValue.c_str());
        else if (sArg == "--runs")
            o.nRuns = std::atoi(sValue.c_str());
        else {
            std::fprintf(stderr, "bench_threads: unknown option %s\n", sArg.c_str());
            std::exit(2);
        }
    }
    return o;
}

// Documents per second with nThreads matchers on one rule set.
double Rate(const qx::Engine& engine, const std::vector<_stDoc>& vDocs, int nThreads,
            double fMinSeconds) {
    std::atomic<long> nDone{0};
    std::atomic<bool> bStop{false};
    std::vector<std::thread> vThreads;
    const auto t0 = Clock::now();
    for (int k = 0; k < nThreads; ++k) {
        vThreads.emplace_back([&] {
            qx::Matcher m(engine);
            while (!bStop.load(std::memory_order_relaxed)) {
                for (const _stDoc& d : vDocs) m.Classify(d, 1);
                nDone += static_cast<long>(vDocs.size());
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(fMinSeconds));
    bStop = true;
    for (auto& th : vThreads) th.join();
    return double(nDone) / std::chrono::duration<double>(Clock::now() - t0).count();
}

// The rule list of nRules generated rules over these documents' words.
std::string RuleList(const Options& opt, int nRules,
                     const std::vector<qxbench::Document>& vPieces) {
    const qxbench::Words vWords = qxbench::ReadWords(opt.sDataDir + "/words_10k.txt");
    const auto shape = qxbench::ShapeFor(nRules);
    const qxbench::Words vPool = qxbench::KeywordPool(
        vWords, qxbench::DocumentCounts(vWords, vPieces), vPieces.size(), shape.fMaxDocShare);
    return qxbench::RuleListWriter(vPool, shape).Text();
}

double Seconds(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Reload times and the classification rate of one thread beside them.
void MeasureReload(const Options& opt, const std::string& sList, const std::vector<_stDoc>& vDocs) {
    std::vector<qx::Diagnostic> vDiags;
    const auto pEngine = qx::Engine::FromText(sList, "bench", qx::RuleEncoding::kGbk, vDiags);
    std::atomic<long> nDone{0};
    std::atomic<bool> bStop{false};
    std::thread worker([&] {
        qx::Matcher m(*pEngine);
        while (!bStop.load(std::memory_order_relaxed))
            for (const _stDoc& d : vDocs) m.Classify(d, 1), ++nDone;
    });
    std::this_thread::sleep_for(std::chrono::duration<double>(opt.fMinSeconds));
    long nBefore = nDone;
    auto t0 = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(opt.fMinSeconds));
    const double fAlone = double(nDone - nBefore) / Seconds(t0);
    std::vector<double> vReload;
    nBefore = nDone;
    t0 = Clock::now();
    for (int r = 0; r < opt.nRuns; ++r) {
        const auto t1 = Clock::now();
        if (!pEngine->Reload(sList, "bench", qx::RuleEncoding::kGbk, vDiags)) std::exit(1);
        vReload.push_back(Seconds(t1));
    }
    const double fDuring = double(nDone - nBefore) / Seconds(t0);
    bStop = true;
    worker.join();
    std::sort(vReload.begin(), vReload.end());
    std::printf(
        "reload of %d rules: %.3f s to the swap (median of %d); one thread classifies "
        "%.0f documents/s beside the reloads, %.0f alone (x%.2f), generation %llu\n",
        opt.nReloadRules, vReload[vReload.size() / 2], opt.nRuns, fDuring, fAlone, fDuring / fAlone,
        static_cast<unsigned long long>(pEngine->Generation()));
}

}  // namespace

int main(int argc, char** argv) {
    const Options opt = ParseOptions(argc, argv);
    const auto vPieces =
        qxbench::CutDocuments(qxbench::ReadWholeFile(opt.sDataDir + "/prose.txt"), 2048);
    std::vector<qx::Diagnostic> vDiags;
    const auto pEngine = qx::Engine::FromText(RuleList(opt, opt.nRules, vPieces), "bench",
                                              qx::RuleEncoding::kGbk, vDiags);
    if (!pEngine) {
        std::fprintf(stderr, "%s", qx::FormatDiagnostics(vDiags).c_str());
        return 1;
    }
    std::vector<_stDoc> vDocs;
    for (const auto& p : vPieces) {
        vDocs.emplace_back();
        vDocs.back().sTitle = p.sTitle;
        vDocs.back().sContent = p.sContent;
    }
    std::printf("%d rules, %zu documents of about 2 KB; median of %d alternating runs of %.1f s\n",
                opt.nRules, vDocs.size(), opt.nRuns, opt.fMinSeconds);
    std::vector<std::vector<double>> vRates(static_cast<size_t>(opt.nMaxThreads));
    for (int r = 0; r < opt.nRuns; ++r)
        for (int n = 1; n <= opt.nMaxThreads; ++n)
            vRates[n - 1].push_back(Rate(*pEngine, vDocs, n, opt.fMinSeconds));
    double fOne = 0;
    for (int n = 1; n <= opt.nMaxThreads; ++n) {
        auto& v = vRates[n - 1];
        std::sort(v.begin(), v.end());
        const double fMedian = v[v.size() / 2];
        if (n == 1) fOne = fMedian;
        std::printf("threads %2d   %10.0f documents/s   x%.2f of one thread\n", n, fMedian,
                    fMedian / fOne);
    }
    MeasureReload(opt, RuleList(opt, opt.nReloadRules, vPieces), vDocs);
    return 0;
}
