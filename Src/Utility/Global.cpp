// Global.cpp - last-error text and dated log/error files.
//
// A write reads the clock once, names the file "<dir>/<YYYYMMDD>.<log|err>"
// from the local date of that moment, opens it in append mode, writes one
// "[stamp]\t<message>\n" line with a single formatted write and closes it, so
// no handle outlives a call and each day gets its own files. The directory for
// writes without an explicit one is the working directory at the first such
// write, kept in g_sLogPath from then on.
#include "Global.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstring>

std::string g_sLastErrorMessage;
unsigned char g_bLog = 1;
std::string g_sLogPath;

namespace {

time_t SystemClock() {
    return time(nullptr);
}

LogClock g_pfnLogClock = &SystemClock;

std::string FormatTime(time_t tNow, const char* sFormat) {
    struct tm tmLocal;
    localtime_r(&tNow, &tmLocal);
    char sBuf[100] = {0};
    strftime(sBuf, sizeof(sBuf), sFormat, &tmLocal);
    return sBuf;
}

// The working directory, or "" when it cannot be read (the next write retries).
std::string CurrentDirectory() {
    char sBuf[1000] = {0};
    if (getcwd(sBuf, sizeof(sBuf) - 1) == nullptr) return "";
    return sBuf;
}

// The directory part of a log file name. An explicit directory is always
// followed by "/": one that already ends in "/" gets a second one. Log
// readers and rotation scripts match the file names byte for byte, so the
// name is built the same way whatever the directory looks like.
std::string LogDirectory(const char* sFilePath) {
    if (sFilePath != nullptr) return std::string(sFilePath) + "/";
    if (g_sLogPath.empty()) g_sLogPath = CurrentDirectory();
    return g_sLogPath + "/";
}

}  // namespace

namespace {
thread_local CErrorCapture* t_pCapture = nullptr;
}  // namespace

CErrorCapture::CErrorCapture() : m_pOuter(t_pCapture) {
    t_pCapture = this;
}

CErrorCapture::~CErrorCapture() {
    t_pCapture = m_pOuter;
}

CErrorCapture* CErrorCapture::Current() {
    return t_pCapture;
}

void WriteLog(std::string content, const char* sFilePath, bool bError) {
    if (t_pCapture != nullptr) return t_pCapture->Add(bError, content);
    if (g_bLog != 1) return;
    const time_t tNow = g_pfnLogClock();
    std::string sName = LogDirectory(sFilePath) + FormatTime(tNow, "%Y%m%d");
    sName += bError ? ".err" : ".log";
    const std::string sStamp = FormatTime(tNow, "%Y-%m-%d %H:%M:%S");

    FILE* fp = fopen(sName.c_str(), "ab");
    if (fp == nullptr) {
        printf("[%s] %s\n", sStamp.c_str(), content.c_str());
        printf("Cannot write log file %s!\r\n", sName.c_str());
        return;
    }
    fprintf(fp, "[%s]\t%s\n", sStamp.c_str(), content.c_str());
    fclose(fp);
}

void WriteLog(FILE* fp, std::string content) {
    const std::string sStamp = FormatTime(g_pfnLogClock(), "%Y-%m-%d %H:%M:%S");
    if (fp == nullptr) {
        printf("[%s] %s\n", sStamp.c_str(), content.c_str());
        puts("Cannot write log file!\r");
        return;
    }
    fprintf(fp, "[%s] %s\n", sStamp.c_str(), content.c_str());
}

void WriteError(std::string content, const char* sFilePath) {
    WriteLog(std::move(content), sFilePath, true);
}

void ReportError(const std::string& sMessage) {
    if (t_pCapture != nullptr) return t_pCapture->Add(true, sMessage);
    g_sLastErrorMessage = sMessage;
    WriteError(g_sLastErrorMessage, nullptr);
}

void ReportInfo(const std::string& sMessage) {
    if (t_pCapture != nullptr) return t_pCapture->Add(false, sMessage);
    g_sLastErrorMessage = sMessage;
    WriteLog(g_sLastErrorMessage, nullptr, false);
}

namespace {
std::atomic<bool> g_bClassicProgress{true};
}  // namespace

FILE* ClassicProgress() {
    return g_bClassicProgress.load(std::memory_order_relaxed) ? stdout : nullptr;
}

bool SetClassicProgress(bool bOn) {
    return g_bClassicProgress.exchange(bOn);
}

void Progress(FILE* out, const char* sFormat, ...) {
    if (out == nullptr) return;
    va_list args;
    va_start(args, sFormat);
    std::vfprintf(out, sFormat, args);
    va_end(args);
}

std::string NameOf(const char* sPath) {
    return sPath != nullptr ? sPath : "(null)";
}

LogClock SetLogClock(LogClock pfnClock) {
    LogClock pfnOld = g_pfnLogClock;
    g_pfnLogClock = pfnClock != nullptr ? pfnClock : &SystemClock;
    return pfnOld;
}
