// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "language.h"
#include "orva_si/query_text.h"

namespace {

using testing::ElementsAre;

TEST(Language, NumberHoldsTheLettersAndGivesThemBack)
{
    EXPECT_EQ(tool::language_id('d', 'e', 'u'), 0x646575u);
    EXPECT_EQ(tool::language_code(0x646575), "deu");
    EXPECT_NE(tool::language_id('d', 'e', 'u'), tool::language_id('D', 'E', 'U'));
}

TEST(Language, CodeThatIsNoTextIsFitForATerminal)
{
    EXPECT_EQ(tool::language_code(tool::language_id('a', 0x1B, 'b')), "a\uFFFDb");
}

TEST(Language, LibraryUsesTheSameNumbers)
{
    tool::install_languages();
    std::uint32_t id = 0;
    EXPECT_EQ(Orva_Si_ISO639Map2ID("fra", &id), ORVA_SI_OK);
    EXPECT_EQ(id, tool::language_id('f', 'r', 'a'));
}

TEST(Language, BothCodesOfALanguageAndBothCasesAreTheSame)
{
    EXPECT_TRUE(tool::same_language("ger", "deu"));
    EXPECT_TRUE(tool::same_language("FRE", "fra"));
    EXPECT_TRUE(tool::same_language("ENG", "eng"));
    EXPECT_FALSE(tool::same_language("eng", "enm"));
    EXPECT_FALSE(tool::same_language("deu", "dut"));
}

TEST(LanguageList, TakesCodesOfThreeLetters)
{
    const auto list = tool::language_list("deu,ENG");
    ASSERT_TRUE(list.has_value());
    EXPECT_THAT(*list, ElementsAre("deu", "ENG"));
    for (const char *text : {"", "de", "deut", "deu,", ",deu", "deu,,eng", "deu eng", "d3u"})
        EXPECT_FALSE(tool::language_list(text).has_value()) << text;
}

TEST(BestLanguage, FirstOneWantedThatThereIs)
{
    const std::vector<std::string> codes{"fra", "eng", "ger"};
    EXPECT_EQ(tool::best_language(codes, {"deu", "eng"}), 2u);
    EXPECT_EQ(tool::best_language(codes, {"ita", "eng"}), 1u);
    EXPECT_EQ(tool::best_language(codes, {"ita"}), 0u);
    EXPECT_EQ(tool::best_language(codes, {}), 0u);
}

} // namespace
