// Specification buffers: caller-owned blocks whose content starts on the first 64-byte
// boundary inside them and opens with a 32-bit identifier of the family that wrote it.
#pragma once

#include <cstdint>
#include <cstring>

namespace keli::spec {

constexpr std::int32_t kAlignSlack = 63;  // added by every size query

// The first 64-byte boundary at or after p: p + ((-p) & 63). A buffer moved to an address
// with another offset modulo 64 no longer lines up, and its identifier test fails.
template <class T = unsigned char> inline T* aligned(void* p)
{
    const auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<T*>(a + ((0 - a) & 63));
}

template <class T = unsigned char> inline const T* aligned(const void* p)
{
    return aligned<T>(const_cast<void*>(p));
}

inline std::uint32_t identifier(const void* content)
{
    std::uint32_t id;
    std::memcpy(&id, content, sizeof id);
    return id;
}

inline bool has_identifier(const void* content, std::uint32_t id) { return identifier(content) == id; }

}  // namespace keli::spec
