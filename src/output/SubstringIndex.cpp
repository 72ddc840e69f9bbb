#include "output/SubstringIndex.h"

#include <algorithm>

namespace murmurly {

namespace {

constexpr std::uint64_t hashSeed = 0x9E3779B97F4A7C15ull;
constexpr std::uint64_t hashBase = 0x100000001B3ull;

// Mixes the polynomial hash so that nearby values spread over the table; never 0 (empty slot).
std::uint32_t slotKey(std::uint64_t h) {
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    return static_cast<std::uint32_t>(h >> 32) | 1u;
}

// The first slot of a key: the key scaled onto the table, so that any table size spreads evenly.
std::size_t homeSlot(std::uint32_t key, std::size_t size) {
    return static_cast<std::size_t>((static_cast<std::uint64_t>(key) * size) >> 32);
}

// Substrings of `length` or fewer characters in a text of `size` characters.
std::size_t substringCount(std::size_t size, std::size_t length) {
    if (size <= length) return size * (size + 1) / 2;
    return size * length - length * (length - 1) / 2;
}

} // namespace

void SubstringIndex::build(std::u16string_view text, std::size_t maxLength) {
    m_indexedLength = std::min(maxLength, gramLength);
    // At most half full after the build, so that a probe for an absent key soon meets an empty
    // slot, with room left for the substrings later changes bring.
    const std::size_t slots = std::max<std::size_t>(64, 2 * substringCount(text.size(), m_indexedLength));
    m_slots.assign(slots, 0);
    m_slots.shrink_to_fit();
    m_used = 0;
    add(text);
}

bool SubstringIndex::add(std::u16string_view piece) {
    const std::size_t size = m_slots.size();
    // Three quarters full at most: past that, probes grow long.
    const std::size_t limit = size / 4 * 3;
    for (std::size_t start = 0; start < piece.size(); ++start) {
        std::uint64_t h = hashSeed;
        const std::size_t longest = std::min(m_indexedLength, piece.size() - start);
        for (std::size_t length = 1; length <= longest; ++length) {
            h = h * hashBase + piece[start + length - 1];
            const std::uint32_t key = slotKey(h);
            std::size_t slot = homeSlot(key, size);
            while (m_slots[slot] != 0 && m_slots[slot] != key)
                slot = slot + 1 == size ? 0 : slot + 1;
            if (m_slots[slot] == key) continue;
            if (m_used == limit) return false;
            m_slots[slot] = key;
            ++m_used;
        }
    }
    return true;
}

bool SubstringIndex::holds(std::u16string_view substring) const {
    std::uint64_t h = hashSeed;
    for (const char16_t c : substring)
        h = h * hashBase + c;
    const std::uint32_t key = slotKey(h);
    const std::size_t size = m_slots.size();
    for (std::size_t slot = homeSlot(key, size);; slot = slot + 1 == size ? 0 : slot + 1) {
        if (m_slots[slot] == key) return true;
        if (m_slots[slot] == 0) return false;
    }
}

bool SubstringIndex::mayContain(std::u16string_view needle) const {
    if (needle.empty()) return true;
    if (needle.size() <= m_indexedLength) return holds(needle);
    // Longer than every needle announced (case folding can lengthen one): nothing to go on.
    if (m_indexedLength < gramLength) return true;
    for (std::size_t start = 0; start + gramLength <= needle.size(); ++start)
        if (!holds(needle.substr(start, gramLength))) return false;
    return true;
}

} // namespace murmurly
