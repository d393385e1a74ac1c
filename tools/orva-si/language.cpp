// SPDX-License-Identifier: LGPL-2.1-or-later
#include "language.h"

#include <cctype>

#include <algorithm>
#include <array>

#include "dvb_text.h"
#include "orva_si/query_text.h"

namespace tool {
namespace {

constexpr std::size_t code_letters = 3;

// Languages with a bibliographic and a terminologic code.
struct code_pair {
    std::string_view bibliographic;
    std::string_view terminologic;
};
constexpr std::array<code_pair, 20> pairs{
    {{"alb", "sqi"}, {"arm", "hye"}, {"baq", "eus"}, {"bur", "mya"}, {"chi", "zho"},
     {"cze", "ces"}, {"dut", "nld"}, {"fre", "fra"}, {"geo", "kat"}, {"ger", "deu"},
     {"gre", "ell"}, {"ice", "isl"}, {"mac", "mkd"}, {"mao", "mri"}, {"may", "msa"},
     {"per", "fas"}, {"rum", "ron"}, {"slo", "slk"}, {"tib", "bod"}, {"wel", "cym"}}};

std::uint32_t number_language(const char *code, std::uint32_t *id)
{
    *id = language_id(static_cast<std::uint8_t>(code[0]), static_cast<std::uint8_t>(code[1]),
                      static_cast<std::uint8_t>(code[2]));
    return ORVA_SI_OK;
}

// Small letters, and of two codes the terminologic one.
std::string canonical(std::string_view code)
{
    std::string letters{code};
    std::ranges::transform(letters, letters.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto *const found = std::ranges::find(pairs, letters, &code_pair::bibliographic);
    return found == pairs.end() ? letters : std::string{found->terminologic};
}

} // namespace

std::string language_code(std::uint32_t id)
{
    const std::array<char, code_letters> letters{static_cast<char>(id >> 16),
                                                 static_cast<char>(id >> 8), static_cast<char>(id)};
    return one_line({letters.data(), letters.size()});
}

void install_languages()
{
    Orva_Si_InstallISO639toIDFunc(number_language);
}

bool same_language(std::string_view one, std::string_view other)
{
    return canonical(one) == canonical(other);
}

std::optional<std::vector<std::string>> language_list(const std::string &text)
{
    std::vector<std::string> codes;
    for (std::size_t at = 0; at <= text.size(); at += code_letters + 1) {
        const std::string code = text.substr(at, text.find(',', at) - at);
        const bool is_code =
            code.size() == code_letters &&
            std::ranges::all_of(code, [](unsigned char c) { return std::isalpha(c) != 0; });
        if (!is_code)
            return std::nullopt;
        codes.push_back(code);
    }
    return codes;
}

std::size_t best_language(const std::vector<std::string> &codes,
                          const std::vector<std::string> &wanted)
{
    for (const std::string &one : wanted) {
        const auto found = std::ranges::find_if(
            codes, [&](const std::string &code) { return same_language(code, one); });
        if (found != codes.end())
            return static_cast<std::size_t>(found - codes.begin());
    }
    return 0;
}

} // namespace tool
