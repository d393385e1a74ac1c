// SPDX-License-Identifier: LGPL-2.1-or-later
// JSON that is written as it comes, for reports too large to be built first.
#ifndef TOOLS_JSON_WRITER_H
#define TOOLS_JSON_WRITER_H

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "multiplex.h"

namespace tool {

// Appends values to a text, two columns deeper for each level. A member or element stands between
// those around it by itself.
class json_writer {
public:
    json_writer(std::string &to, unsigned at_level) : out{to}, level{at_level} {}

    // UTF-8.
    void value(std::string_view text)
    {
        out += '"';
        while (!text.empty()) {
            const std::size_t plain = plain_length(text);
            out += text.substr(0, plain);
            text.remove_prefix(plain);
            if (text.empty())
                break;
            escape(text.front());
            text.remove_prefix(1);
        }
        out += '"';
    }
    void value(std::uint32_t number)
    {
        std::array<char, 10> digits;
        const auto [end, error] = std::to_chars(digits.begin(), digits.end(), number);
        out.append(digits.begin(), end);
    }
    void value(bool is) { out += is ? "true" : "false"; }
    template <class T>
    void value(const std::optional<T> &known)
    {
        if (known)
            value(*known);
        else
            out += "null";
    }

    template <class T>
    void member(std::string_view name, const T &of)
    {
        key(name);
        value(of);
    }
    // A text under its name, and its bytes under the name with _raw; both null for none.
    void text(std::string_view name, const std::optional<label> &of)
    {
        key(name);
        if (of)
            value(of->text);
        else
            out += "null";
        key(name, "_raw");
        if (of)
            value(of->raw);
        else
            out += "null";
    }
    template <class Body>
    void object(Body body)
    {
        enclose('{', '}', body);
    }
    // Each item as tell writes it; an empty array for none.
    template <class Items, class Tell>
    void array(std::string_view name, const Items &items, Tell tell)
    {
        key(name);
        enclose('[', ']', [&] {
            for (const auto &item : items) {
                next();
                tell(item);
            }
        });
    }
    void key(std::string_view name, std::string_view more = {})
    {
        next();
        out.append(1, '"').append(name).append(more).append("\": ");
    }
    // Begins the next member or element.
    void next()
    {
        if (!first)
            out += ',';
        first = false;
        out.append(1, '\n').append(2 * level, ' ');
    }

private:
    template <class Body>
    void enclose(char begin, char end, Body body)
    {
        out += begin;
        ++level;
        first = true;
        body();
        --level;
        if (!first)
            out.append(1, '\n').append(2 * level, ' ');
        first = false;
        out += end;
    }
    static bool is_plain(char c)
    {
        return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
    }
    static std::size_t plain_length(std::string_view text)
    {
        std::size_t length = 0;
        while (length < text.size() && is_plain(text[length]))
            ++length;
        return length;
    }
    void escape(char c)
    {
        static constexpr std::string_view escaped{"\"\\\b\f\n\r\t"};
        static constexpr std::string_view letters{"\"\\bfnrt"};
        static constexpr std::string_view digits{"0123456789abcdef"};
        out += '\\';
        if (const std::size_t which = escaped.find(c); which != std::string_view::npos)
            out += letters[which];
        else
            out.append("u00")
                .append(1, digits[static_cast<unsigned char>(c) >> 4])
                .append(1, digits[c & 0x0F]);
    }

    std::string &out;
    unsigned level;
    bool first = true;
};

} // namespace tool

#endif
