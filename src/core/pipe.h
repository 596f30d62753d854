#pragma once

// The byte ring that carries every byte stream of the daemon from one thread to one other.
//
// Exactly one writer thread (pipe_write, pipe_pop_back) and exactly one reader thread (pipe_read)
// may work on a pipe at the same time; pipe_isEmpty and pipe_isFull may be called by either. There
// is no lock: a byte is published by the release store of `write` and seen by the reader's acquire
// load of it; its slot is handed back by the release store of `read`.

#include <atomic>
#include <cstdint>

// (POSIX has a function of this name: write `struct pipe`.)
//
// Invariant: start <= read, write < end. Empty when write == read; full when one more byte would
// make them equal, so that storage of N bytes holds N - 1.
struct pipe {
    uint8_t *start;               // first byte of the caller's storage
    std::atomic<uint8_t *> write; // where the next byte goes; moved by the writer only
    std::atomic<uint8_t *> read;  // where the next byte comes from; moved by the reader only
    uint8_t *end;                 // one past the last byte of the storage
};
static_assert(sizeof(struct pipe) == 4 * sizeof(uint8_t *), "four pointers and nothing else");
static_assert(std::atomic<uint8_t *>::is_always_lock_free);

// Makes `pipe` an empty ring over `storage` of `size` bytes (1 to 65535), which stays the caller's
// and must outlive the pipe. To be called before any other thread knows the pipe.
void pipe_init(struct pipe *pipe, uint8_t *storage, uint16_t size);

// Takes the oldest byte into `*out` and returns 1; when empty stores 0xFF there and returns 0.
int32_t pipe_read(struct pipe *pipe, uint8_t *out);

// Appends `byte` and returns 1; when full drops it and returns 0, nothing else changed.
int32_t pipe_write(struct pipe *pipe, uint8_t byte);

// Takes back the last `count` bytes written. Not checked against the reader: pop only bytes that
// are known to be still in the pipe.
void pipe_pop_back(struct pipe *pipe, uint32_t count);

// 1 when pipe_read() would find nothing, else 0.
int32_t pipe_isEmpty(const struct pipe *pipe);

// 1 when pipe_write() would drop a byte, else 0.
int32_t pipe_isFull(const struct pipe *pipe);
