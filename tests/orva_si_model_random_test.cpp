// SPDX-License-Identifier: LGPL-2.1-or-later
// Streams of sections, valid and damaged, into the dispatcher and into a plain model of what the
// two stores must hold and the client must hear.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/filter.h"
#include "orva_si_model.h"
#include "support/client.h"
#include "support/effort.h"
#include "support/model.h"
#include "support/store.h"

namespace {

using namespace test;

constexpr std::uint16_t any = SI_ANY_EXT;
constexpr std::uint16_t pid_data = 0x200; // a DSM-CC PID that the client asked for
constexpr std::uint32_t frequency = 474000;

unsigned half(unsigned high, unsigned low)
{
    return high << 8 | low;
}

// A delivered buffer: bytes that it does not have count as 0.
struct delivery {
    octets bytes;
    std::uint16_t pid;

    unsigned at(std::size_t i) const { return i < bytes.size() ? bytes[i] : 0U; }
    std::size_t size() const { return 3 + ((at(1) & 0x0F) << 8 | at(2)); }
    octets section() const
    {
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size())};
    }
};

std::uint32_t crc_field(const octets &section)
{
    return section.size() == 3 ? 0 : crc_of(section);
}

// What the client hears: the reason and what tells one event from another.
using heard = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;

class model {
public:
    struct section {
        std::uint16_t pid;
        octets bytes;
    };
    struct table {
        SiTableKey key;
        unsigned last;
        std::array<std::uint8_t, 32> map;
        bool completed;
        std::vector<section> sections;
    };
    using service_key = std::tuple<unsigned, unsigned, unsigned>; // network, stream, service
    struct service {
        service_key key;
        std::vector<std::tuple<unsigned, unsigned, octets>> sections; // table_id, number, bytes
    };

    std::vector<table> tables;
    std::vector<service> services;
    std::vector<heard> expected;
    bool pat_arrived = false; // the last delivery completed the PAT

    // The result that the dispatcher must answer; none where the time tables answer.
    std::optional<std::uint32_t> take(const delivery &d)
    {
        expected.clear();
        pat_arrived = false;
        if (d.bytes.size() < 3 || d.bytes.size() < d.size())
            return ORVA_SI_FAILURE;
        const unsigned table_id = d.at(0);
        if (d.pid == pid_data && table_id >= 0x3B && table_id <= 0x3D) {
            expected.emplace_back(SI_REASON_DSMCC, d.pid, d.size());
            return ORVA_SI_OK;
        }
        if (d.pid == 0x14 && (table_id == 0x70 || table_id == 0x73))
            return std::nullopt;
        if (d.pid == 0x12 && table_id >= 0x4E && table_id <= 0x6F)
            return take_event(d);
        return take_table(d);
    }

    // The PMTs that a new PAT does not list any more go.
    void drop_missed_pmts()
    {
        scan_with_8_bit_positions(tables, [](const table &t) {
            return t.key.table_id == 0x02 &&
                   Orva_Si_IsPmtExistedByPidAndProgNum(t.key.ext, t.key.pid) == 0;
        });
    }

private:
    static unsigned folded(unsigned table_id)
    {
        if (table_id == 0x4F)
            return 0x4E;
        return table_id >= 0x60 ? (table_id & 0x0F) | 0x50 : table_id;
    }

    std::uint32_t take_event(const delivery &d)
    {
        const service_key key{half(d.at(10), d.at(11)), half(d.at(8), d.at(9)),
                              half(d.at(3), d.at(4))};
        auto owner = std::ranges::find_if(services, [&](const service &s) { return s.key == key; });
        if (owner == services.end())
            owner = services.insert(services.end(), {key, {}});
        const unsigned table_id = folded(d.at(0));
        const auto held = std::ranges::find_if(owner->sections, [&](const auto &s) {
            return std::get<0>(s) == table_id && std::get<1>(s) == d.at(6);
        });
        const bool known = held != owner->sections.end();
        if (known && crc_field(std::get<2>(*held)) == crc_field(d.section()))
            return ORVA_SI_OK;
        if (known)
            std::get<2>(*held) = d.section();
        else
            owner->sections.emplace_back(table_id, d.at(6), d.section());
        const auto schedule = known ? SI_REASON_EIT_SCHEDULE_CHANGED : SI_REASON_EIT_SCHEDULE_NEW;
        expected.emplace_back(table_id == 0x4E ? SI_REASON_EIT_PRESENT_FOLLOWING : schedule,
                              half(table_id, d.at(6)), crc_field(d.section()));
        return ORVA_SI_OK;
    }

