// replay_main.cpp - deterministic driver for the fuzz targets, for builds
// without libFuzzer (and for CTest). Runs a target on each seed file, then on
// N mutants of each (truncations, byte flips, duplicated and deleted runs,
// random bytes) drawn from a fixed-seed generator, so every run is the same.
// Usage: qxfuzz_replay rulelist|pdat|reader|codetran [--mutations N] FILE...
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "FuzzTargets.h"
#include "PDAT.h"

namespace {

using Target = int (*)(const uint8_t*, size_t);

Target TargetNamed(const std::string& sName) {
    if (sName == "rulelist") return &FuzzRuleList;
    if (sName == "pdat") return &FuzzPdatLoad;
    if (sName == "reader") return &FuzzParamReader;
    if (sName == "codetran") return &FuzzCodeTran;
    return nullptr;
}

std::string Mutate(std::string s, std::mt19937& rng) {
    auto pick = [&rng](size_t n) { return n == 0 ? 0 : static_cast<size_t>(rng() % n); };
    const int nEdits = 1 + static_cast<int>(rng() % 4);
    for (int e = 0; e < nEdits; ++e) {
        switch (rng() % 5) {
            case 0:
                s.resize(pick(s.size() + 1));
                break;  // truncate
            case 1:
                if (!s.empty()) s[pick(s.size())] ^= static_cast<char>(1u << (rng() % 8));
                break;
            case 2: {  // duplicate a run
                const size_t a = pick(s.size() + 1), n = pick(64);
                s.insert(pick(s.size() + 1), s.substr(a, n));
                break;
            }
            case 3: {  // delete a run
                const size_t a = pick(s.size() + 1);
                s.erase(a, pick(64));
                break;
            }
            default:  // random bytes
                for (size_t k = pick(16); k > 0; --k)
                    s.insert(s.begin() + static_cast<long>(pick(s.size() + 1)),
                             static_cast<char>(rng()));
        }
    }
    return s;
}

// "@pdat": a small saved dictionary, the seed for the dictionary loader.
std::string BuiltinPdat() {
    CPDAT dict(1);
    for (const char* w : {"ab", "abc", "b", "\xC4\xE3\xBA\xC3", "\xC4\xE3"}) dict.AddWord(w, false);
    dict.AddWordComplete();
    char sPath[] = "/tmp/qxfuzzseed.XXXXXX";
    const int fd = mkstemp(sPath);
    if (fd < 0) return "";
    close(fd);
    dict.Save(sPath);
    std::ifstream in(sPath, std::ios::binary);
    std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    unlink(sPath);
    return s;
}

int Run(Target pfn, const std::string& s) {
    return pfn(reinterpret_cast<const uint8_t*>(s.data()), s.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || !TargetNamed(argv[1])) {
        fprintf(stderr, "usage: %s rulelist|pdat|reader [--mutations N] FILE...\n", argv[0]);
        return 2;
    }
    const Target pfn = TargetNamed(argv[1]);
    int nMutations = 0;
    std::vector<std::string> vsSeeds;
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "--mutations") == 0 && i + 1 < argc) {
            nMutations = atoi(argv[++i]);
            continue;
        }
        if (strcmp(argv[i], "@pdat") == 0) {
            vsSeeds.push_back(BuiltinPdat());
            continue;
        }
        std::ifstream in(argv[i], std::ios::binary);
        if (!in) {
            fprintf(stderr, "cannot read %s\n", argv[i]);
            return 2;
        }
        vsSeeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    std::mt19937 rng(20261122);
    size_t nRuns = 0;
    for (const std::string& sSeed : vsSeeds) {
        Run(pfn, sSeed);
        ++nRuns;
        for (int m = 0; m < nMutations; ++m, ++nRuns) Run(pfn, Mutate(sSeed, rng));
    }
    printf("%s: %zu inputs ran\n", argv[1], nRuns);
    return 0;
}
