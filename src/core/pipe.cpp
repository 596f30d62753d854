#include "core/pipe.h"

namespace {

// The slot after `at` in the ring.
uint8_t *next(const struct pipe *pipe, uint8_t *at)
{
    return at + 1 == pipe->end ? pipe->start : at + 1;
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
    // Pairs with the release in pipe_write: once `write` has moved past a byte, the byte is stored.
    if (at == pipe->write.load(std::memory_order_acquire)) {
        *out = 0xFF;
        return 0;
    }
    *out = *at;
    pipe->read.store(next(pipe, at), std::memory_order_release);
    return 1;
}

int32_t pipe_write(struct pipe *pipe, uint8_t byte)
{
    uint8_t *const at = pipe->write.load(std::memory_order_relaxed);
    uint8_t *const after = next(pipe, at);
    // Pairs with the release in pipe_read: once `read` has moved past a slot, the slot is free.
    if (after == pipe->read.load(std::memory_order_acquire)) {
        return 0;
    }
    *at = byte;
    pipe->write.store(after, std::memory_order_release);
    return 1;
}

void pipe_pop_back(struct pipe *pipe, uint32_t count)
{
    uint8_t *at = pipe->write.load(std::memory_order_relaxed);
    for (; count > 0; --count) {
        at = (at == pipe->start ? pipe->end : at) - 1;
    }
    pipe->write.store(at, std::memory_order_release);
}

// Either thread may ask, so both loads are acquires. They pair with the releases in pipe_read and
// pipe_write.
uint32_t pipe_count(const struct pipe *pipe)
{
    const uint8_t *const read = pipe->read.load(std::memory_order_acquire);
    const uint8_t *const write = pipe->write.load(std::memory_order_acquire);
    const auto ahead = write >= read ? write - read : (pipe->end - read) + (write - pipe->start);
    return static_cast<uint32_t>(ahead);
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t pipe_isEmpty(const struct pipe *pipe)
{
    return pipe_count(pipe) == 0 ? 1 : 0;
}

int32_t pipe_isFull(const struct pipe *pipe)
{
    return pipe_count(pipe) + 1 == static_cast<uint32_t>(pipe->end - pipe->start) ? 1 : 0;
}
