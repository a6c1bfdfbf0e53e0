// bench_engine - load time, memory and classification speed of the rule engine.
//
// Uses the library as a caller does: libqxclassifier.so through its public
// header. For each rule list size (default 100 and 1,000 rules) it generates a
// GBK rule list into a temporary directory, then, in a forked child process:
//   1. loads it with classifier_init (progress lines off: the loader would
//      print one line per rule), timing the load; the load is repeated
//      (classifier_exit in between) until --min-time has passed, at most 5
//      times, and the fastest is reported;
//   2. classifies every document with classifier_exec (type 1), pass after
//      pass, until --min-time has passed and one pass is complete (or
//      --max-time has passed, then over the documents done so far);
//   3. reports the classes found in the first pass and its memory use (RSS
//      growth over the load, the child's peak RSS from wait4, beside a
//      baseline child that only starts and ends).
// A fresh child per list keeps the library state and the peak memory of one
// configuration apart from the next.
//
// Rule lists: three sub-rules of ten distinct keywords each (one for YES,
// two for NOT: the loader's limits), top relations AND / OR / NOT / YES /
// NEARn, sub-rule relations OR / AND / NOT on TEXT, CONTENT and TITLE with
// minimum counts 1 or 2, classes drawn from 50 names, effect values 1.0 or
// 1.2, certainty 0.6. Keywords are words of words_10k.txt that occur in at
// most 2 / rules of the documents (2% for 100 rules, 0.2% for 1,000), so
// that each list classifies a realistic share of the documents (about 40%
// on prose.txt) and per-document times compare at a like output. Each list
// comes from its own fixed-seed std::mt19937_64 (whose sequence the standard
// fixes; no distribution classes, whose output differs by library).
//
// Documents: prose.txt cut into pieces of about --doc-bytes (default 2,048)
// bytes, each ending at a line end when the piece holds one, else at a GBK
// character boundary (a byte >= 0x80 starts a two-byte character). The first
// non-blank line of a piece is its title, the rest its content.
//
// The targets (1,000 rules: load < 1 s, > 20,000 documents/s, > 40 MB/s) are
// printed beside the 1,000-rule figures, and the time per document of the
// largest list beside that of the smallest.
//
// Usage: bench_engine [--data DIR] [--rules N,N,...] [--min-time S]
//                     [--max-time S] [--doc-bytes N] [--keep]
//   --rules     list sizes (default 100,1000)
//   --min-time  least seconds per measurement (default 2)
//   --max-time  most seconds of classification per list (default 60)
//   --keep      keep the generated rule lists (their directory is printed)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QXClassifier.h"

#ifndef QX_BENCH_DATA_DIR
#define QX_BENCH_DATA_DIR "bench/data"
#endif

#include "BenchData.h"
#include "BenchDocs.h"
#include "BenchRuleList.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using qxbench::Words;

using qxbench::CutDocuments;
using qxbench::Document;
using qxbench::DocumentCounts;
using qxbench::kClasses;
using qxbench::KeywordPool;
using qxbench::kKeywordsPerSubRule;
using qxbench::kSeed;
using qxbench::ListShape;
using qxbench::RuleListWriter;
using qxbench::ShapeFor;
using qxbench::TotalBytes;

// Targets for the 1,000-rule list.
constexpr double kTargetLoadSeconds = 1.0;
constexpr double kTargetDocsPerSecond = 20000;
constexpr double kTargetMBPerSecond = 40;

struct Options {
    std::string sDataDir = QX_BENCH_DATA_DIR;
    std::vector<int> viRuleCounts = {100, 1000};
    double fMinSeconds = 2.0;
    double fMaxSeconds = 60.0;
    size_t nDocBytes = 2048;
    bool bKeep = false;
};

[[noreturn]] void Fail(const std::string& sMessage) {
    std::fprintf(stderr, "bench_engine: %s\n", sMessage.c_str());
    std::exit(1);
}

double SecondsSince(Clock::time_point tStart) {
    return std::chrono::duration<double>(Clock::now() - tStart).count();
}

// ---- options and data --------------------------------------------------------

