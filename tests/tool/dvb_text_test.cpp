// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "dvb_text.h"

namespace {

using tool::dvb_text;
using field = std::vector<std::uint8_t>;

field operator+(field head, std::string_view text)
{
    head.insert(head.end(), text.begin(), text.end());
    return head;
}

// The characters of a text that a terminal or a parser must never be given.
bool is_clean(const std::string &text, bool line_breaks = true)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte < 0x20 && !(line_breaks && byte == '\n')) || byte == 0x7F)
            return false;
        if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0)
            return false;
    }
    return true;
}

// A strict reader of UTF-8 (RFC 3629) that shares nothing with the converter.
bool is_utf8(const std::string &text)
{
    try {
        (void)nlohmann::json(text).dump();
    } catch (const nlohmann::json::exception &) {
        return false;
    }
    return true;
}

struct one_byte {
    std::uint8_t selector;
    std::uint8_t byte;
    const char *character;
};

void PrintTo(const one_byte &table, std::ostream *out)
{
    *out << "byte " << int{table.byte};
}

class OneByteTables : public testing::TestWithParam<one_byte> {};

TEST_P(OneByteTables, TheirSelectorChoosesThem)
{
    EXPECT_EQ(dvb_text(field{GetParam().selector, 'a', GetParam().byte}),
              std::string{"a"} + GetParam().character);
}

// A byte of each part of ISO/IEC 8859 that no other part gives the same meaning.
INSTANTIATE_TEST_SUITE_P(DvbText, OneByteTables,
                         testing::Values(one_byte{0x01, 0xD9, "й"}, one_byte{0x02, 0xC7, "ا"},
                                         one_byte{0x03, 0xE1, "α"}, one_byte{0x04, 0xE0, "א"},
                                         one_byte{0x05, 0xFE, "ş"}, one_byte{0x06, 0xBD, "―"},
                                         one_byte{0x07, 0xA1, "ก"}, one_byte{0x09, 0xF8, "ų"},
                                         one_byte{0x0A, 0xF0, "ŵ"}, one_byte{0x0B, 0xA4, "€"}),
                         [](const auto &table) {
                             return "Selector" + std::to_string(int{table.param.selector});
                         });

TEST(DvbText, WithoutSelectorIsIso6937WithTheEuroSign)
{
    EXPECT_EQ(dvb_text(field{} + "News 24"), "News 24");
    EXPECT_EQ(dvb_text(field{0xA4, '5'}), "€5");
    EXPECT_EQ(dvb_text(field{'$', 0xA8, 0xA3}), "$¤£");
    EXPECT_EQ(dvb_text(field{0xE0, 0xE1, 0xE2, 0xE8, 0xE9, 0xEA, 0xF1, 0xF2, 0xFB}),
              "\u2126ÆĐŁØŒæđß");
}

TEST(DvbText, DiacriticalMarksOfIso6937ComeOutComposed)
{
    EXPECT_EQ(dvb_text(field{0xCF, 'C', 'e', 0xCF, 's', 'i'}), "Češi");
    EXPECT_EQ(dvb_text(field{0xC1, 'a', 0xC2, 'e', 0xC3, 'o', 0xC4, 'n', 0xC8, 'u', 0xCA, 'U'}),
              "àéôñüŮ");
    EXPECT_EQ(dvb_text(field{0xC5, 'a', 0xC6, 'a', 0xC7, 'z', 0xCB, 'c', 0xCD, 'o', 0xCE, 'e'}),
              "āăżçőę");
}

TEST(DvbText, MarkWithoutAComposedLetterFollowsItsLetter)
{
    EXPECT_EQ(dvb_text(field{0xCA, 'J'}), "J\u030A");
    EXPECT_EQ(dvb_text(field{0xC2, 'q', 'x'}), "q\u0301x");
}

TEST(DvbText, LoneMarkIsReplaced)
{
    EXPECT_EQ(dvb_text(field{'a', 0xC2}), "a\uFFFD");
    EXPECT_EQ(dvb_text(field{0xC2, 0xE1}), "\uFFFDÆ");
    EXPECT_EQ(dvb_text(field{0xC9, 'a'}), "\uFFFDa");
}

TEST(DvbText, ThreeByteSelectorChoosesAPartOfIso8859)
{
    EXPECT_EQ(dvb_text(field{0x10, 0x00, 0x02, 'H', 0xED, 'r', 'a', 'd', 0xF3}), "Híradó");
    EXPECT_EQ(dvb_text(field{0x10, 0x00, 0x01, 0xE9}), "é");
    EXPECT_EQ(dvb_text(field{0x10, 0x00, 0x05, 0xD9}), "й");
    EXPECT_EQ(dvb_text(field{0x10, 0x00, 0x0F, 0xA4}), "€");
}

