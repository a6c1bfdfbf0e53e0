// TextParser.cpp - the rule engine, in pipeline order: count table, load,
// compile, scan and count, sub-rules, rules and scores, results.
//
// Rule list keys (tagged text, see CXMLParamReader; i counts from 0, j from 1):
//   certainty                                  float, required
//   rules.rulenum                              int, required
//   rule id="i".classid / toprule / effectvalue / perfectvsmsim / imperfectvsmsim
//   rule id="i".subrules.subrulenum
//   rule id="i".subrules.subrule id="j".operator   "<AND|OR|NOT>/<field>/<min count>"
//   rule id="i".subrules.subrule id="j".value      keywords separated by blanks
//
// Per document the work is proportional to the text and its hits, not to the
// size of the rule list. The loaded tables are compiled once (CIndex) into:
// per keyword the count slots it raises when seen in the title and in the
// content; per sub-rule its keywords' slots and its outcome on a document
// without hits (its "default": NOT sub-rules hold, AND/OR ones fail); per
// rule its outcome when all its sub-rules are at their defaults, and whether
// that outcome needs the NEAR text test anyway ("volatile"). A document then
// only touches the slots of the keywords it contains; exactly the sub-rules
// with a raised slot or a matching metadata field are decided afresh, and
// exactly the rules owning such a sub-rule (plus the volatile ones) are
// decided afresh; every other sub-rule and rule provably has its default
// outcome, since its decision reads nothing but zero counts and default
// outcomes. (A NEAR rule reads the text as well, but only once all its
// sub-rules hold; one that holds without hits is volatile, so the rewrite of
// m_sText happens exactly when the plain evaluation would do it.) With a
// positive certainty a rule that is false is skipped, so only the touched,
// volatile and default-true rules are visited; with certainty <= 0 every rule
// is scored, as it must be. Between documents the tables hold the last
// document's state and the next document first restores what that one
// touched (dirty lists); the loaded tables themselves are never copied.
//
// Scanning: the dictionary reports every emission of its full scan as a byte
// span with the handle of the matched word. A span whose bytes equal the
// keyword the handle was given to (checked with one memcmp) counts that
// keyword directly; anything else - the separator, a keyword holding the
// separator bytes or a blank, the scan's end-of-text copy - is cut exactly as
// the plain text pipeline cuts the scan output (first separator
// occurrence, then blanks) and looked up by its bytes in a hash table.
// Either way a piece counts the keyword whose bytes it equals, and nothing
// else, so the counts are those of the plain reading.
#include "TextParser.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Global.h"
#include "PDAT.h"
#include "Utility.h"
#include "XMLParamReader.h"
#include "global_linux.h"

