#pragma once

#include <cstddef>

// The library's flags, handles and counters are plain globals that several threads read and write.
// These two functions give such an access the one property it needs: each access reads or writes
// the whole value in memory.  They impose no order on other accesses; where order matters, an event
// or a lock provides it.
template <typename T>
T LoadShared(const T& value) {
    T copy;
    __atomic_load(&value, &copy, __ATOMIC_RELAXED);
    return copy;
}

template <typename T, typename U>
void StoreShared(T& value, U replacement) {
    T converted = static_cast<T>(replacement);
    __atomic_store(&value, &converted, __ATOMIC_RELAXED);
}

// The same for an array: each byte is read whole, but the array may be read in the middle of a
// change.  A text whose last byte is always zero stays terminated.
inline void StoreSharedBytes(void* shared, const void* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        StoreShared(static_cast<unsigned char*>(shared)[i],
                    static_cast<const unsigned char*>(bytes)[i]);
    }
}

inline void LoadSharedBytes(void* bytes, const void* shared, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        static_cast<unsigned char*>(bytes)[i] =
            LoadShared(static_cast<const unsigned char*>(shared)[i]);
    }
}
