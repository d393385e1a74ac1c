// SPDX-License-Identifier: LGPL-2.1-or-later
#include "dvb_text.h"

#include <bitset>
#include <cerrno>
#include <cwchar>
#include <iconv.h>
#include <locale.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>

namespace tool {
namespace {

using bytes = std::span<const std::uint8_t>;

constexpr char32_t replacement = 0xFFFD;
constexpr char iso_6937[] = "ISO6937";

// A character table: its name for iconv and the bytes to pass over where it has no character.
struct table {
    std::string name;
    std::size_t unit = 1;
};

struct selection {
    std::optional<table> from; // none: compressed, reserved or cut
    bytes text;
};

std::string iso_8859(unsigned part)
{
    return "ISO-8859-" + std::to_string(part);
}

// Tables that one byte selects (EN 300 468 table A.3); null: reserved.
constexpr std::array<const char *, 0x16> one_byte_tables{
    nullptr,       "ISO-8859-5",  "ISO-8859-6", "ISO-8859-7",  "ISO-8859-8",  "ISO-8859-9",
    "ISO-8859-10", "ISO-8859-11", nullptr,      "ISO-8859-13", "ISO-8859-14", "ISO-8859-15",
    nullptr,       nullptr,       nullptr,      nullptr,       nullptr,       "UTF-16BE",
    "EUC-KR",      "EUC-CN",      "UTF-16BE",   "UTF-8"};

// The three-byte selector 0x10 0x00 n (table A.4).
selection three_byte_selection(bytes field)
{
    constexpr unsigned unassigned = 12;
    if (field.size() < 3 || field[1] != 0 || field[2] < 1 || field[2] > 15 ||
        field[2] == unassigned)
        return {};
    return {table{iso_8859(field[2])}, field.subspan(3)};
}

selection select(bytes field, const std::string &default_table)
{
    constexpr std::uint8_t three_byte_selector = 0x10;
    constexpr std::uint8_t first_character = 0x20;
    const std::uint8_t selector = field[0];
    if (selector == 0 || selector >= first_character)
        return {table{default_table.empty() ? iso_6937 : default_table}, field};
    if (selector == three_byte_selector)
        return three_byte_selection(field);
    const char *name = selector < one_byte_tables.size() ? one_byte_tables[selector] : nullptr;
    if (name == nullptr)
        return {};
    const bool sixteen_bits = std::string_view{name} == "UTF-16BE";
    return {table{name, sixteen_bits ? 2u : 1u}, field.subspan(1)};
}

class converter {
public:
    explicit converter(const std::string &from) : handle{iconv_open("WCHAR_T", from.c_str())} {}
    ~converter()
    {
        if (usable())
            iconv_close(handle);
    }
    converter(const converter &) = delete;
    converter &operator=(const converter &) = delete;

    // Forgets what a text left behind.
    void reset() const { iconv(handle, nullptr, nullptr, nullptr, nullptr); }
    bool usable() const { return handle != reinterpret_cast<iconv_t>(-1); }

    // Converts as far as it goes and takes that from the input; the error, or 0 at the end.
    int run(bytes &in, std::u32string &out) const
    {
        std::array<wchar_t, 256> buffer;
        for (;;) {
            char *from = const_cast<char *>(reinterpret_cast<const char *>(in.data()));
            std::size_t from_left = in.size();
            char *to = reinterpret_cast<char *>(buffer.data());
            std::size_t to_left = sizeof buffer;
            const bool done = iconv(handle, &from, &from_left, &to, &to_left) != std::size_t(-1);
            const int error = done ? 0 : errno;
            in = in.last(from_left);
            for (const wchar_t c :
                 std::span{buffer}.first(buffer.size() - to_left / sizeof(wchar_t)))
                out.push_back(static_cast<char32_t>(c));
            if (error != E2BIG)
                return error;
        }
    }

private:
    iconv_t handle;
};

// Diacritical marks of ISO 6937, 0xC0 to 0xCF, as combining characters; 0: none assigned.
constexpr std::array<char32_t, 16> marks{0,      0x0300, 0x0301, 0x0302, 0x0303, 0x0304,
                                         0x0306, 0x0307, 0x0308, 0,      0x030A, 0x0327,
                                         0,      0x030B, 0x0328, 0x030C};

// What the C library's ISO 6937 lacks: the euro sign of DVB, and letters with a mark that no
// character holds composed (in the broadcast the mark stands before its letter).
std::size_t repair_iso_6937(bytes in, std::u32string &out)
{
    if (in[0] == 0xA4) {
        out.push_back(U'€');
        return 1;
    }
    const char32_t mark = in[0] >> 4 == 0xC ? marks[in[0] & 0x0F] : U'\0';
    if (mark != 0 && in.size() > 1 && in[1] > 0x20 && in[1] < 0x7F) {
        out.push_back(in[1]);
        out.push_back(mark);
        return 2;
    }
    out.push_back(replacement);
    return 1;
}

// Takes what iconv refused from the front of the input; how many bytes that is.
std::size_t repair(const table &from, bytes in, std::u32string &out)
{
    if (from.name == iso_6937)
        return repair_iso_6937(in, out);
    const bool control = from.unit == 1 && in[0] >= 0x80 && in[0] <= 0x9F;
    out.push_back(control ? in[0] : replacement);
    return std::min(from.unit, in.size());
}

// A character table in use: opening a conversion costs more than many a text.
struct open_table {
    explicit open_table(const table &of);

