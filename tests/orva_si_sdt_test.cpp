// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about services.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "fakes/platform.h"
#include "orva_si/query_service.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using ids = std::vector<std::uint16_t>;

octets named(std::string_view name, std::uint8_t type = 1)
{
    return service_descriptor(type, "Provider", name);
}

// An SDT actual of transport stream 1, network 0x20, and an SDT other of transport stream 7,
// network 0x21.
class Services : public testing::Test {
protected:
    void SetUp() override
    {
        store(
            make(sdt{.ts = 1,
                     .original_network = 0x20,
                     .services = {{.id = 0x101, .running_status = 1, .descriptors = {named("One")}},
                                  {.id = 0x102,
                                   .eit_schedule = true,
                                   .eit_present_following = true,
                                   .running_status = 4,
                                   .free_ca_mode = true,
                                   .descriptors = {named("Two", 0x19)}}}}));
        store(make(sdt{.table_id = 0x46,
                       .ts = 7,
                       .original_network = 0x21,
                       .services = {{.id = 0x701, .descriptors = {named("Seven")}}}}));
        fake::clear_log();
    }
};

class ServiceName : public Services {};

TEST_F(ServiceName, IsReadFromTheTunedMultiplex)
{
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetServiceName(0x102, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Two");
    EXPECT_EQ(name.charset_type, static_cast<std::uint32_t>('T'));
}

TEST_F(ServiceName, OtherMultiplexIsReadOnlyByItsTransportStream)
{
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetServiceName(0x701, &name), ORVA_SI_FAILURE);
    ASSERT_EQ(Orva_Si_GetServName(7, 0x701, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Seven");
}

TEST_F(ServiceName, ATransportStreamIdAlsoReachesTheTunedMultiplex)
{
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetServName(1, 0x101, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "One");
}

TEST_F(ServiceName, UnknownServiceOrTransportStreamLeavesTheRecord)
{
    SiDvbString name{.charset_type = 99, .text = {}, .length = 99};
    EXPECT_EQ(Orva_Si_GetServiceName(0x999, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServName(7, 0x101, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServName(8, 0x701, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(name.charset_type, 99u);
    EXPECT_EQ(name.length, 99);
}

TEST_F(ServiceName, OfTheIdsTheLow16BitsCount)
{
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetServiceName(0xABCD0102, &name), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetServName(0x50007, 0x30701, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Seven");
}

TEST_F(ServiceName, ANullRecordIsRefused)
{
    expect_refused([] { return Orva_Si_GetServiceName(0x101, nullptr); }, "pname");
    expect_refused([] { return Orva_Si_GetServName(1, 0x101, nullptr); }, "pname");
}

TEST(ServiceNameDescriptor, TheFirstThatIsWellFormedGivesTheAnswer)
{
    const auto trailing = raw(0x48, {1, 1, 'P', 1, 'x', 0xFF}); // a byte behind the name: refused
    const auto overlong = raw(0x48, {1, 0, 9, 'x'});            // the name runs past the end
    store(make(
        sdt{.services = {
                {.id = 5, .descriptors = {trailing, overlong, named("Good"), named("Later")}}}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetServiceName(5, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Good");
}

TEST(ServiceNameDescriptor, WithoutOneTheServiceHasNoName)
{
    store(make(sdt{.services = {{.id = 5}, {.id = 6, .descriptors = {raw(0x48, {1})}}}}));
    SiDvbString name{};
    std::uint8_t type = 0;
    EXPECT_EQ(Orva_Si_GetServiceName(5, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServiceType(5, &type), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServiceName(6, &name), ORVA_SI_FAILURE);
}

TEST(ServiceNameDescriptor, AnEmptyNameIsAnAnswer)
{
    store(make(sdt{.services = {{.id = 5, .descriptors = {service_descriptor(1, "", "")}}}}));
    SiDvbString name{.charset_type = 99, .text = {}, .length = 99};
    ASSERT_EQ(Orva_Si_GetServiceName(5, &name), ORVA_SI_OK);
    EXPECT_EQ(name.length, 0);
    EXPECT_EQ(name.charset_type, 0u);
}

TEST(ServiceNameDescriptor, OnlyTheFirstServiceOfAnIdIsAskedInASection)
{
    store(make(sdt{.services = {{.id = 5}, {.id = 5, .descriptors = {named("Second")}}}}));
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetServiceName(5, &name), ORVA_SI_FAILURE);
}

TEST(ServiceNameDescriptor, ALaterSectionMayAnswer)
{
    store(make(sdt{.last_section_number = 1, .services = {{.id = 5}}}));
    store(make(sdt{.section_number = 1,
                   .last_section_number = 1,
                   .services = {{.id = 5, .descriptors = {named("There")}}}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetServiceName(5, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "There");
}

TEST_F(Services, TypeComesFromTheServiceDescriptor)
{
    std::uint8_t type = 0;
    EXPECT_EQ(Orva_Si_GetServiceType(0x102, &type), ORVA_SI_OK);
    EXPECT_EQ(type, 0x19);
    EXPECT_TRUE(fake::logged(4, "the type = 0x19\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_GetServType(7, 0x701, &type), ORVA_SI_OK);
    EXPECT_EQ(type, 0x01);
    EXPECT_EQ(Orva_Si_GetServiceType(0x701, &type), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServType(1, 0x701, &type), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetServiceType(0x101, nullptr); }, "ptype");
    expect_refused([] { return Orva_Si_GetServType(1, 0x101, nullptr); }, "ptype");
}

TEST_F(Services, EncryptedIsTheFreeCaMode)
{
    std::uint8_t mode = 9;
    EXPECT_EQ(Orva_Si_GetServiceEncrypted(0x102, &mode), ORVA_SI_OK);
    EXPECT_EQ(mode, 1);
    EXPECT_TRUE(fake::logged(4, "get the matched service id = 0x102's free_CA_mode=0x1\n"))
        << fake::log_text();
    EXPECT_EQ(Orva_Si_GetServEncrypted(7, 0x701, &mode), ORVA_SI_OK);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(Orva_Si_GetServiceEncrypted(0x701, &mode), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServEncrypted(1, 0x701, &mode), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetServiceEncrypted(0x101, nullptr); }, "pencrypted");
    expect_refused([] { return Orva_Si_GetServEncrypted(1, 0x101, nullptr); }, "pencrypted");
}

TEST_F(Services, FreeCaMode)
{
    std::uint8_t mode = 9;
    EXPECT_EQ(Orva_Si_GetFreeCaMode(0x101, &mode), ORVA_SI_OK);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(Orva_Si_GetServFreeCaMode(1, 0x102, &mode), ORVA_SI_OK);
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(Orva_Si_GetFreeCaMode(0x701, &mode), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServFreeCaMode(1, 0x701, &mode), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetFreeCaMode(0x101, nullptr); }, "free_ca_mode");
    expect_refused([] { return Orva_Si_GetServFreeCaMode(1, 0x101, nullptr); }, "free_ca_mode");
}

TEST_F(Services, RunningStatus)
{
    std::uint8_t status = 9;
    EXPECT_EQ(Orva_Si_GetRunningStatus(0x101, &status), ORVA_SI_OK);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(Orva_Si_GetServRunningStatus(1, 0x102, &status), ORVA_SI_OK);
    EXPECT_EQ(status, 4);
    EXPECT_EQ(Orva_Si_GetRunningStatus(0x701, &status), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServRunningStatus(1, 0x701, &status), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetRunningStatus(0x101, nullptr); }, "running_status");
    expect_refused([] { return Orva_Si_GetServRunningStatus(1, 0x101, nullptr); },
                   "running_status");
}

TEST(RunningStatus, AllThreeBitsCountAndNoneOfTheirNeighbours)
{
    for (std::uint8_t status = 0; status < 8; ++status)
        for (const bool scrambled : {false, true}) {
            const auto sid = static_cast<std::uint16_t>(0x100 + 2 * status + (scrambled ? 1 : 0));
            store(make(sdt{
                .ts = sid,
                .services = {{.id = sid, .running_status = status, .free_ca_mode = scrambled}}}));
            std::uint8_t answer = 9;
            EXPECT_EQ(Orva_Si_GetServRunningStatus(sid, sid, &answer), ORVA_SI_OK);
            EXPECT_EQ(answer, status);
            EXPECT_EQ(Orva_Si_GetServFreeCaMode(sid, sid, &answer), ORVA_SI_OK);
            EXPECT_EQ(answer, scrambled ? 1 : 0);
        }
}

TEST_F(Services, EitScheduleFlag)
{
    std::uint8_t flag = 9;
    EXPECT_EQ(Orva_Si_GetEitSchedFlag(0x102, &flag), ORVA_SI_OK);
    EXPECT_EQ(flag, 1);
    EXPECT_TRUE(fake::logged(4, "serv_id = 0x102 -> sched flag = 1\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_GetServEitSchedFlag(7, 0x701, &flag), ORVA_SI_OK);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(Orva_Si_GetEitSchedFlag(0x701, &flag), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServEitSchedFlag(1, 0x701, &flag), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetEitSchedFlag(0x101, nullptr); }, "eit_schedule_flag");
    expect_refused([] { return Orva_Si_GetServEitSchedFlag(1, 0x101, nullptr); },
                   "eit_schedule_flag");
}

TEST_F(Services, EitPresentFollowingFlag)
{
    std::uint8_t flag = 9;
    EXPECT_EQ(Orva_Si_GetEitPfFlag(0x101, &flag), ORVA_SI_OK);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(Orva_Si_GetServEitPfFlag(1, 0x102, &flag), ORVA_SI_OK);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(Orva_Si_GetEitPfFlag(0x701, &flag), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetServEitPfFlag(1, 0x701, &flag), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetEitPfFlag(0x101, nullptr); }, "eit_pf_flag");
    expect_refused([] { return Orva_Si_GetServEitPfFlag(1, 0x101, nullptr); }, "eit_pf_flag");
}

TEST(EitFlags, AreNotMixedUp)
{
    store(make(sdt{
        .services = {{.id = 1, .eit_schedule = true}, {.id = 2, .eit_present_following = true}}}));
    std::uint8_t flag = 9;
    Orva_Si_GetEitSchedFlag(1, &flag);
    EXPECT_EQ(flag, 1);
    Orva_Si_GetEitPfFlag(1, &flag);
    EXPECT_EQ(flag, 0);
    Orva_Si_GetEitSchedFlag(2, &flag);
    EXPECT_EQ(flag, 0);
    Orva_Si_GetEitPfFlag(2, &flag);
    EXPECT_EQ(flag, 1);
}

TEST_F(Services, TransportStreamOfTheTunedMultiplex)
{
    std::uint16_t ts = 0;
    EXPECT_EQ(Orva_Si_GetActTsId(&ts), ORVA_SI_OK);
    EXPECT_EQ(ts, 1);
    EXPECT_TRUE(fake::logged(4, "ts id = 0x1\n")) << fake::log_text();
    expect_refused([] { return Orva_Si_GetActTsId(nullptr); }, "ptsid");
}

TEST_F(Services, OriginalNetworks)
{
    std::uint16_t onit = 0;
    EXPECT_EQ(Orva_Si_GetActOnitId(&onit), ORVA_SI_OK);
    EXPECT_EQ(onit, 0x20);
    EXPECT_TRUE(fake::logged(4, "the onit id = 0x20\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_GetOnitId(7, &onit), ORVA_SI_OK);
    EXPECT_EQ(onit, 0x21);
    EXPECT_EQ(Orva_Si_GetOnitId(8, &onit), ORVA_SI_FAILURE);
    expect_refused([] { return Orva_Si_GetActOnitId(nullptr); }, "ponit");
    expect_refused([] { return Orva_Si_GetOnitId(7, nullptr); }, "ponit");
}

TEST(TunedMultiplex, IsUnknownWhileOnlyOthersAreStored)
{
    store(make(sdt{.table_id = 0x46, .ts = 7, .services = {{.id = 0x701}}}));
    std::uint16_t id = 99;
    EXPECT_EQ(Orva_Si_GetActTsId(&id), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetActOnitId(&id), ORVA_SI_FAILURE);
    EXPECT_EQ(id, 99);
    expect_empty<std::uint16_t>(Orva_Si_GetActServIdList, ORVA_SI_NO_DATA);
}

auto services_of(std::uint32_t ts)
{
    return [ts](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetServIdList(ts, list, count);
    };
}

TEST_F(Services, ListsOfIds)
{
    expect_list(Orva_Si_GetActServIdList, ids{0x101, 0x102});
    expect_list(services_of(1), ids{0x101, 0x102});
    expect_list(services_of(7), ids{0x701});
}

TEST_F(Services, ATransportStreamThatIsNotStoredHasAnEmptyList)
{
    expect_empty<std::uint16_t>(services_of(8), ORVA_SI_OK);
}

TEST(ServiceIds, WithoutAnSdtActualThereIsNoData)
{
    init_store();
    expect_empty<std::uint16_t>(Orva_Si_GetActServIdList, ORVA_SI_NO_DATA);
    expect_empty<std::uint16_t>(services_of(1), ORVA_SI_OK);
}

TEST(ServiceIds, AnIncompleteSdtIsAnEmptyList)
{
    store(make(sdt{.last_section_number = 1, .services = {{.id = 1}}}));
    expect_empty<std::uint16_t>(services_of(1), ORVA_SI_OK);
    expect_empty<std::uint16_t>(Orva_Si_GetActServIdList, ORVA_SI_NO_DATA);
}

TEST(ServiceIds, SectionsComeInTheOrderOfTheirArrival)
{
    store(make(
        sdt{.section_number = 1, .last_section_number = 1, .services = {{.id = 30}, {.id = 10}}}));
    store(make(sdt{.section_number = 0, .last_section_number = 1, .services = {{.id = 20}}}));
    expect_list(Orva_Si_GetActServIdList, ids{30, 10, 20});
}

TEST(ServiceIds, ActualAndOtherOfATransportStreamAreBothListed)
{
    store(make(sdt{.ts = 4, .services = {{.id = 5}}}));
    store(make(sdt{.table_id = 0x46, .ts = 4, .services = {{.id = 5}, {.id = 6}}}));
    expect_list(services_of(4), ids{5, 5, 6});
    expect_list(Orva_Si_GetActServIdList, ids{5});
}

TEST(ServiceIds, NullArgumentsAreRefusedInTheirOrder)
{
    std::uint16_t id = 0;
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetActServIdList(nullptr, nullptr); }, "servlist");
    expect_refused([&] { return Orva_Si_GetActServIdList(nullptr, &count); }, "servlist");
    expect_refused([&] { return Orva_Si_GetActServIdList(&id, nullptr); }, "pcount");
    expect_refused([&] { return Orva_Si_GetServIdList(1, nullptr, &count); }, "servlist");
    expect_refused([&] { return Orva_Si_GetServIdList(1, &id, nullptr); }, "pcount");
    EXPECT_EQ(count, 1u);
}

TEST_F(Services, AllTransportStreams)
{
    expect_list(Orva_Si_GetSdtAllTsList, ids{1, 7});
}

TEST(TransportStreams, AreListedOncePerSection)
{
    store(make(sdt{.ts = 3, .last_section_number = 1, .services = {{.id = 1}}}));
    store(
        make(sdt{.ts = 3, .section_number = 1, .last_section_number = 1, .services = {{.id = 2}}}));
    expect_list(Orva_Si_GetSdtAllTsList, ids{3, 3});
}

TEST(TransportStreams, ABouquetIsNoTransportStream)
{
    store(make(bat{.bouquet = 9, .descriptors = {bouquet_name("Sports")}}));
    store(make(sdt{.ts = 3}));
    expect_list(Orva_Si_GetSdtAllTsList, ids{3});
}

TEST(TransportStreams, OfNothingThereIsNoData)
{
    init_store();
    expect_empty<std::uint16_t>(Orva_Si_GetSdtAllTsList, ORVA_SI_NO_DATA);
    std::uint16_t id = 0;
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetSdtAllTsList(nullptr, &count); }, "list");
    expect_refused([&] { return Orva_Si_GetSdtAllTsList(&id, nullptr); }, "pcount");
}

} // namespace
