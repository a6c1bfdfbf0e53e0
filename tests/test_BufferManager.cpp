// Release policy of the result buffer manager: a registration that finds
// more than 20,000 buffers frees the oldest 10,000, so every result stays
// readable for the next 10,000 registrations. Reading them back catches an
// early free; double frees and lost buffers show under the sanitizers.
#include "BufferManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

// Registers "result #i" as a copy of the text, or hands over a new[] array.
char* Register(CBufferManager& manager, int i) {
    const std::string s = "result #" + std::to_string(i);
    return i % 3 ? manager.AddBuffer(s.c_str())
                 : manager.AddBuffer(std::strcpy(new char[s.size() + 1], s.c_str()));
}

TEST(BufferManager, FreesOldestTenThousandOnlyPastTwentyThousand) {
    CBufferManager manager;
    std::vector<char*> vResults;
    for (int i = 0; i < 45000; ++i) {
        vResults.push_back(Register(manager, i));
        const size_t nCount = manager.GetBufferCount();
        // With 20,000 registered a pass starts and is abandoned; the 20,001st
        // registration frees the oldest 10,000 first.
        ASSERT_TRUE(i < 20000    ? nCount == size_t(i) + 1
                    : i == 20001 ? nCount == 10002u
                                 : nCount >= 10002u && nCount <= 20001u)
            << i;
        if (i % 1000 == 0) {
            for (int j = std::max(0, i - 10000); j <= i; ++j)
                ASSERT_EQ(vResults[j], "result #" + std::to_string(j)) << i;
        }
    }
    // The text form copies the caller's text; null registers "".
    char sCallerText[] = "caller's text";
    char* pCopy = manager.AddBuffer(static_cast<const char*>(sCallerText));
    sCallerText[0] = 'X';
    EXPECT_STREQ(pCopy, "caller's text");
    EXPECT_STREQ(manager.AddBuffer(static_cast<const char*>(nullptr)), "");
}

// Overlapping release passes free each buffer once (checked by the sanitizers).
TEST(BufferManager, ConcurrentRegistrationsAreSafe) {
    CBufferManager manager;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&manager] {
            for (int i = 0; i < 15000; ++i) Register(manager, i);
        });
    for (auto& th : threads) th.join();
    EXPECT_GE(manager.GetBufferCount(), 10002u);
}

}  // namespace