TEST(DvbText, ThreeByteSelectorThatIsNotAssignedIsReplaced)
{
    const field refused[] = {{0x10, 0x00, 0x00, 'a'},
                             {0x10, 0x00, 0x0C, 'a'},
                             {0x10, 0x00, 0x10, 'a'},
                             {0x10, 0x01, 0x02, 'a'},
                             {0x10, 0x00},
                             {0x10}};
    for (const field &text : refused)
        EXPECT_EQ(dvb_text(text), "\uFFFD");
}

TEST(DvbText, SixteenBitTables)
{
    EXPECT_EQ(dvb_text(field{0x11, 0x00, 'A', 0x04, 0x16, 0x4E, 0x2D}), "AЖ中");
    EXPECT_EQ(dvb_text(field{0x14, 0x65, 0xB0, 0x00, 'A', 0x59, 0x22}), "新A夢");
}

TEST(DvbText, SixteenBitTextThatIsCutOrUnpairedIsReplaced)
{
    EXPECT_EQ(dvb_text(field{0x11, 0x00, 'A', 0x4E}), "A\uFFFD");
    EXPECT_EQ(dvb_text(field{0x11, 0xDC, 0x00, 0x00, 'A'}), "\uFFFDA");
    EXPECT_EQ(dvb_text(field{0x11, 0xFF, 0xFE, 0x00, 'A'}), "\uFFFDA");
}

TEST(DvbText, KoreanAndChineseTables)
{
    EXPECT_EQ(dvb_text(field{0x12, 0xC7, 0xD1, 0xB1, 0xB9, ' ', 'T', 'V'}), "한국 TV");
    EXPECT_EQ(dvb_text(field{0x13, 0xD6, 0xD0, 0xB9, 0xFA, '1'}), "中国1");
}

TEST(DvbText, Utf8Table)
{
    EXPECT_EQ(dvb_text(field{0x15} + "Čt 中 😀"), "Čt 中 😀");
    EXPECT_EQ(dvb_text(field{0x15, 'a', 0xC0, 0xAF, 'b', 0xE4, 0xB8}), "a\uFFFD\uFFFDb\uFFFD");
}

TEST(DvbText, CompressedTextIsReplaced)
{
    EXPECT_EQ(dvb_text(field{0x1F, 0x01, 'c', 0xD8, 0x97}), "\uFFFD");
    EXPECT_EQ(dvb_text(field{0x1F, 0x02, 'c', 0xD8, 0x97}), "\uFFFD");
    EXPECT_EQ(dvb_text(field{0x1F}), "\uFFFD");
}

TEST(DvbText, ReservedSelectorsAreReplaced)
{
    for (const int selector :
         {0x08, 0x0C, 0x0D, 0x0E, 0x0F, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E})
        EXPECT_EQ(dvb_text(field{static_cast<std::uint8_t>(selector), 'a', 'b'}), "\uFFFD");
}

TEST(DvbText, EmptyFieldIsEmpty)
{
    EXPECT_EQ(dvb_text(field{}), "");
    EXPECT_EQ(dvb_text(field{0x05}), "");
}

TEST(DvbText, ControlCodesOfOneByte)
{
    EXPECT_EQ(dvb_text(field{0x05, 0x86, 'L', 'a', 0x87}), "La");
    EXPECT_EQ(dvb_text(field{'a', 0x8A, 'b'}), "a\nb");
    EXPECT_EQ(dvb_text(field{0x12, 'a', 0x86, 'b', 0x8A}), "ab\n");
    EXPECT_EQ(dvb_text(field{0x13, 'a', 0x86, 'b', 0x8A}), "ab\n");
    EXPECT_EQ(dvb_text(field{'a', 0x1B, '[', '3', '1', 'm', 0x9B, 0x00, 0x7F}), "a[31m");
}

TEST(DvbText, ControlCodesOfSixteenBits)
{
    EXPECT_EQ(dvb_text(field{0x11, 0xE0, 0x86, 0x00, 'a', 0xE0, 0x87, 0xE0, 0x8A, 0x00, 'b'}),
              "a\nb");
    EXPECT_EQ(dvb_text(field{0x15} + "\uE086a\uE087\uE08Ab\u0086"), "a\nb");
}

TEST(DvbText, DirectionOverridesAreLeftOut)
{
    EXPECT_EQ(dvb_text(field{0x15} + "a\u202Eb\u2066c\u200F"), "abc");
}

