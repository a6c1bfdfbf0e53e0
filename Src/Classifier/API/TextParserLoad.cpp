// TextParserLoad.cpp - the rule engine's lifecycle: construction, the rule
// list loader with its messages, the keyword dictionary, clearing.
//
// Rule list keys (tagged text, see CXMLParamReader; i counts from 0, j from 1):
//   certainty                                  float, required
//   rules.rulenum                              int, required
//   rule id="i".classid / toprule / effectvalue / perfectvsmsim / imperfectvsmsim
//   rule id="i".subrules.subrulenum
//   rule id="i".subrules.subrule id="j".operator   "<AND|OR|NOT>/<field>/<min count>"
//   rule id="i".subrules.subrule id="j".value      keywords separated by blanks
//
// The loader reads rule after rule and checks each key as it reads it; the
// first problem ends the load with its message. Rules and sub-rules are
// appended as they are read and nothing is rolled back: a failed load leaves
// the earlier rules and the failing rule's finished sub-rules in the tables,
// without result entries (the evaluation leaves those out). Only a complete
// load rebuilds the result vectors, the count table and their clean copies.
// All messages are GBK; they are one table below, in the order the loader
// can raise them, each with the key path (or path, or class) it names.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Global.h"
#include "PDAT.h"
#include "TextParser.h"
#include "TextParserIndex.h"
#include "TextParserLogic.h"
#include "Utility.h"
#include "XMLParamReader.h"

namespace {

// ---- Messages ---------------------------------------------------------------

enum LoadMessage {
    kConfBad,
    kCannotOpen,
    kNoCertainty,
    kNoRuleNum,
    kNoClass,
    kBadTopRule,
    kNoEffect,
    kNoPerfect,
    kNoImperfect,
    kUntrained,
    kNoSubRuleNum,
    kSubNumNot,
    kSubNumYes,
    kSubNumNear,
    kOpIncomplete,
    kOpBadRelation,
    kOpBadField,
    kOpBadCount,
    kNoKeywords,
    kNearNonNot,
    kLoaded,
    kLoadMessageCount
};

// kLog messages only go to the day's log file (a missing or broken file
// header, and the success line); kError ones go through the error funnel,
// so that the host's last-error text names the offending key.
enum Channel : char { kLog, kError };

// Each "%s" takes the next argument: a key path, the rule list path or the
// class name. (GBK bytes never include '%', so the texts hold no other one.)
struct MessageDef {
    const char* sText;
    Channel eChannel;
};

constexpr MessageDef kMessages[kLoadMessageCount] = {
    // 参数conf输入错误.\n
    {"\xB2\xCE\xCA\xFD"
     "conf\xCA\xE4\xC8\xEB\xB4\xED\xCE\xF3.\n",
     kLog},
    // 文件%s打不开.\n
    {"\xCE\xC4\xBC\xFE%s\xB4\xF2\xB2\xBB\xBF\xAA.\n", kError},
    // Certainty值未书写.
    {"Certainty\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.", kLog},
    // TotalNum值未书写.
    {"TotalNum\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.", kLog},
    // Rule[%s]不存在或其ClassID值不能为空.\n
    {"Rule[%s]\xB2\xBB\xB4\xE6\xD4\xDA\xBB\xF2\xC6\xE4"
     "ClassID\xD6\xB5\xB2\xBB\xC4\xDC\xCE\xAA"
     "\xBF\xD5.\n",
     kError},
    // Rule[%s] 总的逻辑符号书写错误.
    {"Rule[%s] \xD7\xDC\xB5\xC4\xC2\xDF\xBC\xAD\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.",
     kError},
    // Rule[%s]EffectValue值未书写.
    {"Rule[%s]EffectValue\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.", kError},
    // Rule[%s]PerfectVSMSim值未书写.
    {"Rule[%s]PerfectVSMSim\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.", kError},
    // Rule[%s]ImPerfectVSMSim值未书写.
    {"Rule[%s]ImPerfectVSMSim\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.", kError},
    // Rule[%s] ClassID类"%s"语料未训练.
    {"Rule[%s] ClassID\xC0\xE0\"%s\"\xD3\xEF\xC1\xCF\xCE\xB4\xD1\xB5\xC1\xB7.", kError},
    // Rule[%s]SubRuleNum值未书写.
    {"Rule[%s]SubRuleNum\xD6\xB5\xCE\xB4\xCA\xE9\xD0\xB4.", kError},
    // Rule[%s]SubRuleNum值对TopRule的NOT值不支持.
    {"Rule[%s]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4NOT\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.",
     kError},
    // Rule[%s]SubRuleNum值对TopRule的YES值不支持.
    {"Rule[%s]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4YES\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.",
     kError},
    // Rule[%s]SubRuleNum值对TopRule的NEAR值不支持.
    {"Rule[%s]SubRuleNum\xD6\xB5\xB6\xD4TopRule\xB5\xC4NEAR\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.",
     kError},
    // %s未书写完整.
    {"%s\xCE\xB4\xCA\xE9\xD0\xB4\xCD\xEA\xD5\xFB.", kError},
    // %s的逻辑符号书写错误.
    {"%s\xB5\xC4\xC2\xDF\xBC\xAD\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.", kError},
    // %s的域符号书写错误.
    {"%s\xB5\xC4\xD3\xF2\xB7\xFB\xBA\xC5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3.", kError},
    // %s的词频书写错误或不能为0.
    {"%s\xB5\xC4\xB4\xCA\xC6\xB5\xCA\xE9\xD0\xB4\xB4\xED\xCE\xF3\xBB\xF2\xB2\xBB\xC4\xDC\xCE\xAA"
     "0.",
     kError},
    // %s的词个数为0.
    {"%s\xB5\xC4\xB4\xCA\xB8\xF6\xCA\xFD\xCE\xAA"
     "0.",
     kError},
    // 类名为%s的规则,其非NOT子规则个数对TopRule的NEAR值不支持.
    {"\xC0\xE0\xC3\xFB\xCE\xAA%s\xB5\xC4\xB9\xE6\xD4\xF2,"
     "\xC6\xE4\xB7\xC7NOT\xD7\xD3\xB9\xE6\xD4\xF2"
     "\xB8\xF6\xCA\xFD\xB6\xD4TopRule\xB5\xC4NEAR\xD6\xB5\xB2\xBB\xD6\xA7\xB3\xD6.",
     kError},
    // 加载%s成功.\n
    {"\xBC\xD3\xD4\xD8%s\xB3\xC9\xB9\xA6.\n", kLog},
};

// Writes message eId with its arguments to its channel. Returns false, so
// that a failing check reads "return Report(...)".
bool Report(LoadMessage eId, const std::string& sArg1 = "", const std::string& sArg2 = "") {
    const std::string* pArgs[2] = {&sArg1, &sArg2};
    std::string sText;
    int nArg = 0;
    for (const char* p = kMessages[eId].sText; *p; ++p) {
        if (p[0] == '%' && p[1] == 's') {
            sText += *pArgs[nArg++ & 1];
            ++p;
        } else {
            sText += *p;
        }
    }
    if (kMessages[eId].eChannel == kError)
        ReportError(sText);
    else
        WriteLog(sText, nullptr, false);
    return false;
}

// ---- Checks -----------------------------------------------------------------

// The loader's start value of perfectvsmsim and subrulenum: "not given".
constexpr float kPerfectSimUnset = 33333.0f;
constexpr int kSubRuleNumUnset = 33333;

// Whether any class has a trained similarity model. None has (see
// kNoModelSimilarity), so every rule whose effect value is below 1.0, whose
// score would rest on that similarity, is refused with kUntrained.
constexpr bool kAnyClassTrained = false;

bool BeginsWithNear(const std::string& s) {
    return s.compare(0, 4, "NEAR") == 0;
}

template <size_t N>
bool IsOneOf(const std::string& s, const char* const (&table)[N]) {
    for (const char* e : table)
        if (s == e) return true;
    return false;
}

}  // namespace

