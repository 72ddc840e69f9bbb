#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace murmurly {

// Answers "does this UTF-16 text contain that string" in constant time for short needles, by
// hashing every substring of the text up to a maximum length. Hash collisions can only make it
// answer yes wrongly, never no; longer needles are searched for directly.
class SubstringIndex {
public:
    void build(std::u16string_view text, std::size_t maxLength);
    bool mayContain(std::u16string_view needle) const;

private:
    static std::uint64_t slotKey(std::uint64_t hash);

    std::u16string_view m_text;
    std::size_t m_maxLength = 0;
    std::vector<std::uint64_t> m_slots; // open addressing, 0 = empty
    std::size_t m_mask = 0;
};

} // namespace murmurly