namespace {

// ---- Texts (GBK) ----

constexpr char kSeparator[] = "\xB7\xD6\xB8\xEE\xB7\xFB\xBA\xC5";  // 分割符号
constexpr size_t kSeparatorLen = sizeof(kSeparator) - 1;
constexpr const char* kMetaPrefix[3] = {
    "\xD7\xF7\xD5\xDF:",  // 作者:
    "\xC6\xB5\xB5\xC0:",  // 频道:
    "\xCD\xA8\xB5\xC0:",  // 通道:
};

// Loader messages; "..." marks where the key path or name goes.
constexpr char kMsgConfBad[] =
    "\xB2\xCE\xCA\xFD"
    "conf\xCA\xE4\xC8\xEB\xB4\xED\xCE\xF3.\n";                    // 参数conf输入错误.
constexpr char kMsgFile[] = "\xCE\xC4\xBC\xFE";                   // 文件...
constexpr char kMsgCannotOpen[] = "\xB4\xF2\xB2\xBB\xBF\xAA.\n";  // ...打不开.
constexpr char kMsgNoCertainty[] =
    "Certainty\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // Certainty值未书写.
constexpr char kMsgNoTotal[] = "TotalNum\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // TotalNum值未书写.
// Rule[...]不存在或其ClassID值不能为空.
constexpr char kMsgNoClass[] =
    "]\xB2\xBB\xB4\xE6\xD4\xDA\xBB\xF2\xC6\xE4"
    "ClassID\xD6\xB5\xB2\xBB\xC4\xDC\xCE\xAA\xBF\xD5.\n";
// Rule[...] 总的逻辑符号书写错误.
constexpr char kMsgBadTop[] =
    "] \xD7\xDC\xB5\xC4\xC2\xDF\xBC\xAD\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.";
constexpr char kMsgNoEffect[] =
    "]EffectValue\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // ]EffectValue值未书写.
constexpr char kMsgNoPerfect[] =
    "]PerfectVSMSim\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // ]PerfectVSMSim值未书写.
constexpr char kMsgNoImperfect[] =
    "]ImPerfectVSMSim\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";   // ]ImPerfectVSMSim值未书写.
constexpr char kMsgClassPrefix[] = "] ClassID\xC0\xE0\"";  // ] ClassID类"
constexpr char kMsgUntrained[] = "\"\xD3\xEF\xC1\xCF\xCE\xB4\xD1\xB5\xC1\xB7.";  // "语料未训练.
constexpr char kMsgNoSubNum[] =
    "]SubRuleNum\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.";  // ]SubRuleNum值未书写.
// ]SubRuleNum值对TopRule的NOT值不支持. (and YES, NEAR)
constexpr char kMsgSubNumNot[] =
    "]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4NOT\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.";
constexpr char kMsgSubNumYes[] =
    "]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4YES\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.";
constexpr char kMsgSubNumNear[] =
    "]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4NEAR\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.";
constexpr char kMsgOpIncomplete[] = "\xCE\xB4\xCA\xE9\xD0\xB4\xCD\xEA\xD5\xFB.";  // 未书写完整.
// 的逻辑符号书写错误.
constexpr char kMsgOpBadRelation[] =
    "\xB5\xC4\xC2\xDF\xBC\xAD\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.";
// 的域符号书写错误.
constexpr char kMsgOpBadField[] =
    "\xB5\xC4\xD3\xF2\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.";
// 的词频书写错误或不能为0.
constexpr char kMsgOpBadCount[] =
    "\xB5\xC4\xB4\xCA\xC6\xB5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3\xBB\xF2\xB2\xBB\xC4\xDC\xCE\xAA"
    "0.";
constexpr char kMsgNoKeywords[] =
    "\xB5\xC4\xB4\xCA\xB8\xF6\xCA\xFD\xCE\xAA"
    "0.";                                                     // 的词个数为0.
constexpr char kMsgNearClass[] = "\xC0\xE0\xC3\xFB\xCE\xAA";  // 类名为...
// ...的规则,其非NOT子规则个数对TopRule的NEAR值不支持.
constexpr char kMsgNearNonNot[] =
    "\xB5\xC4\xB9\xE6\xD4\xF2,\xC6\xE4\xB7\xC7NOT\xD7\xD3\xB9\xE6\xD4\xF2\xB8\xF6\xCA\xFD\xB6\xD4"
    "TopRule\xB5\xC4NEAR\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.";
constexpr char kMsgLoaded[] = "\xBC\xD3\xD4\xD8";        // 加载...
constexpr char kMsgLoadedEnd[] = "\xB3\xC9\xB9\xA6.\n";  // ...成功.

// The loader's start value of perfectvsmsim and subrulenum: "not given".
constexpr float kNoPerfectSim = 33333.0f;
constexpr int kNoSubRuleNum = 33333;
// Start of the smallest count of an AND sub-rule.
constexpr int kAndStartMin = 6502500;
// Keeps the score's division defined.
constexpr float kSimEpsilon = 0.000005f;

// ---- Small rules shared by loader and evaluator ----

// The loader's failure: the message goes through the error funnel.
bool Fail(const std::string& sMessage) {
    ReportError(sMessage);
    return false;
}

// atoi as glibc defines it ((int)strtol), without atoi's undefined overflow.
int AtoiLike(const char* s) {
    return static_cast<int>(std::strtol(s, nullptr, 10));
}

bool BeginsWithNear(const std::string& s) {
    return s.compare(0, 4, "NEAR") == 0;
}

template <size_t N>
bool IsOneOf(const std::string& s, const char* const (&table)[N]) {
    return std::find_if(std::begin(table), std::end(table),
                        [&](const char* e) { return s == e; }) != std::end(table);
}

// 0: counted field (TITLE, CONTENT, TEXT or unknown); 1..3: AUTHOR, BOARD, DATATYPE.
int MetadataKind(const std::string& sField) {
    if (sField == "AUTHOR") return 1;
    if (sField == "BOARD") return 2;
    if (sField == "DATATYPE") return 3;
    return 0;
}

// The trained-class list names the classes that have a similarity model. The
// system has no models: the list is deliberately left empty and its file is
// not read, so every rule whose effect value is below 1.0 is refused.
std::vector<std::string> TrainedClasses(const std::string& /*sListPath*/) {
    return {};
}

// The list is searched from its second entry on, each entry trimmed.
bool IsTrainedClass(const std::string& sClass, const std::vector<std::string>& vsTrained) {
    for (size_t e = 1; e < vsTrained.size(); ++e) {
        std::string sEntry = vsTrained[e];
        gfn_bTrimWord(sEntry);
        if (sEntry == sClass) return true;
    }
    return false;
}

// Relation words, compared exactly and case-sensitively.
enum class SubRelation : char { kAnd, kOr, kNot, kOther };
enum class RuleRelation : char { kAnd, kOr, kNot, kYes, kNear, kOther };

SubRelation SubRelationOf(const std::string& s) {
    if (s == "AND") return SubRelation::kAnd;
    if (s == "OR") return SubRelation::kOr;
    if (s == "NOT") return SubRelation::kNot;
    return SubRelation::kOther;
}

// Tested in this order; any relation containing "NEAR" is a NEAR relation.
RuleRelation RuleRelationOf(const std::string& s) {
    if (s == "AND") return RuleRelation::kAnd;
    if (s == "OR") return RuleRelation::kOr;
    if (s == "NOT") return RuleRelation::kNot;
    if (s == "YES") return RuleRelation::kYes;
    if (s.find("NEAR") != std::string::npos) return RuleRelation::kNear;
    return RuleRelation::kOther;
}

// The NEAR distance: the relation without every "NEAR", read as atoi reads.
int NearDistanceOf(const std::string& sRelation) {
    std::string sDistance = sRelation;
    gfn_vReplaceSubstr(sDistance, "NEAR", "");
    return AtoiLike(sDistance.c_str());
}

// Appends the hit record "<keyword> <count>\t".
void AppendHit(std::string& sHit, const std::string& sKeyword, int nCount) {
    char sNum[16];
    const char* pEnd = std::to_chars(sNum, sNum + sizeof(sNum), nCount).ptr;
    sHit.append(sKeyword)
        .append(1, ' ')
        .append(sNum, static_cast<size_t>(pEnd - sNum))
        .append(1, '\t');
}

// Decides a sub-rule with relation eRel from count(j) of its keywords;
// appends the hit record of each visited keyword with a count to *pHit when
// pHit is set.
template <typename CountFn>
bool DecideSubRule(SubRelation eRel, const _stSubRule& stSub, CountFn count, std::string* pHit) {
    const size_t n = stSub.vsKeyword.size();
    if (eRel == SubRelation::kAnd) {
        int iMin = kAndStartMin;
        for (size_t j = 0; j < n; ++j) {
            const int c = count(j);
            if (c == 0) return false;  // later keywords are neither examined nor recorded
            if (pHit) AppendHit(*pHit, stSub.vsKeyword[j], c);
            iMin = std::min(iMin, c);
        }
        return iMin >= stSub.iMinCount;
    }
    if (eRel == SubRelation::kOther) return false;
    long long nSum = 0;
    for (size_t j = 0; j < n; ++j) {
        const int c = count(j);
        if (c != 0 && pHit) AppendHit(*pHit, stSub.vsKeyword[j], c);
        nSum += c;
    }
    if (eRel == SubRelation::kOr) return nSum > 0 && nSum >= stSub.iMinCount;
    return nSum < 1 || nSum < stSub.iMinCount;
}

enum class Verdict { kFalse, kTrue, kNearTest };

// Decides a rule relation over k sub-rule outcomes s(j), up to the NEAR text
// test, which the caller runs when kNearTest comes back.
template <typename OutcomeFn>
Verdict DecideRelation(RuleRelation eRel, size_t k, OutcomeFn s) {
    auto verdict = [](bool b) { return b ? Verdict::kTrue : Verdict::kFalse; };
    switch (eRel) {
        case RuleRelation::kAnd:
            for (size_t j = 0; j < k; ++j)
                if (!s(j)) return Verdict::kFalse;
            return Verdict::kTrue;
        case RuleRelation::kOr:
            for (size_t j = 0; j < k; ++j)
                if (s(j)) return Verdict::kTrue;
            return Verdict::kFalse;
        case RuleRelation::kNot:
            if (k == 1) return verdict(!s(0));
            if (k == 2) return verdict(s(0) && !s(1));
            return Verdict::kFalse;
        case RuleRelation::kYes:
            return verdict(k == 1 && s(0));
        case RuleRelation::kNear:
            if (k <= 1) return Verdict::kFalse;
            for (size_t j = 0; j < k; ++j)
                if (!s(j)) return Verdict::kFalse;
            return Verdict::kNearTest;
        default:
            return Verdict::kFalse;
    }
}

// Byte gap x - y taken as a signed 32-bit value (negative for overlaps).
int Gap32(size_t x, size_t y) {
    return static_cast<int32_t>(static_cast<uint32_t>(x - y));
}

// True when some occurrence of kb and some occurrence of ka in sText are at
// most nDistance bytes apart, ka after kb or ka before kb.
bool OccurrencesNear(const std::string& sText, const std::string& kb, const std::string& ka,
                     int nDistance) {
    for (size_t p = 0;; p += std::max<size_t>(kb.size(), 1)) {
        p = sText.find(kb, p);
        if (p == std::string::npos) return false;
        const size_t e = sText.find(ka, p + kb.size());
        if (e != std::string::npos && Gap32(e, p + kb.size()) <= nDistance) return true;
        const size_t e2 = sText.rfind(ka, p);
        if (e2 != std::string::npos && Gap32(p, e2 + ka.size()) <= nDistance) return true;
    }
}

// The document-to-class similarity. No similarity model exists, so it is
// 0.0; the score keeps the term (and this seam) so that one could be added.
float ClassSimilarity(const std::string& /*sClass*/, const std::string& /*sText*/) {
    return 0.0f;
}

// The similarity to the negative class "<class>_neg", used by the veto; 0.0
// for the same reason.
float NegativeClassSimilarity(const std::string& /*sNegClass*/, const std::string& /*sText*/) {
    return 0.0f;
}

// Appends f as printf's "%.4f" writes it. For |f| < 2^32 the product
// f * 10000 is exact in a double (24 + 14 significant bits), so rounding it
// to an integer in the current rounding mode (ties to even by default, as
// printf rounds) gives printf's digits; other values go through snprintf.
void AppendFixed4(std::string& s, float f) {
    const double x = std::fabs(static_cast<double>(f)) * 10000.0;
    if (!(x < 4294967296.0 * 10000.0)) {  // also NaN
        char sBuf[64];
        std::snprintf(sBuf, sizeof(sBuf), "%.4f", static_cast<double>(f));
        s += sBuf;
        return;
    }
    const long long n = std::llrint(x);
    if (std::signbit(f)) s += '-';
    s += std::to_string(n / 10000);
    const int nFrac = static_cast<int>(n % 10000);
    const char sFrac[6] = {'.',
                           char('0' + nFrac / 1000),
                           char('0' + nFrac / 100 % 10),
                           char('0' + nFrac / 10 % 10),
                           char('0' + nFrac % 10),
                           0};
    s += sFrac;
}

std::atomic<unsigned long> g_nCountsVersion{0};

}  // namespace

