/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* How the examples show a text of the broadcast. */
#ifndef EXAMPLES_PRINT_TEXT_H
#define EXAMPLES_PRINT_TEXT_H

#include <stdio.h>

#include "orva_si.h"

/* Texts are still in their broadcast character table (EN 300 468 annex A): what is not ASCII is
 * shown as '?'. docs/client-guide.md tells how to convert them. */
static inline void print_text(const SiDvbString *text)
{
    for (unsigned i = 0; i < text->length; ++i)
        putchar(text->text[i] >= 0x20 && text->text[i] < 0x7F ? text->text[i] : '?');
}

#endif
