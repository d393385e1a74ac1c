// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "dvb_text.h"
#include "layout.h"

namespace {

using tool::laid_out;
using tool::table_layout;
using tool::wrapped;

TEST(Layout, ColumnsAreAsWideAsTheirContents)
{
    const table_layout table{{{"SID", true}, {"Name"}}, {{"1", "One"}, {"65535", "Many"}}};
    EXPECT_EQ(laid_out(table, 80, 2), "    SID  Name\n"
                                      "      1  One\n"
                                      "  65535  Many\n");
}

TEST(Layout, WideCharactersTakeTwoColumns)
{
    const table_layout table{{{"Name"}, {"X"}}, {{"新聞", "1"}, {"abcdef", "2"}}};
    EXPECT_EQ(laid_out(table, 80, 0), "Name    X\n"
                                      "新聞    1\n"
                                      "abcdef  2\n");
}

TEST(Layout, EmptyColumnIsLeftOut)
{
    const table_layout table{{{"LCN", true}, {"Name"}}, {{"", "One"}, {"", "Two"}}};
    EXPECT_EQ(laid_out(table, 80, 0), "Name\nOne\nTwo\n");
}

TEST(Layout, NoLineIsWiderThanTheTerminal)
{
    table_layout table{{{"SID", true}, {"Audio", false, true}, {"Name", false, true}}, {}};
    table.rows.push_back({"1",
                          "101 MPEG eng, 102 AC-3 deu, 103 AAC fra, 104 MPEG ita, 105 MPEG spa",
                          "A service with quite a long name that goes on and on and on and on"});
    std::istringstream lines{laid_out(table, 80, 2)};
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_LE(tool::display_width(line), 80u) << line;
    EXPECT_GT(count, 2u);
}

TEST(Layout, NothingIsLostWhenACellWraps)
{
    const table_layout table{{{"A", false, true}}, {{"one two three four five six seven eight"}}};
    std::istringstream words{laid_out(table, 14, 0)};
    std::string all;
    for (std::string word; words >> word;)
        all += word + ' ';
    EXPECT_EQ(all, "A one two three four five six seven eight ");
}

TEST(Wrapped, BreaksAtBlanks)
{
    EXPECT_EQ(wrapped("one two three", 7), (std::vector<std::string>{"one two", "three"}));
    EXPECT_EQ(wrapped("one two three", 6), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(wrapped("", 6), (std::vector<std::string>{""}));
}

TEST(Wrapped, BreaksAWordThatIsTooLong)
{
    EXPECT_EQ(wrapped("abcdefgh", 3), (std::vector<std::string>{"abc", "def", "gh"}));
    EXPECT_EQ(wrapped("新聞夜線", 5), (std::vector<std::string>{"新聞", "夜線"}));
}

} // namespace