// ======================================================================
// Count table
// ======================================================================

int CWordRuleCounts::Row::operator[](size_t iSubRule) const {
    if (!m_pTable || m_iKey < 0 || iSubRule >= m_pTable->m_nSubRules) return 0;
    const int iSlot = m_pTable->FindSlot(m_iKey, static_cast<int>(iSubRule));
    return iSlot < 0 ? 0 : m_pTable->SlotValue(iSlot);
}

CWordRuleCounts::CWordRuleCounts(const CWordRuleCounts& other)
    : m_vsKeys(other.m_vsKeys),
      m_viRowBegin(other.m_viRowBegin),
      m_viSlotSubRule(other.m_viSlotSubRule),
      m_viCount(other.m_viCount),
      m_nSubRules(other.m_nSubRules),
      m_nLayout(other.m_nLayout) {
    Touch();
}

CWordRuleCounts& CWordRuleCounts::operator=(const CWordRuleCounts& other) {
    if (this == &other) return *this;
    if (m_nLayout != other.m_nLayout || m_nLayout == 0) {
        m_vsKeys = other.m_vsKeys;
        m_viRowBegin = other.m_viRowBegin;
        m_viSlotSubRule = other.m_viSlotSubRule;
        m_nSubRules = other.m_nSubRules;
        m_nLayout = other.m_nLayout;
    }
    m_viCount = other.m_viCount;  // same layout: only the counts differ
    Touch();
    return *this;
}

void CWordRuleCounts::Build(const std::map<std::string, std::list<int>>& mslKeywords,
                            size_t nSubRules) {
    m_vsKeys.clear();
    m_viRowBegin.assign(1, 0);
    m_viSlotSubRule.clear();
    m_nSubRules = nSubRules;
    std::vector<int> viRow;
    for (const auto& kv : mslKeywords) {
        m_vsKeys.push_back(kv.first);
        viRow.clear();
        for (int i : kv.second)
            if (i >= 0 && static_cast<size_t>(i) < nSubRules) viRow.push_back(i);
        std::sort(viRow.begin(), viRow.end());
        viRow.erase(std::unique(viRow.begin(), viRow.end()), viRow.end());
        m_viSlotSubRule.insert(m_viSlotSubRule.end(), viRow.begin(), viRow.end());
        m_viRowBegin.push_back(static_cast<int>(m_viSlotSubRule.size()));
    }
    m_viCount.assign(m_viSlotSubRule.size(), 0);
    m_nLayout = ++g_nCountsVersion;
    Touch();
}

void CWordRuleCounts::clear() {
    m_vsKeys.clear();
    m_viRowBegin.assign(1, 0);
    m_viSlotSubRule.clear();
    m_viCount.clear();
    m_nSubRules = 0;
    m_nLayout = 0;
    Touch();
}

int CWordRuleCounts::count(const std::string& sWord, size_t iSubRule) const {
    return (*this)[sWord][iSubRule];
}

bool CWordRuleCounts::Set(const std::string& sWord, size_t iSubRule, int nCount) {
    if (iSubRule >= m_nSubRules) return false;
    const int iSlot = FindSlot(FindKey(sWord), static_cast<int>(iSubRule));
    if (iSlot < 0) return false;
    m_viCount[static_cast<size_t>(iSlot)] = nCount;
    Touch();
    return true;
}

int CWordRuleCounts::FindSlot(int iKey, int iSubRule) const {
    if (iKey < 0 || static_cast<size_t>(iKey) >= m_vsKeys.size()) return -1;
    const auto itBegin = m_viSlotSubRule.begin() + m_viRowBegin[static_cast<size_t>(iKey)];
    const auto itEnd = m_viSlotSubRule.begin() + m_viRowBegin[static_cast<size_t>(iKey) + 1];
    const auto it = std::lower_bound(itBegin, itEnd, iSubRule);
    return (it != itEnd && *it == iSubRule) ? static_cast<int>(it - m_viSlotSubRule.begin()) : -1;
}

int CWordRuleCounts::AddToSlot(int iSlot, int n) {
    int& v = m_viCount[static_cast<size_t>(iSlot)];
    const int nOld = v;
    v = (nOld > INT_MAX - n) ? INT_MAX : nOld + n;
    return nOld;
}

int CWordRuleCounts::FindKey(const std::string& sWord) const {
    const auto it = std::lower_bound(m_vsKeys.begin(), m_vsKeys.end(), sWord);
    return (it != m_vsKeys.end() && *it == sWord) ? static_cast<int>(it - m_vsKeys.begin()) : -1;
}

void CWordRuleCounts::Touch() {
    m_nVersion = ++g_nCountsVersion;
}

// ======================================================================
// Construction, loading
// ======================================================================

CTextParser::CTextParser()
    : m_pDat(nullptr),
      m_hMVRDRAP(nullptr),
      m_fCertainty(0.8f),
      m_nTablesGeneration(0),
      m_bTextNormalised(false),
      m_pHintDat(nullptr) {}

CTextParser::~CTextParser() {
    delete m_pDat;
}

bool CTextParser::fn_bInit(const char* /*sDataDir*/, const char* conf) {
    delete m_pDat;  // nothing else refers to the old dictionary
    m_pDat = new CPDAT(1);
    m_pDat->AddWordInit();
    m_viHandleKey.clear();
    m_pHintDat = nullptr;
    if (!fn_bLoadRulelist(conf)) return false;
    int iKey = 0;
    for (const auto& kv : m_mslKeywords) {
        const int h = m_pDat->AddWord(kv.first.c_str(), false);
        if (h >= 0) {
            if (static_cast<size_t>(h) >= m_viHandleKey.size())
                m_viHandleKey.resize(static_cast<size_t>(h) + 1, -1);
            if (m_viHandleKey[static_cast<size_t>(h)] < 0)
                m_viHandleKey[static_cast<size_t>(h)] = iKey;
        }
        ++iKey;
    }
    m_pDat->AddWord(kSeparator, false);
    m_pDat->AddWordComplete();
    m_pHintDat = m_pDat;
    return true;
}

bool CTextParser::fn_bLoadRulelist(const char* conf) {
    if (conf == nullptr || *conf == '\0') {
        WriteLog(kMsgConfBad, nullptr, false);
        return false;
    }
    FILE* fp = std::fopen(conf, "rb");
    if (fp == nullptr) {
        ReportError(std::string(kMsgFile) + conf + kMsgCannotOpen);
        return false;
    }
    std::fclose(fp);
    const std::vector<std::string> vsTrained =
        TrainedClasses(g_sDefaultDir + "/" + "DataFile/data_Class.txt");
    CXMLParamReader cReader(conf);
    ++m_nTablesGeneration;  // whatever happens below, recompile before the next document
    if (!cReader.getParamFloat("certainty", m_fCertainty)) {
        WriteLog(kMsgNoCertainty, nullptr, false);
        return false;
    }
    int nRules = 0;
    if (!cReader.getParamInt("rules.rulenum", nRules)) {
        WriteLog(kMsgNoTotal, nullptr, false);
        return false;
    }
    if (nRules == 0) return true;
    for (int i = 0; i < nRules; ++i)  // a huge rulenum stops at the first missing rule
        if (!LoadRule(cReader, i, vsTrained)) return false;
    RebuildResultTables();
    WriteLog(std::string(kMsgLoaded) + conf + kMsgLoadedEnd, nullptr, false);
    return true;
}

