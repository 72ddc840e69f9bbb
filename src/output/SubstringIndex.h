#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace murmurly {

// Answers "may this UTF-16 text contain that string" cheaply, by hashing every substring of the
// text up to `gramLength` characters long. A needle up to that length is looked up as a whole; a
// longer one can be present only if each of its substrings of that length is. Hash collisions
// and the piecewise test can only make it answer yes wrongly, never no.
//
// The table is sized once per build, at most `bytesPerCharacter` per character of text however
// long the needles, and never grows: when the text changes, the substrings around each changed
// place are added (the ones that went away may stay, which only costs a wrong yes), until the
// table is too full and must be built afresh.
class SubstringIndex {
public:
    static constexpr std::size_t gramLength = 8;
    static constexpr std::size_t bytesPerCharacter = gramLength * 2 * sizeof(std::uint32_t);

    // `maxLength` is the longest needle that will be asked about; when every needle is shorter
    // than `gramLength`, longer substrings are not indexed.
    void build(std::u16string_view text, std::size_t maxLength);
    // Adds every substring of `piece`. False when the table is too full to take them: it must
    // then be built afresh before it is asked again.
    bool add(std::u16string_view piece);
    bool mayContain(std::u16string_view needle) const;

    // The bytes the index holds, for measuring.
    std::size_t memoryUsed() const { return m_slots.capacity() * sizeof(std::uint32_t); }

private:
    bool holds(std::u16string_view substring) const;

    std::size_t m_indexedLength = 0;
    std::size_t m_used = 0;
    std::vector<std::uint32_t> m_slots; // open addressing, 0 = empty
};

} // namespace murmurly
