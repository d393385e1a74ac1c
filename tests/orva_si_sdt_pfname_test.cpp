// SPDX-License-Identifier: LGPL-2.1-or-later
// The preferred names of a service and their languages.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "fakes/platform.h"
#include "orva_si/query_service.h"
#include "orva_si/query_text.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/one_service.h"

using namespace test;

namespace {

using u8 = std::uint8_t;
using u32 = std::uint32_t;

// The languages of the client: those not listed here leave the number as it is.
u32 number_of_language(const char *code, u32 *number)
{
    EXPECT_EQ(std::strlen(code), 3u);
    constexpr struct {
        const char *code;
        u32 number;
    } known[] = {{"eng", 10}, {"cym", 20}, {"gla", 0x80000001}};
    for (const auto &language : known)
        if (std::strcmp(code, language.code) == 0)
            *number = language.number;
    return ORVA_SI_FAILURE; // which is nothing to the library
}

u32 preferred_name_of(u32 network, u32 language, u32 id, SiDvbString *out)
{
    return Orva_Si_GetPfNameByID(network, served_ts, served_sid, language, out, id);
}

// The name, or nothing.
std::string name_of(u32 language, u32 id)
{
    SiDvbString out{};
    const u32 result = preferred_name_of(served_network, language, id, &out);
    EXPECT_LE(result, ORVA_SI_FAILURE);
    return result == ORVA_SI_OK ? text_of(out) : "none";
}

u32 languages_of_names(u32 *out, u32 *count)
{
    return Orva_Si_GetPfNameLangList(served_network, served_ts, served_sid, out, count);
}

class PreferredNames : public testing::Test {
protected:
    PreferredNames() { Orva_Si_InstallISO639toIDFunc(number_of_language); }

