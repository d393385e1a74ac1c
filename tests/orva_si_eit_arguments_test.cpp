// SPDX-License-Identifier: LGPL-2.1-or-later
// Missing arguments of all questions about events.
#include <gtest/gtest.h>

#include <cstdint>

#include "support/event_questions.h"

namespace {

using namespace test;
using EventArguments = EventQuery;

// ---- Missing arguments

TEST_F(EventArguments, AMissingArgumentIsRefused)
{
    deliver(full_section(0x50));
    const std::uint32_t o = network, t = stream, s = sid, e = wanted;
    std::uint16_t id = 0;
    std::uint32_t number = 1;
    SiBasicEvent basic{};
    SiExtendEvtDesc extended{};
    SiEvtContent genre{};
    SiEvtComponent part{};
    SiEvtRating rating{};

    expect_refused([&] { return Orva_Si_GetOneServEvtIds(o, t, s, nullptr, &number); }, "pevent");
    expect_refused([&] { return Orva_Si_GetOneServEvtIds(o, t, s, &id, nullptr); }, "count");
    expect_refused([&] { return Orva_Si_GetOneServEvtCount(o, t, s, nullptr); }, "count");
    expect_refused([&] { return Orva_Si_GetOneSectEvtIds(o, t, s, 0x50, 0, nullptr, &number); },
                   "pevent");
    expect_refused([&] { return Orva_Si_GetOneSectEvtIds(o, t, s, 0x50, 0, &id, nullptr); },
                   "count");
    expect_refused(
        [&] { return Orva_Si_GetOneServBscEvtInfos(o, t, s, english, 0, 0, nullptr, &number); },
        "pevent");
    expect_refused(
        [&] { return Orva_Si_GetOneServBscEvtInfos(o, t, s, english, 0, 0, &basic, nullptr); },
        "count");
    expect_refused([&] { return Orva_Si_GetGetEventIDsByStartTime(o, t, s, 0, nullptr, &number); },
                   "evtid_array != NULL");
    expect_refused([&] { return Orva_Si_GetGetEventIDsByStartTime(o, t, s, 0, &id, nullptr); },
                   "array_count != NULL");
    expect_refused(
        [&] {
            return Orva_Si_GetGetEventIDsByStartTimeAndEndTime(o, t, s, 0, ~0u, nullptr, &number);
        },
        "evtid_array != NULL");
    expect_refused(
        [&] { return Orva_Si_GetGetEventIDsByStartTimeAndEndTime(o, t, s, 0, ~0u, &id, nullptr); },
        "array_count != NULL");
    expect_refused([&] { return Orva_Si_GetBnrEvtId(o, t, s, 0, nullptr); }, "pevent_id");
    expect_refused([&] { return Orva_Si_GetEvtStartUTCTime(o, t, s, e, nullptr, 0); }, "ptime");
    expect_refused([&] { return Orva_Si_GetEvtDuringTime(o, t, s, e, nullptr, 0); },
                   "pduringtimeinsecs");
    expect_refused([&] { return Orva_Si_GetEvtNameByID(o, t, s, e, nullptr, english, 0); },
                   "peventname != NULL");
    expect_refused([&] { return Orva_Si_GetEvtNameLangList(o, t, s, e, nullptr, &number, 0); },
                   "langlist != NULL");
    expect_refused([&] { return Orva_Si_GetEvtNameLangList(o, t, s, e, &number, nullptr, 0); },
                   "psum != NULL");
    expect_refused([&] { return Orva_Si_GetShortEvtDescByID(o, t, s, e, english, nullptr, 0); },
                   "peventdesc != NULL");
    expect_refused([&] { return Orva_Si_GetShortEvtDescLangList(o, t, s, e, nullptr, &number, 0); },
                   "langlist != NULL");
    expect_refused([&] { return Orva_Si_GetShortEvtDescLangList(o, t, s, e, &number, nullptr, 0); },
                   "psum != NULL");
    expect_refused([&] { return Orva_Si_GetExtendEvtDescByID(o, t, s, e, english, nullptr, 0); },
                   "peventdesc != NULL");
    expect_refused(
        [&] { return Orva_Si_GetAllExtendEvtDescByID(o, t, s, e, english, nullptr, &number, 0); },
        "peventdesc != NULL");
    expect_refused(
        [&] { return Orva_Si_GetAllExtendEvtDescByID(o, t, s, e, english, &extended, nullptr, 0); },
        "psum != NULL");
    expect_refused([&] { return Orva_Si_GetExtendEvtDescCnt(o, t, s, e, english, nullptr, 0); },
                   "pcnt != NULL");
    expect_refused(
        [&] { return Orva_Si_GetExtendEvtDescLangList(o, t, s, e, nullptr, &number, 0); },
        "langlist != NULL");
    expect_refused(
        [&] { return Orva_Si_GetExtendEvtDescLangList(o, t, s, e, &number, nullptr, 0); },
        "psum != NULL");
    expect_refused([&] { return Orva_Si_GetEvtContentDesc(o, t, s, e, nullptr, &number, 0); },
                   "content != NULL");
    expect_refused([&] { return Orva_Si_GetEvtContentDesc(o, t, s, e, &genre, nullptr, 0); },
                   "psum != NULL");
    expect_refused([&] { return Orva_Si_GetEvtComponentDesc(o, t, s, e, nullptr, &number, 0); },
                   "comdescarray != NULL");
    expect_refused([&] { return Orva_Si_GetEvtComponentDesc(o, t, s, e, &part, nullptr, 0); },
                   "psum != NULL");
    expect_refused(
        [&] { return Orva_Si_GetEvtParentalRatingDesc(o, t, s, e, nullptr, &number, 0); },
        "rating != NULL");
    expect_refused(
        [&] { return Orva_Si_GetEvtParentalRatingDesc(o, t, s, e, &rating, nullptr, 0); },
        "psum != NULL");
    expect_refused([&] { return Orva_Si_EvtGetPfNameId(o, t, s, e, 0, nullptr, 0); }, "pf_name_id");
    EXPECT_EQ(number, 1u); // a count beside a missing array is untouched
}

TEST_F(EventArguments, ARefusalNamesTheFunctionThatWasCalled)
{
    std::uint32_t number = 1;
    Orva_Si_GetShortEvtDescLangList(network, stream, sid, wanted, nullptr, &number, 0);
    ASSERT_EQ(fake::log_lines().size(), 1u) << fake::log_text();
    EXPECT_EQ(fake::log_lines().front().function, "Orva_Si_GetShortEvtDescLangList");
}

TEST_F(EventArguments, AMissingFlagIsRefused)
{
    EXPECT_EQ(Orva_Si_HaveEvtCAIdentifierDesc(network, stream, sid, wanted, nullptr, 0),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[presult\n") || fake::logged(2, "[presult != NULL\n"))
        << fake::log_text();
    EXPECT_EQ(fake::times_logged("~~~Mutex Lock~~~\n"), 0u);
}

} // namespace
