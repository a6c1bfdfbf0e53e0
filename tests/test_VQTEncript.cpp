// Tests of the repeating-key scrambler: the exact bytes it produces against a
// naive reference, its symmetry, and the file and stream forms against the
// buffer form.
#include "VQTEncript.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "Global.h"
#include "TestUtil.h"

namespace {

const std::string kWordListKey(g_sWordListKey);

// Reference from the definition: byte i meets key byte i mod key length.
std::string NaiveScramble(const std::string& sData, const std::string& sKey) {
    std::string sOut = sData;
    for (size_t i = 0; i < sOut.size(); ++i)
        sOut[i] = static_cast<char>(sOut[i] ^ sKey[i % sKey.size()]);
    return sOut;
}

// n bytes covering every value, NULs and high bytes included.
std::string Pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i * 37 + 11);
    return s;
}

std::string ScrambleBuffer(const char* sKey, std::string sData) {
    CVQTEncript cEnc(sKey);
    EXPECT_EQ(1, cEnc.Encrypt(&sData[0], sData.size()));
    return sData;
}

// Errors are logged into a temporary directory; the last-error text starts
// as a marker so that a test can tell whether a failure was reported.
class VQTEncriptTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_sSavedLogPath = g_sLogPath;
        g_sLogPath = m_logDir.path();
        g_sLastErrorMessage = "untouched";
    }
    void TearDown() override { g_sLogPath = m_sSavedLogPath; }

    qxtest::TempDir m_logDir;
    qxtest::TempDir m_dir;
    std::string m_sSavedLogPath;
};

TEST(WordListKey, Is136GbkBytesWithPinnedEnds) {
    ASSERT_EQ(136u, sizeof(g_sWordListKey) - 1);
    ASSERT_EQ(136u, std::strlen(g_sWordListKey));
    EXPECT_EQ("\xCE\xC4\xB1\xBE", kWordListKey.substr(0, 4));     // 文本
    EXPECT_EQ("\xC9\xC6", kWordListKey.substr(86, 2));            // 善
    EXPECT_EQ("\xD6\xA7\xB3\xD6S", kWordListKey.substr(112, 5));  // 支持S
    EXPECT_EQ("Sample-Key-0123-ABCD", kWordListKey.substr(116));
}

TEST_F(VQTEncriptTest, BufferMatchesNaiveReferenceAndRestartsKeyEachCall) {
    // 137 bytes: position 136 meets key byte 0 again.
    const std::string sPlain = Pattern(137);
    const std::string sExpected = NaiveScramble(sPlain, kWordListKey);
    const std::string sScrambled = ScrambleBuffer(g_sWordListKey, sPlain);
    EXPECT_EQ(sExpected, sScrambled);
    EXPECT_EQ(static_cast<char>(sPlain[136] ^ '\xCE'), sScrambled[136]);
    EXPECT_EQ(static_cast<char>(sPlain[135] ^ 'D'), sScrambled[135]);
    EXPECT_EQ(sPlain, ScrambleBuffer(g_sWordListKey, sScrambled));

    // Pieces of a key-length multiple match one call; other splits do not.
    std::string sPieces = sPlain;
    CVQTEncript cEnc(g_sWordListKey);
    ASSERT_EQ(1, cEnc.Encrypt(&sPieces[0], 136));
    ASSERT_EQ(1, cEnc.Encrypt(&sPieces[136], 1));
    EXPECT_EQ(sExpected, sPieces);
    sPieces = sPlain;
    ASSERT_EQ(1, cEnc.Encrypt(&sPieces[0], 100));
    ASSERT_EQ(1, cEnc.Encrypt(&sPieces[100], 37));
    EXPECT_EQ(NaiveScramble(sPlain.substr(100), kWordListKey), sPieces.substr(100));
}

TEST_F(VQTEncriptTest, ShortKeysRepeatFromTheirFirstByte) {
    struct Row {
        const char* sKey;
        std::string sPlain, sExpected;
    } rows[] = {
        {"\x01\x02\x04", std::string(7, '\0'), "\x01\x02\x04\x01\x02\x04\x01"},
        {"ab\0cd", std::string(5, '\0'), "ababa"},  // the key ends at its NUL
        {"\xFF", std::string("\x00\x7F\x80\xFF", 4), std::string("\xFF\x80\x7F\x00", 4)},
        {"k", "", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.sKey);
        std::string sText = row.sPlain;
        CVQTEncript cEnc(row.sKey);
        EXPECT_EQ(row.sExpected, ScrambleBuffer(row.sKey, row.sPlain));
        ASSERT_EQ(1, cEnc.Encrypt(sText));
        EXPECT_EQ(row.sExpected, sText);
    }
    EXPECT_EQ("untouched", g_sLastErrorMessage);
}

