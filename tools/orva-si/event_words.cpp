// SPDX-License-Identifier: LGPL-2.1-or-later
#include "event_words.h"

#include <array>
#include <initializer_list>
#include <string_view>

namespace tool {
namespace {

// A level 1 with its levels 2 from 0 on. The first names the whole kind.
struct genre_kind {
    std::array<std::string_view, 12> names;
};

// clang-format off
constexpr std::array<genre_kind, 13> kinds{{
    {{}},
    {{"movie/drama", "detective/thriller", "adventure/western/war",
      "science fiction/fantasy/horror", "comedy", "soap/melodrama/folkloric", "romance",
      "serious/classical/religious/historical drama", "adult movie/drama"}},
    {{"news/current affairs", "news/weather report", "news magazine", "documentary",
      "discussion/interview/debate"}},
    {{"show/game show", "game show/quiz/contest", "variety show", "talk show"}},
    {{"sports", "special events", "sports magazine", "football/soccer", "tennis/squash",
      "team sports", "athletics", "motor sport", "water sport", "winter sports", "equestrian",
      "martial sports"}},
    {{"children's/youth programmes", "pre-school children's programmes",
      "entertainment for 6 to 14", "entertainment for 10 to 16",
      "informational/educational/school programmes", "cartoons/puppets"}},
    {{"music/ballet/dance", "rock/pop", "serious/classical music", "folk/traditional music",
      "jazz", "musical/opera", "ballet"}},
    {{"arts/culture", "performing arts", "fine arts", "religion",
      "popular culture/traditional arts", "literature", "film/cinema", "experimental film/video",
      "broadcasting/press", "new media", "arts/culture magazine", "fashion"}},
    {{"social/political issues/economics", "magazine/report/documentary",
      "economics/social advisory", "remarkable people"}},
    {{"education/science/factual", "nature/animals/environment", "technology/natural sciences",
      "medicine/physiology/psychology", "foreign countries/expeditions",
      "social/spiritual sciences", "further education", "languages"}},
    {{"leisure hobbies", "tourism/travel", "handicraft", "motoring", "fitness and health",
      "cooking", "advertisement/shopping", "gardening"}},
    {{"original language", "black and white", "unpublished", "live broadcast",
      "plano-stereoscopic", "local or regional"}},
    {{"adult"}},
}};
// clang-format on

constexpr std::size_t characteristics = 0xB; // whose level 2 of 0 is no general name

} // namespace

std::string genre_text(std::uint8_t level_1, std::uint8_t level_2)
{
    if (level_1 >= kinds.size())
        return "";
    const auto &names = kinds[level_1].names;
    const std::string_view name = level_2 < names.size() ? names[level_2] : std::string_view{};
    if (!name.empty() || level_1 == characteristics)
        return std::string{name};
    return std::string{names[0]};
}

std::string rating_text(std::uint8_t rating)
{
    constexpr std::uint8_t last_age = 0x0F;
    constexpr unsigned years_below = 3;
    return rating >= 1 && rating <= last_age ? std::to_string(rating + years_below) + "+" : "";
}

} // namespace tool
