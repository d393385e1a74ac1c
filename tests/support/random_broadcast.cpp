// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/random_broadcast.h"

#include <array>
#include <vector>

#include "support/descriptors.h"

namespace test {

namespace {

octets random_pat(dice &d)
{
    pat table{.ts = d.id(2), .version = static_cast<std::uint8_t>(d.below(4))};
    table.programs.push_back({0, 0x10});
    for (std::uint16_t i = 0; i < programs; ++i)
        if (!d.one_in(8))
            table.programs.push_back(
                {static_cast<std::uint16_t>(i + 1), static_cast<std::uint16_t>(first_pmt_pid + i)});
    return make(table);
}

octets random_sdt(dice &d)
{
    sdt table{.table_id = static_cast<std::uint8_t>(d.one_in(2) ? 0x42 : 0x46),
              .ts = d.id(3),
              .version = static_cast<std::uint8_t>(d.below(4)),
              .section_number = static_cast<std::uint8_t>(d.below(2)),
              .last_section_number = 1};
    for (std::uint16_t i = 1; i <= programs; ++i)
        table.services.push_back(
            {.id = i, .descriptors = {service_descriptor(1, "Provider", "Service")}});
    return make(table);
}

octets random_nit(dice &d)
{
    nit table{.table_id = static_cast<std::uint8_t>(d.one_in(2) ? 0x40 : 0x41),
              .network = d.id(2),
              .version = static_cast<std::uint8_t>(d.below(4)),
              .descriptors = {network_name("Network")}};
    for (std::uint16_t ts = 1; ts <= 3; ++ts)
        table.transports.push_back({.ts = ts, .descriptors = {service_list({{1, 1}, {2, 1}})}});
    return make(table);
}

octets random_bat(dice &d)
{
    return make(bat{.bouquet = d.id(4),
                    .version = static_cast<std::uint8_t>(d.below(4)),
                    .descriptors = {bouquet_name("Bouquet")},
                    .transports = {{.ts = 1, .descriptors = {service_list({{1, 1}, {2, 1}})}}}});
}

// What an event may carry, each now and then, in two languages.
std::vector<octets> random_event_descriptors(dice &d)
{
    const char *language = d.one_in(2) ? "eng" : "deu";
    const std::array<octets, 9> all{
        short_event(language, "Name", "Text"),
        extended_event({.language = language, .items = {{"Role", "Player"}}, .text = "More"}),
        component(1, 3, 7),
        content({{1, 2, 3, 4}, {5, 6, 7, 8}}),
        parental_rating({{"GBR", 4}}),
        ca_identifier({0x500}),
        private_data_specifier(0x233A),
        preferred_name_identifier(5),
        raw(static_cast<std::uint8_t>(0x4D + d.below(9)), octets(d.below(20), d.byte()))};
    std::vector<octets> some;
    for (const octets &one : all)
        if (!d.one_in(3))
            some.push_back(one);
    return some;
}

octets random_eit(dice &d)
{
    constexpr std::array<std::uint8_t, 5> table_ids{0x4E, 0x4F, 0x50, 0x51, 0x60};
    eit table{.table_id = table_ids[d.below(table_ids.size())],
              .service = d.id(programs),
              .ts = d.id(2),
              .version = static_cast<std::uint8_t>(d.below(4)),
              .section_number = static_cast<std::uint8_t>(d.below(2)),
              .last_section_number = 1};
    for (std::uint32_t left = d.below(4); left != 0; --left)
        table.events.push_back({.id = d.id(3), .descriptors = random_event_descriptors(d)});
    return make(table);
}

transmission random_pmt(dice &d)
{
    const std::uint16_t program = d.id(programs);
    // Now and then on the PID of another program.
    const auto pid = static_cast<std::uint16_t>(first_pmt_pid +
                                                (d.one_in(10) ? d.below(programs) : program - 1u));
    const auto version = static_cast<std::uint8_t>(d.below(4));
    return {pid, make(pmt{.program = program,
                          .version = version,
                          .streams = {{0x02, 0x200}, {0x04, 0x201, {iso639("eng")}}}})};
}

} // namespace

transmission random_table(dice &d)
{
    const auto version = static_cast<std::uint8_t>(d.below(4));
    switch (d.below(10)) {
    case 0:
        return {0x0000, random_pat(d)};
    case 1:
        return {0x0001, make(cat{.version = version, .descriptors = {ca(0x100, 0x500)}})};
    case 2:
        return {0x0010, random_nit(d)};
    case 3:
        return {0x0011, random_sdt(d)};
    case 4:
        return {0x0011, random_bat(d)};
    case 5:
        return {0x0012, random_eit(d)};
    case 6:
        return {0x0014,
                d.one_in(2) ? make(tdt{.utc_bcd = 0x120000}) : make(tot{.utc_bcd = 0x120000})};
    case 7:
        return {static_cast<std::uint16_t>(dsmcc_pid + d.below(6)),
                make(private_table{.table_id = static_cast<std::uint8_t>(0x38 + d.below(8)),
                                   .extension = d.id(3),
                                   .version = version,
                                   .payload = octets(d.below(400))})};
    default:
        return random_pmt(d);
    }
}

} // namespace test