// Reads rule i (its keys are "rule id="i".<name>") and appends it; its
// sub-rules are appended as they are read, so a failure leaves them in place.
bool CTextParser::LoadRule(CXMLParamReader& cReader, int i,
                           const std::vector<std::string>& vsTrained) {
    std::printf("%d\n", i);
    const std::string sPrefix = "rule id=\"" + std::to_string(i) + "\".";
    _stRule stRule;
    std::string K = sPrefix + "classid";
    cReader.getParamString(K.c_str(), stRule.sClass);
    if (stRule.sClass.empty()) return Fail("Rule[" + K + kMsgNoClass);
    stRule.sRelation = "AND";  // overwritten even by an absent tag (with "")
    K = sPrefix + "toprule";
    cReader.getParamString(K.c_str(), stRule.sRelation);
    if (!IsOneOf(stRule.sRelation, OperatorStr) && stRule.sRelation != "YES" &&
        !BeginsWithNear(stRule.sRelation))
        return Fail("Rule[" + K + kMsgBadTop);
    K = sPrefix + "effectvalue";
    if (!cReader.getParamFloat(K.c_str(), stRule.fEffecValue))
        return Fail("Rule[" + K + kMsgNoEffect);
    K = sPrefix + "perfectvsmsim";
    stRule.fPerfectVSMSim = kNoPerfectSim;
    cReader.getParamFloat(K.c_str(), stRule.fPerfectVSMSim);
    if (stRule.fPerfectVSMSim == kNoPerfectSim && stRule.fEffecValue < 1.0f)
        return Fail("Rule[" + K + kMsgNoPerfect);
    K = sPrefix + "imperfectvsmsim";
    if (!cReader.getParamFloat(K.c_str(), stRule.fImPerfectVSMSim))
        return Fail("Rule[" + K + kMsgNoImperfect);
    if (stRule.fEffecValue < 1.0f && !IsTrainedClass(stRule.sClass, vsTrained))
        return Fail("Rule[" + K + kMsgClassPrefix + stRule.sClass + kMsgUntrained);
    K = sPrefix + "subrules.subrulenum";
    int nSubRules = kNoSubRuleNum;
    cReader.getParamInt(K.c_str(), nSubRules);
    if (nSubRules == kNoSubRuleNum) return Fail("Rule[" + K + kMsgNoSubNum);
    const bool bNear = BeginsWithNear(stRule.sRelation);
    if (stRule.sRelation == "NOT" && nSubRules != 1 && nSubRules != 2)
        return Fail("Rule[" + K + kMsgSubNumNot);
    if (stRule.sRelation == "YES" && nSubRules != 1) return Fail("Rule[" + K + kMsgSubNumYes);
    if (bNear && nSubRules < 2) return Fail("Rule[" + K + kMsgSubNumNear);
    int nNonNot = 0;
    if (!LoadSubRules(cReader, sPrefix, nSubRules, stRule, nNonNot)) return false;
    if (bNear && nNonNot <= 1) return Fail(kMsgNearClass + stRule.sClass + kMsgNearNonNot);
    m_vstRules.push_back(std::move(stRule));
    return true;
}

// Reads sub-rules 1..nSubRules of the rule with key prefix sPrefix, appending
// each to m_vstSubRules (and its keywords to m_mslKeywords) as it is read.
bool CTextParser::LoadSubRules(CXMLParamReader& cReader, const std::string& sPrefix, int nSubRules,
                               _stRule& stRule, int& nNonNot) {
    for (long long j = 1; j <= nSubRules; ++j) {  // stops at the first sub-rule not found
        const std::string sSub = sPrefix + "subrules.subrule id=\"" + std::to_string(j) + "\".";
        const std::string O = sSub + "operator", V = sSub + "value";
        std::string sOperator, sValue;
        cReader.getParamString(O.c_str(), sOperator);
        cReader.getParamString(V.c_str(), sValue);
        std::vector<std::string> vsPiece;
        gfn_bSplit(sOperator.c_str(), vsPiece, "/");
        if (vsPiece.size() != 3) return Fail(O + kMsgOpIncomplete);
        _stSubRule stSub;
        stSub.sRelation = vsPiece[0];
        if (!IsOneOf(stSub.sRelation, OperatorStr)) return Fail(O + kMsgOpBadRelation);
        // The field is tested before it is read (still ""), so every sub-rule
        // that is not NOT counts, metadata ones included; the NEAR check
        // below depends on this order, which is kept on purpose.
        if (stSub.sRelation != "NOT" && MetadataKind(stSub.sField) == 0) ++nNonNot;
        stSub.sField = vsPiece[1];
        if (!IsOneOf(stSub.sField, FieldStr)) return Fail(O + kMsgOpBadField);
        stSub.iMinCount = AtoiLike(vsPiece[2].c_str());
        if (stSub.iMinCount == 0) return Fail(O + kMsgOpBadCount);
        gfn_bSplit(sValue.c_str(), stSub.vsKeyword, " ");
        if (stSub.vsKeyword.empty()) return Fail(V + kMsgNoKeywords);
        const int iIndex = static_cast<int>(m_vstSubRules.size());
        stRule.viSubRule.push_back(iIndex);
        m_vstSubRules.push_back(stSub);
        if (MetadataKind(stSub.sField) == 0)
            for (const std::string& sKeyword : stSub.vsKeyword)
                m_mslKeywords[sKeyword].push_back(iIndex);
    }
    return true;
}

// One fresh result per sub-rule and rule, one zero count slot per keyword
// listing, and the clean copies of all three.
void CTextParser::RebuildResultTables() {
    m_vstSubRuleResult.assign(m_vstSubRules.size(), _stSubRuleResult());
    m_vstRuleResult.assign(m_vstRules.size(), _stRuleResult());
    m_msvWordRule.Build(m_mslKeywords, m_vstSubRules.size());
    m_msvWordRuleInit = m_msvWordRule;
    m_vstSubRuleResultInit = m_vstSubRuleResult;
    m_vstRuleResultInit = m_vstRuleResult;
}

// ======================================================================
// Compiled index
// ======================================================================

struct CTextParser::CIndex {
    // What the index was compiled for.
    unsigned long nGeneration = 0, nCountsVersion = 0, nInitVersion = 0;
    size_t nRules = 0, nSubRules = 0, nKeys = 0;
    size_t nSubResults = 0, nRuleResults = 0, nSubInit = 0, nRuleInit = 0;
    size_t nSubEval = 0;   // sub-rules with a result entry (all, after a load)
    size_t nRuleEval = 0;  // rules with a result entry (all, after a load)

    // Keywords, numbered in m_mslKeywords order.
    std::vector<const std::string*> vpKey;
    std::unordered_map<std::string_view, int> mKey;  // bytes -> key number
    std::vector<char> vbRawOnly;     // holds the separator or a blank: never counted whole
    std::vector<int> viIncBegin[2];  // [0] title, [1] content: per key
    std::vector<std::pair<int, int>> vIncs[2];  // (slot, times) raised per occurrence

    // Sub-rules.
    std::vector<int> viSubKeyBegin, viSubKeySlot;  // slot per keyword position, or -1
    std::vector<char> vcSubKind;                   // MetadataKind
    std::vector<SubRelation> veSubRelation;
    std::vector<char> vbSubDefault;                              // outcome without hits
    std::vector<int> viSubOwnerBegin, viSubOwner;                // rules naming the sub-rule
    std::unordered_map<std::string, std::vector<int>> mMeta[3];  // value -> sub-rules

