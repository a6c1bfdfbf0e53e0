// The id maps: packing against a naive model, the golden file, rejected
// files, the one-dictionary import and the progress lines.
#include "IDMaps.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Global.h"
#include "PDAT.h"
#include "TestUtil.h"

namespace {

using qxtest::FromHex;
using qxtest::MakeDict;
using Dumped = std::vector<std::vector<int>>;

class IDMapsTest : public qxtest::SandboxTest {
  protected:
    qxtest::ScopedProgress m_quiet{false};
};

// (3,7), (3,5), (3,7), (1,2): N 4, B 4, data 2 5 7 -1, index -1/-1 0/0 -1/-1 1/2.
const char kGolden[] =
    "04000000 04000000 02000000 05000000 07000000 FFFFFFFF"
    " FFFFFFFF FFFFFFFF 00000000 00000000 FFFFFFFF FFFFFFFF 01000000 02000000";

std::vector<int> Targets(const CIDMaps& map, int h) {
    int nCount = -1;
    const idmaps_info* p = map.GetMaps(h, &nCount);
    std::vector<int> vec;
    for (int i = 0; i < nCount; ++i) vec.push_back(p[i].handle2);
    EXPECT_EQ(p == nullptr, nCount == 0);
    return vec;
}

// Every source's targets, -1 to the bound inclusive.
Dumped Dump(const CIDMaps& map) {
    Dumped vec;
    for (int h = -1; h <= map.GetBound(); ++h) vec.push_back(Targets(map, h));
    return vec;
}

TEST_F(IDMapsTest, ExampleMapStoresRepeatsOnceAndPinsTheFile) {
    CIDMaps map;
    map.MapInit();
    for (auto [h1, h2] : {std::pair{3, 7}, {3, 5}, {3, 7}, {1, 2}, {-1, 4}, {2, -2}})
        EXPECT_EQ(1, map.MapAdd(h1, h2));  // the last two are ignored
    EXPECT_EQ(1, map.MapComplete());
    EXPECT_EQ(4, map.GetSize());
    EXPECT_EQ((Dumped{{}, {}, {2}, {}, {5, 7}, {}}), Dump(map));
    ASSERT_TRUE(map.Save(m_dir.file("example.map").c_str()));
    EXPECT_EQ(FromHex(kGolden), qxtest::ReadBytes(m_dir.file("example.map")));
}

// Random and all-equal pair lists: the packed map (saved and loaded again)
// holds each source's distinct targets, as a std::set per source does.
TEST_F(IDMapsTest, PackingMatchesANaiveModelThroughARoundTrip) {
    std::mt19937 rng(20240511);
    for (int n : {0, 1, 2, 11, 100, 2000}) {
        for (bool bEqual : {false, true}) {
            SCOPED_TRACE(std::to_string(n) + (bEqual ? " equal" : " random"));
            CIDMaps map;
            std::map<int, std::set<int>> model;
            for (int i = 0; i < n; ++i) {
                const int h1 = bEqual ? 5 : static_cast<int>(rng() % 40);
                const int h2 = bEqual ? 5 : static_cast<int>(rng() % 12) - 1;
                map.MapAdd(h1, h2);
                model[h1].insert(h2);
            }
            map.MapComplete();
            ASSERT_EQ(n, map.GetSize());
            for (int h = -1; h <= map.GetBound(); ++h) {
                const std::set<int>& targets = model[h];
                EXPECT_EQ(std::vector<int>(targets.begin(), targets.end()), Targets(map, h)) << h;
                EXPECT_EQ(targets.empty() ? -1 : *targets.begin(), map.GetMapID(h)) << h;
            }
            ASSERT_TRUE(map.Save(m_dir.file("a.map").c_str()));
            CIDMaps loaded;
            ASSERT_TRUE(loaded.Load(m_dir.file("a.map").c_str()));
            EXPECT_EQ(Dump(map), Dump(loaded));
            ASSERT_TRUE(loaded.Save(m_dir.file("b.map").c_str()));
            EXPECT_EQ(qxtest::ReadBytes(m_dir.file("a.map")),
                      qxtest::ReadBytes(m_dir.file("b.map")));
        }
    }
}

TEST_F(IDMapsTest, MalformedFilesAreRejectedAndLeaveTheMapAlone) {
    const std::string sGolden = FromHex(kGolden);
    const std::pair<const char*, std::string> rows[] = {
        {"header_cut", sGolden.substr(0, 7)},
        {"body_cut", sGolden.substr(0, sGolden.size() - 1)},
        {"trailing_byte", sGolden + "x"},
        {"negative_count", FromHex("FEFFFFFF 01000000")},  // sizes add up to 8 bytes
        {"negative_bound", FromHex("02000000 FFFFFFFF")},
        {"bound_beyond_file", FromHex("00000000 FFFFFF7F")},
        {"start_after_end", FromHex("02000000 01000000 01000000 02000000 01000000 00000000")},
        {"end_at_data_end", FromHex("02000000 01000000 01000000 02000000 00000000 02000000")},
        {"half_empty_range", FromHex("02000000 01000000 01000000 02000000 FFFFFFFF 00000000")},
        {"target_below_minus_one", FromHex("01000000 01000000 FEFFFFFF 00000000 00000000")},
    };
    CIDMaps map;
    map.MapAdd(1, 9);
    map.MapComplete();
    const Dumped vecBefore = Dump(map);
    std::vector<std::string> vecPaths = {m_dir.file("missing")};
    for (const auto& [sName, sBytes] : rows) vecPaths.push_back(m_dir.write(sName, sBytes));
    for (const std::string& sPath : vecPaths) {
        SCOPED_TRACE(sPath);
        g_sLastErrorMessage.clear();
        EXPECT_FALSE(map.Load(sPath.c_str()));
        EXPECT_EQ(0u, g_sLastErrorMessage.find("Cannot load id map " + sPath + ": "));
        EXPECT_EQ(vecBefore, Dump(map));
        EXPECT_EQ(1, map.GetSize());
    }
}

// The one check of the classic progress lines: the import's line counter
// every 100 lines and MapComplete's line, printed only while the switch is on.
TEST_F(IDMapsTest, ImportWithOneDictionaryMapsEachFieldToTheLastAndPrintsProgress) {
    auto pDict = MakeDict({"a", "b", "c", "d"});
    std::string sLines = "a\tb\tc\nd\td\nx\tc\nsingle\n\tc\n";
    for (int i = 4; i < 100; ++i) sLines += "\tz\n";  // counted lines without a mapping
    const std::string sPath = m_dir.write("one.txt", sLines + "b\td");  // the last line loses its d
    for (bool bOn : {true, false}) {
        qxtest::ScopedProgress progress(bOn);
        CIDMaps map;
        std::string sOut =
            qxtest::CaptureStdout([&] { EXPECT_EQ(2, map.Import(sPath.c_str(), pDict.get())); });
        EXPECT_EQ(bOn ? "0\r100\rBuild map success!\n" : "", sOut);
        EXPECT_EQ((Dumped{{}, {2}, {2}, {}}), Dump(map));
        EXPECT_EQ(" invalid argument!", g_sLastErrorMessage);
    }
    CIDMaps map;
    EXPECT_EQ(0, map.Import(m_dir.file("missing").c_str(), pDict.get()));
}

}  // namespace
