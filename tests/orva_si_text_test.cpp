// SPDX-License-Identifier: LGPL-2.1-or-later
// Text fields and language ids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "fakes/platform.h"
#include "orva_si/query_text.h"
#include "orva_si/result.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

SiDvbString processed(const octets &source)
{
    SiDvbString text{};
    std::memset(&text, 0x55, sizeof text);
    EXPECT_EQ(Orva_Si_ProcessString(&text, source.data(), static_cast<int>(source.size())),
              ORVA_SI_OK);
    return text;
}

octets letters(std::size_t count)
{
    octets all;
    for (std::size_t i = 0; i < count; ++i)
        all.push_back(static_cast<std::uint8_t>('a' + i % 26));
    return all;
}

octets selected(std::uint8_t selector, std::size_t letter_count)
{
    octets all = letters(letter_count);
    all.insert(all.begin(), selector);
    return all;
}

bool is_zero(const SiDvbString &text)
{
    return text.charset_type == 0 && text.length == 0 &&
           std::ranges::all_of(text.text, [](std::uint8_t c) { return c == 0; });
}

TEST(ProcessString, ASelectorStandsInCharsetTypeOnly)
{
    const SiDvbString text = processed({0x05, 'A', 'B'});
    EXPECT_EQ(text.charset_type, 5u);
    EXPECT_EQ(text.length, 2);
    EXPECT_EQ(text_of(text), "AB");
    EXPECT_EQ(text.text[2], 0);
}

TEST(ProcessString, AFirstCharacterStandsInBoth)
{
    const SiDvbString text = processed({'A', 'B'});
    EXPECT_EQ(text.charset_type, 0x41u);
    EXPECT_EQ(text.length, 2);
    EXPECT_EQ(text_of(text), "AB");
}

TEST(ProcessString, EveryFirstByteIsTheCharsetTypeAndOnly01To1FIsTakenOffTheText)
{
    for (unsigned first = 0; first <= 0xFF; ++first) {
        SCOPED_TRACE(first);
        const auto byte = static_cast<std::uint8_t>(first);
        const SiDvbString text = processed({byte, 'X', 'Y'});
        EXPECT_EQ(text.charset_type, first);
        const bool selector = first >= 0x01 && first <= 0x1F;
        EXPECT_EQ(text.length, selector ? 2 : 3);
        EXPECT_EQ(text.text[0], selector ? 'X' : byte);
    }
}

TEST(ProcessString, BytesBehindAMultiByteSelectorStayInTheText)
{
    const SiDvbString text = processed({0x10, 0x00, 0x05, 'A'});
    EXPECT_EQ(text.charset_type, 0x10u);
    EXPECT_EQ(text_of(text), (std::string{'\0', '\x05', 'A'}));
    EXPECT_EQ(processed({0x1F, 0x01, 'A'}).length, 2);
}

TEST(ProcessString, AllOfTheRestOfTheRecordIsCleared)
{
    const SiDvbString text = processed({'A', 'B'});
    EXPECT_TRUE(std::all_of(text.text + 2, text.text + 256, [](std::uint8_t c) { return c == 0; }));
}

TEST(ProcessString, LongTextWithASelectorEndsAt256BytesWithoutTerminator)
{
    for (const std::size_t length : {257u, 258u, 300u}) {
        SCOPED_TRACE(length);
        const octets source = selected(0x05, length - 1);
        const SiDvbString text = processed(source);
        EXPECT_EQ(text.length, 256);
        EXPECT_TRUE(std::equal(text.text, text.text + 256, source.begin() + 1));
        EXPECT_NE(text.text[255], 0);
    }
}

TEST(ProcessString, ASelectorAnd255LettersAreTerminated)
{
    const SiDvbString text = processed(selected(0x05, 255));
    EXPECT_EQ(text.length, 255);
    EXPECT_EQ(text.text[255], 0);
}

