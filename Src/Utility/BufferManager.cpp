// BufferManager.cpp - batched release of returned texts.
//
// Registration appends to a vector, oldest first. Before each registration a
// release pass may run: when more than 10 * kLimit (20,000) entries are
// registered it frees the oldest 5 * kLimit (10,000) and erases them from the
// front, so in the steady state the list swings between 10,002 and 20,001
// entries. With exactly 20,000 entries a pass is entered and abandoned; the
// registration that finds 20,001 frees. Freeing takes the lock per entry and
// only touches non-null entries, so overlapping passes never free twice.
#include "BufferManager.h"

#include <cstring>

#include "global_linux.h"

CBufferManager* g_pBufManager = nullptr;

namespace {

constexpr int kLimit = 2000;

}  // namespace

CBufferManager::CBufferManager() : m_nBufferWritingThread(0) {
    pthread_mutex_init(&m_hBuffer, nullptr);
}

CBufferManager::~CBufferManager() {
    ReleaseBuf(true);
    pthread_mutex_destroy(&m_hBuffer);
}

char* CBufferManager::AddBuffer(char* pBuffer) {
    ReleaseBuf(false);
    CMutexLock lock(&m_hBuffer);
    m_vecBuffer.push_back(pBuffer);
    return pBuffer;
}

char* CBufferManager::AddBuffer(const char* pBuffer) {
    ReleaseBuf(false);
    const size_t nLen = pBuffer != nullptr ? strlen(pBuffer) : 0;
    char* pNewBuf = new char[nLen + 1];
    if (nLen > 0) memcpy(pNewBuf, pBuffer, nLen);
    pNewBuf[nLen] = '\0';
    CMutexLock lock(&m_hBuffer);
    m_vecBuffer.push_back(pNewBuf);
    return pNewBuf;
}

void CBufferManager::ReleaseBuf(bool bAllClear) {
    const size_t nThreshold = 10 * kLimit;
    size_t nSize = 5 * kLimit;
    {
        // The quick exit: a pass is running, or too few entries to bother.
        CMutexLock lock(&m_hBuffer);
        if (bAllClear) nSize = m_vecBuffer.size();
        if (!bAllClear && (m_nBufferWritingThread >= 1 || m_vecBuffer.size() < nThreshold)) {
            return;
        }
        ++m_nBufferWritingThread;
        const bool bGoOn = bAllClear ? nSize > 0 : m_vecBuffer.size() > nThreshold;
        if (!bGoOn) {
            --m_nBufferWritingThread;
            return;
        }
    }
    for (size_t i = 0;; ++i) {
        CMutexLock lock(&m_hBuffer);
        if (i >= nSize || i >= m_vecBuffer.size()) break;
        delete[] m_vecBuffer[i];
        m_vecBuffer[i] = nullptr;
    }
    CMutexLock lock(&m_hBuffer);
    if (nSize < m_vecBuffer.size()) {
        m_vecBuffer.erase(m_vecBuffer.begin(), m_vecBuffer.begin() + static_cast<long>(nSize));
    }
    --m_nBufferWritingThread;
}

size_t CBufferManager::GetBufferCount() {
    CMutexLock lock(&m_hBuffer);
    return m_vecBuffer.size();
}
