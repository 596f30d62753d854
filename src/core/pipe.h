#pragma once

// The byte ring that carries every byte stream inside the daemon, from one thread to one other.
//
// Exactly one writer thread (pipe_write, pipe_write_block, pipe_pop_back) and exactly one reader
// thread (pipe_read, pipe_read_block, pipe_peek, pipe_skip) may use a pipe at the same time. Either
// may ask how full it is. There is no lock. The writer publishes its bytes by a release store of
// `write`, which the reader loads with acquire. The reader hands slots back by a release store of
// `read`, which the writer loads with acquire. An operation on many bytes does this once, so the
// other thread sees all of them or none (and pipe_peek() may need two calls to reach them all).

#include <atomic>
#include <cstdint>

// (POSIX has a function of this name, so write `struct pipe`.)
//
// Invariant: start <= read, write < end. The ring is empty when write == read, and full when one
// more byte would make them equal, so a storage of N bytes holds N - 1.
struct pipe {
    uint8_t *start;               // first byte of the caller's storage
    std::atomic<uint8_t *> write; // where the next byte goes; moved by the writer only
    std::atomic<uint8_t *> read;  // where the next byte comes from; moved by the reader only
    uint8_t *end;                 // one past the last byte of the storage
};
static_assert(sizeof(struct pipe) == 4 * sizeof(uint8_t *), "four pointers and nothing else");
static_assert(std::atomic<uint8_t *>::is_always_lock_free);

// Makes `pipe` an empty ring over `storage` of `size` bytes (1 to 65535). The caller keeps the
// storage, which must outlive the pipe.
// Requires: no other thread knows the pipe yet.
void pipe_init(struct pipe *pipe, uint8_t *storage, uint16_t size);

// Takes the oldest byte into `*out` and returns 1. If the pipe is empty, stores 0xFF there and
// returns 0.
[[nodiscard]] int32_t pipe_read(struct pipe *pipe, uint8_t *out);

// Appends the bytes from the first on, as many of the `count` as fit, and returns how many. Drops
// the rest.
uint32_t pipe_write_block(struct pipe *pipe, const uint8_t *bytes, uint32_t count);

// Takes the oldest bytes into `out`, at most `size`, and returns how many. If the pipe is empty,
// returns 0 and leaves `out` alone.
[[nodiscard]] uint32_t pipe_read_block(struct pipe *pipe, uint8_t *out, uint32_t size);

// Points `*bytes` to the oldest bytes and returns how many follow each other there: all, or those
// up to the end of the storage; 0 if the pipe is empty. The bytes stay in the pipe, and valid,
// until the reader takes them.
[[nodiscard]] uint32_t pipe_peek(const struct pipe *pipe, const uint8_t **bytes);

// Takes `count` bytes without copying them.
// Requires: at most what the last pipe_peek() returned, and nothing taken since.
void pipe_skip(struct pipe *pipe, uint32_t count);

// Takes back the last `count` bytes written. This is not checked against the reader.
// Requires: the bytes are still in the pipe.
void pipe_pop_back(struct pipe *pipe, uint32_t count);

// The number of bytes in the pipe. The other thread may change it at any time: for the reader it is
// a lower bound, for the writer an upper one.
[[nodiscard]] uint32_t pipe_count(const struct pipe *pipe);

// Waiting for a later model -----------------------------------------------------------------------

// Appends `byte` and returns 1. If the pipe is full, drops the byte and returns 0.
int32_t pipe_write(struct pipe *pipe, uint8_t byte);

// 1 when pipe_read() would find nothing, else 0.
[[nodiscard]] int32_t pipe_isEmpty(const struct pipe *pipe);

// 1 when pipe_write() would drop a byte, else 0.
[[nodiscard]] int32_t pipe_isFull(const struct pipe *pipe);