std::vector<int> ParseCounts(const char* pText) {
    std::vector<int> viCounts;
    std::istringstream in(pText);
    for (std::string sItem; std::getline(in, sItem, ',');) {
        int n = std::atoi(sItem.c_str());
        if (n <= 0) Fail("--rules takes positive numbers separated by commas");
        viCounts.push_back(n);
    }
    if (viCounts.empty()) Fail("--rules needs at least one number");
    return viCounts;
}

Options ParseOptions(int argc, char** argv) {
    Options opt;
    for (int i = 1; i < argc; ++i) {
        std::string sArg = argv[i];
        if (sArg == "--keep") {
            opt.bKeep = true;
            continue;
        }
        if (i + 1 >= argc) {
            Fail(
                "usage: bench_engine [--data DIR] [--rules N,N] [--min-time S] [--max-time S] "
                "[--doc-bytes N] [--keep]");
        }
        const char* pValue = argv[++i];
        if (sArg == "--data") {
            opt.sDataDir = pValue;
        } else if (sArg == "--rules") {
            opt.viRuleCounts = ParseCounts(pValue);
        } else if (sArg == "--min-time") {
            opt.fMinSeconds = std::strtod(pValue, nullptr);
        } else if (sArg == "--max-time") {
            opt.fMaxSeconds = std::strtod(pValue, nullptr);
        } else if (sArg == "--doc-bytes") {
            opt.nDocBytes = std::strtoul(pValue, nullptr, 10);
        } else {
            Fail("unknown option " + sArg);
        }
    }
    if (opt.nDocBytes < 16) Fail("--doc-bytes must be at least 16");
    opt.fMaxSeconds = std::max(opt.fMaxSeconds, opt.fMinSeconds);
    return opt;
}

using qxbench::ReadWholeFile;
using qxbench::ReadWords;

// Writes the list of that shape into dir; returns its path.
std::string WriteRuleList(const fs::path& dir, const Words& vPool, const ListShape& shape) {
    if (vPool.size() < static_cast<size_t>(kKeywordsPerSubRule)) Fail("keyword pool too small");
    fs::path path = dir / ("rules_" + std::to_string(shape.nRules) + ".txt");
    std::ofstream out(path, std::ios::binary);
    out << RuleListWriter(vPool, shape).Text();
    if (!out) Fail("cannot write " + path.string());
    return path.string();
}

// ---- the measured child ------------------------------------------------------

// What a child reports back through its pipe (plain bytes).
struct Measurement {
    int bLoaded = 0;
    char sError[256] = {};
    double fLoadSeconds = 0;  // fastest load
    int nLoads = 0;
    long nLoadRssKB = 0;  // RSS growth over the first load
    double fSeconds = 0;  // classification time
    long nDocs = 0;       // documents classified in that time
    double fBytes = 0;    // their bytes (title + content)
    long nPassDocs = 0;   // documents of the first pass (all, unless cut by --max-time)
    long nWithClass = 0;  // of those, with at least one class
    long nClasses = 0;    // classes over the first pass
    int bNullResult = 0;  // classifier_exec returned null
};

// A "VmXXX:" figure of /proc/self/status in kB, or -1.
long ProcStatusKB(const char* pKey) {
    std::ifstream in("/proc/self/status");
    for (std::string sLine; std::getline(in, sLine);) {
        if (sLine.rfind(pKey, 0) == 0) return std::atol(sLine.c_str() + std::strlen(pKey));
    }
    return -1;
}

// classifier_init with the loader's progress lines (one per rule) off.
bool InitQuietly(const std::string& sRules, const std::string& sDataDir) {
    classifier_setprogress(0);
    return classifier_init(sRules.c_str(), sDataDir.c_str(), 0, nullptr);
}