    // Rules.
    std::vector<RuleRelation> veRuleRelation;
    std::vector<int> viNearDistance;
    std::vector<char> vbRuleDefault, vbRuleVolatile, vbAlways;
    std::vector<int> viAlways;  // decided and scored on every document (certainty > 0)
    std::vector<int> viRuleClass;
    std::vector<std::string> vsClass, vsNegClass;  // by class number, names ascending

    // Per-document state.
    bool bPrimed = false;  // sub-rules not in viDirtySubs hold their default outcome
    unsigned int nStamp = 0;
    std::vector<unsigned int> vnSubStamp, vnRuleStamp, vnClassStamp;
    std::vector<int> viDirtySlots, viDirtySubs, viDirtyRules, viTouchedRules, viCandidates;
    std::vector<float> vfWeight;
    std::vector<int> viWeighted;
    std::vector<_stScanSpan> vSpans;

    void Compile(const CTextParser& t);
    void CompileKeywords(const CTextParser& t);
    void CompileSubRules(const CTextParser& t);
    void CompileRules(const CTextParser& t);
    void NextStamp();
    int SubSlot(size_t i, size_t j) const { return viSubKeySlot[viSubKeyBegin[i] + j]; }

    // The key number of the keyword that the scan bytes [p, p + n) are, taken
    // from the handle's hint and confirmed byte for byte; -1 when that fails
    // or when the keyword must be cut like plain scan text.
    int KeyOfSpan(const std::vector<int>* pHints, int nHandle, const char* p, size_t n) const {
        if (pHints == nullptr || nHandle < 0 || static_cast<size_t>(nHandle) >= pHints->size())
            return -1;
        const int iKey = (*pHints)[nHandle];
        if (iKey < 0 || static_cast<size_t>(iKey) >= vpKey.size() || vbRawOnly[iKey]) return -1;
        const std::string& sKey = *vpKey[iKey];
        return sKey.size() == n && std::memcmp(sKey.data(), p, n) == 0 ? iKey : -1;
    }
};

void CTextParser::CIndex::Compile(const CTextParser& t) {
    nGeneration = t.m_nTablesGeneration;
    nCountsVersion = t.m_msvWordRule.Version();
    nInitVersion = t.m_msvWordRuleInit.Version();
    nRules = t.m_vstRules.size();
    nSubRules = t.m_vstSubRules.size();
    nKeys = t.m_mslKeywords.size();
    nSubResults = t.m_vstSubRuleResult.size();
    nRuleResults = t.m_vstRuleResult.size();
    nSubInit = t.m_vstSubRuleResultInit.size();
    nRuleInit = t.m_vstRuleResultInit.size();
    nSubEval = std::min({nSubRules, nSubResults, nSubInit});
    nRuleEval = std::min({nRules, nRuleResults, nRuleInit});
    CompileKeywords(t);
    CompileSubRules(t);
    CompileRules(t);
    vnSubStamp.assign(nSubRules, 0);
    vnRuleStamp.assign(nRuleEval, 0);
    vnClassStamp.assign(vsClass.size(), 0);
    vfWeight.assign(vsClass.size(), 0.0f);
}

void CTextParser::CIndex::CompileKeywords(const CTextParser& t) {
    const CWordRuleCounts& cCounts = t.m_msvWordRule;
    for (int f = 0; f < 2; ++f) viIncBegin[f].assign(1, 0);
    int iKey = 0;
    for (const auto& kv : t.m_mslKeywords) {
        const std::string& sKey = kv.first;
        vpKey.push_back(&sKey);
        mKey.emplace(std::string_view(sKey), iKey++);
        vbRawOnly.push_back(sKey.empty() || sKey.find(kSeparator) != std::string::npos ||
                            sKey.find(' ') != std::string::npos);
        const int iTableKey = cCounts.KeyIndex(sKey);
        const size_t nIncsBefore[2] = {vIncs[0].size(), vIncs[1].size()};
        for (int i : kv.second) {
            if (i < 0 || static_cast<size_t>(i) >= nSubRules) continue;
            const std::string& sField = t.m_vstSubRules[static_cast<size_t>(i)].sField;
            const bool bField[2] = {sField == "TITLE" || sField == "TEXT",
                                    sField == "CONTENT" || sField == "TEXT"};
            const int iSlot = cCounts.FindSlot(iTableKey, i);
            if (iSlot < 0) continue;  // no count slot: the increment has nowhere to go
            for (int f = 0; f < 2; ++f) {
                if (!bField[f]) continue;
                auto itBegin = vIncs[f].begin() + static_cast<long>(nIncsBefore[f]);
                auto it = std::find_if(itBegin, vIncs[f].end(), [&](const std::pair<int, int>& e) {
                    return e.first == iSlot;
                });
                if (it != vIncs[f].end())
                    ++it->second;  // listed twice: each occurrence counts twice
                else
                    vIncs[f].emplace_back(iSlot, 1);
            }
        }
        for (int f = 0; f < 2; ++f) viIncBegin[f].push_back(static_cast<int>(vIncs[f].size()));
    }
}

void CTextParser::CIndex::CompileSubRules(const CTextParser& t) {
    const CWordRuleCounts& cCounts = t.m_msvWordRule;
    auto zero = [](size_t) { return 0; };
    viSubKeyBegin.assign(1, 0);
    for (size_t i = 0; i < nSubRules; ++i) {
        const _stSubRule& stSub = t.m_vstSubRules[i];
        const int iKind = MetadataKind(stSub.sField);
        vcSubKind.push_back(static_cast<char>(iKind));
        for (const std::string& sKeyword : stSub.vsKeyword)
            viSubKeySlot.push_back(
                cCounts.FindSlot(cCounts.KeyIndex(sKeyword), static_cast<int>(i)));
        viSubKeyBegin.push_back(static_cast<int>(viSubKeySlot.size()));
        veSubRelation.push_back(SubRelationOf(stSub.sRelation));
        vbSubDefault.push_back(iKind == 0 &&
                               DecideSubRule(veSubRelation.back(), stSub, zero, nullptr));
        if (iKind == 0 || i >= nSubEval) continue;
        for (const std::string& sKeyword : stSub.vsKeyword) {
            std::vector<int>& viSubs = mMeta[iKind - 1][sKeyword];
            if (viSubs.empty() || viSubs.back() != static_cast<int>(i))
                viSubs.push_back(static_cast<int>(i));
        }
    }
}

