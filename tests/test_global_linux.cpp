// Tests of the file reader and the path helpers.
#include "global_linux.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Global.h"
#include "TestUtil.h"

namespace {

const time_t kFixedTime = 1700000000;
time_t FixedClock() {
    return kFixedTime;
}

std::string FormatFixedTime(const char* sFormat) {
    struct tm tmLocal;
    localtime_r(&kFixedTime, &tmLocal);
    char sBuf[100] = {0};
    strftime(sBuf, sizeof(sBuf), sFormat, &tmLocal);
    return sBuf;
}

// The line Global.h writes for a message at the fixed time.
std::string LogLine(const std::string& sMessage) {
    return "[" + FormatFixedTime("%Y-%m-%d %H:%M:%S") + "]\t" + sMessage + "\n";
}

// Logs go into a temporary directory at a fixed time; the last-error text
// starts as a marker so that tests can tell whether anything reported.
class GlobalLinuxTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_sSavedLogPath = g_sLogPath;
        g_sLogPath = m_logDir.path();
        g_bLog = 1;
        SetLogClock(&FixedClock);
        g_sLastErrorMessage = kUntouched;
    }
    void TearDown() override {
        SetLogClock(nullptr);
        g_sLogPath = m_sSavedLogPath;
    }

    std::string DayFile(const char* sExt) const {
        return qxtest::ReadBytes(m_logDir.file(FormatFixedTime("%Y%m%d") + sExt));
    }

    static constexpr const char* kUntouched = "untouched";
    qxtest::TempDir m_logDir;
    qxtest::TempDir m_dataDir;

  private:
    std::string m_sSavedLogPath;
};

TEST_F(GlobalLinuxTest, MissingFileIsLoggedAndTheStringFormReportsIt) {
    const std::string sMissing = m_dataDir.file("missing.txt");
    char cSentinel = 'x';
    char* pBuffer = &cSentinel;
    EXPECT_EQ(ReadFile(sMissing.c_str(), &pBuffer), 0u);
    EXPECT_EQ(pBuffer, &cSentinel);
    EXPECT_EQ(g_sLastErrorMessage, kUntouched);
    EXPECT_EQ(DayFile(".log"), LogLine("Failed open file  " + sMissing));
    EXPECT_EQ(DayFile(".err"), "");

    std::string sText = "stale";
    EXPECT_EQ(ReadFile(sMissing.c_str(), sText), 0u);
    EXPECT_EQ(sText, "");
    EXPECT_EQ(g_sLastErrorMessage, "Error read file " + sMissing);
    EXPECT_EQ(DayFile(".err"), LogLine("Error read file " + sMissing));
}

TEST_F(GlobalLinuxTest, NullNamesFailCleanly) {
    char cSentinel = 'x';
    char* pBuffer = &cSentinel;
    EXPECT_EQ(ReadFile(nullptr, &pBuffer), 0u);
    EXPECT_EQ(pBuffer, &cSentinel);
    EXPECT_EQ(g_sLastErrorMessage, kUntouched);

    const std::string sFile = m_dataDir.file("a.txt");
    qxtest::WriteBytes(sFile, "abc");
    CReadFile reader;
    EXPECT_EQ(reader.ReadFile(sFile.c_str(), static_cast<char**>(nullptr), 0, 0, true), 0u);

    std::string sText = "stale";
    EXPECT_EQ(ReadFile(nullptr, sText), 0u);
    EXPECT_EQ(sText, "");
    EXPECT_EQ(g_sLastErrorMessage, "Error read file ");
}