    converter convert;
    std::bitset<256> ascii; // bytes that stand for themselves, wherever they stand
};

bool is_byte_of_itself(const converter &convert, std::uint8_t byte)
{
    bytes in{&byte, 1};
    std::u32string out;
    return convert.run(in, out) == 0 && out == std::u32string(1, byte);
}

// The printable characters are tried one by one. None of them is a lead byte in a table of single
// bytes that knows it, nor a second one unless behind a byte that is not among them.
open_table::open_table(const table &of) : convert{of.name}
{
    if (convert.usable() && of.unit == 1)
        for (std::uint8_t byte = 0x20; byte < 0x7F; ++byte)
            ascii[byte] = is_byte_of_itself(convert, byte);
}

const open_table &opened(const table &of)
{
    thread_local std::map<std::string, open_table> tables;
    return tables.try_emplace(of.name, of).first->second;
}

bool is_ascii(const open_table &in, bytes text)
{
    return std::ranges::all_of(text, [&](std::uint8_t byte) { return in.ascii[byte]; });
}

std::u32string characters(const table &from, const converter &convert, bytes in)
{
    if (!convert.usable())
        return {replacement};
    convert.reset();
    std::u32string out;
    while (!in.empty()) {
        const int error = convert.run(in, out);
        if (error == 0)
            break;
        if (error != EILSEQ) { // a character that the end cuts
            out.push_back(replacement);
            break;
        }
        in = in.subspan(repair(from, in, out));
    }
    // The one letter of ISO 6937 for which the C library chose the other of two look-alikes.
    if (from.name == iso_6937)
        std::replace(out.begin(), out.end(), U'\u00D0', U'\u0110');
    return out;
}

struct range {
    char32_t first, last;
};

constexpr bool in_any(std::span<const range> ranges, char32_t c)
{
    return std::any_of(ranges.begin(), ranges.end(),
                       [c](range r) { return c >= r.first && c <= r.last; });
}

// Line breaks: LF, the CR/LF of EN 300 468 tables A.1 and A.2, Unicode's own.
constexpr range breaks[] = {{0x0A, 0x0A}, {0x8A, 0x8A}, {0xE08A, 0xE08A}, {0x2028, 0x2029}};
// Not to be shown: controls of both widths, marks and overrides of direction, byte order, tags.
constexpr range controls[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xE080, 0xE09F}, {0x061C, 0x061C}, {0x200E, 0x200F},
    {0x202A, 0x202E}, {0x2066, 0x2069}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
constexpr range no_characters[] = {{0xD800, 0xDFFF}, {0xFDD0, 0xFDEF}, {0x110000, 0xFFFFFFFF}};

constexpr bool is_character(char32_t c)
{
    return !in_any(no_characters, c) && (c & 0xFFFE) != 0xFFFE;
}

void append_utf8(std::string &out, char32_t c)
{
    const auto tail = [&](unsigned shift) {
        out.push_back(static_cast<char>(0x80 | (c >> shift & 0x3F)));
    };
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | c >> 12));
        tail(6);
        tail(0);
    } else {
        out.push_back(static_cast<char>(0xF0 | c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

void append_shown(std::string &out, char32_t c)
{
    if (in_any(breaks, c))
        out.push_back('\n');
    else if (c == U'\t')
        out.push_back(' ');
    else if (!in_any(controls, c))
        append_utf8(out, is_character(c) ? c : replacement);
}

// The first character of a text and its length in bytes; U+FFFD and one byte where it is not UTF-8.
struct decoded {
    char32_t c;
    std::size_t length;
};

decoded first_character(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t length = lead >> 5 == 0x06   ? 2
                               : lead >> 4 == 0x0E ? 3
                               : lead >> 3 == 0x1E ? 4
                                                   : 0;
    if (length == 0 || text.size() < length)
        return {replacement, 1};
    char32_t c = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (byte(i) >> 6 != 2)
            return {replacement, 1};
        c = c << 6 | (byte(i) & 0x3F);
    }
    constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    if (c < smallest[length] || in_any(no_characters, c))
        return {replacement, 1};
    return {c, length};
}

// The locale that every C library has with UTF-8; the user's own is not asked.
std::size_t character_width(char32_t c)
{
    if (c >= 0x20 && c < 0x7F)
        return 1;
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr)
        return 1;
    const locale_t before = uselocale(utf8);
    const int width = wcwidth(static_cast<wchar_t>(c));
    uselocale(before);
    return width < 0 ? 1 : static_cast<std::size_t>(width);
}

} // namespace

std::string dvb_text(std::span<const std::uint8_t> field, const std::string &default_table)
{
    if (field.empty())
        return {};
    const selection chosen = select(field, default_table);
    std::string out;
    if (!chosen.from) {
        append_utf8(out, replacement);
        return out;
    }
    const open_table &from = opened(*chosen.from);
    if (is_ascii(from, chosen.text))
        return {chosen.text.begin(), chosen.text.end()};
    for (const char32_t c : characters(*chosen.from, from.convert, chosen.text))
        append_shown(out, c);
    return out;
}

bool is_character_table(const std::string &name)
{
    return !name.empty() && name.find('/') == std::string::npos && converter{name}.usable();
}

std::string one_line(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        const auto [c, length] = first_character(text);
        text.remove_prefix(length);
        if (in_any(breaks, c))
            out.push_back(' ');
        else
            append_utf8(out, in_any(controls, c) ? replacement : c);
    }
    return out;
}

std::size_t display_width(std::string_view utf8)
{
    std::size_t width = 0;
    while (!utf8.empty()) {
        const auto [c, length] = first_character(utf8);
        utf8.remove_prefix(length);
        width += character_width(c);
    }
    return width;
}

std::string_view fitting(std::string_view utf8, std::size_t columns)
{
    std::size_t taken = 0;
    std::size_t width = 0;
    while (taken < utf8.size()) {
        const auto [c, length] = first_character(utf8.substr(taken));
        width += character_width(c);
        if (width > columns && taken != 0)
            break;
        taken += length;
    }
    return utf8.substr(0, taken);
}

} // namespace tool
