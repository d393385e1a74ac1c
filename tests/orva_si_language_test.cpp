// SPDX-License-Identifier: LGPL-2.1-or-later
// A language that cannot be numbered: the question is answered all the same, and the log says so.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "fakes/platform.h"
#include "orva_si.h"
#include "support/descriptors.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

bool numbering_fails = false;

} // namespace

extern "C" {

std::uint32_t __real_Orva_Si_ISO639Map2ID(const char *iso639_code, std::uint32_t *language_id);
std::uint32_t __wrap_Orva_Si_ISO639Map2ID(const char *iso639_code, std::uint32_t *language_id)
{
    return numbering_fails ? ORVA_SI_FAILURE
                           : __real_Orva_Si_ISO639Map2ID(iso639_code, language_id);
}

} // extern "C"

namespace {

constexpr std::uint16_t event_id = 7;

std::uint32_t number_of(const char *code, std::uint32_t *language)
{
    *language = static_cast<unsigned char>(code[0]);
    return 0;
}

// The languages of an event's names, as told.
struct told_languages {
    std::uint32_t result;
    std::uint32_t count;
    std::array<std::uint32_t, 4> ids;
};

told_languages languages_of_names()
{
    constexpr std::uint32_t untouched = 0xA5A5A5A5;
    told_languages told{0, 4, {untouched, untouched, untouched, untouched}};
    told.result = Orva_Si_GetEvtNameLangList(1, 1, 1, event_id, told.ids.data(), &told.count, 0);
    return told;
}

class Language : public testing::Test {
protected:
    Language()
    {
        init_store();
        Orva_Si_InstallISO639toIDFunc(number_of);
        octets section =
            make(eit{.table_id = 0x50,
                     .events = {{.id = event_id,
                                 .descriptors = {short_event("eng", "Name", "Text"),
                                                 short_event("deu", "Name", "Text")}}}});
        Orva_Si_ListEitImpl(1, 1, 1, 0x50, 0, static_cast<std::uint16_t>(section.size()),
                            section.data());
        fake::clear_log();
    }
};

TEST_F(Language, IsTheClientsNumber)
{
    const told_languages told = languages_of_names();
    EXPECT_EQ(told.result, ORVA_SI_OK);
    ASSERT_EQ(told.count, 2u);
    EXPECT_EQ(told.ids[0], std::uint32_t{'e'});
    EXPECT_EQ(told.ids[1], std::uint32_t{'d'});
    EXPECT_FALSE(fake::logged("wrong do SiISO639Map2ID\n);"));
}

TEST_F(Language, ThatCannotBeNumberedIsZeroAndLogged)
{
    numbering_fails = true;
    const told_languages told = languages_of_names();
    EXPECT_EQ(told.result, ORVA_SI_OK);
    ASSERT_GE(told.count, 1u);
    EXPECT_EQ(told.ids[0], 0u);
    EXPECT_TRUE(fake::logged(ORVA_DEBUG_ERROR, "wrong do SiISO639Map2ID\n);"));
}

TEST(EventId, OfNoEventIsEqualToNone)
{
    EXPECT_EQ(Orva_Si_IsEqual_EventId(nullptr, nullptr, 0, 0), 0u);
}

} // namespace
