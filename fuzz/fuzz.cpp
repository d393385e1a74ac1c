// SPDX-License-Identifier: LGPL-2.1-or-later
#include "fuzz.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

void fail(std::string_view text, std::string_view more)
{
    std::fprintf(stderr, "FOUND: %.*s %.*s\n", static_cast<int>(text.size()), text.data(),
                 static_cast<int>(more.size()), more.data());
    std::fflush(stderr);
    std::abort();
}

void claim(bool holds, const char *text)
{
    if (!holds)
        fail(text);
}

} // namespace fuzz
