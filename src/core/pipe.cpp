#include "core/pipe.h"

#include <algorithm>

namespace {

// The slot after `at` in the ring.
uint8_t *next(const struct pipe *pipe, uint8_t *at)
{
    return at + 1 == pipe->end ? pipe->start : at + 1;
}

// The slot `count` places after `at`. `count` is less than the size of the ring.
uint8_t *advanced(const struct pipe *pipe, uint8_t *at, uint32_t count)
{
    const auto toEnd = static_cast<uint32_t>(pipe->end - at);
    return count < toEnd ? at + count : pipe->start + (count - toEnd);
}

// The number of slots from `from` forward to `to`.
uint32_t distance(const struct pipe *pipe, const uint8_t *from, const uint8_t *to)
{
    return static_cast<uint32_t>(to >= from ? to - from : (pipe->end - from) + (to - pipe->start));
}

} // namespace

void pipe_init(struct pipe *pipe, uint8_t *storage, uint16_t size)
{
    pipe->start = storage;
    pipe->end = storage + size;
    pipe->write.store(storage, std::memory_order_relaxed);
    pipe->read.store(storage, std::memory_order_relaxed);
}

int32_t pipe_read(struct pipe *pipe, uint8_t *out)
{
    uint8_t *const at = pipe->read.load(std::memory_order_relaxed);
    // Pairs with the releases of the writer: once `write` has moved past a byte, the byte is
    // stored.
    if (at == pipe->write.load(std::memory_order_acquire)) {
        *out = 0xFF;
        return 0;
    }
    *out = *at;
    pipe->read.store(next(pipe, at), std::memory_order_release);
    return 1;
}

uint32_t pipe_write_block(struct pipe *pipe, const uint8_t *bytes, uint32_t count)
{
    uint8_t *const at = pipe->write.load(std::memory_order_relaxed);
    // Pairs with the releases of the reader: once `read` has moved past a slot, the slot is free.
    const uint8_t *const read = pipe->read.load(std::memory_order_acquire);
    const uint32_t room =
        static_cast<uint32_t>(pipe->end - pipe->start) - 1 - distance(pipe, read, at);
    count = std::min(count, room);
    const uint32_t first = std::min(count, static_cast<uint32_t>(pipe->end - at));
    std::copy_n(bytes, first, at);
    std::copy_n(bytes + first, count - first, pipe->start);
    pipe->write.store(advanced(pipe, at, count), std::memory_order_release);
    return count;
}

uint32_t pipe_read_block(struct pipe *pipe, uint8_t *out, uint32_t size)
{
    uint8_t *const at = pipe->read.load(std::memory_order_relaxed);
    // Pairs with the releases of the writer, as in pipe_read.
    const uint8_t *const write = pipe->write.load(std::memory_order_acquire);
    const uint32_t count = std::min(size, distance(pipe, at, write));
    const uint32_t first = std::min(count, static_cast<uint32_t>(pipe->end - at));
    std::copy_n(at, first, out);
    std::copy_n(pipe->start, count - first, out + first);
    pipe->read.store(advanced(pipe, at, count), std::memory_order_release);
    return count;
}

uint32_t pipe_peek(const struct pipe *pipe, const uint8_t **bytes)
{
    const uint8_t *const at = pipe->read.load(std::memory_order_relaxed);
    // Pairs with the releases of the writer, as in pipe_read.
    const uint8_t *const write = pipe->write.load(std::memory_order_acquire);
    *bytes = at;
    return static_cast<uint32_t>((write >= at ? write : pipe->end) - at);
}

void pipe_skip(struct pipe *pipe, uint32_t count)
{
    uint8_t *const at = pipe->read.load(std::memory_order_relaxed);
    pipe->read.store(advanced(pipe, at, count), std::memory_order_release);
}

void pipe_pop_back(struct pipe *pipe, uint32_t count)
{
    uint8_t *at = pipe->write.load(std::memory_order_relaxed);
    while (count > static_cast<uint32_t>(at - pipe->start)) {
        count -= static_cast<uint32_t>(at - pipe->start);
        at = pipe->end;
    }
    pipe->write.store(at - count, std::memory_order_release);
}

// Either thread may ask, so both loads are acquires. They pair with the releases of both sides.
uint32_t pipe_count(const struct pipe *pipe)
{
    const uint8_t *const read = pipe->read.load(std::memory_order_acquire);
    return distance(pipe, read, pipe->write.load(std::memory_order_acquire));
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t pipe_write(struct pipe *pipe, uint8_t byte)
{
    uint8_t *const at = pipe->write.load(std::memory_order_relaxed);
    uint8_t *const after = next(pipe, at);
    // Pairs with the releases of the reader, as in pipe_write_block.
    if (after == pipe->read.load(std::memory_order_acquire)) {
        return 0;
    }
    *at = byte;
    pipe->write.store(after, std::memory_order_release);
    return 1;
}

int32_t pipe_isEmpty(const struct pipe *pipe)
{
    return pipe_count(pipe) == 0 ? 1 : 0;
}

int32_t pipe_isFull(const struct pipe *pipe)
{
    return pipe_count(pipe) + 1 == static_cast<uint32_t>(pipe->end - pipe->start) ? 1 : 0;
}
