// QXExport.h - marks the names libqxclassifier.so exports.
//
// The library is compiled with hidden visibility: a name is exported only when
// its declaration carries QX_EXPORT. The public headers put it on every
// classifier_ call and on g_bLog; nothing else leaves the shared library, so
// callers cannot bind to internal C++ symbols that change between versions.
#pragma once

#if defined(__GNUC__)
#define QX_EXPORT __attribute__((visibility("default")))
#else
#define QX_EXPORT
#endif
