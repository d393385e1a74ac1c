// SPDX-License-Identifier: LGPL-2.1-or-later
// Languages of texts: ISO 639-2 codes and the numbers that stand for them in questions.
#ifndef TOOLS_LANGUAGE_H
#define TOOLS_LANGUAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The three letters of a code in one number, the first in the highest byte.
constexpr std::uint32_t language_id(std::uint8_t first, std::uint8_t second, std::uint8_t third)
{
    return std::uint32_t{first} << 16 | std::uint32_t{second} << 8 | third;
}

// The letters as broadcast, fit for a terminal.
std::string language_code(std::uint32_t id);

// Makes the library use these numbers. Before the first question.
void install_languages();

// Whether two codes name one language: upper and lower case are alike, and so are the two codes
// that some languages have (ISO 639-2/B and 639-2/T, such as ger and deu).
bool same_language(std::string_view one, std::string_view other);

// The codes of a list such as "deu,eng"; none when it is not one.
std::optional<std::vector<std::string>> language_list(const std::string &text);

// Which of the codes serves best somebody who wants these languages, the first most: its place
// among them, or 0 when none of them is wanted.
std::size_t best_language(const std::vector<std::string> &codes,
                          const std::vector<std::string> &wanted);

} // namespace tool

#endif