TEST(ProcessString, LongTextWithoutSelectorEndsAt256Bytes)
{
    for (const std::size_t length : {256u, 257u, 300u}) {
        SCOPED_TRACE(length);
        const octets source = letters(length);
        const SiDvbString text = processed(source);
        EXPECT_EQ(text.length, 256);
        EXPECT_TRUE(std::equal(text.text, text.text + 256, source.begin()));
    }
    EXPECT_EQ(processed(letters(255)).length, 255);
}

TEST(ProcessString, ASelectorAloneIsAnEmptyText)
{
    const SiDvbString text = processed({0x05});
    EXPECT_EQ(text.charset_type, 5u);
    EXPECT_EQ(text.length, 0);
    EXPECT_EQ(text.text[0], 0);
}

TEST(ProcessString, NoLengthIsAnEmptyRecord)
{
    SiDvbString text;
    std::memset(&text, 0x55, sizeof text);
    const std::uint8_t source[] = {'A'};
    EXPECT_EQ(Orva_Si_ProcessString(&text, source, 0), ORVA_SI_OK);
    EXPECT_TRUE(is_zero(text));
    EXPECT_TRUE(fake::logged(4, "SiProcessString, string length is zero\n")) << fake::log_text();
}

TEST(ProcessString, ANegativeLengthIsNone)
{
    SiDvbString text;
    std::memset(&text, 0x55, sizeof text);
    const std::uint8_t source[] = {'A'};
    EXPECT_EQ(Orva_Si_ProcessString(&text, source, -1), ORVA_SI_OK);
    EXPECT_TRUE(is_zero(text));
}

TEST(ProcessString, ANullPointerIsRefused)
{
    SiDvbString text{};
    const std::uint8_t source[] = {'A'};
    EXPECT_EQ(Orva_Si_ProcessString(nullptr, source, 1), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_EQ(Orva_Si_ProcessString(&text, nullptr, 1), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_EQ(fake::times_logged("\nSiProcessString, destsource Is NULL\n"), 2u);
    EXPECT_TRUE(fake::logged(4, "\nSiProcessString, destsource Is NULL\n"));
}

std::uint32_t german_only(const char *code, std::uint32_t *id)
{
    *id = std::string_view{code} == "deu" ? 49 : 0;
    return 77; // nobody asks for it
}

std::uint32_t another(const char *, std::uint32_t *id)
{
    *id = 1000;
    return 0;
}

TEST(LanguageFunction, MapsACodeOnceInstalled)
{
    EXPECT_EQ(Orva_Si_InstallISO639toIDFunc(german_only), ORVA_SI_OK);
    EXPECT_EQ(SiLanguageFunc, german_only);
    std::uint32_t id = 5;
    EXPECT_EQ(Orva_Si_ISO639Map2ID("deu", &id), ORVA_SI_OK);
    EXPECT_EQ(id, 49u);
}

TEST(LanguageFunction, TheFirstOneStays)
{
    ASSERT_EQ(Orva_Si_InstallISO639toIDFunc(german_only), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_InstallISO639toIDFunc(another), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Don't install Language tranfer function more than once!\n"));
    std::uint32_t id = 5;
    Orva_Si_ISO639Map2ID("deu", &id);
    EXPECT_EQ(id, 49u);
}

TEST(LanguageFunction, ANullOneIsRefused)
{
    EXPECT_EQ(Orva_Si_InstallISO639toIDFunc(nullptr), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "NULL function pointer\n"));
    EXPECT_EQ(SiLanguageFunc, nullptr);
    EXPECT_EQ(Orva_Si_InstallISO639toIDFunc(german_only), ORVA_SI_OK);
}

TEST(LanguageFunction, WithoutOneTheIdStaysAsItWas)
{
    std::uint32_t id = 5;
    EXPECT_EQ(Orva_Si_ISO639Map2ID("deu", &id), ORVA_SI_OK);
    EXPECT_EQ(id, 5u);
    EXPECT_TRUE(fake::logged(2, "Not install language function\n"));
}

} // namespace
