#pragma once

#include <QByteArray>
#include <QList>

#include <cstddef>
#include <cstdint>

// Bytes as they arrive on a serial line or a socket: in chunks that are each read at once, some
// followed by a pause. In the input every chunk is a header byte, whose low seven bits give the
// chunk's length and whose high bit a pause after it, followed by the chunk's bytes; the last
// chunk may come short.
namespace LineChunks {

struct Chunk
{
    QByteArray bytes;
    bool pauseAfter = false;
};

QList<Chunk> split(const uint8_t *data, std::size_t size);

} // namespace LineChunks
