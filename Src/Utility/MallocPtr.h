// MallocPtr.h - ownership of malloc/realloc storage.
//
// Several file formats are grown in place with realloc (dictionary cells,
// word-list text, id-map pairs); their owners hold the block in a MallocPtr so
// that every path out of a function releases it with free, exactly once.
#pragma once

#include <cstdlib>
#include <memory>

// Deleter for storage from malloc, calloc or realloc.
struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

// An owned malloc'd array of T (T trivially copyable: realloc moves bytes).
template <typename T>
using MallocPtr = std::unique_ptr<T[], FreeDeleter>;