TEST_F(VQTEncriptTest, EmptyKeyOrNullBufferFailsAndLeavesDataAlone) {
    const std::string sPlain = "\xC4\xE3\xBA\xC3";  // 你好
    for (const char* sKey : {"", static_cast<const char*>(nullptr)}) {
        CVQTEncript cEnc(sKey);
        std::string sBuf = sPlain, sText = sPlain;
        g_sLastErrorMessage = "untouched";
        EXPECT_EQ(0, cEnc.Encrypt(&sBuf[0], sBuf.size()));
        EXPECT_EQ(0, cEnc.Encrypt(sText));
        EXPECT_EQ(sPlain, sBuf);
        EXPECT_EQ(sPlain, sText);
        EXPECT_EQ("Cannot scramble: the key is empty", g_sLastErrorMessage);
    }
    CVQTEncript cEnc("k");
    EXPECT_EQ(1, cEnc.Encrypt(static_cast<char*>(nullptr), 0));
    EXPECT_EQ(0, cEnc.Encrypt(static_cast<char*>(nullptr), 3));
}

TEST_F(VQTEncriptTest, FileAndStreamFormsAgreeWithBufferForm) {
    CVQTEncript cEnc(g_sWordListKey);
    for (size_t nSize : {0, 1, 137, 300}) {
        SCOPED_TRACE(nSize);
        const std::string sPlain = Pattern(nSize);
        const std::string sExpected = NaiveScramble(sPlain, kWordListKey);
        const std::string sSrc = m_dir.file("src"), sDst = m_dir.file("dst");
        qxtest::WriteBytes(sSrc, sPlain);
        unlink(sDst.c_str());
        ASSERT_EQ(1, cEnc.Encrypt(sSrc.c_str(), sDst.c_str(), 0));
        ASSERT_EQ(0, access(sDst.c_str(), F_OK));
        EXPECT_EQ(sExpected, qxtest::ReadBytes(sDst));

        // The stream is read from its start whatever its position.
        FILE* fp = std::fopen(sSrc.c_str(), "rb");
        ASSERT_NE(nullptr, fp);
        std::fseek(fp, static_cast<long>(nSize / 2), SEEK_SET);
        EXPECT_EQ(1, cEnc.Encrypt(fp, m_dir.file("stream").c_str()));
        std::fclose(fp);
        EXPECT_EQ(sExpected, qxtest::ReadBytes(m_dir.file("stream")));

        // Onto itself: scrambled in place, and a second pass restores it.
        ASSERT_EQ(1, cEnc.Encrypt(sSrc.c_str(), sSrc.c_str(), 0));
        EXPECT_EQ(sExpected, qxtest::ReadBytes(sSrc));
        ASSERT_EQ(1, cEnc.Encrypt(sSrc.c_str(), sSrc.c_str(), 0));
        EXPECT_EQ(sPlain, qxtest::ReadBytes(sSrc));
    }
    EXPECT_EQ("untouched", g_sLastErrorMessage);
}

TEST_F(VQTEncriptTest, BadFilesFailWithMessageAndKeepDestination) {
    const std::string sMissing = m_dir.file("missing.wordlist");
    const std::string sSrc = m_dir.file("src"), sDst = m_dir.file("dst");
    qxtest::WriteBytes(sSrc, "abc");
    qxtest::WriteBytes(sDst, "keep");
    CVQTEncript cEnc(g_sWordListKey);
    struct Row {
        std::string sSrc, sDst, sMessage;
    } rows[] = {
        {sMissing, sDst, "Cannot open file " + sMissing + " for reading"},
        {m_dir.path(), sDst,
         "Cannot scramble file " + m_dir.path() + ": not a regular, seekable file"},
        {sSrc, m_dir.file("no/dir"), "Cannot open file " + m_dir.file("no/dir") + " for writing"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.sSrc);
        EXPECT_EQ(0, cEnc.Encrypt(row.sSrc.c_str(), row.sDst.c_str(), 0));
        EXPECT_EQ(row.sMessage, g_sLastErrorMessage);
        EXPECT_EQ("keep", qxtest::ReadBytes(sDst));
    }
    EXPECT_EQ(0, cEnc.Encrypt(nullptr, sDst.c_str(), 0));
    EXPECT_EQ(0, cEnc.Encrypt(sSrc.c_str(), nullptr, 0));
    EXPECT_EQ(0, CVQTEncript("").Encrypt(sSrc.c_str(), sDst.c_str(), 0));
    EXPECT_EQ("keep", qxtest::ReadBytes(sDst));
    EXPECT_EQ("abc", qxtest::ReadBytes(sSrc));
}

TEST_F(VQTEncriptTest, UnusableStreamsFailWithoutWriting) {
    CVQTEncript cEnc(g_sWordListKey);
    const std::string sDst = m_dir.file("dst");
    EXPECT_EQ(0, cEnc.Encrypt(static_cast<FILE*>(nullptr), sDst.c_str()));
    EXPECT_EQ("Cannot scramble into " + sDst + ": no stream", g_sLastErrorMessage);

    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    FILE* fp = fdopen(fds[0], "rb");
    ASSERT_NE(nullptr, fp);
    ASSERT_EQ(3, write(fds[1], "abc", 3));
    close(fds[1]);
    EXPECT_EQ(0, cEnc.Encrypt(fp, sDst.c_str()));
    EXPECT_EQ("Cannot scramble the stream for " + sDst + ": not a regular, seekable file",
              g_sLastErrorMessage);
    std::fclose(fp);
    EXPECT_NE(0, access(sDst.c_str(), F_OK));
}

}  // namespace
