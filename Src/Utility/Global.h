// Global.h - the library's error text and its dated log and error files.
//
// Every component reports a failure the same way: the complete message goes
// into g_sLastErrorMessage and a copy is appended to the day's error file
// (ReportError does both). Informational lines go to the day's log file.
// Nothing here fails its caller: a log that cannot be written is reported on
// standard output and otherwise ignored.
//
// Files: "<dir>/<YYYYMMDD>.err" and "<dir>/<YYYYMMDD>.log", opened in "ab"
// mode for one line and closed at once. A line is "[%Y-%m-%d %H:%M:%S]\t<msg>\n";
// the message bytes are written unchanged (GBK inside the library).
//
// Thread-safety: none. The last-error text, the log path and the files are
// unguarded; callers of the library serialise all calls.
#pragma once

#include <cstdio>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "QXExport.h"

// Text of the most recent error; overwritten by each reporter, never cleared.
extern std::string g_sLastErrorMessage;

// Logging switch, exported under its plain name. Only the exact value 1
// enables WriteLog/WriteError; a host may store 0 (or any other value) in it.
extern "C" QX_EXPORT unsigned char g_bLog;

// Directory of the log files; empty until the first write without an explicit
// directory, then the working directory of that moment for the process's life.
extern std::string g_sLogPath;

// Appends one line to the day's ".err" (bError) or ".log" file in directory
// sFilePath, or in g_sLogPath when sFilePath is null. A directory is always
// followed by "/", so one that already ends in "/" yields "//". Does nothing
// unless g_bLog is exactly 1. An unopenable file prints the line and
// "Cannot write log file <name>!\r\n" to standard output instead.
void WriteLog(std::string content, const char* sFilePath, bool bError);

// Writes "[stamp] content\n" to an open stream and leaves it open; ignores
// g_bLog. A null stream prints the line and "Cannot write log file!\r" (via
// puts) to standard output.
void WriteLog(FILE* fp, std::string content);

// Exactly WriteLog(content, sFilePath, true).
void WriteError(std::string content, const char* sFilePath);

// The error funnel: g_sLastErrorMessage = sMessage, then WriteError of a copy
// into the log directory. Call sites return their own failure value after it.
void ReportError(const std::string& sMessage);

// The informational counterpart: g_sLastErrorMessage = sMessage, then the line
// goes to the day's ".log" file.
void ReportInfo(const std::string& sMessage);

// Test seam: the clock that stamps log lines and names the day files.
// Returns the previous clock; pass nullptr to restore time(nullptr).
using LogClock = time_t (*)();
LogClock SetLogClock(LogClock pfnClock);

// ---- Progress lines of the loaders ------------------------------------------
//
// Loaders (rule lists, dictionary, word-list and id-map imports) print short
// progress lines: rule numbers, import counters. A loader takes the stream to
// print them to as a parameter; null means silent. The classic calls pass
// ClassicProgress(), which is standard output until SetClassicProgress(false)
// turns it off (tools and tests that want quiet loads); the lines themselves
// are byte-identical whichever stream receives them. The switch is an atomic
// flag, so flipping it races with nothing, but a load that has started keeps
// the stream it was given.

// Standard output while the switch is on (the default), else null.
FILE* ClassicProgress();
// Turns the classic progress lines on or off; returns the previous setting.
bool SetClassicProgress(bool bOn);
// vfprintf into out (no flush, as printf); does nothing when out is null.
void Progress(FILE* out, const char* sFormat, ...) __attribute__((format(printf, 2, 3)));

// ---- Capturing messages on one thread ----------------------------------------
//
// While a CErrorCapture lives on a thread, ReportError, ReportInfo and
// WriteLog (the file form) on that thread append their messages to it
// instead of writing g_sLastErrorMessage and the day's files. The reentrant
// interface loads rule lists this way, so that it touches none of the
// classic process-wide state. Captures nest; the innermost one collects.
class CErrorCapture {
  public:
    CErrorCapture();
    ~CErrorCapture();
    CErrorCapture(const CErrorCapture&) = delete;
    CErrorCapture& operator=(const CErrorCapture&) = delete;

    // (bError, message) in the order they were reported.
    const std::vector<std::pair<bool, std::string>>& Messages() const { return m_vMessages; }
    // Called by the reporters: the innermost capture of this thread, or null.
    static CErrorCapture* Current();
    void Add(bool bError, const std::string& sMessage) {
        m_vMessages.emplace_back(bError, sMessage);
    }

  private:
    CErrorCapture* m_pOuter;
    std::vector<std::pair<bool, std::string>> m_vMessages;
};

// A path for messages: the text itself, "(null)" for a null pointer.
std::string NameOf(const char* sPath);
