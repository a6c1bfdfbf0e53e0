// Utility.h - splitting, trimming and line-taking rules for GBK byte strings.
//
// The rule-list loader, the tagged parameter reader, the document scanner and
// the code translator all read their data through these routines, so their
// exact rules (what separates, whether empty pieces survive, which full-width
// blanks are trimmed, how "^^"-marked runs come out) are part of how those
// files and texts are understood. Everything works on bytes: a byte with its
// high bit set starts a two-byte GBK character, and only gfn_bTrimWord (front),
// Getchar and CC_Find pay any attention to that.
//
// Ownership: nothing is allocated on the caller's behalf except the strings of
// the std::vector / std::string arguments. StrLine and deleteChar modify the
// caller's buffer in place.
//
// Thread-safety: no shared state; each call touches only its arguments.
#pragma once

#include <string>
#include <vector>

// Splits lpszText at every occurrence of the whole string lpszDelimiter
// (byte-exact, case-sensitive, ignoring character boundaries) into vResult,
// which is cleared first. Empty pieces are dropped: "a,,b," at "," gives
// {"a", "b"}, "," gives {} (and true). A null or empty delimiter, or one that
// does not occur, yields the whole text as the single piece. Returns false
// (vResult empty) for a null or empty text, true otherwise. Linear time.
bool gfn_bSplit(const char* lpszText, std::vector<std::string>& vResult, const char* lpszDelimiter);

// Trims sWord in place. Front: rounds of skipping blank/tab/CR/LF bytes, then
// the two-byte pairs A1 A1 (ideographic space) and A3 A0, until a round skips
// nothing. Back: likewise, where the pair test looks only at the last two bytes
// of what is left, without working out character boundaries. Inner blanks stay.
// Returns false only for an empty sWord; a word trimmed away becomes "" (true).
bool gfn_bTrimWord(std::string& sWord);

// Replaces every occurrence of sSubOld in sString, left to right; the search
// resumes just behind each inserted sSubNew, so "a"->"aa" on "aaa" gives
// "aaaaaa" (3). A null sSubNew counts as "". Returns the number of
// replacements; 0 (sString untouched) if sString is empty or sSubOld is null
// or empty. Linear time: the result is built in one pass.
unsigned int gfn_vReplaceSubstr(std::string& sString, const char* sSubOld, const char* sSubNew);

// Takes the next line out of the modifiable text pCur, in place. Sets
// *n_pStatus to 0 and *chSep to 0, skips leading blank/tab/CR/LF bytes, and
// ends the line at the first CR or LF (or the end of the text). The byte at the
// line end is saved in *chSep and overwritten with 0; *pNextRet points at it
// (null when the line runs to the end of the text). Returns the line start, or
// null (with *pNextRet null) when nothing but blanks is left or pCur is null.
// With bInvalidCharConsidered, a "^^...^^" run is its own line. The closing
// marker is the very next '^' from just behind the opening "^^" and must be
// followed by another '^'; it may lie beyond the CR/LF. When the line starts at the opening
// marker, the line is the text between the markers, the closing marker's first
// '^' is zeroed, the line end is just behind the closing marker and *n_pStatus
// is 1; otherwise the text before the opening marker is cut off as a line of
// its own (*chSep is then '^'). A line without CR/LF takes its first '^' as the
// opening marker even when no second '^' follows it (translated texts are cut
// into lines by this rule, so it decides where their segments fall).
// Callers write *chSep back at *pNextRet and continue from there. Null
// pNextRet, chSep or n_pStatus are simply not written.
char* StrLine(char* pCur, char** pNextRet, char* chSep, int* n_pStatus,
              bool bInvalidCharConsidered);

// Removes every leading and every trailing byte ch from s; inner ones stay.
// A text of ch only becomes empty.
void trim(std::string& s, char ch);

// Removes every byte ch from the first nLen bytes of source: the kept bytes
// move to the front in order, the rest of the nLen bytes become 0. Terminators
// inside the range are ordinary bytes. Returns the number kept; 0 for a null
// source or nLen 0.
unsigned int deleteChar(char* source, unsigned int nLen, char ch);

// Copies the first character of str into ch (room for 3 bytes) and terminates
// it: two bytes when the first has its high bit set and the second is not 0,
// else one. Returns the bytes taken (1 or 2), or 0 at the terminator (ch then
// ""). A null str gives 0; a null ch is not written (the length is still
// returned).
int Getchar(const char* str, char* ch);

// Character-aligned search in two-byte GBK text: the first occurrence of sSub
// in sStr if its byte offset is even, else null (a later, aligned occurrence is
// not looked for). Null for a null argument or an empty sSub.
const char* CC_Find(const char* sStr, const char* sSub);

// The bracketed part of a resource import line: from the first '[' of sLine
// (kept) up to, not including, its first ']' after it; with no ']', up to the
// line end less any trailing CR/LF bytes. "" for a null sLine or one without '['.
std::string BracketText(const char* sLine);

// The entry of one resource import line (word lists, dictionaries). Its first
// token (delimited by blank, tab, LF, VT, FF or CR; a leading UTF-8 byte-order
// mark skipped) decides: a token starting with '[' gives BracketText(sLine),
// so the entry keeps its '[' and may hold blanks; else the token itself
// ("" for a token that was only the mark). Every '_' becomes ' '. Returns false
// (sEntry untouched) for a null sLine or a line without a token.
bool ParseImportEntry(const char* sLine, std::string& sEntry);
