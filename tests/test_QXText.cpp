// Text into GBK with each byte's source offset: documents in UTF-8 and
// GB18030 character by character, rule lists in GBK or UTF-8 with the
// encoding decision and diagnostics at their places.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "QXRuleText.h"
#include "QXText.h"

namespace {

using qx::RuleEncoding;
using qx::TextEncoding;

// Rows: encoding, bytes -> GBK, source offset per GBK byte, problems as
// "offset+length" with "!" for an invalid byte. Nothing is dropped or moved.
TEST(QXText, DocumentsConvertExactlyWithPlaceholdersAtTheirPlaces) {
    const std::string kPh = qx::kNoGbkPlaceholder;
    const std::tuple<TextEncoding, std::string, std::string, std::vector<uint32_t>, std::string>
        kRows[] = {{TextEncoding::kUtf8,
                    "\t a\r\n\xE4\xB8\xAD\t",
                    "\t a\r\n\xD6\xD0\t",  // 中
                    {0, 1, 2, 3, 4, 5, 5, 8},
                    ""},
                   {TextEncoding::kUtf8,
                    "\xF0\x9F\x98\x80x\xFF",
                    kPh + "x" + kPh,
                    {0, 0, 4, 5, 5},
                    "0+4 5+1! "},
                   {TextEncoding::kGb18030,
                    "\xD6\xD0\xA2\xE3\x95\x32\x82\x36",
                    "\xD6\xD0\x80" + kPh,
                    {0, 0, 2, 4, 4},
                    "4+4 "},  // 中, €, U+20000
                   {TextEncoding::kGb18030,
                    "\x80\x81 a",
                    kPh + kPh + " a",
                    {0, 0, 1, 1, 2, 3},
                    "0+1! 1+1! "}};
    for (const auto& [eEnc, sBytes, sGbk, vSource, sProblems] : kRows) {
        SCOPED_TRACE(testing::PrintToString(sBytes));
        qx::GbkText text;
        std::vector<qx::TextProblem> vProblems;
        qx::CToGbk(eEnc).Convert(sBytes, 0, text, vProblems);
        std::string sGot;
        for (const auto& x : vProblems)
            sGot += std::to_string(x.nOffset) + "+" + std::to_string(x.nLen) +
                    (x.bInvalid ? "! " : " ");
        EXPECT_EQ(text.sGbk, sGbk);
        EXPECT_EQ(text.vSource, vSource);
        EXPECT_EQ(sGot, sProblems);
    }
}

TEST(QXRuleText, EncodingIsDecidedByMarkThenByValidMultiByteUtf8) {
    const std::tuple<std::string, RuleEncoding> kRows[] = {
        {"<a>1</a>", RuleEncoding::kGbk},                  // ASCII reads the same either way
        {"\xEF\xBB\xBF<a>1</a>", RuleEncoding::kUtf8},     // byte-order mark
        {"<a>\xE4\xB8\xAD</a>", RuleEncoding::kUtf8},      // 中 in UTF-8
        {"<a>\xD6\xD0</a>", RuleEncoding::kGbk},           // 中 in GBK is no UTF-8
        {"\xC0\x80\xE4\xB8\xAD", RuleEncoding::kGbk},      // overlong NUL
        {"\xED\xA0\x80\xE4\xB8\xAD", RuleEncoding::kGbk},  // surrogate
        {"\xF4\x90\x80\x80", RuleEncoding::kGbk},          // above U+10FFFF
        {"\xE4\xB8", RuleEncoding::kGbk}};                 // cut short
    for (const auto& [sBytes, eWant] : kRows)
        EXPECT_EQ(qx::DetectRuleEncoding(sBytes), eWant) << testing::PrintToString(sBytes);
}

// Rows: bytes, forced encoding -> GBK text, source offsets, diagnostics, ok.
TEST(QXRuleText, ConversionKeepsSourceOffsetsAndPlacesEveryProblem) {
    const std::string kPh = qx::kNoGbkPlaceholder;
    const std::tuple<std::string, RuleEncoding, std::string, std::vector<uint32_t>, std::string,
                     bool>
        kRows[] = {{"a\n\xE4\xB8\xAD"
                    "b",
                    RuleEncoding::kAuto,
                    "a\n\xD6\xD0"
                    "b",
                    {0, 1, 2, 2, 5},
                    "",
                    true},
                   {"\xEF\xBB\xBFz", RuleEncoding::kAuto, "z", {3}, "", true},
                   {"x\n  \xF0\x9F\x98\x80;\xE2\x82\xAC",
                    RuleEncoding::kUtf8,
                    "x\n  " + kPh + ";\x80",
                    {0, 1, 2, 3, 4, 4, 8, 9},
                    "r:2:3: error: character U+1F600 (\xF0\x9F\x98\x80) has no GBK form\n",
                    false},
                   {"a\xFF"
                    "b",
                    RuleEncoding::kUtf8,
                    "a" + kPh + "b",
                    {0, 1, 1, 2},
                    "r:1:2: warning: byte 0xFF is not valid UTF-8\n",
                    true},
                   {"a\x80\xFE\xFE\n\xD6\xD0\xD6",  // 80 is the euro sign; FE FE unmapped
                    RuleEncoding::kGbk,
                    "a\x80\xFE\xFE\n\xD6\xD0\xD6",
                    {},
                    "r:1:3: warning: byte 0xFE is not valid GBK\n"
                    "r:1:4: warning: byte 0xFE is not valid GBK\n"
                    "r:2:3: warning: byte 0xD6 is not valid GBK\n",
                    true}};
    for (const auto& [sBytes, eEnc, sGbk, vSource, sDiags, bOk] : kRows) {
        SCOPED_TRACE(testing::PrintToString(sBytes));
        qx::RuleText text;
        std::vector<qx::Diagnostic> vDiags;
        EXPECT_EQ(qx::DecodeRuleText(sBytes, eEnc, "r", text, vDiags), bOk);
        EXPECT_EQ(text.sGbk, sGbk);
        EXPECT_EQ(text.vSource, vSource);
        EXPECT_EQ(qx::FormatDiagnostics(vDiags), sDiags);
        EXPECT_EQ(text.SourceOffset(text.sGbk.size()), sBytes.size());  // the end maps to the end
    }
}

}  // namespace
