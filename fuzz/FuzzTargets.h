// FuzzTargets.h - the library's fuzz entry points, shared by the libFuzzer
// build (clang, QX_FUZZ=ON) and the deterministic replay driver that CTest
// runs with any compiler.
#pragma once

#include <cstddef>
#include <cstdint>

// Each takes arbitrary bytes and must neither crash nor hang nor leak.
int FuzzRuleList(const uint8_t* pData, size_t nSize);     // loader + one document
int FuzzPdatLoad(const uint8_t* pData, size_t nSize);     // dictionary file + lookups
int FuzzParamReader(const uint8_t* pData, size_t nSize);  // tagged reader lookups
int FuzzCodeTran(const uint8_t* pData, size_t nSize);     // translation both ways
