// SPDX-License-Identifier: LGPL-2.1-or-later
// Plain fields that several threads read and write without a lock. Their types are fixed by the
// public headers or by their layout, so the access is made atomic, not the field.
#ifndef SRC_ORVA_SI_SHARED_H
#define SRC_ORVA_SI_SHARED_H

#include <type_traits>

namespace si {

template <class T>
T load_relaxed(const T &field)
{
    T value;
    __atomic_load(&field, &value, __ATOMIC_RELAXED);
    return value;
}

template <class T>
T load_acquire(const T &field)
{
    T value;
    __atomic_load(&field, &value, __ATOMIC_ACQUIRE);
    return value;
}

template <class T>
void store_relaxed(T &field, std::type_identity_t<T> value)
{
    __atomic_store(&field, &value, __ATOMIC_RELAXED);
}

template <class T>
void store_release(T &field, std::type_identity_t<T> value)
{
    __atomic_store(&field, &value, __ATOMIC_RELEASE);
}

// Sets bits of a word that another thread may clear at the same time; answers whether one of them
// was new.
template <class T>
bool set_bits(T &field, std::type_identity_t<T> bits)
{
    return (__atomic_fetch_or(&field, bits, __ATOMIC_RELAXED) & bits) != bits;
}

template <class T>
void clear_bits(T &field, std::type_identity_t<T> bits)
{
    __atomic_fetch_and(&field, static_cast<T>(~bits), __ATOMIC_RELAXED);
}

} // namespace si

#endif
