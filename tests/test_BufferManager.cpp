// Release policy and ownership of the result buffer manager. Array new and
// delete are replaced in this binary: every array carries a hidden serial
// number, so the tests can tell exactly which registrations were freed and how
// often, even when the allocator hands a freed address out again.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "BufferManager.h"

namespace {

constexpr std::size_t kHeader = 16;  // keeps the user pointer 16-byte aligned
std::atomic<uint64_t> g_nNextSerial{1};
std::mutex g_freeMutex;
bool g_bTracking = false;                    // guarded by g_freeMutex
std::unordered_map<uint64_t, int> g_counts;  // serial -> times freed, while tracking

uint64_t SerialOf(const void* p) {
    uint64_t nSerial;
    memcpy(&nSerial, static_cast<const char*>(p) - kHeader, sizeof(nSerial));
    return nSerial;
}

void TrackedFree(void* p) {
    if (p == nullptr) return;
    {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        if (g_bTracking) ++g_counts[SerialOf(p)];
    }
    std::free(static_cast<char*>(p) - kHeader);
}

}  // namespace

void* operator new[](std::size_t n) {
    char* pRaw = static_cast<char*>(std::malloc(n + kHeader));
    if (pRaw == nullptr) throw std::bad_alloc();
    const uint64_t nSerial = g_nNextSerial++;
    memcpy(pRaw, &nSerial, sizeof(nSerial));
    return pRaw + kHeader;
}
void operator delete[](void* p) noexcept {
    TrackedFree(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    TrackedFree(p);
}

namespace {

// Counts, while alive, how often each array allocation is freed.
struct FreeTracker {
    FreeTracker() { Set(true); }
    ~FreeTracker() { Set(false); }
    static void Set(bool bOn) {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        g_counts.clear();
        g_bTracking = bOn;
    }
    int TimesFreed(uint64_t nSerial) {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        auto it = g_counts.find(nSerial);
        return it == g_counts.end() ? 0 : it->second;
    }
    size_t DistinctFreed() {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        return g_counts.size();
    }
};

// A registered buffer: its pointer and the serial of its allocation.
struct Registered {
    char* p;
    uint64_t serial;
};

// Registers a copy of "result #i", or hands over a new[] array holding it.
Registered Register(CBufferManager& manager, int i, bool bHandOver = false) {
    const std::string s = "result #" + std::to_string(i);
    char* p = bHandOver ? manager.AddBuffer(strcpy(new char[s.size() + 1], s.c_str()))
                        : manager.AddBuffer(s.c_str());
    return {p, SerialOf(p)};
}

TEST(BufferManager, FreesOldestTenThousandOnlyPastTwentyThousandAndEachBufferOnce) {
    FreeTracker tracker;
    std::vector<Registered> buffers;
    {
        CBufferManager manager;
        for (int i = 0; i < 45000; ++i) {
            buffers.push_back(Register(manager, i));
            const size_t nCount = manager.GetBufferCount();
            if (i == 20000) {  // 20,000 registered: a pass starts and is abandoned
                ASSERT_EQ(nCount, 20001u);
                ASSERT_EQ(tracker.DistinctFreed(), 0u);
            } else if (i == 20001) {  // 20,001: the oldest 10,000 go before this one
                ASSERT_EQ(nCount, 10002u);
                ASSERT_EQ(tracker.DistinctFreed(), 10000u);
                for (int j = 0; j < 10000; ++j) ASSERT_EQ(tracker.TimesFreed(buffers[j].serial), 1);
            } else if (i > 20001) {
                ASSERT_GE(nCount, 10002u) << i;
                ASSERT_LE(nCount, 20001u) << i;
            }
            // Every result stays valid for the next 10,000 registrations.
            ASSERT_TRUE(i < 10000 || tracker.TimesFreed(buffers[i - 10000].serial) == 0) << i;
        }
    }
    // Destruction frees the rest; nothing is freed twice.
    EXPECT_EQ(tracker.DistinctFreed(), buffers.size());
    for (const Registered& r : buffers) ASSERT_EQ(tracker.TimesFreed(r.serial), 1);
}

TEST(BufferManager, OwnershipOfBothRegistrationForms) {
    FreeTracker tracker;
    char sCallerText[] = "caller's text";
    char* pOwned = new char[8];
    const uint64_t nOwnedSerial = SerialOf(pOwned);
    {
        CBufferManager manager;
        char* pCopy = manager.AddBuffer(static_cast<const char*>(sCallerText));
        sCallerText[0] = 'X';
        EXPECT_STREQ(pCopy, "caller's text");
        EXPECT_EQ(manager.AddBuffer(pOwned), pOwned);  // taken over as is
        char* pEmpty = manager.AddBuffer(static_cast<const char*>(nullptr));
        ASSERT_NE(pEmpty, nullptr);
        EXPECT_STREQ(pEmpty, "");
        EXPECT_EQ(manager.GetBufferCount(), 3u);
    }
    EXPECT_EQ(tracker.TimesFreed(nOwnedSerial), 1);
    EXPECT_EQ(tracker.DistinctFreed(), 3u);
}

TEST(BufferManager, ConcurrentRegistrationsAreEachFreedOnce) {
    FreeTracker tracker;
    constexpr int kThreads = 4, kPerThread = 15000;
    std::vector<std::vector<Registered>> perThread(kThreads);
    {
        CBufferManager manager;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&manager, &perThread, t] {
                for (int i = 0; i < kPerThread; ++i)
                    perThread[t].push_back(Register(manager, i, t % 2 == 1));  // both forms
            });
        }
        for (auto& th : threads) th.join();
        EXPECT_LE(manager.GetBufferCount(), 20001u + kThreads);
    }
    EXPECT_EQ(tracker.DistinctFreed(), static_cast<size_t>(kThreads * kPerThread));
    for (auto& v : perThread)
        for (const Registered& r : v) ASSERT_EQ(tracker.TimesFreed(r.serial), 1);
}

}  // namespace