// Loads until fMinSeconds have passed (at most 5 times); the library stays
// loaded after the last load. False with the last error in m on failure.
bool MeasureLoad(const Options& opt, const std::string& sRules, const std::string& sDataDir,
                 Measurement* m) {
    double fTotal = 0;
    m->fLoadSeconds = INFINITY;
    for (int nRun = 0; nRun < 5 && (nRun == 0 || fTotal < opt.fMinSeconds); ++nRun) {
        if (nRun > 0) classifier_exit();
        long nRssBefore = ProcStatusKB("VmRSS:");
        auto tStart = Clock::now();
        bool bOk = InitQuietly(sRules, sDataDir);
        double fSeconds = SecondsSince(tStart);
        if (!bOk) {
            const char* pError = classifier_GetLastErrorMsg();
            std::snprintf(m->sError, sizeof m->sError, "%s", pError ? pError : "(null)");
            return false;
        }
        if (nRun == 0) m->nLoadRssKB = ProcStatusKB("VmRSS:") - nRssBefore;
        m->fLoadSeconds = std::min(m->fLoadSeconds, fSeconds);
        fTotal += fSeconds;
        ++m->nLoads;
    }
    return true;
}

// Classes in a type-1 result: one tab after each.
long CountClasses(const char* pResult) {
    long nTabs = 0;
    for (const char* p = pResult; *p; ++p) nTabs += *p == '\t';
    return nTabs;
}

void MeasureClassify(const Options& opt, const std::vector<Document>& vDocs, Measurement* m) {
    auto tStart = Clock::now();
    bool bFirstPass = true;
    while (true) {
        for (const Document& doc : vDocs) {
            const char* pResult = classifier_exec(doc.sTitle.c_str(), doc.sContent.c_str(), 1);
            if (pResult == nullptr) {
                m->bNullResult = 1;
                pResult = "";
            }
            ++m->nDocs;
            m->fBytes += static_cast<double>(doc.sTitle.size() + doc.sContent.size());
            if (bFirstPass) {
                long nClasses = CountClasses(pResult);
                ++m->nPassDocs;
                m->nWithClass += nClasses > 0;
                m->nClasses += nClasses;
            }
            // Checking the clock per document costs next to nothing beside a
            // classification; it only matters when --max-time cuts a pass.
            if (SecondsSince(tStart) >= opt.fMaxSeconds) break;
        }
        bFirstPass = false;
        m->fSeconds = SecondsSince(tStart);
        if (m->fSeconds >= opt.fMinSeconds) break;
    }
}

void WriteAll(int fd, const void* pData, size_t nBytes) {
    const char* p = static_cast<const char*>(pData);
    while (nBytes > 0) {
        ssize_t n = write(fd, p, nBytes);
        if (n <= 0) _exit(3);
        p += n;
        nBytes -= static_cast<size_t>(n);
    }
}

bool ReadAll(int fd, void* pData, size_t nBytes) {
    char* p = static_cast<char*>(pData);
    while (nBytes > 0) {
        ssize_t n = read(fd, p, nBytes);
        if (n <= 0) return false;
        p += n;
        nBytes -= static_cast<size_t>(n);
    }
    return true;
}

// Runs fnWork(&m) in a forked child; returns m and the child's peak RSS (kB,
// from wait4). The child leaves with _exit, so no exit handlers of the parent
// run twice.
template <typename F>
Measurement RunInChild(F fnWork, long* pMaxRssKB) {
    std::fflush(stdout);
    std::fflush(stderr);
    int fds[2];
    if (pipe(fds) != 0) Fail("pipe failed");
    pid_t pid = fork();
    if (pid < 0) Fail("fork failed");
    if (pid == 0) {
        close(fds[0]);
        Measurement m;
        fnWork(&m);
        WriteAll(fds[1], &m, sizeof m);
        _exit(0);
    }
    close(fds[1]);
    Measurement m;
    bool bRead = ReadAll(fds[0], &m, sizeof m);
    close(fds[0]);
    int nStatus = 0;
    struct rusage usage {};
    if (wait4(pid, &nStatus, 0, &usage) != pid) Fail("wait4 failed");
    if (!bRead || !WIFEXITED(nStatus) || WEXITSTATUS(nStatus) != 0) {
        Fail("measuring child failed (status " + std::to_string(nStatus) + ")");
    }
    *pMaxRssKB = usage.ru_maxrss;
    return m;
}

// ---- report ------------------------------------------------------------------