// Each row is read through both forms of the free functions. The array form
// reports the requested count and zero-fills what the file did not deliver;
// the string form drops zero bytes and reports only a zero array result.
TEST_F(GlobalLinuxTest, ReadsCountsAndZeroBytesOfBothForms) {
    struct {
        const char* sName;
        std::string sOnDisk;
        long offset;
        size_t length;
        bool bZeroIsAll;
        std::string sArray;  // the array's count bytes
        std::string sText;   // the string form's text (its result is its size)
        bool bReported;      // the string form reports "Error read file"
    } kCases[] = {
        {"whole file", "hello", 0, 0, true, "hello", "hello", false},
        {"empty file", "", 0, 0, true, "", "", true},
        {"zero bytes inside", std::string("a\0b\0\0c", 6), 0, 0, true, std::string("a\0b\0\0c", 6),
         "abc", false},
        {"only zero bytes", std::string(3, '\0'), 0, 0, true, std::string(3, '\0'), "", false},
        {"slice", "0123456789", 2, 3, true, "234", "234", false},
        {"past the end", "abc", 0, 5, true, std::string("abc\0\0", 5), "abc", false},
        {"whole size from an offset", "abcdef", 4, 0, true, std::string("ef\0\0\0\0", 6), "ef",
         false},
        {"length 0 without bZeroIsAll", "abc", 0, 0, false, "", "", true},
        {"offset beyond the end", "abc", 10, 2, true, std::string(2, '\0'), "", false},
        {"negative offset", "abc", -1, 2, true, std::string(2, '\0'), "", false},
    };
    const std::string sFile = m_dataDir.file("data.bin");
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.sName);
        qxtest::WriteBytes(sFile, c.sOnDisk);
        char* pBuffer = nullptr;
        ASSERT_EQ(ReadFile(sFile.c_str(), &pBuffer, c.offset, c.length, c.bZeroIsAll),
                  c.sArray.size());
        ASSERT_NE(pBuffer, nullptr);
        EXPECT_EQ(std::string(pBuffer, c.sArray.size() + 1), c.sArray + '\0');
        delete[] pBuffer;

        g_sLastErrorMessage = kUntouched;
        std::string sText = "stale";
        EXPECT_EQ(ReadFile(sFile.c_str(), sText, c.offset, c.length, c.bZeroIsAll), c.sText.size());
        EXPECT_EQ(sText, c.sText);
        EXPECT_EQ(g_sLastErrorMessage, c.bReported ? "Error read file " + sFile : kUntouched);
    }
}

// The file is replaced on disk (new inode, other size) between reads: only a
// read that reopens sees the new content.
TEST_F(GlobalLinuxTest, SameNameInAnyCaseReusesTheOpenFile) {
    const std::string sHeld = m_dataDir.file("Held.txt");
    const std::string sOther = m_dataDir.file("other.txt");
    qxtest::WriteBytes(sHeld, "first");
    qxtest::WriteBytes(sOther, "other");
    CReadFile reader;
    std::string sText;
    ASSERT_EQ(reader.ReadFile(sHeld.c_str(), sText, 0, 0, true), 5u);
    ASSERT_EQ(unlink(sHeld.c_str()), 0);
    qxtest::WriteBytes(sHeld, "second, longer version");

    EXPECT_EQ(reader.ReadFile(sHeld.c_str(), sText, 0, 0, true), 5u);
    EXPECT_EQ(sText, "first");
    // Neither spelling exists on disk; a reopen would fail.
    for (const char* sCase : {"HELD.TXT", "held.txt"}) {
        char* pBuffer = nullptr;
        EXPECT_EQ(reader.ReadFile(m_dataDir.file(sCase).c_str(), &pBuffer, 0, 0, true), 5u);
        EXPECT_STREQ(pBuffer, "first");
        delete[] pBuffer;
    }
    // A failed open keeps the held file.
    EXPECT_EQ(reader.ReadFile(m_dataDir.file("missing").c_str(), sText, 0, 0, true), 0u);
    EXPECT_EQ(reader.ReadFile(sHeld.c_str(), sText, 0, 0, true), 5u);
    EXPECT_EQ(sText, "first");

    EXPECT_EQ(reader.ReadFile(sOther.c_str(), sText, 0, 0, true), 5u);
    EXPECT_EQ(sText, "other");
    EXPECT_EQ(reader.ReadFile(sHeld.c_str(), sText, 0, 0, true), 22u);
    EXPECT_EQ(sText, "second, longer version");
}

// Threads sharing one reader alternate between two files, so handles are
// replaced while others read; every read must deliver its own file whole.
TEST_F(GlobalLinuxTest, SharedReaderServesInterleavedThreads) {
    const std::string sFiles[2] = {m_dataDir.file("a.txt"), m_dataDir.file("b.txt")};
    const std::string sContents[2] = {std::string(3000, 'a'), std::string(700, 'b')};
    for (int i = 0; i < 2; ++i) qxtest::WriteBytes(sFiles[i], sContents[i]);
    CReadFile reader;
    std::vector<int> vFailures(4, 0);
    std::vector<std::thread> vThreads;
    for (int t = 0; t < 4; ++t) {
        vThreads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const int k = (i + t) % 2;
                char* pBuffer = nullptr;
                size_t n = reader.ReadFile(sFiles[k].c_str(), &pBuffer, 0, 0, true);
                if (n != sContents[k].size() || pBuffer == nullptr || sContents[k] != pBuffer) {
                    ++vFailures[t];
                }
                delete[] pBuffer;
            }
        });
    }
    for (std::thread& th : vThreads) th.join();
    EXPECT_EQ(vFailures, std::vector<int>(4, 0));
}

