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
// An Engine holds the current rule set of a service and swaps it for a new
// one on Reload: the new list is compiled beside the running one and
// published with one atomic pointer store, so classifications that started
// on the old set finish on it, and a failed reload changes nothing. Every
// published set has a generation number, 1 for the first, one more for each
// successful reload; a matcher made for an engine takes the current set at
// the start of each Classify and reports the generation it used.
//
// None of them prints, writes the log or error files, or touches the classic
// last-error text: problems come back as Diagnostics (UTF-8).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "QXDiagnostic.h"
#include "QXRuleText.h"
#include "QXText.h"
#include "TextParser.h"

namespace qx {

class RuleSet {
  public:
    // Builds a rule set from a rule list's bytes, read as eEncoding (GBK or
    // UTF-8, see QXRuleText.h); sName names it in diagnostics. Null on
    // failure. vDiags gets the problems found: the encoding's, the classic
    // loader's message as an error (without a place yet), and an error at
    // each keyword that holds kNoGbkPlaceholder.
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

// The current rule set of a service, swapped atomically by Reload.
// Thread-safety: Current, Generation and Reload may be called from any
// thread at any time; reloads are serialised among themselves.
class Engine {
  public:
    // A published rule set and its generation.
    struct Snapshot {
        std::shared_ptr<const RuleSet> pRules;
        uint64_t nGeneration;
    };

    // An engine whose first set (generation 1) is built from the list's
    // bytes (see RuleSet::FromText); null, with diagnostics, when it does not
    // build.
    static std::unique_ptr<Engine> FromText(std::string_view bytes, const std::string& sName,
                                            RuleEncoding eEncoding,
                                            std::vector<Diagnostic>& vDiags);

    // Builds a new set from the list's bytes beside the current one and
    // publishes it as the next generation: true. On failure the current set
    // stays, vDiags says why: false.
    bool Reload(std::string_view bytes, const std::string& sName, RuleEncoding eEncoding,
                std::vector<Diagnostic>& vDiags);

    // The set in use now (never null); hold it for as long as it is used.
    std::shared_ptr<const Snapshot> Current() const { return std::atomic_load(&m_pCurrent); }
    // The generation of the set in use now: one atomic read, so a matcher
    // checks it per document and takes a new snapshot only when it changed.
    uint64_t Generation() const { return m_nGeneration.load(std::memory_order_acquire); }

  private:
    Engine() = default;
    std::shared_ptr<const Snapshot> m_pCurrent;
    std::atomic<uint64_t> m_nGeneration{0};  // stored after m_pCurrent
    std::mutex m_reloadLock;  // one reload at a time, so generations follow each other
};

class Matcher {
  public:
    // A matcher for pRules (not null), which it keeps alive.
    explicit Matcher(std::shared_ptr<const RuleSet> pRules);
    // A matcher that follows engine's current set; engine outlives it.
    explicit Matcher(const Engine& engine);
    ~Matcher();
    Matcher(const Matcher&) = delete;
    Matcher& operator=(const Matcher&) = delete;

    // Classifies a GBK document. iType 0: "<class>\t" per class; 1: with
    // "<weight %.4f>"; as classifier_exec1. False, with an empty result,
    // when the scan output cuts off before the title ends.
    bool Classify(const _stDoc& d, int iType);
    // Classify for a document in UTF-8 or GB18030: each field is converted
    // to GBK exactly (QXText.h; characters GBK lacks become the placeholder,
    // which no keyword matches) and the result text comes back in the
    // document's encoding.
    bool Classify(const _stDoc& d, int iType, TextEncoding eEncoding);
    // The result text of the last Classify; valid until the next one.
    const std::string& Result() const { return m_sResult; }
    // The classes of the last document with their weights, in result order
    // (names in GBK).
    const std::vector<_stResult>& Results() const { return m_pRules->Engine().Results(*m_pDoc); }
    // The classic detail report of class sClass (GBK) for the last document.
    std::string Detail(const std::string& sClass) const;
    const RuleSet& Rules() const { return *m_pRules; }
    // The generation of the set that classified the last document (0 for a
    // matcher of a fixed rule set).
    uint64_t Generation() const { return m_nGeneration; }

  private:
    const Engine* m_pEngine = nullptr;
    uint64_t m_nGeneration = 0;
    std::shared_ptr<const RuleSet> m_pRules;
    CTextParser::DocumentPtr m_pDoc;
    std::string m_sResult;
    struct Codec;                        // one document encoding's converters
    std::unique_ptr<Codec> m_pCodec[2];  // by TextEncoding, opened on first use
    _stDoc m_stGbk;                      // the last converted document
};

}  // namespace qx
