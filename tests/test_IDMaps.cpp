// Tests of the id maps: packing (against a naive oracle), the golden file,
// the three sorts, GetSimMaps, round trips, rejected files and both imports.
#include "IDMaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Global.h"
#include "PDAT.h"
#include "TestUtil.h"

namespace {

using qxtest::FromHex;
using qxtest::MakeDict;
using IDMapsTest = qxtest::SandboxTest;

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
std::vector<std::vector<int>> Dump(const CIDMaps& map) {
    std::vector<std::vector<int>> vec;
    for (int h = -1; h <= map.GetBound(); ++h) vec.push_back(Targets(map, h));
    return vec;
}

std::vector<std::pair<int, int>> Pairs(const std::vector<idmaps_elem>& vec) {
    std::vector<std::pair<int, int>> vecOut;
    for (const idmaps_elem& e : vec) vecOut.emplace_back(e.handle1, e.handle2);
    return vecOut;
}

void Complete(CIDMaps& map) {
    EXPECT_EQ("Build map success!\n",
              qxtest::CaptureStdout([&] { EXPECT_EQ(1, map.MapComplete()); }));
}

TEST_F(IDMapsTest, ExampleMapStoresRepeatsOnceAndPinsTheFile) {
    CIDMaps map;
    map.MapInit();
    for (auto [h1, h2] : {std::pair{3, 7}, {3, 5}, {3, 7}, {1, 2}, {-1, 4}, {2, -2}})
        EXPECT_EQ(1, map.MapAdd(h1, h2));  // the last two are ignored
    Complete(map);
    EXPECT_EQ(4, map.GetSize());
    EXPECT_EQ((std::vector<std::vector<int>>{{}, {}, {2}, {}, {5, 7}, {}}), Dump(map));
    ASSERT_TRUE(map.Save(m_dir.file("example.map").c_str()));
    EXPECT_EQ(FromHex(kGolden), qxtest::ReadBytes(m_dir.file("example.map")));
}

TEST_F(IDMapsTest, GetSimMapsFollowsASingleTargetOneStep) {
    CIDMaps map;
    for (auto [h1, h2] : {std::pair{1, 4}, {4, 1}, {4, 6}, {4, 9}, {2, 2}, {2, 7}, {3, 8}, {8, 10}})
        map.MapAdd(h1, h2);
    Complete(map);
    const std::tuple<int, int, std::vector<int>> rows[] = {
        // handle, result, out
        {1, 3, {4, 6, 9}},  // 1 -> 4 -> {1, 6, 9}: 1 itself left out
        {4, 3, {1, 6, 9}},  // three targets, none of them itself
        {2, 2, {7}},        // two targets, one of them itself
        {3, 1, {8}},        // 3 -> 8 -> {10}: one final target, nothing added
        {8, 0, {10}},       // 8 -> 10 -> none
        {0, 0, {}},        {99, 0, {}}, {-1, 0, {}},
    };
    for (const auto& [nHandle, nResult, vecWant] : rows) {
        std::vector<int> vecOut = {42};
        EXPECT_EQ(nResult, map.GetSimMaps(nHandle, vecOut)) << nHandle;
        EXPECT_EQ(vecWant, vecOut) << nHandle;
    }
}

TEST_F(IDMapsTest, SortsAgreeAndPackingMatchesAnOracleThroughARoundTrip) {
    std::mt19937 rng(20240511);
    for (int n : {0, 1, 2, 10, 11, 12, 100, 2000}) {
        for (int nPattern = 0; nPattern < 4; ++nPattern) {  // random, sorted, reversed, equal
            SCOPED_TRACE(std::to_string(n) + "/" + std::to_string(nPattern));
            std::vector<idmaps_elem> vecA(static_cast<size_t>(n));
            for (int i = 0; i < n; ++i) {
                vecA[i].handle1 = nPattern == 3 ? 5 : static_cast<int>(rng() % 40);
                vecA[i].handle2 = nPattern == 3 ? 5 : static_cast<int>(rng() % 12) - 1;
            }
            if (nPattern == 1) std::sort(vecA.begin(), vecA.end());
            if (nPattern == 2) std::sort(vecA.rbegin(), vecA.rend());
            std::vector<idmaps_elem> vecB = vecA, vecC = vecA;
            CIDMaps sorter;
            sorter.bublesort(vecA.data(), 0, n - 1);
            sorter.qksort(vecB.data(), 0, n - 1);
            sorter.fastsort(vecC.data(), 0, n - 1);
            EXPECT_TRUE(std::is_sorted(vecA.begin(), vecA.end()));
            EXPECT_EQ(Pairs(vecA), Pairs(vecB));
            EXPECT_EQ(Pairs(vecA), Pairs(vecC));

            CIDMaps map;
            std::map<int, std::set<int>> oracle;
            for (const idmaps_elem& e : vecC) map.MapAdd(e.handle1, e.handle2);
            for (const idmaps_elem& e : vecC) oracle[e.handle1].insert(e.handle2);
            Complete(map);
            ASSERT_EQ(n, map.GetSize());
            for (int h = -1; h <= map.GetBound(); ++h) {
                const std::set<int>& targets = oracle[h];
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
        {"end_past_data", FromHex("02000000 01000000 01000000 02000000 00000000 02000000")},
        {"half_empty_range", FromHex("02000000 01000000 01000000 02000000 FFFFFFFF 00000000")},
        {"target_below_minus_one", FromHex("01000000 01000000 FEFFFFFF 00000000 00000000")},
    };
    CIDMaps map;
    map.MapAdd(1, 9);
    Complete(map);
    const std::vector<std::vector<int>> vecBefore = Dump(map);
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

TEST_F(IDMapsTest, ImportWithOneDictionaryMapsEachFieldToTheLast) {
    auto pDict = MakeDict({"a", "b", "c", "d"});
    const std::string sPath =
        m_dir.write("one.txt", "a\tb\tc\nd\td\nx\tc\nsingle\n\tc\nb\td");  // last line loses its d
    CIDMaps map;
    std::string sOut;
    sOut = qxtest::CaptureStdout([&] { EXPECT_EQ(2, map.Import(sPath.c_str(), pDict.get())); });
    EXPECT_EQ("0\rBuild map success!\n", sOut);
    EXPECT_EQ((std::vector<std::vector<int>>{{}, {2}, {2}, {}}), Dump(map));
    EXPECT_EQ(" invalid argument!", g_sLastErrorMessage);
    EXPECT_EQ(0, map.Import(m_dir.file("missing").c_str(), pDict.get()));
}

TEST_F(IDMapsTest, ImportOfTwoColumnsReadsBracketsAndWritesTheExportCopy) {
    auto pSrc = MakeDict({"x", "y", "[ab cd", "[x"});
    auto pDst = MakeDict({"u", "v w", "[x"});
    const std::string sPath = m_dir.write("two.txt",
                                          "\xEF\xBB\xBFx u\ny v_w\n[ab cd] u\ny gone\n[x] [u]\n"
                                          "zz u\nqq rr\n");
    CIDMaps map;
    qxtest::CaptureStdout([&] { EXPECT_EQ(5, map.Import(sPath.c_str(), pSrc.get(), pDst.get())); });
    // "[ab cd] u" reads the target token "cd]"; "[x] [u]" reads "[x" for both
    // columns, as a bracketed target starts at the line's first '['.
    EXPECT_EQ((std::vector<std::vector<int>>{{}, {0}, {-1, 1}, {-1}, {2}, {}}), Dump(map));
    EXPECT_EQ("x\tu\ny\t[v w]\n[[ab cd]\tcd]\ny\tgone\n[x\t[x\nzz\tu\nqq\trr\n",
              qxtest::ReadBytes(sPath + "_map_export.txt"));
    EXPECT_EQ("qq rr invalid argument!", g_sLastErrorMessage);

    // One dictionary for both columns: a word mapped to itself is refused.
    m_dir.write("same.txt", "x x\nx y\n");
    qxtest::CaptureStdout(
        [&] { map.Import(m_dir.file("same.txt").c_str(), pSrc.get(), pSrc.get()); });
    EXPECT_EQ(" invalid argument!", g_sLastErrorMessage);
    EXPECT_EQ((std::vector<std::vector<int>>{{}, {1}, {}}), Dump(map));
}

}  // namespace
