// QXClassifier.h - the public interface of libqxclassifier.so.
//
// This header (with QXDoc.h, which it includes) is all a caller needs. The
// library sorts Chinese documents into classes by a hand-written rule list:
// classifier_init loads the list once, then each classification call returns
// a text naming the chosen classes, and classifier_detail explains one class
// of the last document.
//
// State: one engine per process, shared by every call below. The calls take
// no lock; the caller serialises all of them (one thread at a time).
//
// Encoding: with `encode` 0 (or any value outside 1..5) every text goes in and
// comes out as GBK bytes, unchanged. Codes 1..5 ask for a translator for
// UTF-8, BIG5 or GBKA callers (see classifier_init).
//
// Returned texts: zero-terminated, owned by the library; never free them. A
// text stays valid for at least the next 10,000 texts the library hands out,
// and until classifier_exit. Failures return false / null and leave a message
// for classifier_GetLastErrorMsg; no call throws.
//
// Result text (iType 1): "<class> <weight %.4f>\t" per chosen class, best
// first, e.g. "\xCC\xE5\xD3\xFD 1.0000\t" (体育 1.0000); iType 0 writes
// "<class>\t" per class; any other iType gives "". No class: "".
#pragma once

#include "QXDoc.h"
#include "QXExport.h"

extern "C" {

// Log switch: only the value 1 (the default) appends messages to
// "<YYYYMMDD>.log" / ".err" in the working directory of the first write.
QX_EXPORT extern unsigned char g_bLog;

// Loads the rule list `conf` (GBK tagged text) and prepares the library.
// sInitDirPath: data directory; null or "" means the working directory.
// encode: 0 (GBK) as a rule; 1..5 need the translator's resources under
// "<dir>/Data" and fail without them. The fourth argument is not read (pass
// null). A second call without classifier_exit appends the new rules to the
// loaded ones. Null conf is treated as "". Returns true on success; false
// leaves "Cannot open  file <path>" (two blanks) as the last error, keeps
// whatever was loaded before and, on a first call, leaves the library
// uninitialised.
QX_EXPORT bool classifier_init(const char* conf, const char* sInitDirPath, int encode,
                               const char* sReserved);

// Releases the rules, the translator and every returned text. Harmless when
// nothing is loaded, and when called twice. classifier_init may follow.
QX_EXPORT void classifier_exit();

// Sets the perfect-match similarity of every loaded rule to fSim when fSim is
// not <= 0 (so NaN is stored too); 0 or below changes nothing. Lasts until the
// rule list is loaded again.
QX_EXPORT void classifier_setsimthresh(float fSim);

// Turns the progress lines that loading prints to standard output (the
// number of every rule as classifier_init reads it) on (nOn != 0, the
// default) or off, for this and every later call. Returns the previous
// setting (1 on, 0 off). Safe to call at any time, from any thread.
QX_EXPORT int classifier_setprogress(int nOn);

// The last error message (UTF-8 when init was called with encode 1, else
// GBK); "" when none. Never null unless memory runs out. Before init (or after
// exit) the text stays valid until the next call of this function.
QX_EXPORT const char* classifier_GetLastErrorMsg();

// Classifies document d; iType 0: class names, 1: names with weights. With a
// translator the five fields of d are replaced by their GBK form; with encode
// 0 d is left unchanged. Returns the result text ("" when nothing matched), or
// null when the library is not initialised (last error "Classifier not
// initialised").
QX_EXPORT const char* classifier_exec1(stDoc& d, int iType);

// classifier_exec1 on a document with this title and content and empty
// author, board and data type. Null texts are taken as "".
QX_EXPORT const char* classifier_exec(const char* sTitle, const char* sContent, int iType);

// Classifies the bytes of file sFilenameO (in the caller's encoding), with the
// name as given as title. Missing, unreadable or empty file (or null name):
// null, last error "Failed read file <path>".
QX_EXPORT const char* classifier_execFile(const char* sFilenameO, int iType);

// Which rules and keywords made class classnameO on the last classified
// document: per fired rule "RULE<r>:\n" then "SUBRULE<j>: <hits>\n" per
// sub-rule. "" when no fired rule names the class (or for a null name).
// Null when the library is not initialised.
QX_EXPORT const char* classifier_detail(const char* classnameO);

}  // extern "C"
