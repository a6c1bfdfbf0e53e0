// Last-error text and the dated log and error files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "BufferManager.h"
#include "Global.h"
#include "TestUtil.h"

namespace {

time_t g_tNow = 0;
time_t FixedClock() {
    return g_tNow;
}

// Runs every test at a fixed UTC time with logging on and the log directory
// unset, and restores the working directory and the globals afterwards.
class LogTest : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        g_tNow = 1795340096;  // 2026-11-22 09:34:56 UTC
        m_pfnOldClock = SetLogClock(&FixedClock);
        m_sOldCwd = std::filesystem::current_path().string();
        g_bLog = 1;
        g_sLogPath.clear();
        g_nEncodeType = 0;
    }
    void TearDown() override {
        SetLogClock(m_pfnOldClock);
        std::filesystem::current_path(m_sOldCwd);
        g_bLog = 1;
        g_sLogPath.clear();
        g_nEncodeType = 0;
        g_sLastErrorMessage.clear();
    }

    qxtest::TempDir m_dir;
    LogClock m_pfnOldClock = nullptr;
    std::string m_sOldCwd;
};

TEST_F(LogTest, LinesGoToTheDayFileInCallOrder) {
    const std::string sDir = m_dir.path();
    WriteError("first", sDir.c_str());
    g_tNow += 60;
    WriteError("second\nspans two lines", sDir.c_str());
    WriteLog("informational", sDir.c_str(), false);

    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261122.err"),
              "[2026-11-22 09:34:56]\tfirst\n"
              "[2026-11-22 09:35:56]\tsecond\nspans two lines\n");
    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261122.log"), "[2026-11-22 09:35:56]\tinformational\n");
}

TEST_F(LogTest, MidnightStartsTheNextDaysFile) {
    const std::string sDir = m_dir.path();
    g_tNow = 1795391999;  // 2026-11-22 23:59:59
    WriteError("late", sDir.c_str());
    g_tNow += 2;
    WriteError("early", sDir.c_str());
    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261122.err"), "[2026-11-22 23:59:59]\tlate\n");
    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261123.err"), "[2026-11-23 00:00:01]\tearly\n");
}

TEST_F(LogTest, OnlyTheExactValueOneEnablesLogging) {
    const std::string sDir = m_dir.path();
    for (unsigned char nValue : {0, 2, 255}) {
        g_bLog = nValue;
        const std::string sOut = qxtest::CaptureStdout([&] {
            WriteError("muted", sDir.c_str());
            WriteLog("muted", sDir.c_str(), false);
            WriteError("muted", (sDir + "/missing").c_str());
        });
        EXPECT_EQ(sOut, "") << int(nValue);
        EXPECT_TRUE(std::filesystem::is_empty(sDir)) << int(nValue);
    }
}

TEST_F(LogTest, UnwritableDirectoryPrintsTheLineInstead) {
    // A directory that already ends in "/" still gets one appended.
    const std::string sMissing = m_dir.path() + "/missing/";
    const std::string sOut =
        qxtest::CaptureStdout([&] { WriteError("lost line", sMissing.c_str()); });
    EXPECT_EQ(sOut, "[2026-11-22 09:34:56] lost line\nCannot write log file " + sMissing +
                        "/20261122.err!\r\n");
    EXPECT_TRUE(g_sLogPath.empty());
}

TEST_F(LogTest, FirstWriteFixesTheDefaultDirectory) {
    qxtest::TempDir other;
    std::filesystem::current_path(m_dir.path());
    ReportError("one");
    std::filesystem::current_path(other.path());
    ReportError("two");
    ReportInfo("three");

    EXPECT_EQ(g_sLogPath, std::filesystem::canonical(m_dir.path()).string());
    EXPECT_EQ(qxtest::ReadBytes(m_dir.file("20261122.err")),
              "[2026-11-22 09:34:56]\tone\n[2026-11-22 09:34:56]\ttwo\n");
    EXPECT_EQ(qxtest::ReadBytes(m_dir.file("20261122.log")), "[2026-11-22 09:34:56]\tthree\n");
    EXPECT_TRUE(std::filesystem::is_empty(other.path()));
    EXPECT_EQ(g_sLastErrorMessage, "three");
}

TEST_F(LogTest, StreamOverloadIgnoresTheSwitch) {
    g_bLog = 0;
    const std::string sPath = m_dir.file("stream.txt");
    FILE* fp = fopen(sPath.c_str(), "wb");
    ASSERT_NE(fp, nullptr);
    WriteLog(fp, "to a stream");
    fclose(fp);
    EXPECT_EQ(qxtest::ReadBytes(sPath), "[2026-11-22 09:34:56] to a stream\n");

    const std::string sOut = qxtest::CaptureStdout([] { WriteLog(nullptr, "nowhere"); });
    EXPECT_EQ(sOut, "[2026-11-22 09:34:56] nowhere\nCannot write log file!\r\n");
}

TEST_F(LogTest, LastErrorIsHandedOutInTheCallersEncoding) {
    std::filesystem::current_path(m_dir.path());
    g_bLog = 0;
    // "\xB4\xED\xCE\xF3" is GBK for 错误 ("error").
    ReportError("rule \xB4\xED\xCE\xF3");
    struct Row {
        int nEncode;
        std::string sExpected;
    };
    const Row rows[] = {
        {0, "rule \xB4\xED\xCE\xF3"},
        {1, "rule \xE9\x94\x99\xE8\xAF\xAF"},  // UTF-8 only for code 1
        {4, "rule \xB4\xED\xCE\xF3"},
        {5, "rule \xB4\xED\xCE\xF3"},
    };
    for (const Row& row : rows) {
        g_nEncodeType = row.nEncode;
        std::unique_ptr<char[]> pText(GetLastErrorMsg());  // no manager: ours to free
        EXPECT_EQ(std::string(pText.get()), row.sExpected) << row.nEncode;
    }

    g_sLastErrorMessage.clear();
    std::unique_ptr<char[]> pEmpty(GetLastErrorMsg());
    EXPECT_EQ(pEmpty[0], '\0');
}

TEST_F(LogTest, LastErrorCopyIsOwnedByTheManagerWhenThereIsOne) {
    g_sLastErrorMessage = "kept";
    CBufferManager manager;
    g_pBufManager = &manager;
    char* pText = GetLastErrorMsg();
    g_pBufManager = nullptr;
    EXPECT_STREQ(pText, "kept");
    EXPECT_EQ(manager.GetBufferCount(), 1u);  // freed with the manager
}

}  // namespace
