// TestUtil.h - small helpers shared by the test binaries.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Global.h"
#include "PDAT.h"

namespace qxtest {

inline std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A fresh directory under $TMPDIR (or /tmp), removed with its contents on
// destruction. Tests write here, never into the source tree.
class TempDir {
  public:
    TempDir() {
        std::string tmpl = std::filesystem::temp_directory_path() / "qxtest.XXXXXX";
        m_path = mkdtemp(tmpl.data()) ? tmpl : "";
    }
    ~TempDir() {
        std::error_code ec;
        if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    // Writes bytes to file(name) and returns that path.
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
        return file(name);
    }

  private:
    std::string m_path;
};

// Runs fn with standard output captured; returns what it printed.
template <typename Fn>
std::string CaptureStdout(Fn fn) {
    testing::internal::CaptureStdout();
    fn();
    return testing::internal::GetCapturedStdout();
}

// Bytes from hex digits; blanks are skipped ("0200 FF" -> 02 00 FF).
inline std::string FromHex(const std::string& sHex) {
    std::string sOut;
    for (size_t i = 0; i + 1 < sHex.size(); ++i)
        if (sHex[i] != ' ') sOut += static_cast<char>(std::stoi(sHex.substr(i++, 2), nullptr, 16));
    return sOut;
}

// A completed dictionary of the given words (handles in insertion order).
inline std::unique_ptr<CPDAT> MakeDict(const std::vector<std::string>& vecWords) {
    auto pDict = std::make_unique<CPDAT>(0);
    for (const std::string& w : vecWords) pDict->AddWord(w.c_str(), false);
    pDict->AddWordComplete();
    return pDict;
}

// The clock of ScopedLog; tests may move it.
inline time_t g_tNow = 0;
inline constexpr char kUntouched[] = "untouched";

// The library's log state for one scope: logging set to bLog, log files in a
// fresh directory, stamped at g_tNow (2026-11-22 09:34:56 UTC); the last-error
// text starts as kUntouched so a test can tell whether anything reported.
// Clock, log path and switch are restored on destruction.
class ScopedLog {
  public:
    explicit ScopedLog(unsigned char bLog = 1) : m_sOldPath(g_sLogPath), m_nOldLog(g_bLog) {
        setenv("TZ", "UTC", 1);
        tzset();
        g_tNow = 1795340096;
        m_pfnOldClock = SetLogClock([] { return g_tNow; });
        g_sLogPath = m_dir.path();
        g_bLog = bLog;
        g_sLastErrorMessage = kUntouched;
    }
    ~ScopedLog() {
        SetLogClock(m_pfnOldClock);
        g_sLogPath = m_sOldPath;
        g_bLog = m_nOldLog;
    }
    // The ".log" or ".err" file of that day.
    std::string DayFile(const char* sExt) const {
        return ReadBytes(m_dir.file(std::string("20261122") + sExt));
    }

  private:
    TempDir m_dir;
    std::string m_sOldPath;
    unsigned char m_nOldLog;
    LogClock m_pfnOldClock = nullptr;
};

// Changes the working directory for one scope.
class ScopedCwd {
  public:
    explicit ScopedCwd(const std::string& sDir) : m_old(std::filesystem::current_path()) {
        std::filesystem::current_path(sDir);
    }
    ~ScopedCwd() {
        std::error_code ec;
        std::filesystem::current_path(m_old, ec);
    }

  private:
    std::filesystem::path m_old;
};

// The loaders' classic progress lines on or off for one scope (tests keep
// them off; one test checks the printed bytes).
class ScopedProgress {
  public:
    explicit ScopedProgress(bool bOn) : m_bOld(SetClassicProgress(bOn)) {}
    ~ScopedProgress() { SetClassicProgress(m_bOld); }
    ScopedProgress(const ScopedProgress&) = delete;
    ScopedProgress& operator=(const ScopedProgress&) = delete;

  private:
    bool m_bOld;
};

// Fixture: a ScopedLog and a data directory for files the test writes.
class SandboxTest : public ::testing::Test {
  protected:
    ScopedLog m_log;
    TempDir m_dir;
};

}  // namespace qxtest
