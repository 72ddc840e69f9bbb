#include "output/SubstringIndex.h"

#include <algorithm>

namespace murmurly {

namespace {

constexpr std::uint64_t hashSeed = 0x9E3779B97F4A7C15ull;
constexpr std::uint64_t hashBase = 0x100000001B3ull;

} // namespace

std::uint64_t SubstringIndex::slotKey(std::uint64_t h) {
    // Mix the polynomial hash so that nearby values spread over the table; never 0 (empty slot).
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    return h | 1u;
}

void SubstringIndex::build(std::u16string_view text, std::size_t maxLength) {
    m_text = text;
    m_maxLength = std::min(maxLength, text.size());
    const std::size_t entries = text.size() * m_maxLength;
    std::size_t capacity = 64;
    while (capacity < entries * 2)
        capacity <<= 1;
    m_slots.assign(capacity, 0);
    m_mask = capacity - 1;

    for (std::size_t start = 0; start < text.size(); ++start) {
        std::uint64_t h = hashSeed;
        const std::size_t longest = std::min(m_maxLength, text.size() - start);
        for (std::size_t length = 1; length <= longest; ++length) {
            h = h * hashBase + text[start + length - 1];
            const std::uint64_t key = slotKey(h);
            std::size_t slot = key & m_mask;
            while (m_slots[slot] != 0 && m_slots[slot] != key)
                slot = (slot + 1) & m_mask;
            m_slots[slot] = key;
        }
    }
}

bool SubstringIndex::mayContain(std::u16string_view needle) const {
    if (needle.size() > m_text.size()) return false;
    if (needle.size() > m_maxLength) return m_text.find(needle) != std::u16string_view::npos;
    std::uint64_t h = hashSeed;
    for (const char16_t c : needle)
        h = h * hashBase + c;
    const std::uint64_t key = slotKey(h);
    for (std::size_t slot = key & m_mask;; slot = (slot + 1) & m_mask) {
        if (m_slots[slot] == key) return true;
        if (m_slots[slot] == 0) return false;
    }
}

} // namespace murmurly