TEST_F(GlobalLinuxTest, DefaultPathIsTheGivenDirectoryOrTheWorkingOne) {
    char* pCwd = getcwd(nullptr, 0);
    ASSERT_NE(pCwd, nullptr);
    const std::string sCwd = pCwd;
    free(pCwd);

    EXPECT_EQ(std::string(GetDefaultPath(nullptr)), sCwd);
    EXPECT_EQ(g_sDefaultDir, sCwd);
    EXPECT_EQ(std::string(GetDefaultPath("")), sCwd);

    const std::string sWithSlash = m_dataDir.path() + "/";
    const char* sResult = GetDefaultPath(sWithSlash.c_str());
    EXPECT_EQ(sResult, g_sDefaultDir.c_str());
    EXPECT_EQ(g_sDefaultDir, sWithSlash);
    EXPECT_EQ(std::string(GetDefaultPath("/no/such/dir/")), "/no/such/dir/");
    EXPECT_EQ(std::string(GetDefaultPath(g_sDefaultDir.c_str())), "/no/such/dir/");

    // 数据: a UTF-8 directory name found under its GBK form.
    const std::string sGbkDir = m_dataDir.file("\xCA\xFD\xBE\xDD");
    ASSERT_EQ(mkdir(sGbkDir.c_str(), 0700), 0);
    const std::string sUtf8Dir = m_dataDir.file("\xE6\x95\xB0\xE6\x8D\xAE") + "/";
    EXPECT_EQ(std::string(GetDefaultPath(sUtf8Dir.c_str())), sGbkDir + "/");
}

TEST_F(GlobalLinuxTest, AnsiFilenameFindsTheGbkTwinOfAUtf8Name) {
    const std::string kGbkName = "\xD6\xD0\xCE\xC4\xCE\xC4\xBC\xFE.txt";  // 中文文件.txt
    const std::string kUtf8Name = "\xE4\xB8\xAD\xE6\x96\x87\xE6\x96\x87\xE4\xBB\xB6.txt";
    const std::string kMissingGbk = "\xC8\xB1\xCA\xA7.txt";           // 缺失.txt
    const std::string kMissingUtf8 = "\xE7\xBC\xBA\xE5\xA4\xB1.txt";  // the same in UTF-8
    qxtest::WriteBytes(m_dataDir.file(kGbkName), "gbk");
    qxtest::WriteBytes(m_dataDir.file("plain.txt"), "plain");
    qxtest::WriteBytes(m_dataDir.file(kUtf8Name + ".both"), "utf8");
    qxtest::WriteBytes(m_dataDir.file(kGbkName + ".both"), "gbk");

    struct {
        std::string sName;
        bool bUTF8;
        std::string sAnsi;
        bool bChanged;
    } kCases[] = {
        {"plain.txt", false, "plain.txt", false},
        {"plain.txt", true, "plain.txt", false},
        {kUtf8Name, false, kGbkName, true},
        {kUtf8Name, true, kGbkName, true},
        {kUtf8Name + ".both", false, kUtf8Name + ".both", false},  // existing name wins
        {kMissingUtf8, false, kMissingUtf8, false},
        {kMissingUtf8, true, kMissingGbk, true},
        {"absent.txt", false, "absent.txt", false},
        {"absent.txt", true, "absent.txt", true},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.sName + (c.bUTF8 ? " (bUTF8)" : ""));
        std::string sAnsi = "stale";
        EXPECT_EQ(GetAnsiFilename(m_dataDir.file(c.sName).c_str(), sAnsi, c.bUTF8), c.bChanged);
        EXPECT_EQ(sAnsi, m_dataDir.file(c.sAnsi));
    }
    std::string sAnsi = "stale";
    EXPECT_FALSE(GetAnsiFilename(nullptr, sAnsi));
    EXPECT_EQ(sAnsi, "");
}

}  // namespace
