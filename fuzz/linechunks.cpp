#include "linechunks.h"

#include <algorithm>

namespace {

constexpr uint8_t pauseFlag = 0x80;
constexpr uint8_t lengthMask = 0x7F;

} // namespace

namespace LineChunks {

QList<Chunk> split(const uint8_t *data, std::size_t size)
{
    QList<Chunk> chunks;
    std::size_t position = 0;
    while (position < size) {
        const uint8_t header = data[position++];
        const std::size_t length = std::min<std::size_t>(header & lengthMask, size - position);
        chunks.append(
            { QByteArray(reinterpret_cast<const char *>(data + position), qsizetype(length)),
                (header & pauseFlag) != 0 });
        position += length;
    }
    return chunks;
}

} // namespace LineChunks