struct Row {
    int nRules = 0;
    double fMaxDocShare = 0;  // keywords occur in at most this share of documents
    size_t nPoolWords = 0;    // words of words_10k.txt that do
    size_t nFileBytes = 0;
    Measurement m;
    long nMaxRssKB = 0;
};

double MB(long nKB) {
    return nKB / 1024.0;
}

const char* Mark(bool bMet) {
    return bMet ? "ok" : "MISSED";
}

void PrintHeader(const Options& opt, const std::vector<Document>& vDocs, size_t nBytes,
                 long nBaselineKB) {
    std::printf("QXClassifier rule engine benchmark (libqxclassifier.so, public calls only)\n");
    std::printf("Data %s (GBK): %zu documents of at most %zu bytes, %.2f MB, from prose.txt\n",
                opt.sDataDir.c_str(), vDocs.size(), opt.nDocBytes, nBytes / 1e6);
    std::printf(
        "Rule lists: 3 sub-rules x 10 keywords (YES 1, NOT 2), %d classes, seed %llu;\n"
        "keywords from the words of words_10k.txt found in at most 'df' of the documents\n"
        "('pool' words). 'classed': documents with a class; 'cls/doc': classes per document.\n"
        "Load: fastest classifier_init of up to 5, repeated while all took < %.2f s.\n"
        "Classification: classifier_exec(title, content, 1) over all documents,\n"
        "repeated for >= %.2f s.\n"
        "Memory: each list runs in its own child; peak = child's ru_maxrss, baseline child\n"
        "(forked, does nothing) %.1f MB; load = RSS growth over classifier_init.\n\n",
        kClasses, static_cast<unsigned long long>(kSeed), opt.fMinSeconds, opt.fMinSeconds,
        MB(nBaselineKB));
    std::printf("%6s %6s %5s %7s | %7s | %7s %7s %8s | %8s %6s %7s | %7s %7s\n", "rules", "df",
                "pool", "file KB", "load s", "load MB", "peak MB", "-base MB", "docs/s", "MB/s",
                "us/doc", "classed", "cls/doc");
}

void PrintRow(const Row& row, long nBaselineKB, size_t nAllDocs) {
    const Measurement& m = row.m;
    double fDocsPerSecond = m.nDocs / m.fSeconds;
    double fClassed = m.nPassDocs ? 100.0 * m.nWithClass / m.nPassDocs : 0;
    double fPerDoc = m.nPassDocs ? static_cast<double>(m.nClasses) / m.nPassDocs : 0;
    std::printf(
        "%6d %5.2f%% %5zu %7.1f | %7.3f | %7.1f %7.1f %8.1f | %8.0f %6.1f %7.1f | %6.1f%% %7.3f\n",
        row.nRules, 100 * row.fMaxDocShare, row.nPoolWords, row.nFileBytes / 1024.0, m.fLoadSeconds,
        MB(m.nLoadRssKB), MB(row.nMaxRssKB), MB(row.nMaxRssKB - nBaselineKB), fDocsPerSecond,
        m.fBytes / 1e6 / m.fSeconds, 1e6 / fDocsPerSecond, fClassed, fPerDoc);
    if (m.bNullResult) std::printf("       WARNING: classifier_exec returned null\n");
    if (static_cast<size_t>(m.nPassDocs) < nAllDocs) {
        std::printf("       (--max-time cut the first pass: classes over %ld documents)\n",
                    m.nPassDocs);
    }
    std::fflush(stdout);
}

void PrintTargets(const Row& row) {
    const Measurement& m = row.m;
    double fDocsPerSecond = m.nDocs / m.fSeconds;
    double fMBPerSecond = m.fBytes / 1e6 / m.fSeconds;
    std::printf("\nTargets with %d rules:\n", row.nRules);
    std::printf("  load          %9.3f s     target < %.0f s        %s\n", m.fLoadSeconds,
                kTargetLoadSeconds, Mark(m.fLoadSeconds < kTargetLoadSeconds));
    std::printf("  documents/s   %9.0f       target > %.0f      %s\n", fDocsPerSecond,
                kTargetDocsPerSecond, Mark(fDocsPerSecond > kTargetDocsPerSecond));
    std::printf("  MB/s          %9.1f       target > %.0f         %s\n", fMBPerSecond,
                kTargetMBPerSecond, Mark(fMBPerSecond > kTargetMBPerSecond));
}

