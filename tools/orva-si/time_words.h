// SPDX-License-Identifier: LGPL-2.1-or-later
// Times of events in notations for people and programs. Times are seconds since 1970-01-01 UTC.
#ifndef TOOLS_TIME_WORDS_H
#define TOOLS_TIME_WORDS_H

#include <cstdint>
#include <optional>
#include <string>

namespace tool {

// What the environment variable TZ must hold for a time zone given as UTC, +HH:MM, -HH:MM or the
// name of a zone of the system (Europe/Berlin); none when there is no such zone.
std::optional<std::string> time_zone_setting(const std::string &zone);

// Makes that setting the local time of this process, which must have one thread.
void use_time_zone(const std::string &setting);

// Reads RFC 3339 ("2026-01-01T12:00:00Z", "2026-01-01 12:00:00+01:00"), or a local time written
// "2026-01-01", "2026-01-01 12:00" or "2026-01-01 12:00:00" with a blank or T in between. None for
// anything else and for times that 32 bits do not hold.
std::optional<std::uint32_t> parse_time(const std::string &text);

// "2026-01-01T12:00:00Z"
std::string utc_text(std::uint32_t time);

// In local time: "Thu 2026-01-01", "12:00" and "12:00:00".
std::string day_text(std::uint32_t time);
std::string clock_text(std::uint32_t time);
std::string second_text(std::uint32_t time);

} // namespace tool

#endif
