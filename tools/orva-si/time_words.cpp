// SPDX-License-Identifier: LGPL-2.1-or-later
#include "time_words.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>
#include <string_view>

namespace tool {
namespace {

// Reads a text from its start on; what does not fit is not taken.
class reader {
public:
    explicit reader(std::string_view text) : rest{text} {}

    bool digits(int count, int &value)
    {
        if (rest.size() < static_cast<std::size_t>(count))
            return false;
        value = 0;
        for (const char c : rest.substr(0, static_cast<std::size_t>(count))) {
            if (c < '0' || c > '9')
                return false;
            value = value * 10 + (c - '0');
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
        return true;
    }
    bool one_of(std::string_view characters)
    {
        if (rest.empty() || characters.find(rest.front()) == std::string_view::npos)
            return false;
        rest.remove_prefix(1);
        return true;
    }
    char next() const { return rest.empty() ? '\0' : rest.front(); }
    bool at_end() const { return rest.empty(); }

private:
    std::string_view rest;
};

constexpr int minute = 60;
constexpr int hour = 60 * minute;

// "+HH:MM" or "-HH:MM" in seconds east of Greenwich.
std::optional<int> read_offset(reader &in)
{
    const int sign = in.next() == '-' ? -1 : 1;
    int hours = 0;
    int minutes = 0;
    if (!in.one_of("+-") || !in.digits(2, hours) || !in.one_of(":") || !in.digits(2, minutes) ||
        hours >= 24 || minutes >= 60)
        return std::nullopt;
    return sign * (hours * hour + minutes * minute);
}

struct clock_reading {
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    bool has_seconds = false;

    bool ok() const { return hours < 24 && minutes < 60 && seconds < 60; }
};

std::optional<clock_reading> read_clock(reader &in)
{
    clock_reading read;
    if (!in.digits(2, read.hours) || !in.one_of(":") || !in.digits(2, read.minutes))
        return std::nullopt;
    if (in.one_of(":")) {
        if (!in.digits(2, read.seconds))
            return std::nullopt;
        read.has_seconds = true;
        int digit = 0;
        if (in.one_of(".")) { // parts of a second do not count
            if (!in.digits(1, digit))
                return std::nullopt;
            while (in.digits(1, digit)) {
            }
        }
    }
    return read.ok() ? std::optional{read} : std::nullopt;
}

std::optional<std::uint32_t> within_range(std::int64_t seconds)
{
    if (seconds < 0 || seconds > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    return static_cast<std::uint32_t>(seconds);
}

std::tm local(std::uint32_t time)
{
    const auto wide = static_cast<std::time_t>(time);
    std::tm parts = {};
    localtime_r(&wide, &parts);
    return parts;
}

constexpr std::size_t longest_text = 40;

std::string date_text(const std::tm &parts)
{
    std::array<char, longest_text> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts);
    return {text.data(), length};
}

} // namespace

std::optional<std::string> time_zone_setting(const std::string &zone)
{
    if (zone == "UTC" || zone == "Z")
        return "UTC0";
    if (reader in{zone}; in.next() == '+' || in.next() == '-') {
        const auto offset = read_offset(in);
        if (!offset || !in.at_end())
            return std::nullopt;
        // POSIX counts to the west, and wants letters, digits and signs in the name.
        return "<" + zone.substr(0, 3) + zone.substr(4) + ">" + (zone[0] == '-' ? "+" : "-") +
               zone.substr(1);
    }
    constexpr std::string_view usual = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789/_-+";
    if (zone.empty() || zone.front() == '/' || zone.find_first_not_of(usual) != std::string::npos)
        return std::nullopt;
    const char *const folder = std::getenv("TZDIR");
    std::error_code ignored;
    const auto path =
        std::filesystem::path{folder != nullptr ? folder : "/usr/share/zoneinfo"} / zone;
    return std::filesystem::is_regular_file(path, ignored) ? std::optional{":" + zone}
                                                           : std::nullopt;
}

void use_time_zone(const std::string &setting)
{
    setenv("TZ", setting.c_str(), 1);
    tzset();
}

std::optional<std::uint32_t> parse_time(const std::string &text)
{
    reader in{text};
    int year = 0;
    int month = 0;
    int day = 0;
    if (!in.digits(4, year) || !in.one_of("-") || !in.digits(2, month) || !in.one_of("-") ||
        !in.digits(2, day))
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year{year},
                                           std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    if (!date.ok())
        return std::nullopt;
    clock_reading at;
    if (!in.at_end()) {
        const auto read = in.one_of(" Tt") ? read_clock(in) : std::nullopt;
        if (!read)
            return std::nullopt;
        at = *read;
    }
    if (in.at_end()) {
        std::tm parts = {};
        parts.tm_year = year - 1900;
        parts.tm_mon = month - 1;
        parts.tm_mday = day;
        parts.tm_hour = at.hours;
        parts.tm_min = at.minutes;
        parts.tm_sec = at.seconds;
        parts.tm_isdst = -1;
        return within_range(std::mktime(&parts));
    }
    int east = 0;
    if (!in.one_of("Zz")) {
        const auto offset = read_offset(in);
        if (!offset)
            return std::nullopt;
        east = *offset;
    }
    if (!in.at_end() || !at.has_seconds)
        return std::nullopt;
    const auto days = std::chrono::sys_days{date}.time_since_epoch().count();
    return within_range(std::int64_t{days} * 24 * hour + at.hours * hour + at.minutes * minute +
                        at.seconds - east);
}

std::string utc_text(std::uint32_t time)
{
    const auto wide = static_cast<std::time_t>(time);
    std::tm parts = {};
    gmtime_r(&wide, &parts);
    std::array<char, longest_text> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "T%H:%M:%SZ", &parts);
    return date_text(parts) + std::string{text.data(), length};
}

std::string day_text(std::uint32_t time)
{
    constexpr std::array names{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    const std::tm parts = local(time);
    return std::string{names[static_cast<std::size_t>(parts.tm_wday)]} + " " + date_text(parts);
}

std::string clock_text(std::uint32_t time)
{
    const std::tm parts = local(time);
    std::array<char, longest_text> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M", &parts);
    return {text.data(), length};
}

std::string second_text(std::uint32_t time)
{
    const std::tm parts = local(time);
    std::array<char, longest_text> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    return {text.data(), length};
}

} // namespace tool
