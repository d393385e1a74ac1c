// SPDX-License-Identifier: LGPL-2.1-or-later
// SI_ADDRESS_SANITIZER is set in builds with the address sanitizer, whatever the compiler calls
// that.
#ifndef SRC_ORVA_SI_SANITIZER_H
#define SRC_ORVA_SI_SANITIZER_H

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SI_ADDRESS_SANITIZER
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define SI_ADDRESS_SANITIZER
#endif

#endif