// ======================================================================
// Construction
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

// ======================================================================
// Load
// ======================================================================

bool CTextParser::fn_bInit(const char* /*sDataDir*/, const char* conf, FILE* pProgress) {
    NewDictionary();
    if (!fn_bLoadRulelist(conf, pProgress)) return false;
    FillDictionary();
    return true;
}

bool CTextParser::LoadText(const std::string& sGbk, const std::string& sName, FILE* pProgress) {
    NewDictionary();
    if (sGbk.empty()) return Report(kNoCertainty);  // as for an empty file
    CXMLParamReader cReader(sGbk.data(), static_cast<int>(sGbk.size()));
    if (!LoadFrom(cReader, sName, pProgress)) return false;
    FillDictionary();
    return true;
}

void CTextParser::NewDictionary() {
    delete m_pDat;  // nothing else refers to the old dictionary
    m_pDat = new CPDAT(1);
    m_pDat->AddWordInit();
    m_viHandleKey.clear();
    m_pHintDat = nullptr;
}

void CTextParser::FillDictionary() {
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
    m_pDat->AddWord(kSeparatorWord, false);
    m_pDat->AddWordComplete();
    m_pHintDat = m_pDat;
}

bool CTextParser::fn_bLoadRulelist(const char* conf, FILE* pProgress) {
    if (conf == nullptr || *conf == '\0') return Report(kConfBad);
    FILE* fp = std::fopen(conf, "rb");
    if (fp == nullptr) return Report(kCannotOpen, conf);
    std::fclose(fp);
    CXMLParamReader cReader(conf);
    return LoadFrom(cReader, conf, pProgress);
}

