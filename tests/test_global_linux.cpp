// Tests of the file reader and the path helpers.
#include "global_linux.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "Global.h"
#include "TestUtil.h"

namespace {

using qxtest::kUntouched;
using GlobalLinuxTest = qxtest::SandboxTest;

TEST_F(GlobalLinuxTest, MissingOrNullFilesFailAndOnlyTheStringFormReports) {
    const std::string sMissing = m_dir.file("missing.txt");
    char cSentinel = 'x';
    char* pBuffer = &cSentinel;
    EXPECT_EQ(ReadFile(sMissing.c_str(), &pBuffer), 0u);
    EXPECT_EQ(ReadFile(nullptr, &pBuffer), 0u);
    EXPECT_EQ(pBuffer, &cSentinel);
    EXPECT_EQ(g_sLastErrorMessage, kUntouched);
    EXPECT_EQ(m_log.DayFile(".log"), "[2026-11-22 09:34:56]\tFailed open file  " + sMissing + "\n");
    EXPECT_EQ(m_log.DayFile(".err"), "");
    const std::string sFile = m_dir.write("a.txt", "abc");
    EXPECT_EQ(CReadFile().ReadFile(sFile.c_str(), static_cast<char**>(nullptr), 0, 0, true), 0u);

    std::string sText = "stale";
    EXPECT_EQ(ReadFile(sMissing.c_str(), sText), 0u);
    EXPECT_EQ(sText, "");
    EXPECT_EQ(m_log.DayFile(".err"), "[2026-11-22 09:34:56]\tError read file " + sMissing + "\n");
    EXPECT_EQ(ReadFile(nullptr, sText), 0u);
    EXPECT_EQ(g_sLastErrorMessage, "Error read file ");
}

// Each row is read through both forms. The array form reports the requested
// count and zero-fills what the file did not deliver; the string form drops
// zero bytes and reports only a zero array result.
TEST_F(GlobalLinuxTest, ReadsCountsAndZeroBytesOfBothForms) {
    struct {
        std::string sOnDisk;
        long offset;
        size_t length;
        bool bZeroIsAll;
        std::string sArray;  // the array's count bytes
        std::string sText;   // the string form's text (its result is its size)
        bool bReported;      // the string form reports "Error read file"
    } kCases[] = {
        {"", 0, 0, true, "", "", true},
        {std::string("a\0b\0\0c", 6), 0, 0, true, std::string("a\0b\0\0c", 6), "abc", false},
        {std::string(3, '\0'), 0, 0, true, std::string(3, '\0'), "", false},
        {"0123456789", 2, 3, true, "234", "234", false},
        {"abc", 0, 5, true, std::string("abc\0\0", 5), "abc", false},
        {"abcdef", 4, 0, true, std::string("ef\0\0\0\0", 6), "ef", false},
        {"abc", 0, 0, false, "", "", true},
        {"abc", -1, 2, true, std::string(2, '\0'), "", false},  // cannot seek
    };
    const std::string sFile = m_dir.file("data.bin");
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.sOnDisk + "@" + std::to_string(c.offset) + "+" + std::to_string(c.length));
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
    const std::string sHeld = m_dir.write("Held.txt", "first");
    const std::string sOther = m_dir.write("other.txt", "other");
    CReadFile reader;
    std::string sText;
    ASSERT_EQ(reader.ReadFile(sHeld.c_str(), sText, 0, 0, true), 5u);
    ASSERT_EQ(unlink(sHeld.c_str()), 0);
    qxtest::WriteBytes(sHeld, "second, longer version");
    // Neither other spelling exists on disk; a reopen would fail. A failed
    // open keeps the held file.
    for (const std::string sName : {"Held.txt", "HELD.TXT", "held.txt", "missing", "Held.txt"}) {
        reader.ReadFile(m_dir.file(sName).c_str(), sText, 0, 0, true);
        EXPECT_EQ(sText, sName == "missing" ? "" : "first") << sName;
    }
    EXPECT_EQ(reader.ReadFile(sOther.c_str(), sText, 0, 0, true), 5u);
    EXPECT_EQ(reader.ReadFile(sHeld.c_str(), sText, 0, 0, true), 22u);
    EXPECT_EQ(sText, "second, longer version");
}

