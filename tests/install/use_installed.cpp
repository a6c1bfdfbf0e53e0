// A caller built against an installed libqxclassifier with only the compiler
// and `pkg-config --cflags --libs qxclassifier`: it writes a one-rule list
// into the working directory, classifies one document and checks the text.
#include <QXClassifier.h>

#include <cstdio>
#include <string>

int main() {
    g_bLog = 0;
    // 体育 when the text holds 足球.
    const char kRules[] =
        "<certainty>0.6</certainty><rules><rulenum>1</rulenum>"
        "<rule id=\"0\"><classid>\xCC\xE5\xD3\xFD</classid><toprule>OR</toprule>"
        "<effectvalue>1.0</effectvalue><imperfectvsmsim>0.5</imperfectvsmsim>"
        "<subrules><subrulenum>1</subrulenum><subrule id=\"1\"><operator>OR/TEXT/1</operator>"
        "<value>\xD7\xE3\xC7\xF2</value></subrule></subrules></rule></rules>";
    FILE* fp = fopen("rules.txt", "wb");
    if (fp == nullptr || fputs(kRules, fp) < 0 || fclose(fp) != 0) return 1;

    if (!classifier_init("rules.txt", nullptr, 0, nullptr)) {
        fprintf(stderr, "init failed: %s\n", classifier_GetLastErrorMsg());
        return 1;
    }
    stDoc d;
    d.sContent = "\xD7\xE3\xC7\xF2";  // 足球
    const char* sResult = classifier_exec1(d, 1);
    const bool bOk = sResult != nullptr && std::string(sResult) == "\xCC\xE5\xD3\xFD 1.0000\t";
    classifier_exit();
    fprintf(bOk ? stdout : stderr, "%s\n", bOk ? "installed library works" : "unexpected result");
    return bOk ? 0 : 1;
}
