// bench_codetran - speed of the map-based translator beside glibc iconv.
//
// Texts: DIR/prose.txt (GBK, about 10 MB, bench/make_data.sh), its UTF-8
// form (iconv) and a traditional BIG5 form (the translator's own GBK -> BIG5
// direction, code 2). For each direction the translator converts the whole
// text in one call and iconv converts the same text in one call (skipping
// what it cannot convert); each figure is the fastest of --repeat runs
// (default 5), in MB of input per second, with the ratio of the two times.
// The rows:
//   utf8 -> gbk    CodeToGBK under code 5    iconv UTF-8 -> GBK
//   gbk -> utf8    GBKToCode under code 5    iconv GBK -> UTF-8
//   big5 -> gbk    CodeToGBK under code 2    iconv BIG5 -> GBK
//   gbk -> big5    GBKToCode under code 2    iconv GBK -> BIG5
// Loading a translator (six resource files) is timed too.
//
// Usage: bench_codetran [--repeat N] [--data DIR] [--trans-data DIR]
//   --trans-data: the data directory holding "Data" (default: the build's).

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "BenchData.h"
#include "CodeTran.h"
#include "Iconv.h"

namespace {

using Clock = std::chrono::steady_clock;

volatile size_t g_nSink = 0;

struct Options {
    int nRepeat = 5;
    std::string sData = "bench/data";
    std::string sTransData = QX_BENCH_TRANS_DATA_DIR;
};

bool ParseArgs(int argc, char** argv, Options& opts) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string sKey = argv[i];
        if (sKey == "--repeat") {
            opts.nRepeat = std::max(1, std::atoi(argv[i + 1]));
        } else if (sKey == "--data") {
            opts.sData = argv[i + 1];
        } else if (sKey == "--trans-data") {
            opts.sTransData = argv[i + 1];
        } else {
            return false;
        }
    }
    return argc % 2 == 1;
}

// Fastest of n runs of fn, in seconds.
double Fastest(int n, const std::function<void()>& fn) {
    double fBest = std::numeric_limits<double>::max();
    for (int i = 0; i < n; ++i) {
        const auto t0 = Clock::now();
        fn();
        fBest = std::min(fBest, std::chrono::duration<double>(Clock::now() - t0).count());
    }
    return fBest;
}

void Row(const char* sName, const std::string& sIn, double fOurs, double fIconv) {
    const double fMB = double(sIn.size()) / 1e6;
    std::printf("%-13s %8.1f MB/s   iconv %8.1f MB/s   time ratio %.2f\n", sName, fMB / fOurs,
                fMB / fIconv, fOurs / fIconv);
}

void Measure(const char* sName, const Options& opts, const std::string& sIn,
             const std::function<void(std::string&)>& translate, const char* sTo,
             const char* sFrom) {
    std::string sOut;
    const double fOurs = Fastest(opts.nRepeat, [&] {
        translate(sOut);
        g_nSink = g_nSink + sOut.size();
    });
    CIconv ic(sTo, sFrom);
    if (!ic.IsOpen()) {
        std::fprintf(stderr, "iconv cannot convert %s to %s\n", sFrom, sTo);
        std::exit(1);
    }
    std::string sIconvOut;
    const double fIconv = Fastest(opts.nRepeat, [&] {
        ic.Convert(sIn, sIconvOut, CIconv::OnBad::kSkip);
        g_nSink = g_nSink + sIconvOut.size();
    });
    Row(sName, sIn, fOurs, fIconv);
}

std::unique_ptr<CCodeTran> LoadTranslator(const Options& opts, int nCode) {
    std::unique_ptr<CCodeTran> pTran;
    const std::string sDir = opts.sTransData + "/Data";
    const double fLoad =
        Fastest(opts.nRepeat, [&] { pTran = std::make_unique<CCodeTran>(sDir.c_str(), nCode); });
    if (pTran->GetStatus() != 1) {
        std::fprintf(stderr, "cannot load the translator for code %d from %s\n", nCode,
                     sDir.c_str());
        std::exit(1);
    }
    std::printf("load code %d      %8.3f s\n", nCode, fLoad);
    return pTran;
}

}  // namespace

int main(int argc, char** argv) {
    Options opts;
    if (!ParseArgs(argc, argv, opts)) {
        std::fprintf(stderr,
                     "usage: bench_codetran [--repeat N] [--data DIR] [--trans-data DIR]\n");
        return 2;
    }
    const std::string sGBK = qxbench::ReadWholeFile(opts.sData + "/prose.txt");
    std::string sUTF8;
    CIconv("UTF-8", "GBK").Convert(sGBK, sUTF8, CIconv::OnBad::kSkip);
    std::printf("prose: %.2f MB GBK, %.2f MB UTF-8; fastest of %d runs\n", sGBK.size() / 1e6,
                sUTF8.size() / 1e6, opts.nRepeat);

    auto utf8 = LoadTranslator(opts, 5);
    auto big5 = LoadTranslator(opts, 2);
    std::string sBig5;
    big5->GBKToCode(sGBK.c_str(), sBig5);

    // name, translator, direction (true: into GBK), input, iconv's target and source
    const std::tuple<const char*, CCodeTran*, bool, const std::string*, const char*, const char*>
        kRows[] = {{"utf8 -> gbk", utf8.get(), true, &sUTF8, "GBK", "UTF-8"},
                   {"gbk -> utf8", utf8.get(), false, &sGBK, "UTF-8", "GBK"},
                   {"big5 -> gbk", big5.get(), true, &sBig5, "GBK", "BIG5"},
                   {"gbk -> big5", big5.get(), false, &sGBK, "BIG5", "GBK"}};
    for (const auto& [sName, pTran, bIn, pText, sTo, sFrom] : kRows) {
        Measure(
            sName, opts, *pText,
            [&, pTran = pTran, bIn = bIn, pText = pText](std::string& r) {
                bIn ? pTran->CodeToGBK(pText->c_str(), r) : pTran->GBKToCode(pText->c_str(), r);
            },
            sTo, sFrom);
    }
    return 0;
}