// Threads sharing one reader alternate between two files, so handles are
// replaced while others read; every read must deliver its own file whole.
TEST_F(GlobalLinuxTest, SharedReaderServesInterleavedThreads) {
    const std::string sContents[2] = {std::string(3000, 'a'), std::string(700, 'b')};
    const std::string sFiles[2] = {m_dir.write("a.txt", sContents[0]),
                                   m_dir.write("b.txt", sContents[1])};
    CReadFile reader;
    std::vector<int> vFailures(4, 0);
    std::vector<std::thread> vThreads;
    for (int t = 0; t < 4; ++t) {
        vThreads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const int k = (i + t) % 2;
                char* pBuffer = nullptr;
                size_t n = reader.ReadFile(sFiles[k].c_str(), &pBuffer, 0, 0, true);
                vFailures[t] += n != sContents[k].size() || !pBuffer || sContents[k] != pBuffer;
                delete[] pBuffer;
            }
        });
    }
    for (std::thread& th : vThreads) th.join();
    EXPECT_EQ(vFailures, std::vector<int>(4, 0));
}

TEST_F(GlobalLinuxTest, DefaultPathIsTheGivenDirectoryOrTheWorkingOne) {
    const std::string sCwd = std::filesystem::current_path().string();
    EXPECT_EQ(std::string(GetDefaultPath(nullptr)), sCwd);
    EXPECT_EQ(std::string(GetDefaultPath("")), sCwd);

    const std::string sWithSlash = m_dir.path() + "/";
    const char* sResult = GetDefaultPath(sWithSlash.c_str());
    EXPECT_EQ(sResult, g_sDefaultDir.c_str());
    EXPECT_EQ(g_sDefaultDir, sWithSlash);
    EXPECT_EQ(std::string(GetDefaultPath("/no/such/dir/")), "/no/such/dir/");
    EXPECT_EQ(std::string(GetDefaultPath(g_sDefaultDir.c_str())), "/no/such/dir/");

    // 数据: a UTF-8 directory name found under its GBK form.
    const std::string sGbkDir = m_dir.file("\xCA\xFD\xBE\xDD");
    ASSERT_EQ(mkdir(sGbkDir.c_str(), 0700), 0);
    const std::string sUtf8Dir = m_dir.file("\xE6\x95\xB0\xE6\x8D\xAE") + "/";
    EXPECT_EQ(std::string(GetDefaultPath(sUtf8Dir.c_str())), sGbkDir + "/");
}

TEST_F(GlobalLinuxTest, AnsiFilenameFindsTheGbkTwinOfAUtf8Name) {
    const std::string kGbkName = "\xD6\xD0\xCE\xC4\xCE\xC4\xBC\xFE.txt";  // 中文文件.txt
    const std::string kUtf8Name = "\xE4\xB8\xAD\xE6\x96\x87\xE6\x96\x87\xE4\xBB\xB6.txt";
    const std::string kMissingGbk = "\xC8\xB1\xCA\xA7.txt";           // 缺失.txt
    const std::string kMissingUtf8 = "\xE7\xBC\xBA\xE5\xA4\xB1.txt";  // the same in UTF-8
    for (const std::string& sName :
         {kGbkName, std::string("plain.txt"), kUtf8Name + ".both", kGbkName + ".both"})
        m_dir.write(sName, "x");
    const std::tuple<std::string, bool, std::string, bool> kCases[] = {
        // name, bUTF8, result
        {"plain.txt", true, "plain.txt", false},
        {kUtf8Name, false, kGbkName, true},
        {kUtf8Name + ".both", false, kUtf8Name + ".both", false},  // existing name wins
        {kMissingUtf8, false, kMissingUtf8, false},
        {kMissingUtf8, true, kMissingGbk, true},
        {"absent.txt", true, "absent.txt", true},
    };
    for (const auto& [sName, bUTF8, sAnsiName, bChanged] : kCases) {
        std::string sAnsi = "stale";
        EXPECT_EQ(GetAnsiFilename(m_dir.file(sName).c_str(), sAnsi, bUTF8), bChanged) << sName;
        EXPECT_EQ(sAnsi, m_dir.file(sAnsiName));
    }
    std::string sAnsi = "stale";
    EXPECT_FALSE(GetAnsiFilename(nullptr, sAnsi));
    EXPECT_EQ(sAnsi, "");
}

}  // namespace
