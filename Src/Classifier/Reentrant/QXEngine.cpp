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
    std::string sBytes;
    if (in) sBytes.assign(std::istreambuf_iterator<char>(in), {});
    if (!in.is_open() || in.bad()) {
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
    pEngine->m_nGeneration = 1;
    return pEngine;
}

bool Engine::Reload(std::string_view bytes, const std::string& sName, RuleEncoding eEncoding,
                    std::vector<Diagnostic>& vDiags) {
    auto pRules = RuleSet::FromText(bytes, sName, eEncoding, vDiags);  // outside the lock
    if (!pRules) return false;
    std::lock_guard<std::mutex> lock(m_reloadLock);
    const uint64_t nNext = m_nGeneration.load(std::memory_order_relaxed) + 1;
    std::shared_ptr<const Snapshot> pNext =
        std::make_shared<const Snapshot>(Snapshot{std::move(pRules), nNext});
    std::atomic_store(&m_pCurrent, std::move(pNext));
    m_nGeneration.store(nNext, std::memory_order_release);
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

// The converters between one document encoding and GBK, kept by a matcher
// from its first document in that encoding on, with their buffers.
struct Matcher::Codec {
    explicit Codec(TextEncoding e)
        : in(e), back(e == TextEncoding::kUtf8 ? "UTF-8" : "GB18030", "GBK") {}
    CToGbk in;
    CIconv back;
    GbkText text;
    std::vector<TextProblem> vProblems;  // placeholders written; not reported yet
    std::string sBack;
};

Matcher::~Matcher() = default;

bool Matcher::Classify(const _stDoc& d, int iType, TextEncoding eEncoding) {
    auto& pCodec = m_pCodec[static_cast<int>(eEncoding)];
    if (!pCodec) pCodec = std::make_unique<Codec>(eEncoding);
    Codec& c = *pCodec;
    std::string _stDoc::*const kFields[] = {&_stDoc::sTitle, &_stDoc::sContent, &_stDoc::sAuthor,
                                            &_stDoc::sBoard, &_stDoc::sDatatype};
    for (auto field : kFields) {
        c.vProblems.clear();
        c.in.Convert(d.*field, 0, c.text, c.vProblems);
        (m_stGbk.*field).swap(c.text.sGbk);
    }
    const bool bOk = Classify(m_stGbk, iType);
    c.back.Convert(m_sResult, c.sBack, CIconv::OnBad::kMark);
    m_sResult.swap(c.sBack);
    return bOk;
}

std::string Matcher::Detail(const std::string& sClass) const {
    std::string s;
    m_pRules->Engine().Detail(*m_pDoc, sClass, s);
    return s;
}

bool Matcher::Classify(const _stDoc& d, int iType) {
    // The set this matcher holds is its generation's; only a newer one means
    // taking a snapshot (which locks), and then for the whole document.
    if (m_pEngine != nullptr && m_pEngine->Generation() != m_nGeneration) {
        const auto pNow = m_pEngine->Current();
        m_pRules = pNow->pRules;
        m_pDoc = m_pRules->Engine().NewDocument();
        m_nGeneration = pNow->nGeneration;
    }
    return m_pRules->Engine().Classify(*m_pDoc, d, iType, m_sResult);
}

}  // namespace qx
