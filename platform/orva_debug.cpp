// SPDX-License-Identifier: LGPL-2.1-or-later
#include <cerrno>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "orva_platform.h"

std::uint32_t __orva_debug_min = ORVA_DEBUG_ERROR;

struct OrvaDebugCategory {
    OrvaDebugCategory *older; // categories are never freed
    std::uint32_t flags;
    const char *name;
    const char *description;
};

namespace {

struct speaker {
    OrvaDebugCategory *cat;
    std::uint32_t level;
    const char *file;
    const char *function;
    std::uint32_t line;
};

// Everything below is guarded by it: a line is one call of the sink and one write.
constinit std::mutex sink_mutex;
constinit OrvaDebugSink current_sink = nullptr;
constinit void *current_user = nullptr;
constinit OrvaDebugCategory *newest_category = nullptr;

// A text of any length, on the stack as long as it fits there.
class text_buffer {
public:
    text_buffer() = default;
    ~text_buffer() { std::free(large); }
    text_buffer(const text_buffer &) = delete;
    text_buffer &operator=(const text_buffer &) = delete;

    __attribute__((format(printf, 2, 0))) void format(const char *format, va_list arguments)
    {
        va_list again;
        va_copy(again, arguments);
        const int needed = std::vsnprintf(small.data(), small.size(), format, arguments);
        if (needed >= static_cast<int>(small.size()))
            format_large(static_cast<std::size_t>(needed) + 1, format, again);
        va_end(again);
    }
    __attribute__((format(printf, 2, 3))) void print(const char *text, ...)
    {
        va_list arguments;
        va_start(arguments, text);
        format(text, arguments);
        va_end(arguments);
    }
    const char *c_str() const { return large != nullptr ? large : small.data(); }

private:
    // Without memory the text stays cut off.
    __attribute__((format(printf, 3, 0))) void format_large(std::size_t size, const char *format,
                                                            va_list arguments)
    {
        large = static_cast<char *>(std::malloc(size));
        if (large != nullptr)
            std::vsnprintf(large, size, format, arguments);
    }

    std::array<char, 512> small{};
    char *large = nullptr;
};

void write_all(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nobody could be told
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void write_line(const speaker &of, const char *text)
{
    const char *end = std::string_view{text}.ends_with('\n') ? "" : "\n";
    text_buffer line;
    line.print("%s %u %s:%u %s: %s%s", orva_debug_category_name(of.cat), of.level, of.file, of.line,
               of.function, text, end);
    write_all(line.c_str());
}

// The sink's lock is held.
void emit(const speaker &of, const char *text)
{
    if (current_sink != nullptr)
        current_sink(current_user, of.cat, of.level, of.file, of.function, of.line, text);
    else
        write_line(of, text);
}

bool passes(std::uint32_t level)
{
    return __atomic_load_n(&__orva_debug_min, __ATOMIC_RELAXED) >= level;
}

const char *or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

// A failed call that is logged must still be able to say why it failed.
class errno_kept {
public:
    errno_kept() = default;
    ~errno_kept() { errno = value; }
    errno_kept(const errno_kept &) = delete;
    errno_kept &operator=(const errno_kept &) = delete;

private:
    const int value = errno;
};

char *append(char *to, std::string_view text)
{
    to = std::ranges::copy(text, to).out;
    *to = '\0';
    return to + 1;
}

constexpr std::size_t dump_width = 16;

void dump_row(const speaker &of, const std::uint8_t *data, std::size_t offset, std::size_t count)
{
    std::array<char, 3 * dump_width + 1> digits{};
    for (std::size_t i = 0; i < count; ++i)
        std::snprintf(&digits.at(3 * i), 4, " %02x", data[offset + i]);
    text_buffer row;
    row.print("%04zx:%s\n", offset, digits.data());
    emit(of, row.c_str());
}

} // namespace

extern "C" {

OrvaDebugCategory *orva_debug_category_new(const char *name, std::uint32_t flags,
                                           const char *description)
{
    const std::string_view its_name = or_empty(name);
    const std::string_view its_description = or_empty(description);
    const std::size_t size =
        sizeof(OrvaDebugCategory) + its_name.size() + its_description.size() + 2;
    auto *made = static_cast<OrvaDebugCategory *>(std::malloc(size));
    if (made == nullptr)
        return nullptr;

    auto *texts = reinterpret_cast<char *>(made + 1);
    made->flags = flags;
    made->name = texts;
    made->description = append(texts, its_name);
    append(texts + its_name.size() + 1, its_description);
    const std::lock_guard lock{sink_mutex};
    made->older = newest_category;
    newest_category = made;
    return made;
}

const char *orva_debug_category_name(const OrvaDebugCategory *cat)
{
    return cat != nullptr ? cat->name : "";
}

void orva_debug_set_sink(OrvaDebugSink sink, void *user)
{
    const std::lock_guard lock{sink_mutex};
    current_sink = sink;
    current_user = user;
}

void orva_debug_log(OrvaDebugCategory *cat, std::uint32_t level, const char *file,
                    const char *function, std::uint32_t line, const char *format, ...)
{
    if (!passes(level))
        return;
    const errno_kept kept;
    text_buffer text;
    va_list arguments;
    va_start(arguments, format);
    text.format(format, arguments);
    va_end(arguments);
    const std::lock_guard lock{sink_mutex};
    emit({cat, level, or_empty(file), or_empty(function), line}, text.c_str());
}

void orva_debug_dump(OrvaDebugCategory *cat, std::uint32_t level, const char *file,
                     const char *function, std::uint32_t line, const void *data,
                     std::uint32_t length)
{
    if (!passes(level) || data == nullptr)
        return;
    const errno_kept kept;
    const speaker of{cat, level, or_empty(file), or_empty(function), line};
    const auto *bytes = static_cast<const std::uint8_t *>(data);
    const std::lock_guard lock{sink_mutex}; // the rows of a dump stay together
    for (std::size_t offset = 0; offset < length; offset += dump_width)
        dump_row(of, bytes, offset, std::min(dump_width, length - offset));
}

} // extern "C"