// Time per document of the largest list over the smallest: near 1 when the
// work per document follows its length and hits, not the number of rules.
void PrintGrowth(const Row& small, const Row& large) {
    double fSmall = small.m.fSeconds * 1e6 / small.m.nDocs;
    double fLarge = large.m.fSeconds * 1e6 / large.m.nDocs;
    auto fnClasses = [](const Row& row) {
        return row.m.nPassDocs ? static_cast<double>(row.m.nClasses) / row.m.nPassDocs : 0;
    };
    std::printf(
        "\nPer document: %.1f us with %d rules (%.3f classes), %.1f us with %d rules (%.3f "
        "classes): x%.2f for x%.0f rules\n",
        fSmall, small.nRules, fnClasses(small), fLarge, large.nRules, fnClasses(large),
        fLarge / fSmall, static_cast<double>(large.nRules) / small.nRules);
}

// The measurement of one rule list, in its own child.
Row MeasureList(const Options& opt, const std::string& sRules, const std::string& sDataDir,
                const std::vector<Document>& vDocs, const ListShape& shape) {
    Row row;
    row.nRules = shape.nRules;
    row.fMaxDocShare = shape.fMaxDocShare;
    row.nFileBytes = fs::file_size(sRules);
    row.m = RunInChild(
        [&](Measurement* m) {
            if (!MeasureLoad(opt, sRules, sDataDir, m)) return;
            m->bLoaded = 1;
            MeasureClassify(opt, vDocs, m);
            classifier_exit();
        },
        &row.nMaxRssKB);
    if (!row.m.bLoaded) {
        Fail("classifier_init(" + sRules + ") failed (list kept): " + row.m.sError);
    }
    return row;
}

fs::path MakeTempDir() {
    std::string sTemplate = (fs::temp_directory_path() / "bench_engine.XXXXXX").string();
    if (mkdtemp(sTemplate.data()) == nullptr) Fail("cannot make a temporary directory");
    return sTemplate;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt = ParseOptions(argc, argv);
    g_bLog = 0;

    Words vWords = ReadWords(opt.sDataDir + "/words_10k.txt");
    std::vector<Document> vDocs =
        CutDocuments(ReadWholeFile(opt.sDataDir + "/prose.txt"), opt.nDocBytes);
    if (vWords.size() < 2 * static_cast<size_t>(kKeywordsPerSubRule) || vDocs.empty()) {
        Fail("not enough data in " + opt.sDataDir);
    }

    std::vector<int> viDocCount = DocumentCounts(vWords, vDocs);
    fs::path tmpDir = MakeTempDir();
    long nBaselineKB = 0;
    RunInChild([](Measurement*) {}, &nBaselineKB);
    PrintHeader(opt, vDocs, TotalBytes(vDocs), nBaselineKB);

    std::vector<Row> vRows;
    for (int nRules : opt.viRuleCounts) {
        ListShape shape = ShapeFor(nRules);
        Words vPool = KeywordPool(vWords, viDocCount, vDocs.size(), shape.fMaxDocShare);
        std::string sRules = WriteRuleList(tmpDir, vPool, shape);
        vRows.push_back(MeasureList(opt, sRules, tmpDir.string(), vDocs, shape));
        vRows.back().nPoolWords = vPool.size();
        PrintRow(vRows.back(), nBaselineKB, vDocs.size());
    }

    for (const Row& row : vRows) {
        if (row.nRules == 1000) PrintTargets(row);
    }
    if (vRows.size() >= 2) PrintGrowth(vRows.front(), vRows.back());

    if (opt.bKeep) {
        std::printf("\nRule lists kept in %s\n", tmpDir.string().c_str());
    } else {
        std::error_code ec;
        fs::remove_all(tmpDir, ec);
    }
    return 0;
}
