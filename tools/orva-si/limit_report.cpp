// SPDX-License-Identifier: LGPL-2.1-or-later
#include "limit_report.h"

#include <array>

#include "json_values.h"
#include "terminal.h"
#include "time_words.h"

namespace tool {
namespace {

struct described_limit {
    const char *name;  // in JSON
    const char *words; // for people
    SiLimitCount SiLimitCounts::*count;
};

constexpr std::array<described_limit, 7> described_limits{{
    {"tables", "tables", &SiLimitCounts::tables},
    {"table_bytes", "bytes of tables", &SiLimitCounts::table_bytes},
    {"event_services", "services with events", &SiLimitCounts::event_services},
    {"event_bytes", "bytes of events", &SiLimitCounts::event_bytes},
    {"queued_sections", "queued sections", &SiLimitCounts::queued_sections},
    {"queued_bytes", "queued bytes", &SiLimitCounts::queued_bytes},
    {"busy_queue", "queued sections of any kind", &SiLimitCounts::busy_queue},
}};

} // namespace

SiLimitCounts limit_counts()
{
    SiLimitCounts now{};
    Orva_Si_GetLimitCounts(&now);
    return now;
}

std::vector<std::string> limit_lines(const SiLimitCounts &of)
{
    std::vector<std::string> lines;
    for (const described_limit &each : described_limits) {
        const SiLimitCount &count = of.*each.count;
        lines.push_back(std::string{each.words} + ": " + std::to_string(count.used) + " of " +
                        std::to_string(count.most) + ", " + std::to_string(count.refused) +
                        " refused");
    }
    return lines;
}

json limits_json(const SiLimitCounts &of)
{
    json told = json::object();
    for (const described_limit &each : described_limits) {
        const SiLimitCount &count = of.*each.count;
        told[each.name] = {{"refused", count.refused}, {"used", count.used}, {"most", count.most}};
    }
    return told;
}

std::string limits_json_line(std::uint32_t time, const SiLimitCounts &of)
{
    const json told{{"schema", "orva-si/1"}, {"time", utc_text(time)}, {"limits", limits_json(of)}};
    return told.dump() + '\n';
}

void tell_limits(const options &chosen)
{
    if (!chosen.stats || chosen.json)
        return;
    for (const std::string &line : limit_lines(limit_counts()))
        complain(input_name(chosen.input) + ": " + line);
}

std::optional<SiLimitCounts> limits_for_json(const options &chosen)
{
    return chosen.stats && chosen.json ? std::optional{limit_counts()} : std::nullopt;
}

} // namespace tool
