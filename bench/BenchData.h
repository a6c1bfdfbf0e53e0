// BenchData.h - reading the benchmark data made by bench/make_data.sh.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace qxbench {

using Words = std::vector<std::string>;

// The whole file; exits with a hint to build the data when it is missing.
inline std::string ReadWholeFile(const std::string& sPath) {
    std::ifstream in(sPath, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s (run bench/make_data.sh)\n", sPath.c_str());
        std::exit(1);
    }
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// One word per non-empty line.
inline Words ReadWords(const std::string& sPath) {
    std::istringstream in(ReadWholeFile(sPath));
    Words vWords;
    for (std::string sLine; std::getline(in, sLine);) {
        if (!sLine.empty()) vWords.push_back(sLine);
    }
    return vWords;
}

}  // namespace qxbench
