// QXClassifier.cpp - the library's process-wide state and its exported calls.
//
// One engine per process: the globals below are shared by every exported call,
// which the caller serialises. classifier_init records the data directory,
// loads the rule list into gcTParser (appending to what is loaded) and creates
// the buffer manager that owns every returned text; classifier_exit empties
// the engine and destroys the manager. For encoding codes 1 to 5,
// classifier_init also creates the translator: a classification then
// translates the caller's document into GBK (the caller's record is changed),
// runs the engine and registers the result translated back; a detail request
// translates the class name in and the report out.
//
// The buffer manager doubles as the "initialised" mark: it exists exactly
// from the first successful classifier_init to classifier_exit, so the
// classification calls refuse to run without it instead of touching an engine
// that has no dictionary.
//
// Every exported body runs inside Guarded(), which turns any exception
// (std::bad_alloc included) into the call's failure value: false, null or
// nothing.
#include "QXClassifier.h"

#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "BufferManager.h"
#include "CodeTran.h"
#include "Global.h"
#include "QXClassifierState.h"
#include "STLCodeTrans.h"
#include "global_linux.h"

CTextParser gcTParser;
CCodeTran* g_pCodeTranslator = nullptr;
int g_nEncodeType = 0;

namespace {

const char kNotInitialised[] = "Classifier not initialised";

// The copy handed out by classifier_GetLastErrorMsg while no buffer manager
// exists; replaced by the next such call, freed at unload.
std::unique_ptr<char[]> g_pUnmanagedError;

// Records an exception that reached an exported call; must not throw itself.
void NoteException(const char* sCall, const char* sWhat) noexcept {
    try {
        ReportError(std::string(sCall) + ": " + sWhat);
    } catch (...) {
    }
}

// Runs the body of an exported call; any exception becomes the value-
// initialised result of fn's type (false, null, or nothing for void).
template <typename Fn>
auto Guarded(const char* sCall, Fn fn) noexcept -> decltype(fn()) {
    try {
        return fn();
    } catch (const std::exception& e) {
        NoteException(sCall, e.what());
    } catch (...) {
        NoteException(sCall, "unknown exception");
    }
    return decltype(fn())();
}

// A new zero-terminated copy of the last error, in UTF-8 when the library was
// started with code 1, else the bytes unchanged. Registered with the buffer
// manager when one exists (which then owns it); otherwise the caller owns it.
char* LastErrorCopy() {
    std::string sText = g_sLastErrorMessage;
    if (g_nEncodeType == 1) ANSIToUTF8(g_sLastErrorMessage.c_str(), sText);
    char* pCopy = new char[sText.size() + 1];
    std::memcpy(pCopy, sText.c_str(), sText.size() + 1);
    if (g_pBufManager != nullptr) g_pBufManager->AddBuffer(pCopy);
    return pCopy;
}

std::string OrEmpty(const char* sText) {
    return sText != nullptr ? std::string(sText) : std::string();
}

// ---- Encoding round trip ----------------------------------------------------

// Translators dropped by a later classifier_init: no longer used, never
// destroyed by a call, kept reachable here until the library is unloaded.
std::vector<std::unique_ptr<CCodeTran>> g_vDroppedTranslators;

void DropTranslator() {
    if (g_pCodeTranslator != nullptr) g_vDroppedTranslators.emplace_back(g_pCodeTranslator);
    g_pCodeTranslator = nullptr;
}

// Creates the translator for encode 1..5 from "<data directory>/Data". One
// that does not load is destroyed again; its own message stands.
bool MakeTranslator(int encode) {
    auto pTran = std::make_unique<CCodeTran>((g_sDefaultDir + "/" + "Data").c_str(), encode);
    if (pTran->GetStatus() != 1) return false;
    g_pCodeTranslator = pTran.release();
    return true;
}

// The caller's text into GBK in place; identity without a translator.
void ToGBK(std::string& sText) {
    if (g_pCodeTranslator == nullptr) return;
    std::string sOut;
    g_pCodeTranslator->CodeToGBK(sText.c_str(), sOut);
    sText.swap(sOut);
}

// The engine's GBK text into the caller's encoding; identity without one.
std::string FromGBK(const std::string& sText) {
    if (g_pCodeTranslator == nullptr) return sText;
    std::string sOut;
    g_pCodeTranslator->GBKToCode(sText.c_str(), sOut);
    return sOut;
}

// The five fields, in the order the translator is applied to them.
void DocToGBK(stDoc& d) {
    if (g_pCodeTranslator == nullptr) return;
    ToGBK(d.sAuthor);
    ToGBK(d.sBoard);
    ToGBK(d.sContent);
    ToGBK(d.sDatatype);
    ToGBK(d.sTitle);
}

void DestroyTranslator() {
    delete g_pCodeTranslator;
    g_pCodeTranslator = nullptr;
}

// ---- Calls ------------------------------------------------------------------

bool Init(const char* conf, const char* sInitDirPath, int encode) {
    DropTranslator();  // an earlier translator is dropped, not destroyed
    g_nEncodeType = encode;
    GetDefaultPath(sInitDirPath);
    if (encode >= 1 && encode <= 5 && !MakeTranslator(encode)) return false;

    std::string sConf;
    GetAnsiFilename(conf, sConf);
    if (!gcTParser.fn_bInit(g_sDefaultDir.c_str(), sConf.c_str())) {
        ReportError("Cannot open  file " + sConf);
        return false;
    }
    if (g_pBufManager == nullptr) g_pBufManager = new CBufferManager();
    return true;
}

const char* Exec1(stDoc& d, int iType) {
    if (g_pBufManager == nullptr) {
        ReportError(kNotInitialised);
        return nullptr;
    }
    DocToGBK(d);
    gcTParser.fn_bClassify(d, iType);
    return g_pBufManager->AddBuffer(FromGBK(gcTParser.m_sClassifyResult).c_str());
}

const char* ExecFile(const char* sFilenameO, int iType) {
    std::string sPath;
    GetAnsiFilename(sFilenameO, sPath);
    std::string sText;
    if (ReadFile(sPath.c_str(), sText, 0, 0, true) == 0) {
        ReportError("Failed read file " + sPath);
        return nullptr;
    }
    stDoc d;
    d.sTitle = OrEmpty(sFilenameO);
    d.sContent = sText;
    return Exec1(d, iType);
}

const char* Detail(const char* classnameO) {
    if (g_pBufManager == nullptr) {
        ReportError(kNotInitialised);
        return nullptr;
    }
    std::string sClass = OrEmpty(classnameO);
    ToGBK(sClass);
    gcTParser.fn_vGetDetail(sClass);
    return g_pBufManager->AddBuffer(FromGBK(gcTParser.m_sDetail).c_str());
}

}  // namespace

