// QXEngine.cpp - building rule sets and classifying with matchers.
//
// A rule set is loaded by the classic loader, under a CErrorCapture so that
// its messages (GBK) become diagnostics instead of the last-error text and
// the log files, then prepared (index and scan index compiled) and never
// changed again. A matcher asks the engine for a document state once and
// classifies every document through the engine's const Classify with it.
#include "QXEngine.h"

#include <fstream>
#include <iterator>

#include "Global.h"
#include "Iconv.h"
#include "STLCodeTrans.h"

namespace qx {
namespace {

// Whether the GBK text s holds the two-byte character c at a character
// boundary.
bool ContainsCharacter(const std::string& s, const char* c) {
    for (size_t i = 0; i + 1 < s.size(); i += static_cast<unsigned char>(s[i]) >= 0x80 ? 2 : 1)
        if (s[i] == c[0] && s[i + 1] == c[1]) return true;
    return false;
}

}  // namespace

std::shared_ptr<const RuleSet> RuleSet::FromText(std::string_view bytes, const std::string& sName,
                                                 RuleEncoding eEncoding,
                                                 std::vector<Diagnostic>& vDiags) {
    RuleText text;
    if (!DecodeRuleText(bytes, eEncoding, sName, text, vDiags)) return nullptr;
    std::shared_ptr<RuleSet> pSet(new RuleSet());
    pSet->m_pEngine = std::make_unique<CTextParser>();
    CErrorCapture capture;
    if (!pSet->m_pEngine->LoadText(text.sGbk, sName, nullptr)) {
        // The loader's last message says why (some are only logged).
        std::string sWhy = capture.Messages().empty() ? "the rule list does not load"
                                                      : capture.Messages().back().second;
        while (!sWhy.empty() && (sWhy.back() == '\n' || sWhy.back() == '\r')) sWhy.pop_back();
        std::string sUtf8;
        ANSIToUTF8(sWhy.c_str(), sUtf8);
        vDiags.push_back(Diagnostic{sName, 0, 0, Severity::kError, sUtf8});
        return nullptr;
    }
    // A keyword holding the placeholder could only match what does not
    // convert: refused, at its first place in the list.
    const CLineTable lines(bytes);
    bool bPlaceholder = false;
    for (const auto& kv : pSet->m_pEngine->m_mslKeywords) {
        if (!ContainsCharacter(kv.first, kNoGbkPlaceholder)) continue;
        Diagnostic d{sName, 0, 0, Severity::kError,
                     "a keyword holds the placeholder \xE3\x80\x93 (U+3013), which stands for "
                     "characters without a GBK form"};
        lines.Position(text.SourceOffset(text.sGbk.find(kv.first)), d.nLine, d.nColumn);
        vDiags.push_back(d);
        bPlaceholder = true;
    }
    if (bPlaceholder) return nullptr;
    pSet->m_pEngine->Prepare();
    return pSet;
}

std::shared_ptr<const RuleSet> RuleSet::FromFile(const std::string& sPath, RuleEncoding eEncoding,
                                                 std::vector<Diagnostic>& vDiags) {
    std::ifstream in(sPath, std::ios::binary);
    std::string sBytes(std::istreambuf_iterator<char>(in), {});
    if (!in && !in.eof()) {
        vDiags.push_back(Diagnostic{sPath, 0, 0, Severity::kError, "cannot read the file"});
        return nullptr;
    }
    return FromText(sBytes, sPath, eEncoding, vDiags);
}

std::unique_ptr<Engine> Engine::FromText(std::string_view bytes, const std::string& sName,
                                         RuleEncoding eEncoding, std::vector<Diagnostic>& vDiags) {
    std::unique_ptr<Engine> pEngine(new Engine());
    auto pRules = RuleSet::FromText(bytes, sName, eEncoding, vDiags);
    if (!pRules) return nullptr;
    pEngine->m_pCurrent = std::make_shared<const Snapshot>(Snapshot{std::move(pRules), 1});
    return pEngine;
}

bool Engine::Reload(std::string_view bytes, const std::string& sName, RuleEncoding eEncoding,
                    std::vector<Diagnostic>& vDiags) {
    auto pRules = RuleSet::FromText(bytes, sName, eEncoding, vDiags);  // outside the lock
    if (!pRules) return false;
    std::lock_guard<std::mutex> lock(m_reloadLock);
    const uint64_t nNext = Current()->nGeneration + 1;
    std::atomic_store(&m_pCurrent, std::shared_ptr<const Snapshot>(std::make_shared<const Snapshot>(
                                       Snapshot{std::move(pRules), nNext})));
    return true;
}

Matcher::Matcher(std::shared_ptr<const RuleSet> pRules)
    : m_pRules(std::move(pRules)), m_pDoc(m_pRules->Engine().NewDocument()) {}

Matcher::Matcher(const Engine& engine) : m_pEngine(&engine) {
    const auto pNow = engine.Current();
    m_pRules = pNow->pRules;
    m_pDoc = m_pRules->Engine().NewDocument();
    m_nGeneration = pNow->nGeneration;
}

bool Matcher::Classify(const _stDoc& d, int iType, TextEncoding eEncoding) {
    GbkText text;
    m_vProblems.clear();
    std::string _stDoc::*const kFields[] = {&_stDoc::sTitle, &_stDoc::sContent, &_stDoc::sAuthor,
                                            &_stDoc::sBoard, &_stDoc::sDatatype};
    for (auto field : kFields) {
        ToGbk(d.*field, 0, eEncoding, text, m_vProblems);
        m_stGbk.*field = std::move(text.sGbk);
    }
    const bool bOk = Classify(m_stGbk, iType);
    std::string sBack;
    CIconv(eEncoding == TextEncoding::kUtf8 ? "UTF-8" : "GB18030", "GBK")
        .Convert(m_sResult, sBack, CIconv::OnBad::kMark);
    m_sResult.swap(sBack);
    return bOk;
}

std::string Matcher::Detail(const std::string& sClass) const {
    std::string s;
    m_pRules->Engine().Detail(*m_pDoc, sClass, s);
    return s;
}

bool Matcher::Classify(const _stDoc& d, int iType) {
    if (m_pEngine != nullptr) {
        const auto pNow = m_pEngine->Current();  // one snapshot for the whole document
        if (pNow->pRules != m_pRules) {
            m_pRules = pNow->pRules;
            m_pDoc = m_pRules->Engine().NewDocument();
        }
        m_nGeneration = pNow->nGeneration;
    }
    return m_pRules->Engine().Classify(*m_pDoc, d, iType, m_sResult);
}

}  // namespace qx
