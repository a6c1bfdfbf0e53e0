// Last-error text and the dated log and error files.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "BufferManager.h"
#include "Global.h"
#include "TestUtil.h"

namespace {

using qxtest::g_tNow;
using LogTest = qxtest::SandboxTest;  // UTC, clock at 2026-11-22 09:34:56

TEST_F(LogTest, LinesGoToTheFileOfTheirDayInCallOrder) {
    const std::string sDir = m_dir.path();
    WriteError("first", sDir.c_str());
    g_tNow += 60;
    WriteError("second\nspans two lines", sDir.c_str());
    WriteLog("informational", sDir.c_str(), false);
    g_tNow = 1795391999;  // 2026-11-22 23:59:59
    WriteError("late", sDir.c_str());
    g_tNow += 1;  // midnight exactly
    WriteError("early", sDir.c_str());

    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261122.err"),
              "[2026-11-22 09:34:56]\tfirst\n"
              "[2026-11-22 09:35:56]\tsecond\nspans two lines\n"
              "[2026-11-22 23:59:59]\tlate\n");
    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261122.log"), "[2026-11-22 09:35:56]\tinformational\n");
    EXPECT_EQ(qxtest::ReadBytes(sDir + "/20261123.err"), "[2026-11-23 00:00:00]\tearly\n");
}

TEST_F(LogTest, OnlyTheExactValueOneEnablesLoggingButStreamsIgnoreTheSwitch) {
    const std::string sDir = m_dir.path();
    qxtest::TempDir streamDir;
    FILE* fp = fopen(streamDir.file("stream.txt").c_str(), "wb");
    ASSERT_NE(fp, nullptr);
    for (unsigned char nValue : {0, 2, 255}) {
        g_bLog = nValue;
        const std::string sOut = qxtest::CaptureStdout([&] {
            WriteError("muted", sDir.c_str());
            WriteLog("muted", sDir.c_str(), false);
            WriteError("muted", (sDir + "/missing").c_str());
            WriteLog(fp, "to a stream");
        });
        EXPECT_EQ(sOut, "") << int(nValue);
        EXPECT_TRUE(std::filesystem::is_empty(sDir)) << int(nValue);
    }
    fclose(fp);
    EXPECT_EQ(qxtest::ReadBytes(streamDir.file("stream.txt")),
              "[2026-11-22 09:34:56] to a stream\n[2026-11-22 09:34:56] to a stream\n"
              "[2026-11-22 09:34:56] to a stream\n");
}

TEST_F(LogTest, UnwritableTargetsPrintTheLineInstead) {
    g_sLogPath.clear();
    // A directory that already ends in "/" still gets one appended.
    const std::string sMissing = m_dir.path() + "/missing/";
    const std::string sOut = qxtest::CaptureStdout([&] {
        WriteError("lost line", sMissing.c_str());
        WriteLog(nullptr, "nowhere");
    });
    EXPECT_EQ(sOut,
              "[2026-11-22 09:34:56] lost line\nCannot write log file " + sMissing +
                  "/20261122.err!\r\n[2026-11-22 09:34:56] nowhere\nCannot write log file!\r\n");
    EXPECT_TRUE(g_sLogPath.empty());
}

TEST_F(LogTest, FirstWriteFixesTheDefaultDirectory) {
    g_sLogPath.clear();
    qxtest::TempDir other;
    {
        qxtest::ScopedCwd cwd(m_dir.path());
        ReportError("one");
    }
    qxtest::ScopedCwd cwd(other.path());
    ReportError("two");
    ReportInfo("three");

    EXPECT_EQ(g_sLogPath, std::filesystem::canonical(m_dir.path()).string());
    EXPECT_EQ(qxtest::ReadBytes(m_dir.file("20261122.err")),
              "[2026-11-22 09:34:56]\tone\n[2026-11-22 09:34:56]\ttwo\n");
    EXPECT_EQ(qxtest::ReadBytes(m_dir.file("20261122.log")), "[2026-11-22 09:34:56]\tthree\n");
    EXPECT_TRUE(std::filesystem::is_empty(other.path()));
    EXPECT_EQ(g_sLastErrorMessage, "three");
}

}  // namespace
