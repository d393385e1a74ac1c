// SPDX-License-Identifier: LGPL-2.1-or-later
#include "layout.h"

#include <algorithm>

#include "dvb_text.h"

namespace tool {
namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t narrowest = 12; // a column that wraps keeps this much

using row = std::vector<std::string>;

std::vector<std::size_t> natural_widths(const table_layout &table)
{
    std::vector<std::size_t> widths(table.columns.size(), 0);
    for (const row &cells : table.rows)
        for (std::size_t i = 0; i < widths.size() && i < cells.size(); ++i)
            widths[i] = std::max(widths[i], display_width(cells[i]));
    for (std::size_t i = 0; i < widths.size(); ++i)
        if (widths[i] != 0) // an empty column stays away with its title
            widths[i] = std::max(widths[i], display_width(table.columns[i].title));
    return widths;
}

std::size_t total_width(const std::vector<std::size_t> &widths, std::size_t indent)
{
    std::size_t total = indent;
    for (const std::size_t width : widths)
        total += width != 0 ? width + gap : 0;
    return total - std::min(total, gap);
}

// Takes columns from the widest that may wrap, until the table fits.
void narrow(std::vector<std::size_t> &widths, const table_layout &table, std::size_t width,
            std::size_t indent)
{
    while (total_width(widths, indent) > width) {
        std::size_t widest = widths.size();
        for (std::size_t i = 0; i < widths.size(); ++i)
            if (table.columns[i].wraps && widths[i] > narrowest &&
                (widest == widths.size() || widths[i] > widths[widest]))
                widest = i;
        if (widest == widths.size())
            return;
        --widths[widest];
    }
}

void append_cell(std::string &line, const std::string &cell, std::size_t width, bool right)
{
    const std::size_t used = display_width(cell);
    const std::string padding(width - std::min(width, used), ' ');
    line += right ? padding + cell : cell + padding;
}

void append_line(std::string &out, const table_layout &table, const row &cells,
                 const std::vector<std::size_t> &widths, std::size_t indent)
{
    std::string line(indent, ' ');
    for (std::size_t i = 0; i < widths.size(); ++i) {
        if (widths[i] == 0)
            continue;
        append_cell(line, i < cells.size() ? cells[i] : "", widths[i], table.columns[i].right);
        line.append(gap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + '\n';
}

void append_row(std::string &out, const table_layout &table, const row &cells,
                const std::vector<std::size_t> &widths, std::size_t indent)
{
    std::vector<std::vector<std::string>> parts(widths.size());
    std::size_t lines = 1;
    for (std::size_t i = 0; i < widths.size() && i < cells.size(); ++i) {
        if (widths[i] != 0)
            parts[i] = wrapped(cells[i], widths[i]);
        lines = std::max(lines, parts[i].size());
    }
    for (std::size_t n = 0; n < lines; ++n) {
        row line(widths.size());
        for (std::size_t i = 0; i < widths.size(); ++i)
            if (n < parts[i].size())
                line[i] = parts[i][n];
        append_line(out, table, line, widths, indent);
    }
}

// Where to break a text of which so many bytes fit: behind the last item of a list, else at the
// last blank, else where it must be.
std::size_t break_in(std::string_view text, std::size_t fit)
{
    const std::string_view up_to_blank = text.substr(0, fit + 1);
    if (const std::size_t comma = up_to_blank.rfind(", "); comma != std::string_view::npos)
        return comma + 1;
    const std::size_t blank = up_to_blank.rfind(' ');
    return blank != std::string_view::npos && blank != 0 ? blank : fit;
}

} // namespace

std::vector<std::string> wrapped(const std::string &text, std::size_t width)
{
    std::vector<std::string> lines;
    std::string_view rest = text;
    while (display_width(rest) > width) {
        std::string_view line = fitting(rest, width);
        line = line.substr(0, break_in(rest, line.size()));
        lines.emplace_back(line);
        rest.remove_prefix(line.size());
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    }
    if (!rest.empty() || lines.empty())
        lines.emplace_back(rest);
    return lines;
}

std::string laid_out(const table_layout &table, std::size_t width, std::size_t indent)
{
    std::vector<std::size_t> widths = natural_widths(table);
    narrow(widths, table, width, indent);
    row titles;
    for (const column &c : table.columns)
        titles.push_back(c.title);
    std::string out;
    append_line(out, table, titles, widths, indent);
    for (const row &cells : table.rows)
        append_row(out, table, cells, widths, indent);
    return out;
}

} // namespace tool
