// SPDX-License-Identifier: LGPL-2.1-or-later
#include "report_words.h"

#include <cstdio>

#include "dvb_text.h"

namespace tool {

std::string hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

std::string joined(const std::vector<std::string> &parts, const char *separator)
{
    std::string text;
    for (const std::string &part : parts)
        text += (text.empty() ? "" : separator) + part;
    return text;
}

std::string shown(const std::optional<label> &name)
{
    return name ? one_line(name->text) : "";
}

std::string quoted(const std::optional<label> &name)
{
    const std::string text = shown(name);
    return text.empty() ? "" : " \"" + text + "\"";
}

std::string titled(const std::string &title, std::size_t width, const table_layout &table)
{
    std::string text;
    for (const std::string &line : wrapped(title, width))
        text += line + '\n';
    return table.rows.empty() ? text : text + laid_out(table, width);
}

} // namespace tool
