#pragma once

// Many short texts copied into blocks that never move once written. A store that grew by copying
// would copy everything written so far at each doubling, and touch fresh pages each time; a
// hundred thousand rules make that the larger part of reading a list. A text's place is its
// block's number times BlockUnits plus its offset there; a text longer than a block gets a block
// of its own. Both sides of the row set keep their texts this way: the store the database's
// answer, the rule list the characters it shows.

#include <QtGlobal>

#include <algorithm>
#include <memory>
#include <vector>

namespace qarvo {

template<class Unit, qsizetype BlockUnits>
class TextBlocks
{
public:
    // Where the copy of `text` lies; a place is only looked at for a text that is not empty.
    // Units of another kind are widened one by one (ASCII bytes into UTF-16, say).
    template<class Source>
    qsizetype add(const Source *text, qsizetype size)
    {
        if (size == 0)
            return m_next;
        if (const qsizetype offset = m_next % BlockUnits; offset > 0 && offset + size > BlockUnits)
            m_next += BlockUnits - offset;
        const auto block = size_t(m_next / BlockUnits);
        const qsizetype need = std::max(size, BlockUnits);
        if (block == m_blocks.size())
            m_blocks.emplace_back();
        // A block kept from an earlier fill may be too small for a long text; nothing of this
        // fill is in it yet, as the text starts it.
        if (m_blocks[block].size < need)
            m_blocks[block] = {std::make_unique_for_overwrite<Unit[]>(size_t(need)), need};
        const qsizetype place = m_next;
        std::copy(text, text + size, m_blocks[block].units.get() + place % BlockUnits);
        m_next = size > BlockUnits ? qsizetype(block + 1) * BlockUnits : m_next + size;
        return place;
    }

    const Unit *at(qsizetype place) const
    {
        return m_blocks[size_t(place / BlockUnits)].units.get() + place % BlockUnits;
    }

    // Moves `other`'s texts behind these; answers how far their places moved.
    qsizetype append(TextBlocks &&other)
    {
        // Blocks kept from an earlier fill but not written this time go; the others follow ours.
        m_blocks.resize(usedBlocks());
        const qsizetype shift = qsizetype(m_blocks.size()) * BlockUnits;
        const size_t used = other.usedBlocks();
        for (size_t i = 0; i < used; ++i)
            m_blocks.push_back(std::move(other.m_blocks[i]));
        m_next = shift + other.m_next;
        other.m_blocks.clear();
        other.m_next = 0;
        return shift;
    }

    // Empty again. The ordinary blocks stay for the next fill to write into; those of long texts
    // are let go.
    void clear()
    {
        for (Block &b : m_blocks) {
            if (b.size > BlockUnits)
                b = {};
        }
        m_next = 0;
    }

    size_t bytes() const
    {
        size_t n = 0;
        for (const Block &b : m_blocks)
            n += size_t(b.size) * sizeof(Unit);
        return n;
    }

private:
    struct Block
    {
        std::unique_ptr<Unit[]> units;
        qsizetype size = 0;
    };
    size_t usedBlocks() const { return size_t((m_next + BlockUnits - 1) / BlockUnits); }

    std::vector<Block> m_blocks;
    qsizetype m_next = 0;
};

} // namespace qarvo
