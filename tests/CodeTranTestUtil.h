// CodeTranTestUtil.h - a small translator data folder for tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "IDMaps.h"
#include "PDAT.h"
#include "TestUtil.h"
#include "WordList.h"

namespace qxtest::trans {

// UTF-8 and GBK forms of the sample characters.
inline const std::string kZhongU = "\xE4\xB8\xAD";  // 中
inline const std::string kWenU = "\xE6\x96\x87";    // 文
inline const std::string kGuoU = "\xE5\x9B\xBD";    // 国
inline const std::string kShuU = "\xE4\xB9\xA6";    // 书
inline const std::string kHaoU = "\xE5\xA5\xBD";    // 好 (in no dictionary)
inline const std::string kZhongG = "\xD6\xD0";      // 中
inline const std::string kWenG = "\xCE\xC4";        // 文
inline const std::string kGuoG = "\xB9\xFA";        // 国
inline const std::string kBom = "\xEF\xBB\xBF";

inline void SaveDict(const std::string& path, int nMode, const std::vector<std::string>& words) {
    CPDAT dict(nMode);
    for (size_t i = 0; i < words.size(); ++i) dict.AddWord(words[i].c_str(), int(i), false);
    dict.AddWordComplete();
    ASSERT_TRUE(dict.Save(path.c_str()));
}

inline void SaveList(const std::string& path, const std::vector<std::string>& words) {
    CWordList list(true, nullptr);
    for (size_t i = 0; i < words.size(); ++i) list.AddWord(words[i].c_str(), int(i));
    list.AddWordComplete();
    ASSERT_TRUE(list.Save(path.c_str()));
}

inline void SaveMap(const std::string& path, const std::vector<std::pair<int, int>>& pairs) {
    CIDMaps map;
    map.MapInit();
    for (const auto& p : pairs) map.MapAdd(p.first, p.second);
    qxtest::CaptureStdout([&] { map.MapComplete(); });
    ASSERT_TRUE(map.Save(path.c_str()));
}

// The same small pair of sides under every file name of the table: the code
// side is UTF-8 (mode 1), the GBK side GBK (mode 0). 中, 文 and 中文 map both
// ways; 国 is in both dictionaries but mapped in neither direction; 书 and
// the ASCII words "f1" to "f5" map to GBK id 9, which has no text (each
// occurrence is reported, naming the word).
inline void WriteFolder(const std::string& sDir) {
    auto file = [&](const std::string& name) { return sDir + "/" + name; };
    const std::vector<std::string> code = {
        kZhongU, kWenU, kZhongU + kWenU, kGuoU, kShuU, "f1", "f2", "f3", "f4", "f5"};
    const std::vector<std::string> gbk = {kZhongG, kWenG, kZhongG + kWenG, kGuoG};
    for (const char* name : {"UTF8", "BIG5"}) {
        SaveDict(file(std::string(name) + ".pdat"), 1, code);
        SaveList(file(std::string(name) + ".wordlist"), code);
    }
    for (const char* name : {"GBK", "GBKA"}) {
        SaveDict(file(std::string(name) + ".pdat"), 0, gbk);
        SaveList(file(std::string(name) + ".wordlist"), gbk);
    }
    for (const char* name : {"UTF2GBKA", "UTF2GBK", "BIG2GBK", "GBKA2GBK"})
        SaveMap(file(std::string(name) + ".map"),
                {{0, 0}, {1, 1}, {2, 2}, {4, 9}, {5, 9}, {6, 9}, {7, 9}, {8, 9}, {9, 9}});
    for (const char* name : {"GBKA2UTF", "GBK2UTF", "GBK2BIG", "GBK2GBKA"})
        SaveMap(file(std::string(name) + ".map"), {{0, 0}, {1, 1}, {2, 2}});
}

inline void WriteFolder(const TempDir& dir) {
    WriteFolder(dir.path());
}

}  // namespace qxtest::trans