TEST(DvbText, DefaultTableIsForTextWithoutSelectorOnly)
{
    EXPECT_EQ(dvb_text(field{'a', 0xFE}, "ISO-8859-9"), "aş");
    EXPECT_EQ(dvb_text(field{0x01, 'a', 0xD9}, "ISO-8859-9"), "aй");
    EXPECT_EQ(dvb_text(field{'a', 0x80}, "WINDOWS-1252"), "a€");
}

TEST(DvbText, KnowsWhichTablesExist)
{
    EXPECT_TRUE(tool::is_character_table("ISO-8859-9"));
    EXPECT_TRUE(tool::is_character_table("UTF-8"));
    EXPECT_FALSE(tool::is_character_table("no-such-table"));
    EXPECT_FALSE(tool::is_character_table(""));
    EXPECT_FALSE(tool::is_character_table("UTF-8//TRANSLIT"));
}

TEST(DvbText, HostileBytesGiveCleanUtf8)
{
    std::mt19937 random{20240311};
    for (int round = 0; round < 20000; ++round) {
        field text(random() % 40);
        for (std::uint8_t &byte : text)
            byte = static_cast<std::uint8_t>(random());
        if (!text.empty() && round % 2 != 0)
            text[0] = static_cast<std::uint8_t>(random() % 0x20);
        const std::string out = dvb_text(text);
        ASSERT_TRUE(is_utf8(out)) << testing::PrintToString(text);
        ASSERT_TRUE(is_clean(out)) << testing::PrintToString(text);
        ASSERT_TRUE(is_clean(tool::one_line(out), false)) << testing::PrintToString(text);
    }
}

TEST(OneLine, KeepsTextAndReplacesWhatIsNone)
{
    EXPECT_EQ(tool::one_line("Č\n中"), "Č 中");
    EXPECT_EQ(tool::one_line("a\x1B[31m"), "a\uFFFD[31m");
    EXPECT_EQ(tool::one_line("a\xFF\xC3"), "a\uFFFD\uFFFD");
}

TEST(DisplayWidth, CountsWideAndCombiningCharacters)
{
    EXPECT_EQ(tool::display_width("abc"), 3u);
    EXPECT_EQ(tool::display_width("Češi"), 4u);
    EXPECT_EQ(tool::display_width("新聞"), 4u);
    EXPECT_EQ(tool::display_width("J\u030A"), 1u);
    EXPECT_EQ(tool::display_width("한국TV"), 6u);
}

TEST(DisplayWidth, TextIsCutBetweenCharacters)
{
    EXPECT_EQ(tool::fitting("新聞a", 3), "新");
    EXPECT_EQ(tool::fitting("新聞a", 5), "新聞a");
    EXPECT_EQ(tool::fitting("新", 1), "新");
    EXPECT_EQ(tool::fitting("aJ\u030Ab", 2), "aJ\u030A");
}

field from_hex(const std::string &hex)
{
    field bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

// Every {"hex", "text"} of a golden file.
void collect_texts(const nlohmann::json &node, std::vector<std::pair<field, std::string>> &texts)
{
    if (node.is_object() && node.size() == 2 && node.contains("hex") && node.contains("text")) {
        if (node["text"].is_string())
            texts.emplace_back(from_hex(node["hex"]), node["text"]);
        return;
    }
    if (node.is_structured())
        for (const nlohmann::json &child : node)
            collect_texts(child, texts);
}

// The golden texts are for reading: they show a mark without a composed letter before its letter.
bool has_stray_mark(const std::string &text)
{
    return text.find("\u030A") != std::string::npos;
}

TEST(Captures, TextsReadAsTheirGoldenFilesSay)
{
    const char *folder = std::getenv("ORVA_CAPTURES");
    if (folder == nullptr || *folder == '\0')
        GTEST_SKIP() << "ORVA_CAPTURES is not set";
    std::vector<std::pair<field, std::string>> texts;
    for (const auto &file :
         std::filesystem::directory_iterator{std::filesystem::path{folder} / "golden"})
        if (std::ifstream in{file.path()}; file.path().extension() == ".json")
            collect_texts(nlohmann::json::parse(in), texts);
    ASSERT_GT(texts.size(), 1000u);
    std::size_t stray = 0;
    for (const auto &[bytes, text] : texts) {
        if (has_stray_mark(text)) {
            ++stray;
            continue;
        }
        EXPECT_EQ(dvb_text(bytes), text) << testing::PrintToString(bytes);
    }
    EXPECT_LT(stray, 3u);
}

} // namespace
