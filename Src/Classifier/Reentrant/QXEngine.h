// QXEngine.h - compiled rule sets shared by threads, and matchers, one per
// thread (the C++ side of the reentrant interface).
//
// A RuleSet is built once from a rule list and is immutable from then on:
// the rules, the keyword dictionary and the compiled evaluation index, with
// the dictionary's scan index built in advance. Any number of threads use one
// rule set at once, without locks on the classification path; hold it by
// shared_ptr, so that it lives as long as its last user.
//
// A Matcher holds everything one document writes (counts, sub-rule and rule
// outcomes, the scanned text, the engine's scratch) for one rule set. Use one
// matcher per thread. Results are those of the classic calls with the same
// rule list and encoding code 0, byte for byte.
//
// Neither prints, writes the log or error files, or touches the classic
// last-error text: problems come back as Diagnostics (UTF-8).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "QXDiagnostic.h"
#include "QXRuleText.h"
#include "TextParser.h"

namespace qx {

class RuleSet {
  public:
    // Builds a rule set from a rule list's bytes, read as eEncoding (GBK or
    // UTF-8, see QXRuleText.h); sName names it in diagnostics. Null on
    // failure. vDiags gets the problems found: the encoding's, and the
    // classic loader's message as an error (without a place yet).
    static std::shared_ptr<const RuleSet> FromText(std::string_view bytes, const std::string& sName,
                                                   RuleEncoding eEncoding,
                                                   std::vector<Diagnostic>& vDiags);
    // FromText on the bytes of the file at sPath; an unreadable file is an
    // error naming it.
    static std::shared_ptr<const RuleSet> FromFile(const std::string& sPath, RuleEncoding eEncoding,
                                                   std::vector<Diagnostic>& vDiags);

    // The engine, loaded and prepared; only its const calls may be used.
    const CTextParser& Engine() const { return *m_pEngine; }
    size_t RuleCount() const { return m_pEngine->m_vstRules.size(); }

  private:
    RuleSet() = default;
    std::unique_ptr<CTextParser> m_pEngine;
};

class Matcher {
  public:
    // A matcher for pRules (not null), which it keeps alive.
    explicit Matcher(std::shared_ptr<const RuleSet> pRules);

    // Classifies a GBK document. iType 0: "<class>\t" per class; 1: with
    // "<weight %.4f>"; as classifier_exec1. False, with an empty result,
    // when the scan output cuts off before the title ends.
    bool Classify(const _stDoc& d, int iType);
    // The result text of the last Classify; valid until the next one.
    const std::string& Result() const { return m_sResult; }
    const RuleSet& Rules() const { return *m_pRules; }

  private:
    std::shared_ptr<const RuleSet> m_pRules;
    CTextParser::DocumentPtr m_pDoc;
    std::string m_sResult;
};

}  // namespace qx