    const octets two_languages =
        preferred_name_list({{"eng", {{.id = 1, .name = "Seven"}, {.id = 2, .name = "Eight"}}},
                             {"cym", {{.id = 1, .name = "Saith"}}}});
};

TEST_F(PreferredNames, AreFoundByLanguageAndNumber)
{
    serve_ours({two_languages});
    EXPECT_EQ(name_of(10, 1), "Seven");
    EXPECT_EQ(name_of(10, 2), "Eight");
    EXPECT_EQ(name_of(20, 1), "Saith");
    EXPECT_EQ(name_of(20, 2), "none");
    EXPECT_EQ(name_of(30, 1), "none");
    EXPECT_EQ(name_of(10, 3), "none");
}

TEST_F(PreferredNames, LanguagesAreComparedIn32Bits)
{
    serve_ours({preferred_name_list({{"gla", {{.id = 255, .name = "Seachd"}}}})});
    EXPECT_EQ(name_of(0x80000001, 255), "Seachd");
    EXPECT_EQ(name_of(1, 255), "none");
}

TEST_F(PreferredNames, ALanguageThatTheClientDoesNotKnowHasTheNumberZero)
{
    serve_ours({preferred_name_list(
        {{"eng", {{.id = 1, .name = "Seven"}}}, {"xxx", {{.id = 1, .name = "Sept"}}}})});
    EXPECT_EQ(name_of(0, 1), "Sept");
    expect_list(languages_of_names, std::vector<u32>{10, 0});
}

TEST_F(PreferredNames, MayBeEmptyOrHaveACharacterTable)
{
    serve_ours({preferred_name_list({{"eng", {{.id = 1}, {.id = 2, .name = "\x05Z"}}}})});
    SiDvbString name{.charset_type = 99, .text = {'x'}, .length = 99};
    EXPECT_EQ(preferred_name_of(served_network, 10, 1, &name), ORVA_SI_OK);
    EXPECT_EQ(name.length, 0);
    EXPECT_EQ(name.charset_type, 0u);
    EXPECT_EQ(preferred_name_of(served_network, 10, 2, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Z");
    EXPECT_EQ(name.charset_type, 5u);
}

TEST_F(PreferredNames, OfTheNetworkAllOf16BitsAreCompared)
{
    serve_ours({two_languages});
    SiDvbString name{.charset_type = 99, .text = {}, .length = 99};
    EXPECT_EQ(preferred_name_of(served_network + 1, 10, 1, &name), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(4, "get a not matched original network!\n")) << fake::log_text();
    EXPECT_EQ(preferred_name_of(0xFFFF, 10, 1, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(name.length, 99);
    EXPECT_EQ(preferred_name_of(0x70000 | served_network, 10, 1, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Seven");
}

TEST_F(PreferredNames, TheSearchIsTraced)
{
    serve_ours({two_languages});
    EXPECT_EQ(name_of(10, 2), "Eight");
    EXPECT_TRUE(fake::logged(4, "get the match orig_id = 0x20\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the current lang id = 10, the passed = 10\n"));
    EXPECT_TRUE(fake::logged(4, "current name_id = 0x1, the passed = 0x2\n"));
    EXPECT_TRUE(fake::logged(4, "current name_id = 0x2, the passed = 0x2\n"));
    name_of(20, 1);
    EXPECT_TRUE(fake::logged(4, "the current lang id = 10, the passed = 20\n"));
    EXPECT_TRUE(fake::logged(4, "the current lang id = 20, the passed = 20\n"));
}

TEST_F(PreferredNames, AMissingListIsTraced)
{
    serve_ours({service_descriptor(1, "P", "N")});
    EXPECT_EQ(name_of(10, 1), "none");
    EXPECT_TRUE(fake::logged("sdt_pf_name_list_descriptor == NULL\n")) << fake::log_text();
}

TEST_F(PreferredNames, TablesOfTwoNetworksAreToldApart)
{
    const auto of_network = [](u8 table_id, std::uint16_t network, std::string_view name) {
        return make(
            sdt{.table_id = table_id,
                .ts = served_ts,
                .original_network = network,
                .services = {{.id = served_sid,
                              .descriptors = {private_data_specifier(served_specifier),
                                              preferred_name_list({{"eng", {{.name = name}}}})}}}});
    };
    store(of_network(0x42, 0x20, "Here"));
    store(of_network(0x46, 0x21, "There"));
    SiDvbString name{};
    EXPECT_EQ(preferred_name_of(0x21, 10, 1, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "There");
    EXPECT_EQ(preferred_name_of(0x20, 10, 1, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Here");
}

TEST_F(PreferredNames, ADescriptorWithoutAWholeEntryIsPassedOver)
{
    for (const octets &bad : std::vector<octets>{{}, {'e'}, {'e', 'n'}, {'e', 'n', 'g'}}) {
        serve_ours({raw(0x84, bad), two_languages});
        EXPECT_EQ(name_of(10, 1), "Seven") << testing::PrintToString(bad);
        expect_list(languages_of_names, std::vector<u32>{10, 20});
    }
}

TEST_F(PreferredNames, ANameThatRunsPastTheEndIsNotRead)
{
    for (const octets &bad : std::vector<octets>{{'e', 'n', 'g', 1},
                                                 {'e', 'n', 'g', 1, 1},
                                                 {'e', 'n', 'g', 1, 1, 1},
                                                 {'e', 'n', 'g', 1, 1, 3, 'B', 'a'},
                                                 {'e', 'n', 'g', 255, 1, 255, 'B'}}) {
        serve_ours({raw(0x84, bad)});
        EXPECT_EQ(name_of(10, 1), "none") << testing::PrintToString(bad);
    }
}

TEST_F(PreferredNames, LanguagesAreListedEntryByEntry)
{
    serve_ours({two_languages, preferred_name_list({{"gla", {}}, {"eng", {{.name = "Again"}}}})});
    expect_list(languages_of_names, std::vector<u32>{10, 20, 0x80000001, 10});
    EXPECT_FALSE(fake::logged("wrong do SiISO639Map2ID\n);")) << fake::log_text();
}

TEST_F(PreferredNames, LanguagesAreWrittenOverWhatWasThere)
{
    serve_ours({preferred_name_list({{"xxx", {}}})});
    u32 language = 0xA5A5A5A5;
    u32 count = 1;
    EXPECT_EQ(languages_of_names(&language, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(language, 0u);
}

TEST(PreferredNameLanguages, AreAskedForOnlyWhereThereIsRoom)
{
    static u32 asked;
    asked = 0;
    Orva_Si_InstallISO639toIDFunc([](const char *, u32 *) {
        ++asked;
        return 0u;
    });
    serve_ours({preferred_name_list({{"eng", {}}, {"cym", {}}, {"gla", {}}})});
    u32 list[2] = {};
    u32 count = 2;
    EXPECT_EQ(languages_of_names(list, &count), ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(asked, 2u);
}

TEST_F(PreferredNames, OfAnotherNetworkHaveNoLanguages)
{
    serve_ours({two_languages});
    expect_empty<u32>(
        [](u32 *out, u32 *count) {
            return Orva_Si_GetPfNameLangList(served_network + 1, served_ts, served_sid, out, count);
        },
        ORVA_SI_NO_DATA);
    EXPECT_TRUE(fake::logged(4, "get a not matched original network!\n")) << fake::log_text();
}

TEST(PreferredNamesWithoutLanguageFunction, AreAllOfTheLanguageZero)
{
    serve_ours({preferred_name_list(
        {{"eng", {{.id = 1, .name = "Seven"}}}, {"cym", {{.id = 2, .name = "Wyth"}}}})});
    EXPECT_EQ(name_of(0, 1), "Seven");
    EXPECT_EQ(name_of(0, 2), "Wyth");
    EXPECT_EQ(name_of(10, 1), "none");
    EXPECT_TRUE(fake::logged(2, "Not install language function\n")) << fake::log_text();
    expect_list(languages_of_names, std::vector<u32>{0, 0});
}

} // namespace