void CTextParser::CIndex::CompileRules(const CTextParser& t) {
    std::vector<std::vector<int>> vviOwner(nSubRules);
    for (size_t r = 0; r < nRuleEval; ++r) {
        const _stRule& stRule = t.m_vstRules[r];
        for (int i : stRule.viSubRule)
            if (i >= 0 && static_cast<size_t>(i) < nSubRules)
                vviOwner[static_cast<size_t>(i)].push_back(static_cast<int>(r));
        auto s = [&](size_t j) {
            const int i = stRule.viSubRule[j];
            return i >= 0 && static_cast<size_t>(i) < nSubEval &&
                   vbSubDefault[static_cast<size_t>(i)];
        };
        veRuleRelation.push_back(RuleRelationOf(stRule.sRelation));
        viNearDistance.push_back(
            veRuleRelation.back() == RuleRelation::kNear ? NearDistanceOf(stRule.sRelation) : 0);
        const Verdict v = DecideRelation(veRuleRelation.back(), stRule.viSubRule.size(), s);
        vbRuleDefault.push_back(v == Verdict::kTrue);
        vbRuleVolatile.push_back(v == Verdict::kNearTest);
        vbAlways.push_back(v != Verdict::kFalse || t.m_vstRuleResultInit[r].bSuccess);
        if (vbAlways.back()) viAlways.push_back(static_cast<int>(r));
        vsClass.push_back(stRule.sClass);
    }
    viSubOwnerBegin.assign(1, 0);
    for (const std::vector<int>& viOwners : vviOwner) {
        viSubOwner.insert(viSubOwner.end(), viOwners.begin(), viOwners.end());
        viSubOwnerBegin.push_back(static_cast<int>(viSubOwner.size()));
    }
    // Class numbers in name order, so that the weight map is built in order.
    std::vector<std::string> vsRuleClass = std::move(vsClass);
    vsClass = vsRuleClass;
    std::sort(vsClass.begin(), vsClass.end());
    vsClass.erase(std::unique(vsClass.begin(), vsClass.end()), vsClass.end());
    for (const std::string& sClass : vsRuleClass) {
        const auto it = std::lower_bound(vsClass.begin(), vsClass.end(), sClass);
        viRuleClass.push_back(static_cast<int>(it - vsClass.begin()));
    }
    for (const std::string& sClass : vsClass) vsNegClass.push_back(sClass + "_neg");
}

void CTextParser::CIndex::NextStamp() {
    if (++nStamp != 0) return;
    std::fill(vnSubStamp.begin(), vnSubStamp.end(), 0);
    std::fill(vnRuleStamp.begin(), vnRuleStamp.end(), 0);
    std::fill(vnClassStamp.begin(), vnClassStamp.end(), 0);
    nStamp = 1;
}

bool CTextParser::IndexIsCurrent() const {
    const CIndex* x = m_pIndex.get();
    return x != nullptr && x->nGeneration == m_nTablesGeneration &&
           x->nCountsVersion == m_msvWordRule.Version() &&
           x->nInitVersion == m_msvWordRuleInit.Version() && x->nRules == m_vstRules.size() &&
           x->nSubRules == m_vstSubRules.size() && x->nKeys == m_mslKeywords.size() &&
           x->nSubResults == m_vstSubRuleResult.size() &&
           x->nRuleResults == m_vstRuleResult.size() &&
           x->nSubInit == m_vstSubRuleResultInit.size() &&
           x->nRuleInit == m_vstRuleResultInit.size();
}

// REQUIRES: the per-document tables equal their clean copies.
void CTextParser::CompileIndex() {
    m_pIndex.reset();
    auto pIndex = std::make_unique<CIndex>();
    pIndex->Compile(*this);
    m_pIndex = std::move(pIndex);
}

// ======================================================================
// Classification: reset, scan and count
// ======================================================================

bool CTextParser::fn_bClassify(_stDoc& d, int iType) {
    if (!IndexIsCurrent()) {
        fn_bResetResult();
        CompileIndex();
    }
    CIndex& x = *m_pIndex;
    m_sClassifyResult.clear();
    m_sDetail.clear();
    if (x.bPrimed)
        RestoreTouched();
    else
        PrimeSubRuleDefaults();
    x.NextStamp();
    x.viTouchedRules.clear();
    m_sText.reserve(d.sTitle.size() + kSeparatorLen + d.sContent.size());
    m_sText.assign(d.sTitle).append(kSeparator).append(d.sContent);
    m_bTextNormalised = false;
    if (!ScanAndCount()) {
        fn_bResetResult();  // results stay in their reset state
        return false;
    }
    DecideMetadata(d);
    DecideTouchedSubRules();
    std::vector<_stResult> vstResult = DecideAndScoreRules();  // the class weight map, in order
    AppendResults(vstResult, iType);
    return true;
}

bool CTextParser::fn_bResetResult() {
    const bool bIndexed = IndexIsCurrent();
    m_sClassifyResult.clear();
    m_sDetail.clear();
    m_msvWordRule = m_msvWordRuleInit;
    m_vstSubRuleResult = m_vstSubRuleResultInit;
    m_vstRuleResult = m_vstRuleResultInit;
    if (bIndexed) {  // same layout as before: the index stays valid
        m_pIndex->nCountsVersion = m_msvWordRule.Version();
        m_pIndex->bPrimed = false;
        m_pIndex->viDirtySlots.clear();
        m_pIndex->viDirtySubs.clear();
        m_pIndex->viDirtyRules.clear();
    }
    return true;
}

// Undoes what the previous document changed: its count slots, its decided
// sub-rules (back to their defaults) and its written rule results.
void CTextParser::RestoreTouched() {
    CIndex& x = *m_pIndex;
    for (int iSlot : x.viDirtySlots)
        m_msvWordRule.RestoreSlot(iSlot, m_msvWordRuleInit.SlotValue(iSlot));
    for (int i : x.viDirtySubs) {
        m_vstSubRuleResult[static_cast<size_t>(i)] = m_vstSubRuleResultInit[static_cast<size_t>(i)];
        m_vstSubRuleResult[static_cast<size_t>(i)].bSuccess =
            x.vbSubDefault[static_cast<size_t>(i)];
    }
    for (int r : x.viDirtyRules)
        m_vstRuleResult[static_cast<size_t>(r)] = m_vstRuleResultInit[static_cast<size_t>(r)];
    x.viDirtySlots.clear();
    x.viDirtySubs.clear();
    x.viDirtyRules.clear();
}

// REQUIRES: the per-document tables equal their clean copies. Gives every
// sub-rule its outcome on a document without hits.
void CTextParser::PrimeSubRuleDefaults() {
    CIndex& x = *m_pIndex;
    for (size_t i = 0; i < x.nSubEval; ++i) m_vstSubRuleResult[i].bSuccess = x.vbSubDefault[i];
    x.viDirtySlots.clear();
    x.viDirtySubs.clear();
    x.viDirtyRules.clear();
    x.bPrimed = true;
}

// Scans m_sText and raises the counts of the keywords found, title words
// before the first separator of the scan output, content words after it.
// False when the output holds no separator (nothing is counted then).
bool CTextParser::ScanAndCount() {
    if (m_pDat == nullptr) return false;
    CIndex& x = *m_pIndex;
    m_pDat->MMFullScanSpans(m_sText.c_str(), x.vSpans);
    const std::vector<int>* pHints = m_pHintDat == m_pDat ? &m_viHandleKey : nullptr;
    const char* pText = m_sText.data();
    bool bInContent = false;
    for (const _stScanSpan& stSpan : x.vSpans) {
        const char* p = pText + stSpan.iStart;
        const size_t n = static_cast<size_t>(stSpan.nLen);
        const int iKey = x.KeyOfSpan(pHints, stSpan.nHandle, p, n);
        if (iKey >= 0)
            CountKeyword(iKey, bInContent);
        else
            CountBytes(p, n, bInContent);
    }
    return bInContent;
}

// Counts the pieces of scan output bytes [p, p + n): cut at the first
// separator while still in the title, then at blanks.
void CTextParser::CountBytes(const char* p, size_t n, bool& bInContent) {
    if (!bInContent) {
        const size_t nSep =
            std::string_view(p, n).find(std::string_view(kSeparator, kSeparatorLen));
        if (nSep == std::string_view::npos) {
            CountPieces(p, n, false);
            return;
        }
        CountPieces(p, nSep, false);
        bInContent = true;
        p += nSep + kSeparatorLen;
        n -= nSep + kSeparatorLen;
    }
    CountPieces(p, n, true);
}

