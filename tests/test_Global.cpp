// The last-error text, the dated log and error files, and the file reader of
// global_linux.h.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "Global.h"
#include "TestUtil.h"
#include "global_linux.h"

namespace {

using qxtest::g_tNow;
using qxtest::kUntouched;
using qxtest::ReadBytes;
using GlobalTest = qxtest::SandboxTest;  // UTC, clock at 2026-11-22 09:34:56

TEST_F(GlobalTest, LogLinesGoToTheFileOfTheirDayInCallOrder) {
    const std::string sDir = m_dir.path();
    WriteError("first", sDir.c_str());
    g_tNow += 60;
    WriteError("second\nspans two lines", sDir.c_str());
    WriteLog("informational", sDir.c_str(), false);
    g_tNow = 1795391999;  // 2026-11-22 23:59:59
    WriteError("late", sDir.c_str());
    g_tNow += 1;  // midnight exactly
    WriteError("early", sDir.c_str());
    EXPECT_EQ(ReadBytes(sDir + "/20261122.err"),
              "[2026-11-22 09:34:56]\tfirst\n[2026-11-22 09:35:56]\tsecond\nspans two lines\n"
              "[2026-11-22 23:59:59]\tlate\n");
    EXPECT_EQ(ReadBytes(sDir + "/20261122.log"), "[2026-11-22 09:35:56]\tinformational\n");
    EXPECT_EQ(ReadBytes(sDir + "/20261123.err"), "[2026-11-23 00:00:00]\tearly\n");
}

// Only the value 1 enables the files; a stream is written whatever the
// switch says; an unwritable target prints the line instead.
TEST_F(GlobalTest, LogSwitchStreamsAndUnwritableTargets) {
    qxtest::TempDir other;
    const std::string sDir = m_dir.path(), sStream = other.file("stream.txt");
    FILE* fp = fopen(sStream.c_str(), "wb");
    ASSERT_NE(fp, nullptr);
    for (unsigned char nValue : {0, 2, 255}) {
        g_bLog = nValue;
        EXPECT_EQ(qxtest::CaptureStdout([&] {
                      WriteLog("muted", sDir.c_str(), false);
                      WriteError("muted", (sDir + "/missing").c_str());
                      WriteLog(fp, "to a stream");
                  }),
                  "");
    }
    fclose(fp);
    const std::string sLine = "[2026-11-22 09:34:56] to a stream\n";
    EXPECT_EQ(ReadBytes(sStream), sLine + sLine + sLine);
    EXPECT_TRUE(std::filesystem::is_empty(sDir));
    g_bLog = 1;
    const std::string sMissing = sDir + "/missing/";  // still gets a "/" appended
    EXPECT_EQ(qxtest::CaptureStdout([&] {
                  WriteError("lost line", sMissing.c_str());
                  WriteLog(nullptr, "nowhere");
              }),
              "[2026-11-22 09:34:56] lost line\nCannot write log file " + sMissing +
                  "/20261122.err!\r\n[2026-11-22 09:34:56] nowhere\nCannot write log file!\r\n");
}

TEST_F(GlobalTest, FirstLogWriteFixesTheDefaultDirectory) {
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
    EXPECT_EQ(ReadBytes(m_dir.file("20261122.err")),
              "[2026-11-22 09:34:56]\tone\n[2026-11-22 09:34:56]\ttwo\n");
    EXPECT_EQ(ReadBytes(m_dir.file("20261122.log")), "[2026-11-22 09:34:56]\tthree\n");
    EXPECT_TRUE(std::filesystem::is_empty(other.path()));
    EXPECT_EQ(g_sLastErrorMessage, "three");
}

// Each row is read through both forms. The array form reports the requested
// count and zero-fills what the file did not deliver; the string form drops
// zero bytes and reports "Error read file" only for a zero array result.
TEST_F(GlobalTest, ReaderCountsAndZeroBytesOfBothForms) {
    const std::tuple<std::string, long, size_t, bool, std::string, std::string> kCases[] = {
        // on disk, offset, length, bZeroIsAll -> the array's bytes, the string
        {"", 0, 0, true, "", ""},
        {std::string("a\0b\0\0c", 6), 0, 0, true, std::string("a\0b\0\0c", 6), "abc"},
        {std::string(3, '\0'), 0, 0, true, std::string(3, '\0'), ""},
        {"0123456789", 2, 3, true, "234", "234"},
        {"abc", 0, 5, true, std::string("abc\0\0", 5), "abc"},
        {"abcdef", 4, 0, true, std::string("ef\0\0\0\0", 6), "ef"},
        {"abc", 0, 0, false, "", ""},
        {"abc", -1, 2, true, std::string(2, '\0'), ""},  // cannot seek
    };
    std::string sFile;
    for (const auto& [sOnDisk, nOffset, nLength, bZeroIsAll, sArray, sText] : kCases) {
        SCOPED_TRACE(sOnDisk + "@" + std::to_string(nOffset) + "+" + std::to_string(nLength));
        sFile = m_dir.write("data.bin", sOnDisk);
        char* pBuffer = nullptr;
        ASSERT_EQ(ReadFile(sFile.c_str(), &pBuffer, nOffset, nLength, bZeroIsAll), sArray.size());
        EXPECT_EQ(std::string(pBuffer, sArray.size() + 1), sArray + '\0');
        delete[] pBuffer;
        g_sLastErrorMessage = kUntouched;
        std::string sRead = "stale";
        EXPECT_EQ(ReadFile(sFile.c_str(), sRead, nOffset, nLength, bZeroIsAll), sText.size());
        EXPECT_EQ(sRead, sText);
        EXPECT_EQ(g_sLastErrorMessage, sArray.empty() ? "Error read file " + sFile : kUntouched);
    }
    // A missing file: the array form only logs the failed open.
    const std::string sMissing = m_dir.file("missing.txt");
    char cUnwritten = 0, *pBuffer = &cUnwritten;
    EXPECT_EQ(ReadFile(sMissing.c_str(), &pBuffer) + ReadFile(nullptr, &pBuffer), 0u);
    EXPECT_EQ(pBuffer, &cUnwritten);
    EXPECT_EQ(m_log.DayFile(".log"), "[2026-11-22 09:34:56]\tFailed open file  " + sMissing + "\n");
    // A reader keeps its open file for the same name in any case (no such
    // file as "DATA.BIN" exists).
    CReadFile reader;
    std::string sRead;
    reader.ReadFile(sFile.c_str(), sRead, 0, 0, true);
    EXPECT_EQ(reader.ReadFile(m_dir.file("DATA.BIN").c_str(), sRead, 0, 2, true), 2u);
}

}  // namespace