    bool stream_changed(const delivery &d) const
    {
        const unsigned ext = half(d.at(3), d.at(4));
        return std::ranges::any_of(tables, [&](const table &t) {
            const bool actual = t.key.table_id == d.at(0) && ((d.pid == 0x10 && d.at(0) == 0x40) ||
                                                              (d.pid == 0x11 && d.at(0) == 0x42));
            return t.key.pid == d.pid && (d.pid == 0 || actual) && t.key.ext != ext;
        });
    }
    table *find(const delivery &d)
    {
        const unsigned ext = half(d.at(3), d.at(4));
        const auto found = std::ranges::find_if(tables, [&](const table &t) {
            return (d.pid == SI_ANY_PID || d.pid == t.key.pid) &&
                   (d.at(0) == SI_ANY_TABLE_ID || d.at(0) == t.key.table_id) &&
                   (ext == any || ext == t.key.ext);
        });
        return found == tables.end() ? nullptr : &*found;
    }
    table *create(const delivery &d)
    {
        const auto word = [&](std::size_t i) {
            return static_cast<std::uint16_t>(half(d.at(i), d.at(i + 1)));
        };
        const bool events = d.pid == 0x12;
        const SiTableKey key{d.pid, static_cast<std::uint8_t>(d.at(0)), word(3),
                             events ? word(8) : any, events ? word(10) : any};
        tables.push_back({key, d.at(7), {}, false, {}});
        return &tables.back();
    }
    static unsigned number_of(const octets &section)
    {
        return section.size() > 6 ? section[6] : 0U;
    }
    static bool has_all(const table &t, unsigned last)
    {
        for (unsigned n = 0; n <= last; ++n)
            if ((t.map[n / 8] >> (n % 8) & 1) == 0)
                return false;
        return true;
    }

    std::uint32_t take_table(const delivery &d)
    {
        table *t = nullptr;
        if (stream_changed(d)) {
            tables.clear();
            services.clear();
        } else {
            t = find(d);
        }
        if (t == nullptr)
            t = create(d);
        const octets bytes = d.section();
        const auto held = std::ranges::find_if(t->sections, [&](const section &s) {
            return s.pid == d.pid && number_of(s.bytes) == d.at(6);
        });
        if (held != t->sections.end()) {
            if (crc_field(held->bytes) == crc_field(bytes))
                return ORVA_SI_OK;
            t->sections.clear();
            t->map.fill(0);
            t->completed = false;
            t->last = 0;
        }
        t->sections.push_back({d.pid, bytes});
        const unsigned number = number_of(bytes);
        t->map[number / 8] = static_cast<std::uint8_t>(t->map[number / 8] | 1U << (number % 8));
        if (t->key.table_id != 0x02 && (t->key.pid == 0x12 || !has_all(*t, d.at(7))))
            return ORVA_SI_OK;
        t->completed = true;
        pat_arrived = d.pid == 0 && d.at(0) == 0;
        tell(t->key);
        return ORVA_SI_OK;
    }

    void tell(const SiTableKey &key)
    {
        if (key.table_id == 0x02)
            expected.emplace_back(SI_REASON_PMT, frequency, key.ext);
        else if (key.pid == 0x00)
            expected.emplace_back(SI_REASON_PAT, frequency, 0);
        else if (key.pid == 0x01)
            expected.emplace_back(SI_REASON_CAT, key.ext, 0);
        else if (key.pid == 0x10)
            expected.emplace_back(SI_REASON_NIT, key.ext, 0);
        else if (key.pid == 0x11)
            expected.emplace_back(key.table_id == 0x4A ? SI_REASON_BAT : SI_REASON_SDT, key.ext, 0);
        else
            expected.emplace_back(SI_REASON_OTHER_TABLE, key.ext, 0);
    }
};

// Everything that the client heard except the time.
std::vector<heard> heard_by_client()
{
    std::vector<heard> found;
    for (const event &e : events) {
        switch (e.reason) {
        case SI_REASON_TIME_FROM_TDT:
        case SI_REASON_TIME_FROM_TOT:
            break;
        case SI_REASON_PMT:
            found.emplace_back(e.reason, e.pmt.frequency, e.pmt.program_number);
            break;
        case SI_REASON_EIT_PRESENT_FOLLOWING:
        case SI_REASON_EIT_SCHEDULE_CHANGED:
        case SI_REASON_EIT_SCHEDULE_NEW:
            found.emplace_back(e.reason, half(e.eit.table_id, e.eit.section_number), e.eit.crc);
            break;
        case SI_REASON_DSMCC:
            found.emplace_back(e.reason, e.dsmcc.pid, e.dsmcc.length);
            break;
        default:
            found.emplace_back(e.reason, static_cast<std::uint32_t>(e.data), 0);
        }
    }
    return found;
}