// Counts every non-empty blank-separated piece of [p, p + n) that is a keyword.
void CTextParser::CountPieces(const char* p, size_t n, bool bContent) {
    const CIndex& x = *m_pIndex;
    size_t nBegin = 0;
    while (nBegin < n) {
        const void* pBlank = std::memchr(p + nBegin, ' ', n - nBegin);
        const size_t nEnd = pBlank ? static_cast<size_t>(static_cast<const char*>(pBlank) - p) : n;
        if (nEnd > nBegin) {
            const auto it = x.mKey.find(std::string_view(p + nBegin, nEnd - nBegin));
            if (it != x.mKey.end()) CountKeyword(it->second, bContent);
        }
        nBegin = nEnd + 1;
    }
}

// One occurrence of keyword iKey in the title or the content.
void CTextParser::CountKeyword(int iKey, bool bContent) {
    CIndex& x = *m_pIndex;
    const int f = bContent ? 1 : 0;
    const int nEnd = x.viIncBegin[f][static_cast<size_t>(iKey) + 1];
    for (int e = x.viIncBegin[f][static_cast<size_t>(iKey)]; e < nEnd; ++e) {
        const std::pair<int, int>& inc = x.vIncs[f][static_cast<size_t>(e)];
        if (m_msvWordRule.AddToSlot(inc.first, inc.second) != 0) continue;
        x.viDirtySlots.push_back(inc.first);
        TouchSubRule(m_msvWordRule.SlotSubRule(inc.first));
    }
}

// Marks sub-rule i and its rules for a fresh decision on this document.
void CTextParser::TouchSubRule(int i) {
    CIndex& x = *m_pIndex;
    if (static_cast<size_t>(i) >= x.nSubEval) return;  // no result entry to decide into
    if (x.vnSubStamp[static_cast<size_t>(i)] == x.nStamp) return;
    x.vnSubStamp[static_cast<size_t>(i)] = x.nStamp;
    x.viDirtySubs.push_back(i);
    for (int e = x.viSubOwnerBegin[static_cast<size_t>(i)];
         e < x.viSubOwnerBegin[static_cast<size_t>(i) + 1]; ++e) {
        const int r = x.viSubOwner[static_cast<size_t>(e)];
        if (x.vnRuleStamp[static_cast<size_t>(r)] == x.nStamp) continue;
        x.vnRuleStamp[static_cast<size_t>(r)] = x.nStamp;
        x.viTouchedRules.push_back(r);
    }
}

// ======================================================================
// Sub-rules
// ======================================================================

// AUTHOR, BOARD and DATATYPE sub-rules hold when the field equals one of
// their keywords; hit word = prefix + field value.
void CTextParser::DecideMetadata(const _stDoc& d) {
    const CIndex& x = *m_pIndex;
    const std::string* pValue[3] = {&d.sAuthor, &d.sBoard, &d.sDatatype};
    for (int f = 0; f < 3; ++f) {
        if (x.mMeta[f].empty()) continue;
        const auto it = x.mMeta[f].find(*pValue[f]);
        if (it == x.mMeta[f].end()) continue;
        for (int i : it->second) {
            m_vstSubRuleResult[i].bSuccess = true;
            m_vstSubRuleResult[i].sHitWord = kMetaPrefix[f] + *pValue[f];
            TouchSubRule(i);
        }
    }
}

// Decides the counted sub-rules with a raised count; the others keep their
// default outcome.
void CTextParser::DecideTouchedSubRules() {
    const CIndex& x = *m_pIndex;
    for (int i : x.viDirtySubs)
        if (x.vcSubKind[i] == 0) m_vstSubRuleResult[i].bSuccess = DoSubRule(i, &x);
}

bool CTextParser::fn_bDoSubRule(int iSubRuleId) {
    const bool bOutcome = DoSubRule(iSubRuleId, IndexIsCurrent() ? m_pIndex.get() : nullptr);
    m_pIndex.reset();  // a result changed behind the dirty lists: restore in full next time
    return bOutcome;
}

bool CTextParser::DoSubRule(int i, const CIndex* pIndex) {
    if (i < 0 || static_cast<size_t>(i) >= m_vstSubRules.size() ||
        static_cast<size_t>(i) >= m_vstSubRuleResult.size())
        return false;
    const _stSubRule& stSub = m_vstSubRules[i];
    std::string* pHit = &m_vstSubRuleResult[i].sHitWord;
    if (pIndex == nullptr)
        return DecideSubRule(
            SubRelationOf(stSub.sRelation), stSub,
            [&](size_t j) {
                return m_msvWordRule.count(stSub.vsKeyword[j], static_cast<size_t>(i));
            },
            pHit);
    const int* pSlot = &pIndex->viSubKeySlot[pIndex->viSubKeyBegin[i]];
    return DecideSubRule(
        pIndex->veSubRelation[i], stSub,
        [&](size_t j) { return pSlot[j] < 0 ? 0 : m_msvWordRule.SlotValue(pSlot[j]); }, pHit);
}

// count(keyword j of sub-rule i, i) through the index's slots, or by lookup
// without one; 0 for keywords without a count slot (those of AUTHOR, BOARD
// and DATATYPE sub-rules). Never inserts.
int CTextParser::CountOf(const CIndex* pIndex, int i, size_t j) const {
    if (pIndex != nullptr) {
        const int iSlot = pIndex->SubSlot(static_cast<size_t>(i), j);
        return iSlot < 0 ? 0 : m_msvWordRule.SlotValue(iSlot);
    }
    return m_msvWordRule.count(m_vstSubRules[i].vsKeyword[j], static_cast<size_t>(i));
}

// ======================================================================
// Rules and scores
// ======================================================================

bool CTextParser::fn_bDoRule(int iRuleId) {
    m_bTextNormalised = false;  // the caller may have set m_sText
    return DoRule(iRuleId, IndexIsCurrent() ? m_pIndex.get() : nullptr);
}

bool CTextParser::DoRule(int r, const CIndex* pIndex) {
    if (r < 0 || static_cast<size_t>(r) >= m_vstRules.size()) return false;
    const _stRule& stRule = m_vstRules[r];
    const size_t nEval = std::min(m_vstSubRules.size(), m_vstSubRuleResult.size());
    auto s = [&](size_t j) {
        const int i = stRule.viSubRule[j];
        return i >= 0 && static_cast<size_t>(i) < nEval && m_vstSubRuleResult[i].bSuccess;
    };
    const RuleRelation eRel = pIndex ? pIndex->veRuleRelation[r] : RuleRelationOf(stRule.sRelation);
    switch (DecideRelation(eRel, stRule.viSubRule.size(), s)) {
        case Verdict::kTrue:
            return true;
        case Verdict::kNearTest:
            return NearTest(stRule,
                            pIndex ? pIndex->viNearDistance[r] : NearDistanceOf(stRule.sRelation),
                            pIndex);
        default:
            return false;
    }
}

// The NEAR<d> test, all sub-rules having held: every pair of non-NOT
// sub-rules must have keywords within d bytes of each other in m_sText,
// which is normalised first (separator -> 20 blanks, line feed -> 10).
bool CTextParser::NearTest(const _stRule& stRule, int nDistance, const CIndex* pIndex) {
    if (!m_bTextNormalised) {  // once per document: a second pass would change nothing
        gfn_vReplaceSubstr(m_sText, kSeparator, "\n\n");
        gfn_vReplaceSubstr(m_sText, "\n", "          ");
        m_bTextNormalised = true;
    }
    auto isNot = [&](int i) {
        if (i < 0 || static_cast<size_t>(i) >= m_vstSubRules.size()) return true;
        return pIndex ? pIndex->veSubRelation[i] == SubRelation::kNot
                      : m_vstSubRules[i].sRelation == "NOT";
    };
    const std::vector<int>& viSub = stRule.viSubRule;
    for (size_t a = 0; a + 1 < viSub.size(); ++a) {
        if (isNot(viSub[a])) continue;
        for (size_t b = a + 1; b < viSub.size(); ++b) {
            if (isNot(viSub[b])) continue;
            if (!NearPair(viSub[a], viSub[b], nDistance, pIndex)) return false;
        }
    }
    return true;
}

