// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about events with the trace off, when a service is found without walking past others.
#include <gtest/gtest.h>

#include <cstdint>

#include "support/event_questions.h"

namespace {

using namespace test;

class QuietEvents : public EventQuery {
protected:
    QuietEvents() { fake::set_log_level(ORVA_DEBUG_ERROR); }

    static void deliver_other(std::uint16_t service)
    {
        deliver(make(eit{.table_id = 0x50, .service = service, .events = {{.id = wanted}}}));
    }
    // Takes the last service out of the list as a client would; the caller puts it back.
    static void *take_out_last()
    {
        si_list *services = Orva_Si_GetDvbEitList();
        const std::int32_t last = services->nb_elt - 1;
        void *service = si_list_get(services, last);
        si_list_remove(services, last);
        return service;
    }
};

TEST_F(QuietEvents, AServiceIsFoundAmongOthers)
{
    for (std::uint16_t other = 1; other < 100; ++other)
        deliver_other(other);
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (std::uint16_t other = 100; other < 200; ++other)
        deliver_other(other);
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner});
}

TEST_F(QuietEvents, AllThreeNumbersNameTheService)
{
    deliver(full_section(0x50));
    expect_nothing({.onid = network + 1});
    expect_nothing({.ts = stream + 1});
    expect_nothing({.service = sid + 1});
    expect_nothing({.onid = sid, .ts = stream, .service = network});
    expect_answers({});
}

TEST_F(QuietEvents, NothingIsFoundOnceTheStoreIsErased)
{
    deliver(full_section(0x50));
    expect_answers({});
    Orva_Si_EraseAllEitRawData();
    expect_nothing({});
    deliver(full_section(0x50));
    expect_answers({});
}

TEST_F(QuietEvents, AServiceThatAClientTookOutIsGoneUntilItIsBack)
{
    deliver_other(1);
    deliver(full_section(0x50));
    expect_answers({});
    void *service = take_out_last();
    expect_nothing({});
    si_list_add(Orva_Si_GetDvbEitList(), service, 0);
    expect_answers({});
}

TEST_F(QuietEvents, AnEmptyPlaceInTheListIsPassedOver)
{
    si_list_add(Orva_Si_GetDvbEitList(), nullptr, 0);
    deliver_other(1);
    deliver(full_section(0x50));
    expect_answers({});
    expect_nothing({.service = sid + 1});
}

TEST_F(QuietEvents, OfTwoRecordsOfAServiceTheFirstAnswers)
{
    deliver(full_section(0x50));
    void *older = take_out_last();
    deliver_other(1);
    deliver(make(eit{.table_id = 0x50,
                     .service = sid,
                     .ts = stream,
                     .original_network = network,
                     .events = {{.id = wanted + 1}}}));
    std::uint32_t seconds = 0;
    EXPECT_EQ(Orva_Si_GetEvtDuringTime(network, stream, sid, wanted, &seconds, in_schedule),
              ORVA_SI_FAILURE);
    si_list_add(Orva_Si_GetDvbEitList(), older, 0);
    expect_answers({});
}

} // namespace
