// BufferManager.h - owner of every text the library hands to its callers.
//
// Returned texts are never freed on the caller's request. Each one is
// registered here when it is handed out, and the manager frees old ones in
// batches long after they were returned, so a caller may keep using a result
// for a while. Policy, kept exactly: nothing is freed while at most 20,000
// buffers are registered; the registration that finds more than 20,000 frees
// and removes the oldest 10,000 before appending its own. So every returned
// buffer stays valid for at least the next 10,000 registrations. Destruction
// frees everything still registered, each buffer exactly once.
//
// Thread-safety: registrations from several threads are safe (one mutex guards
// the list and the pass counter).
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class CBufferManager {
  public:
    CBufferManager();
    ~CBufferManager();
    CBufferManager(const CBufferManager&) = delete;
    CBufferManager& operator=(const CBufferManager&) = delete;

    // Takes ownership of pBuffer (allocated with new[]) and returns it.
    // Runs a release pass first (ReleaseBuf(false)).
    char* AddBuffer(char* pBuffer);

    // Registers a new[] copy of the zero-terminated text and returns the copy;
    // the caller keeps its own text. A null text registers an empty string.
    char* AddBuffer(const char* pBuffer);

    // bAllClear: frees every registered buffer (entries stay as nulls).
    // Otherwise frees and removes the oldest 10,000 when more than 20,000 are
    // registered and no other pass is running.
    void ReleaseBuf(bool bAllClear);

    // Number of list entries (freed-but-kept entries included).
    size_t GetBufferCount();

  private:
    pthread_mutex_t m_hBuffer;
    std::vector<char*> m_vecBuffer;  // oldest first; null once freed
    int32_t m_nBufferWritingThread;  // release passes in progress
};

// The library's manager; created by classifier_init, destroyed by
// classifier_exit. Null before that: returned texts are then the caller's.
extern CBufferManager* g_pBufManager;