// Some hit keyword of sub-rule B lies within nDistance bytes of some hit
// keyword of sub-rule A.
bool CTextParser::NearPair(int a, int b, int nDistance, const CIndex* pIndex) {
    const std::vector<tstring>& vsA = m_vstSubRules[a].vsKeyword;
    const std::vector<tstring>& vsB = m_vstSubRules[b].vsKeyword;
    for (size_t jb = 0; jb < vsB.size(); ++jb) {
        if (CountOf(pIndex, b, jb) == 0) continue;
        for (size_t ja = 0; ja < vsA.size(); ++ja) {
            if (CountOf(pIndex, a, ja) == 0) continue;
            if (OccurrencesNear(m_sText, vsB[jb], vsA[ja], nDistance)) return true;
        }
    }
    return false;
}

// Decides and scores the rules in index order and returns the class weights
// as results in class-name order. With a positive certainty only rules that
// can fire are visited: those touched by this document and those that hold
// (or need the NEAR test) without hits; every other rule is false and would
// be skipped. Few touched rules are sorted and merged with the latter; many
// are picked out by one pass over the rule flags.
std::vector<_stResult> CTextParser::DecideAndScoreRules() {
    CIndex& x = *m_pIndex;
    const bool bFiredOnly = m_fCertainty > 0;
    auto visit = [&](int r) {
        const bool bDecide = x.vnRuleStamp[r] == x.nStamp || x.vbRuleVolatile[r];
        ScoreRule(r, bDecide ? DoRule(r, &x) : x.vbRuleDefault[r] != 0);
        x.viDirtyRules.push_back(r);
    };
    x.viWeighted.clear();
    if (bFiredOnly && x.viTouchedRules.size() * 8 < x.nRuleEval) {
        std::sort(x.viTouchedRules.begin(), x.viTouchedRules.end());
        x.viCandidates.clear();
        std::set_union(x.viTouchedRules.begin(), x.viTouchedRules.end(), x.viAlways.begin(),
                       x.viAlways.end(), std::back_inserter(x.viCandidates));
        for (int r : x.viCandidates) visit(r);
    } else {
        for (int r = 0; static_cast<size_t>(r) < x.nRuleEval; ++r)
            if (!bFiredOnly || x.vbAlways[r] || x.vnRuleStamp[r] == x.nStamp) visit(r);
    }
    x.viTouchedRules.clear();
    std::sort(x.viWeighted.begin(), x.viWeighted.end());  // class numbers follow name order
    std::vector<_stResult> vstResult;
    vstResult.reserve(x.viWeighted.size());
    for (int c : x.viWeighted) vstResult.push_back(_stResult{x.vsClass[c], x.vfWeight[c]});
    return vstResult;
}

// Records rule r's outcome and, when it scores at least m_fCertainty,
// its score (capped at 1.0) as its class's weight if that is the best so far.
void CTextParser::ScoreRule(int r, bool bFired) {
    CIndex& x = *m_pIndex;
    const _stRule& stRule = m_vstRules[r];
    _stRuleResult& stRes = m_vstRuleResult[r];
    stRes.bSuccess = bFired;
    if (!stRes.bSuccess && m_fCertainty > 0) return;
    float fSim = ClassSimilarity(stRule.sClass, m_sText);
    if (fSim < 0) fSim = 0;
    stRes.fVSMSim = fSim;
    float fScore = (stRes.bSuccess ? 1 : 0) * stRule.fEffecValue +
                   (fSim / (stRule.fPerfectVSMSim + kSimEpsilon)) * (1 - stRule.fEffecValue);
    if (fScore < m_fCertainty) return;
    const int c = x.viRuleClass[r];
    if (stRule.fImPerfectVSMSim > kSimEpsilon &&
        NegativeClassSimilarity(x.vsNegClass[c], m_sText) >= stRule.fImPerfectVSMSim)
        return;
    if (fScore > 1.0f) fScore = 1.0f;
    if (x.vnClassStamp[c] != x.nStamp) {
        x.vnClassStamp[c] = x.nStamp;
        x.viWeighted.push_back(c);
        x.vfWeight[c] = fScore;
    } else if (fScore > x.vfWeight[c]) {
        x.vfWeight[c] = fScore;
    }
    stRes.bSuccess = true;
}

// ======================================================================
// Results and reports
// ======================================================================

void CTextParser::fn_vGetClassification(std::map<std::string, float> msfOutputResult, int iType) {
    std::vector<_stResult> vstResult;
    vstResult.reserve(msfOutputResult.size());
    for (const auto& kv : msfOutputResult) vstResult.push_back(_stResult{kv.first, kv.second});
    AppendResults(vstResult, iType);
}

// Sorts results given in class-name order by weight (stably), applies the
// automatic selection for a negative certainty and appends the result text.
void CTextParser::AppendResults(std::vector<_stResult>& vstResult, int iType) {
    std::stable_sort(vstResult.begin(), vstResult.end(), CClasLess());
    size_t nKeep = vstResult.size();
    if (m_fCertainty < 0 && nKeep > 1) {  // at most three
        nKeep = 1;
        for (size_t i = 1; i <= 2 && i < vstResult.size(); ++i) {
            const float w0 = vstResult[i - 1].fWeight, w1 = vstResult[i].fWeight;
            if ((w0 - w1 > 0.15f && w1 < 0.8f) || w1 < 0.5f) break;
            nKeep = i + 1;
        }
    }
    if (iType != 0 && iType != 1) return;
    for (size_t i = 0; i < nKeep; ++i) {
        m_sClassifyResult.append(vstResult[i].sClassName);
        if (iType == 1) {
            m_sClassifyResult.append(1, ' ');
            AppendFixed4(m_sClassifyResult, vstResult[i].fWeight);
        }
        m_sClassifyResult.append(1, '\t');
    }
}

void CTextParser::fn_vGetDetail(std::string sClassName) {
    m_sDetail.clear();
    for (size_t r = 0; r < m_vstRules.size() && r < m_vstRuleResult.size(); ++r) {
        const _stRule& stRule = m_vstRules[r];
        if (stRule.sClass != sClassName || !m_vstRuleResult[r].bSuccess) continue;
        m_sDetail.append("RULE").append(std::to_string(r)).append(":\n");
        for (size_t j = 0; j < stRule.viSubRule.size(); ++j) {
            const int i = stRule.viSubRule[j];
            m_sDetail.append("SUBRULE").append(std::to_string(j + 1)).append(": ");
            if (i >= 0 && static_cast<size_t>(i) < m_vstSubRuleResult.size())
                m_sDetail.append(m_vstSubRuleResult[i].sHitWord);
            m_sDetail.append("\n");
        }
        if (stRule.fEffecValue < 1.0f) {
            m_sDetail.append("Sim: ");
            AppendFixed4(m_sDetail, m_vstRuleResult[r].fVSMSim);
            m_sDetail.append("\n");
        }
    }
}

void CTextParser::fn_vClear() {
    m_sClassifyResult.clear();
    m_vstSubRules.clear();
    m_mslKeywords.clear();
    m_vstRules.clear();
    m_msvWordRule.clear();
    m_vstSubRuleResult.clear();
    m_vstRuleResult.clear();
    delete m_pDat;
    m_pDat = nullptr;
    m_pIndex.reset();
    m_viHandleKey.clear();
    m_pHintDat = nullptr;
    ++m_nTablesGeneration;
}