class RandomSections : public testing::TestWithParam<unsigned> {
protected:
    RandomSections()
    {
        fake::set_log_level(0);
        tune(frequency);
        Orva_Si_InstallCallback(note_event);
        Orva_Si_StartDsmFilter(pid_data);
    }
    ~RandomSections() override
    {
        end_store();
        Orva_Si_StopDsmFilter(pid_data);
    }
    RandomSections(const RandomSections &) = delete;
    RandomSections &operator=(const RandomSections &) = delete;

    unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }
    bool one_in(unsigned n) { return below(n) == 0; }
    // Calm stretches let the store grow, rough ones keep it changing.
    bool damage_one_in(unsigned n) { return one_in(calm ? 30 * n : n); }
    template <std::size_t N>
    unsigned one_of(const std::array<unsigned, N> &values)
    {
        return values[below(N)];
    }

    // A table as a multiplex carries it: few instances, few versions, now and then a change.
    octets some_table(std::uint16_t &pid)
    {
        const auto number = static_cast<std::uint8_t>(below(3));
        const auto last = static_cast<std::uint8_t>(one_in(4) ? below(4) : 2);
        const auto version = static_cast<std::uint8_t>(one_in(6) ? below(3) : 0);
        const auto stream = static_cast<std::uint16_t>(damage_one_in(60) ? below(4) : 1);
        const auto other = static_cast<std::uint16_t>(one_in(20) ? 0xFFFF : 1 + below(5));
        switch (below(9)) {
        case 0: {
            pat table{.ts = stream,
                      .version = version,
                      .section_number = static_cast<std::uint8_t>(number % 2),
                      .last_section_number = static_cast<std::uint8_t>(last % 2)};
            for (std::uint16_t program = 1; program <= 1 + version; ++program)
                table.programs.push_back({program, static_cast<std::uint16_t>(0x100 + below(2))});
            pid = 0x00;
            return make(table);
        }
        case 1:
            pid = 0x01;
            return make(cat{.version = version});
        case 2:
            pid = static_cast<std::uint16_t>(0x100 + below(2));
            return make(pmt{.program = static_cast<std::uint16_t>(1 + below(3)),
                            .version = version,
                            .section_number = number,
                            .last_section_number = last});
        case 3:
            pid = 0x10;
            return make(nit{.table_id = static_cast<std::uint8_t>(one_in(2) ? 0x40 : 0x41),
                            .network = one_in(2) ? stream : other,
                            .version = version,
                            .section_number = number,
                            .last_section_number = last});
        case 4:
            pid = 0x11;
            return make(sdt{.ts = stream,
                            .version = version,
                            .section_number = number,
                            .last_section_number = last});
        case 5:
            pid = 0x11;
            return make(sdt{.table_id = 0x46,
                            .ts = other,
                            .original_network = static_cast<std::uint16_t>(below(2)),
                            .version = version,
                            .section_number = number,
                            .last_section_number = last});
        case 6:
            pid = 0x11;
            return make(bat{.bouquet = other,
                            .version = version,
                            .section_number = number,
                            .last_section_number = last});
        case 7:
            pid = 0x12;
            return make(eit{.table_id = static_cast<std::uint8_t>(0x4E + below(0x22)),
                            .service = other,
                            .ts = stream,
                            .version = version,
                            .section_number = number,
                            .last_section_number = last,
                            .events = {{.id = static_cast<std::uint16_t>(below(3))}}});
        default:
            pid = static_cast<std::uint16_t>(one_of(std::array{0x14U, 0x200U, 0x200U, 0x201U}));
            return make(private_table{.table_id = static_cast<std::uint8_t>(one_of(std::array{
                                          0x38U, 0x3AU, 0x3BU, 0x3CU, 0x3DU, 0x3EU, 0x71U, 0x72U})),
                                      .extension = other,
                                      .version = version,
                                      .section_number = number,
                                      .last_section_number = last,
                                      .payload = octets(below(40))});
        }
    }
    delivery some_delivery()
    {
        delivery d{};
        d.bytes = some_table(d.pid);
        if (damage_one_in(12))
            d.bytes = one_in(3) ? make(tot{}) : make(tdt{.utc_bcd = below(0x60)});
        if (damage_one_in(12))
            d.pid = static_cast<std::uint16_t>(one_of(
                std::array{0x00U, 0x01U, 0x10U, 0x11U, 0x12U, 0x14U, 0x100U, 0x200U, 0x1FFFU}));
        if (damage_one_in(10))
            d.bytes[one_of(std::array{0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U})] ^=
                static_cast<std::uint8_t>(1U << below(8));
        if (damage_one_in(40))
            d.bytes[0] = static_cast<std::uint8_t>(below(256));
        if (damage_one_in(40))
            d.bytes = set_length(d.bytes, below(12));
        if (damage_one_in(40))
            d.bytes = damage(d.bytes);
        if (damage_one_in(20))
            d.bytes.resize(1 + below(static_cast<unsigned>(d.bytes.size())));
        if (damage_one_in(20))
            d.bytes.resize(d.bytes.size() + below(40), static_cast<std::uint8_t>(below(256)));
        return d;
    }

    void expect_tables() const
    {
        const auto stored = tables();
        ASSERT_EQ(stored.size(), expected.tables.size());
        for (std::size_t i = 0; i < stored.size(); ++i) {
            const SiTable &have = *stored[i];
            const model::table &want = expected.tables[i];
            ASSERT_EQ(std::tie(have.pid, have.table_id, have.ext, have.ext1, have.ext2),
                      std::tie(want.key.pid, want.key.table_id, want.key.ext, want.key.ext1,
                               want.key.ext2));
            ASSERT_EQ(have.last_section_number, want.last);
            ASSERT_EQ(have.completed, want.completed ? 1 : 0);
            ASSERT_EQ(have.crc, 0U);
            ASSERT_TRUE(std::ranges::equal(have.sect_map, want.map));
            const auto records = elements_of<SiSection>(have.psect_list);
            ASSERT_EQ(records.size(), want.sections.size());
            for (std::size_t k = 0; k < records.size(); ++k) {
                ASSERT_EQ(records[k]->pid, want.sections[k].pid);
                const octets bytes(records[k]->section, records[k]->section + records[k]->sect_len);
                ASSERT_EQ(bytes, want.sections[k].bytes);
            }
        }
    }
    void expect_services() const
    {
        const auto stored = elements_of<SiEitService>(Orva_Si_GetDvbEitList());
        ASSERT_EQ(stored.size(), expected.services.size());
        for (std::size_t i = 0; i < stored.size(); ++i) {
            const model::service &want = expected.services[i];
            ASSERT_EQ((model::service_key{stored[i]->original_network_id,
                                          stored[i]->transport_stream_id, stored[i]->service_id}),
                      want.key);
            const auto records = elements_of<SiEitSection>(stored[i]->sections);
            ASSERT_EQ(records.size(), want.sections.size());
            for (std::size_t k = 0; k < records.size(); ++k) {
                const octets bytes(records[k]->section, records[k]->section + records[k]->sect_len);
                ASSERT_EQ(std::tuple(unsigned{records[k]->table_id},
                                     unsigned{records[k]->section_number}, bytes),
                          want.sections[k]);
            }
        }
    }
    void deliver_some()
    {
        const delivery d = some_delivery();
        events.clear();
        const auto result = expected.take(d);
        const std::uint32_t answered = Si_Model_ProcessModel(received{d.bytes, d.pid, 3});
        ASSERT_EQ(answered, result.value_or(answered));
        if (expected.pat_arrived)
            expected.drop_missed_pmts();
        ASSERT_EQ(heard_by_client(), expected.expected)
            << "pid " << d.pid << " table_id " << d.at(0) << " size " << d.size() << " of "
            << d.bytes.size();
        expect_tables();
        expect_services();
    }
    void run(unsigned deliveries)
    {
        for (unsigned i = 0; i < deliveries; ++i) {
            calm = i / 1000 % 2 != 0;
            deliver_some();
            fake::clear_log();
            if (HasFatalFailure())
                FAIL() << "delivery " << i << " of seed " << GetParam();
        }
    }

    model expected;
    std::mt19937 random{GetParam()};
    bool calm = false;
};

TEST_P(RandomSections, AreKeptAsThePlainModelKeepsThem)
{
    run(20000);
}

// The log must not read what is not there either.
TEST_P(RandomSections, AreKeptAsThePlainModelKeepsThemWithEveryTrace)
{
    fake::set_log_level(5);
    run(3000);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomSections, testing::Range(1U, 1U + test::part_of(4)));

} // namespace
