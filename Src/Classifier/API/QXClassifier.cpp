// QXClassifier.cpp - the library's process-wide state and its exported calls.
//
// One engine per process: the globals below are shared by every exported call,
// which the caller serialises. classifier_init creates the buffer manager that
// owns every returned text; classifier_exit destroys it.
#include "BufferManager.h"

CBufferManager* g_pBufManager = nullptr;
