#include "producer/ChunkLayout.h"

#include <algorithm>

namespace nuvark {

std::optional<std::vector<SINGLE_CHUNK_DATA>> ParseChunks(orv::ByteSpan payload, std::size_t imageSize)
{
    constexpr std::size_t kTail = 8;
    std::vector<SINGLE_CHUNK_DATA> chunks;
    std::size_t end = payload.size;
    while (end >= kTail && end - kTail >= imageSize) {
        orv::ByteReader tail({payload.data + end - kTail, kTail});
        const std::uint32_t id = tail.U32();
        const std::size_t length = tail.U32();
        if (length > end - kTail)
            break;
        const std::size_t begin = end - kTail - length;
        if (begin != 0 && begin < imageSize)
            break;
        chunks.push_back({id, static_cast<ptrdiff_t>(begin), length});
        end = begin;
    }
    if (chunks.empty())
        return std::nullopt;
    std::reverse(chunks.begin(), chunks.end());
    return chunks;
}

} // namespace nuvark