bool CTextParser::LoadFrom(CXMLParamReader& cReader, const std::string& sName, FILE* pProgress) {
    ++m_nTablesGeneration;  // whatever happens below, recompile before the next document
    if (!cReader.getParamFloat("certainty", m_fCertainty)) return Report(kNoCertainty);
    int nRules = 0;
    if (!cReader.getParamInt("rules.rulenum", nRules)) return Report(kNoRuleNum);
    if (nRules == 0) return true;
    for (int i = 0; i < nRules; ++i)  // a huge rulenum stops at the first missing rule
        if (!LoadRule(cReader, i, pProgress)) return false;
    RebuildResultTables();
    Report(kLoaded, sName);
    return true;
}

// Reads rule i (its keys are "rule id="i".<name>") and appends it; its
// sub-rules are appended as they are read, so a failure leaves them in place.
bool CTextParser::LoadRule(CXMLParamReader& cReader, int i, FILE* pProgress) {
    Progress(pProgress, "%d\n", i);
    const std::string sPrefix = "rule id=\"" + std::to_string(i) + "\".";
    _stRule stRule;
    std::string K = sPrefix + "classid";
    cReader.getParamString(K.c_str(), stRule.sClass);
    if (stRule.sClass.empty()) return Report(kNoClass, K);
    stRule.sRelation = "AND";  // overwritten even by an absent tag (with "")
    K = sPrefix + "toprule";
    cReader.getParamString(K.c_str(), stRule.sRelation);
    if (!IsOneOf(stRule.sRelation, OperatorStr) && stRule.sRelation != "YES" &&
        !BeginsWithNear(stRule.sRelation))
        return Report(kBadTopRule, K);
    K = sPrefix + "effectvalue";
    if (!cReader.getParamFloat(K.c_str(), stRule.fEffecValue)) return Report(kNoEffect, K);
    K = sPrefix + "perfectvsmsim";
    stRule.fPerfectVSMSim = kPerfectSimUnset;
    cReader.getParamFloat(K.c_str(), stRule.fPerfectVSMSim);
    if (stRule.fPerfectVSMSim == kPerfectSimUnset && stRule.fEffecValue < 1.0f)
        return Report(kNoPerfect, K);
    K = sPrefix + "imperfectvsmsim";
    if (!cReader.getParamFloat(K.c_str(), stRule.fImPerfectVSMSim)) return Report(kNoImperfect, K);
    if (stRule.fEffecValue < 1.0f && !kAnyClassTrained) return Report(kUntrained, K, stRule.sClass);
    K = sPrefix + "subrules.subrulenum";
    int nSubRules = kSubRuleNumUnset;
    cReader.getParamInt(K.c_str(), nSubRules);
    if (nSubRules == kSubRuleNumUnset) return Report(kNoSubRuleNum, K);
    const bool bNear = BeginsWithNear(stRule.sRelation);
    if (stRule.sRelation == "NOT" && nSubRules != 1 && nSubRules != 2) return Report(kSubNumNot, K);
    if (stRule.sRelation == "YES" && nSubRules != 1) return Report(kSubNumYes, K);
    if (bNear && nSubRules < 2) return Report(kSubNumNear, K);
    int nNonNot = 0;
    if (!LoadSubRules(cReader, sPrefix, nSubRules, stRule, nNonNot)) return false;
    if (bNear && nNonNot <= 1) return Report(kNearNonNot, stRule.sClass);
    m_vstRules.push_back(std::move(stRule));
    return true;
}

// Reads sub-rules 1..nSubRules of the rule with key prefix sPrefix, appending
// each to m_vstSubRules (and its keywords to m_mslKeywords) as it is read.
// nNonNot counts the sub-rules that are not NOT.
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
        if (vsPiece.size() != 3) return Report(kOpIncomplete, O);
        _stSubRule stSub;
        stSub.sRelation = vsPiece[0];
        if (!IsOneOf(stSub.sRelation, OperatorStr)) return Report(kOpBadRelation, O);
        // Every sub-rule that is not NOT counts towards the NEAR check,
        // metadata ones included: a NEAR rule over an AUTHOR and a BOARD
        // sub-rule loads (and, having no counted keywords, never fires).
        if (stSub.sRelation != "NOT") ++nNonNot;
        stSub.sField = vsPiece[1];
        if (!IsOneOf(stSub.sField, FieldStr)) return Report(kOpBadField, O);
        stSub.iMinCount = AtoiLike(vsPiece[2].c_str());
        if (stSub.iMinCount == 0) return Report(kOpBadCount, O);
        gfn_bSplit(sValue.c_str(), stSub.vsKeyword, " ");
        if (stSub.vsKeyword.empty()) return Report(kNoKeywords, V);
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
// Clear
// ======================================================================

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
    m_pScratch.reset();
    m_viHandleKey.clear();
    m_pHintDat = nullptr;
    ++m_nTablesGeneration;
}
