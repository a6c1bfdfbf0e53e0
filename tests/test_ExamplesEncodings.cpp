// End to end with the built "Data" folder: the example rule list classifies
// the sample documents identically whether they come in GBK (code 0), UTF-8
// (codes 1, 4 and 5), GB18030 (code 3) or BIG5 (code 2, the documents'
// traditional form), and the results and detail reports come back in the
// caller's encoding.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "CodeTran.h"
#include "QXClassifier.h"
#include "TestUtil.h"
#include "TransDataTestUtil.h"

namespace {

namespace fs = std::filesystem;
using namespace qxtest::trans;

struct Outcome {
    std::string sResult;                         // classes with weights
    std::map<std::string, std::string> details;  // GBK class name -> report
};

// Title on the first line, then optional "board:"/"datatype:"/"author:"
// lines, then the content (as the bundled tool reads the documents).
stDoc ParseDoc(const std::string& s) {
    stDoc d;
    size_t pos = s.find('\n');
    d.sTitle = s.substr(0, pos);
    const std::pair<const char*, std::string stDoc::*> kHeaders[] = {
        {"board: ", &stDoc::sBoard},
        {"datatype: ", &stDoc::sDatatype},
        {"author: ", &stDoc::sAuthor}};
    for (bool bFound = true; bFound && pos != std::string::npos;) {
        bFound = false;
        const size_t nEnd = s.find('\n', pos + 1);
        const std::string sLine = s.substr(pos + 1, nEnd - pos - 1);
        for (const auto& [sKey, pField] : kHeaders) {
            if (sLine.rfind(sKey, 0) == 0) {
                d.*pField = sLine.substr(strlen(sKey));
                bFound = true;
                pos = nEnd;
            }
        }
    }
    d.sContent = pos == std::string::npos ? "" : s.substr(pos + 1);
    return d;
}

std::vector<std::string> Split(const std::string& s, char ch) {
    std::vector<std::string> v;
    size_t i = 0;
    for (size_t j; (j = s.find(ch, i)) != std::string::npos; i = j + 1)
        v.push_back(s.substr(i, j - i));
    if (i < s.size()) v.push_back(s.substr(i));
    return v;
}

class ExamplesEncodingsTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        for (const auto& entry :
             fs::directory_iterator(std::string(QX_TEST_SOURCE_ROOT) + "/examples/docs"))
            s_vNames.push_back(entry.path().filename().string());
        std::sort(s_vNames.begin(), s_vNames.end());
    }
    void TearDown() override { classifier_exit(); }

    static std::string Doc(const std::string& sName, int nCode) {
        if (nCode == 2) return qxtest::ReadBytes(CorpusFile("docs.big5/" + sName));
        const std::string sGBK =
            qxtest::ReadBytes(std::string(QX_TEST_SOURCE_ROOT) + "/examples/docs/" + sName);
        if (nCode == 0) return sGBK;
        return MustIconv("GBK", nCode == 3 ? "GB18030" : "UTF-8", sGBK);
    }

    // Classifies every document under nCode; details of the code-0 classes,
    // asked for by their names in the caller's encoding (from toCaller).
    template <typename ToCaller>
    std::vector<Outcome> Run(int nCode, const std::vector<Outcome>* pBase, ToCaller toCaller) {
        bool bOk = false;
        qxtest::CaptureStdout([&] {
            const std::string sRules = std::string(QX_TEST_SOURCE_ROOT) + "/examples/rules.txt";
            bOk = classifier_init(sRules.c_str(), DataDir().c_str(), nCode, nullptr);
        });
        EXPECT_TRUE(bOk) << nCode;
        std::vector<Outcome> v;
        for (size_t i = 0; i < s_vNames.size(); ++i) {
            stDoc d = ParseDoc(Doc(s_vNames[i], nCode));
            Outcome o;
            const char* sResult = classifier_exec1(d, 1);
            o.sResult = sResult ? sResult : "<null>";
            const std::string& sBase = pBase ? (*pBase)[i].sResult : o.sResult;
            for (const std::string& sEntry : Split(sBase, '\t')) {
                const std::string sClass = sEntry.substr(0, sEntry.rfind(' '));
                const char* sDetail = classifier_detail(toCaller(sClass).c_str());
                o.details[sClass] = sDetail ? sDetail : "<null>";
            }
            v.push_back(o);
        }
        classifier_exit();
        return v;
    }

    static std::vector<std::string> s_vNames;
};
std::vector<std::string> ExamplesEncodingsTest::s_vNames;

TEST_F(ExamplesEncodingsTest, EveryEncodingClassifiesAndReportsAsGbkDoes) {
    ASSERT_EQ(s_vNames.size(), 37u);
    const std::vector<Outcome> base = Run(0, nullptr, [](const std::string& s) { return s; });
    size_t nClassified = 0;
    for (const Outcome& o : base) nClassified += !o.sResult.empty();
    EXPECT_GE(nClassified, 30u);

    // Codes 1, 4 (GB18030 inside), 3 and 5: the caller's text is what iconv
    // makes of the engine's, laid out as translations are (no tabs).
    const std::pair<int, const char*> kIconvCodes[] = {
        {5, "UTF-8"}, {1, "UTF-8"}, {4, "UTF-8"}, {3, "GB18030"}};
    for (const auto& [nCode, sCharset] : kIconvCodes) {
        const auto toCaller = [cs = sCharset](const std::string& s) {
            return MustIconv("GBK", cs, s);
        };
        const std::vector<Outcome> got = Run(nCode, &base, toCaller);
        for (size_t i = 0; i < base.size(); ++i) {
            EXPECT_EQ(got[i].sResult, toCaller(TranslatedLayout(base[i].sResult)))
                << nCode << " " << s_vNames[i];
            for (const auto& [sClass, sReport] : base[i].details)
                EXPECT_EQ(got[i].details.at(sClass), toCaller(TranslatedLayout(sReport)))
                    << nCode << " " << s_vNames[i];
        }
    }

    // Code 2: traditional BIG5 documents; results and reports come back as
    // the translator writes the engine's simplified text in BIG5.
    CCodeTran big5((DataDir() + "/Data").c_str(), 2);
    ASSERT_EQ(big5.GetStatus(), 1);
    const auto toBig5 = [&big5](const std::string& s) {
        std::string r;
        return std::string(big5.GBKToCode(s.c_str(), r));
    };
    const std::vector<Outcome> got = Run(2, &base, toBig5);
    for (size_t i = 0; i < base.size(); ++i) {
        EXPECT_EQ(got[i].sResult, toBig5(base[i].sResult)) << s_vNames[i];
        for (const auto& [sClass, sReport] : base[i].details)
            EXPECT_EQ(got[i].details.at(sClass), toBig5(sReport)) << s_vNames[i];
    }
}

}  // namespace