bool classifier_init(const char* conf, const char* sInitDirPath, int encode,
                     const char* /*sReserved*/) {
    return Guarded("classifier_init", [&] { return Init(conf, sInitDirPath, encode); });
}

void classifier_exit() {
    Guarded("classifier_exit", [] {
        DestroyTranslator();
        gcTParser.fn_vClear();
        delete g_pBufManager;
        g_pBufManager = nullptr;
    });
}

void classifier_setsimthresh(float fSim) {
    Guarded("classifier_setsimthresh", [fSim] {
        if (!(fSim <= 0)) {  // written so that NaN passes and is stored
            for (auto& stRule : gcTParser.m_vstRules) stRule.fPerfectVSMSim = fSim;
        }
    });
}

int classifier_setprogress(int nOn) {
    return SetClassicProgress(nOn != 0) ? 1 : 0;
}

const char* classifier_GetLastErrorMsg() {
    return Guarded("classifier_GetLastErrorMsg", []() -> const char* {
        const bool bManaged = g_pBufManager != nullptr;
        char* pText = LastErrorCopy();
        if (!bManaged) g_pUnmanagedError.reset(pText);
        return pText;
    });
}

const char* classifier_exec1(stDoc& d, int iType) {
    return Guarded("classifier_exec1", [&] { return Exec1(d, iType); });
}

const char* classifier_exec(const char* sTitle, const char* sContent, int iType) {
    return Guarded("classifier_exec", [&] {
        stDoc d;
        d.sTitle = OrEmpty(sTitle);
        d.sContent = OrEmpty(sContent);
        return Exec1(d, iType);
    });
}

const char* classifier_execFile(const char* sFilenameO, int iType) {
    return Guarded("classifier_execFile", [&] { return ExecFile(sFilenameO, iType); });
}

const char* classifier_detail(const char* classnameO) {
    return Guarded("classifier_detail", [&] { return Detail(classnameO); });
}
