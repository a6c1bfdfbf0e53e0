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
std::unordered_map<uint64_t, int>* g_pFreeCounts = nullptr;  // set while a test tracks frees

uint64_t SerialOf(const void* p) {
    uint64_t nSerial;
    memcpy(&nSerial, static_cast<const char*>(p) - kHeader, sizeof(nSerial));
    return nSerial;
}

void TrackedFree(void* p) {
    if (p == nullptr) return;
    {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        if (g_pFreeCounts != nullptr) ++(*g_pFreeCounts)[SerialOf(p)];
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
class FreeTracker {
  public:
    FreeTracker() {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        g_pFreeCounts = &m_counts;
    }
    ~FreeTracker() {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        g_pFreeCounts = nullptr;
    }
    FreeTracker(const FreeTracker&) = delete;
    FreeTracker& operator=(const FreeTracker&) = delete;

    int TimesFreed(uint64_t nSerial) {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        auto it = m_counts.find(nSerial);
        return it == m_counts.end() ? 0 : it->second;
    }
    size_t DistinctFreed() {
        std::lock_guard<std::mutex> lock(g_freeMutex);
        return m_counts.size();
    }

  private:
    std::unordered_map<uint64_t, int> m_counts;
};

// A registered buffer: its pointer and the serial of its allocation.
struct Registered {
    char* p;
    uint64_t serial;
};

Registered Register(CBufferManager& manager, const std::string& sText) {
    char* p = manager.AddBuffer(sText.c_str());
    return {p, SerialOf(p)};
}

std::string Label(int i) {
    return "result #" + std::to_string(i);
}

TEST(BufferManager, FreesOldestTenThousandOnlyPastTwentyThousand) {
    FreeTracker tracker;
    std::vector<Registered> buffers;
    {
        CBufferManager manager;
        for (int i = 0; i < 20000; ++i) buffers.push_back(Register(manager, Label(i)));
        EXPECT_EQ(manager.GetBufferCount(), 20000u);
        EXPECT_EQ(tracker.DistinctFreed(), 0u);

        // 20,000 registered: a pass starts and is abandoned.
        buffers.push_back(Register(manager, Label(20000)));
        EXPECT_EQ(manager.GetBufferCount(), 20001u);
        EXPECT_EQ(tracker.DistinctFreed(), 0u);

        // 20,001 registered: the oldest 10,000 go before this one is appended.
        buffers.push_back(Register(manager, Label(20001)));
        EXPECT_EQ(manager.GetBufferCount(), 10002u);
        EXPECT_EQ(tracker.DistinctFreed(), 10000u);
        for (int i = 0; i < 10000; ++i) ASSERT_EQ(tracker.TimesFreed(buffers[i].serial), 1) << i;
        for (int i = 10000; i <= 20001; ++i) {
            ASSERT_EQ(tracker.TimesFreed(buffers[i].serial), 0) << i;
            ASSERT_STREQ(buffers[i].p, Label(i).c_str());
        }
    }
    // Destruction frees the rest, each exactly once.
    EXPECT_EQ(tracker.DistinctFreed(), buffers.size());
    for (const Registered& r : buffers) ASSERT_EQ(tracker.TimesFreed(r.serial), 1);
}

TEST(BufferManager, SteadyStateKeepsEveryResultForTenThousandRegistrations) {
    FreeTracker tracker;
    std::vector<Registered> buffers;
    {
        CBufferManager manager;
        for (int i = 0; i < 65000; ++i) {
            buffers.push_back(Register(manager, Label(i)));
            const size_t nCount = manager.GetBufferCount();
            if (i >= 20001) {
                ASSERT_GE(nCount, 10002u) << i;
                ASSERT_LE(nCount, 20001u) << i;
            }
            if (i >= 10000) {
                ASSERT_STREQ(buffers[i - 10000].p, Label(i - 10000).c_str());
            }
        }
    }
    for (const Registered& r : buffers) ASSERT_EQ(tracker.TimesFreed(r.serial), 1);
}

TEST(BufferManager, OwnershipOfBothRegistrationForms) {
    FreeTracker tracker;
    char sCallerText[] = "caller's text";
    char* pOwned = new char[8];
    strcpy(pOwned, "handed");
    const uint64_t nOwnedSerial = SerialOf(pOwned);
    {
        CBufferManager manager;
        char* pCopy = manager.AddBuffer(static_cast<const char*>(sCallerText));
        EXPECT_NE(pCopy, sCallerText);
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
    constexpr int kThreads = 4;
    constexpr int kPerThread = 15000;
    std::vector<std::vector<Registered>> perThread(kThreads);
    {
        CBufferManager manager;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&manager, &perThread, t] {
                for (int i = 0; i < kPerThread; ++i) {
                    perThread[t].push_back(Register(manager, Label(i)));
                }
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
