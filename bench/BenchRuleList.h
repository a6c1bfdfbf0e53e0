// BenchRuleList.h - generated rule lists for the engine benchmarks.
//
// A list of n rules: three sub-rules of ten distinct keywords each (one for
// YES, two for NOT: the loader's limits), top relations AND / OR / NOT / YES /
// NEARn, sub-rule relations OR / AND / NOT on TEXT, CONTENT and TITLE with
// minimum counts 1 or 2, classes drawn from 50 names, effect values 1.0 or
// 1.2, certainty 0.6. Each list comes from its own fixed-seed
// std::mt19937_64 (whose sequence the standard fixes; no distribution
// classes, whose output differs by library), so a list is the same bytes on
// every machine.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "BenchData.h"

namespace qxbench {

constexpr uint64_t kSeed = 20240601;
constexpr int kClasses = 50;
constexpr int kKeywordsPerSubRule = 10;

// How one list is made: its size and the largest share of documents that one
// of its keywords may occur in. With more rules, each rule must fire more
// rarely for a comparable share of classified documents.
struct ListShape {
    int nRules = 0;
    double fMaxDocShare = 0;
};

// The cap falls with the number of rules (2 / rules): on prose.txt this
// classifies about 40% of the documents with 100 rules (cap 2%) and with
// 1,000 rules (cap 0.2%).
inline ListShape ShapeFor(int nRules) {
    ListShape shape;
    shape.nRules = nRules;
    shape.fMaxDocShare = std::min(1.0, 2.0 / nRules);
    return shape;
}

// The words that occur in at most fMaxDocShare of the documents, in list order.
inline Words KeywordPool(const Words& vWords, const std::vector<int>& viDocCount, size_t nDocs,
                         double fMaxDocShare) {
    Words vPool;
    for (size_t i = 0; i < vWords.size(); ++i) {
        if (viDocCount[i] <= fMaxDocShare * static_cast<double>(nDocs)) vPool.push_back(vWords[i]);
    }
    return vPool;
}

// Writes one list of the given shape from a keyword pool.
class RuleListWriter {
  public:
    // vWords: the keyword pool, at least ten words.
    RuleListWriter(const Words& vWords, const ListShape& shape)
        : m_vWords(vWords), m_shape(shape), m_rng(kSeed + static_cast<uint64_t>(shape.nRules)) {}

    // The whole rule list as GBK text.
    std::string Text() {
        std::ostringstream out;
        out << "<certainty>0.6</certainty>\n<rules><rulenum>" << m_shape.nRules << "</rulenum>\n";
        for (int i = 0; i < m_shape.nRules; ++i) WriteRule(out, i);
        out << "</rules>\n";
        return out.str();
    }

  private:
    size_t Below(size_t n) { return static_cast<size_t>(m_rng() % n); }

    // "类" + two digits.
    std::string ClassName() {
        char sName[16];
        std::snprintf(sName, sizeof sName, "\xC0\xE0%02zu", Below(kClasses));  // 类NN
        return sName;
    }

    std::string TopRelation() {
        static const char* const kNear[] = {"NEAR10", "NEAR20", "NEAR40", "NEAR80"};
        size_t n = Below(20);
        if (n < 7) return "AND";
        if (n < 11) return "OR";
        if (n < 13) return "NOT";
        if (n < 15) return "YES";
        return kNear[Below(4)];
    }

    static int SubRuleCount(const std::string& sTop) {
        if (sTop == "YES") return 1;
        if (sTop == "NOT") return 2;
        return 3;
    }

    // Relation of sub-rule j (1-based) of a rule: only the last sub-rule of an
    // AND or NEAR rule may be a NOT sub-rule, so a NEAR rule always keeps two
    // that are not, and no OR rule fires merely because a word is absent.
    std::string SubRelation(const std::string& sTop, int j) {
        bool bMayNegate = j == 3 && (sTop == "AND" || sTop.rfind("NEAR", 0) == 0);
        if (bMayNegate && Below(3) == 0) return "NOT";
        return Below(10) == 0 ? "AND" : "OR";
    }

    std::string Field() {
        size_t n = Below(10);
        return n < 6 ? "TEXT" : n < 9 ? "CONTENT" : "TITLE";
    }

    // Ten distinct keywords of the pool (which holds at least ten words).
    std::string Keywords() {
        Words vPicked;
        while (vPicked.size() < static_cast<size_t>(kKeywordsPerSubRule)) {
            const std::string& sWord = m_vWords[Below(m_vWords.size())];
            if (std::find(vPicked.begin(), vPicked.end(), sWord) == vPicked.end()) {
                vPicked.push_back(sWord);
            }
        }
        std::string sValue;
        for (const std::string& sWord : vPicked) sValue += (sValue.empty() ? "" : " ") + sWord;
        return sValue;
    }

    void WriteRule(std::ostringstream& out, int i) {
        std::string sTop = TopRelation();
        int n = SubRuleCount(sTop);
        out << "<rule id=\"" << i << "\"><classid>" << ClassName() << "</classid><toprule>" << sTop
            << "</toprule>\n<effectvalue>" << (Below(4) == 0 ? "1.2" : "1.0")
            << "</effectvalue><perfectvsmsim>0.9</perfectvsmsim>"
               "<imperfectvsmsim>0.5</imperfectvsmsim>\n<subrules><subrulenum>"
            << n << "</subrulenum>\n";
        for (int j = 1; j <= n; ++j) {
            out << "<subrule id=\"" << j << "\"><operator>" << SubRelation(sTop, j) << "/"
                << Field() << "/" << 1 + Below(2) << "</operator><value>" << Keywords()
                << "</value></subrule>\n";
        }
        out << "</subrules></rule>\n";
    }

    const Words& m_vWords;
    ListShape m_shape;
    std::mt19937_64 m_rng;
};

}  // namespace qxbench
