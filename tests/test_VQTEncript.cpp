// Tests of the repeating-key scrambler: the exact bytes it produces against a
// naive reference, its symmetry, and the file and stream forms against the
// buffer form.
#include "VQTEncript.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <tuple>

#include "Global.h"
#include "TestUtil.h"

namespace {

using qxtest::kUntouched;
using VQTEncriptTest = qxtest::SandboxTest;
const std::string kWordListKey(g_sWordListKey);

// Reference from the definition: byte i meets key byte i mod key length.
std::string NaiveScramble(std::string sData, const std::string& sKey) {
    for (size_t i = 0; i < sData.size(); ++i) sData[i] ^= sKey[i % sKey.size()];
    return sData;
}

// n bytes covering every value, NULs and high bytes included.
std::string Pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i * 37 + 11);
    return s;
}

TEST(WordListKey, Is136GbkBytesWithPinnedEnds) {
    ASSERT_EQ(136u, std::strlen(g_sWordListKey));
    EXPECT_EQ("\xCE\xC4\xB1\xBE", kWordListKey.substr(0, 4));     // 文本
    EXPECT_EQ("\xD6\xA7\xB3\xD6S", kWordListKey.substr(112, 5));  // 支持S
    EXPECT_EQ("Sample-Key-0123-ABCD", kWordListKey.substr(116));
}

TEST_F(VQTEncriptTest, BufferAndStringMatchTheReferenceAndFailWithoutKeyOrBuffer) {
    struct Row {
        const char* sKey;
        std::string sPlain;
    } rows[] = {
        {g_sWordListKey, Pattern(137)},  // byte 136 meets key byte 0 again
        {"\x01\x02\x04", std::string(7, '\0')},
        {"\xFF", std::string("\x00\x7F\x80\xFF", 4)},
        {"k", ""},
    };
    for (const Row& row : rows) {
        const std::string sExpected = NaiveScramble(row.sPlain, row.sKey);
        CVQTEncript cEnc(row.sKey);
        std::string sBuf = row.sPlain, sText = row.sPlain;
        ASSERT_EQ(1, cEnc.Encrypt(&sBuf[0], sBuf.size()));
        ASSERT_EQ(1, cEnc.Encrypt(sText));
        EXPECT_EQ(sExpected, sBuf);
        EXPECT_EQ(sExpected, sText);
    }
    std::string sCut(5, '\0');
    CVQTEncript("ab\0cd").Encrypt(sCut);  // the key ends at its NUL
    EXPECT_EQ("ababa", sCut);

    // A second call starts at key byte 0 again.
    const std::string sPlain = Pattern(137);
    std::string sPieces = sPlain;
    CVQTEncript cEnc(g_sWordListKey);
    ASSERT_EQ(1, cEnc.Encrypt(&sPieces[0], 100));
    ASSERT_EQ(1, cEnc.Encrypt(&sPieces[100], 37));
    EXPECT_EQ(NaiveScramble(sPlain.substr(100), kWordListKey), sPieces.substr(100));
    EXPECT_EQ(kUntouched, g_sLastErrorMessage);

    // An empty key, or a null buffer with a length, fails and leaves data alone.
    for (const char* sKey : {"", static_cast<const char*>(nullptr)}) {
        std::string sText = qxtest::gbk::kNiHao;
        g_sLastErrorMessage = kUntouched;
        EXPECT_EQ(0, CVQTEncript(sKey).Encrypt(sText));
        EXPECT_EQ(qxtest::gbk::kNiHao, sText);
        EXPECT_EQ("Cannot scramble: the key is empty", g_sLastErrorMessage);
    }
    EXPECT_EQ(1, cEnc.Encrypt(static_cast<char*>(nullptr), 0));
    EXPECT_EQ(0, cEnc.Encrypt(static_cast<char*>(nullptr), 3));
}

TEST_F(VQTEncriptTest, FileAndStreamFormsAgreeWithBufferForm) {
    CVQTEncript cEnc(g_sWordListKey);
    const std::string sSrc = m_dir.file("src"), sDst = m_dir.file("dst");
    for (size_t nSize : {0, 1, 137, 300}) {
        SCOPED_TRACE(nSize);
        const std::string sPlain = Pattern(nSize);
        const std::string sExpected = NaiveScramble(sPlain, kWordListKey);
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

        // Onto itself: scrambled in place.
        ASSERT_EQ(1, cEnc.Encrypt(sSrc.c_str(), sSrc.c_str(), 0));
        EXPECT_EQ(sExpected, qxtest::ReadBytes(sSrc));
    }
    EXPECT_EQ(kUntouched, g_sLastErrorMessage);
}

TEST_F(VQTEncriptTest, BadSourcesOrTargetsFailWithAMessageNamingThemAndKeepTheFiles) {
    const std::string sSrc = m_dir.write("src", "abc"), sDst = m_dir.write("dst", "keep");
    const std::string sMissing = m_dir.file("missing"), sNoDir = m_dir.file("no/dir");
    CVQTEncript cEnc(g_sWordListKey);
    // A missing source, a directory, an unwritable destination.
    for (const auto& [sFrom, sTo, sNamed] : {std::tuple{sMissing, sDst, sMissing},
                                             {m_dir.path(), sDst, m_dir.path()},
                                             {sSrc, sNoDir, sNoDir}}) {
        g_sLastErrorMessage.clear();
        EXPECT_EQ(0, cEnc.Encrypt(sFrom.c_str(), sTo.c_str(), 0));
        EXPECT_NE(g_sLastErrorMessage.find(sNamed), std::string::npos) << g_sLastErrorMessage;
    }
    EXPECT_EQ(0, cEnc.Encrypt(nullptr, sDst.c_str(), 0));
    EXPECT_EQ(0, cEnc.Encrypt(sSrc.c_str(), nullptr, 0));
    EXPECT_EQ(0, CVQTEncript("").Encrypt(sSrc.c_str(), sDst.c_str(), 0));
    EXPECT_EQ("keep", qxtest::ReadBytes(sDst));
    EXPECT_EQ("abc", qxtest::ReadBytes(sSrc));

    // Streams: none, or one that cannot be sized by seeking (a pipe).
    EXPECT_EQ(0, cEnc.Encrypt(static_cast<FILE*>(nullptr), sNoDir.c_str()));
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    FILE* fp = fdopen(fds[0], "rb");
    ASSERT_NE(nullptr, fp);
    ASSERT_EQ(3, write(fds[1], "abc", 3));
    close(fds[1]);
    EXPECT_EQ(0, cEnc.Encrypt(fp, m_dir.file("out").c_str()));
    std::fclose(fp);
    EXPECT_NE(0, access(m_dir.file("out").c_str(), F_OK));
}

}  // namespace
