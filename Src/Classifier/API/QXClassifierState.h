// QXClassifierState.h - the process-wide objects behind the exported calls.
//
// Internal: for the library's own units and its tests, never installed.
// gcTParser is the one rule engine (static, constructed at load time).
// g_pCodeTranslator owns the encoding translator or is null (callers speak
// GBK). The buffer manager, the data directory and the last-error text live
// in their own units (BufferManager.h, Global.h,
// global_linux.h).
//
// Thread-safety: none; callers of the library serialise all calls.
#pragma once

#include "TextParser.h"

class CCodeTran;

extern CTextParser gcTParser;
extern CCodeTran* g_pCodeTranslator;
// The encoding code of the last classifier_init; 1 makes the last error text
// UTF-8 (classifier_GetLastErrorMsg).
extern int g_nEncodeType;
