#include "tests/simulation/threads.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

#ifdef SIMULATION_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

#ifndef __x86_64__
#error "the change of stacks is written for x86-64"
#endif

// Saves the registers that a function must keep on the running stack, notes the stack's pointer in
// `*from`, and goes on on the other stack. (swapcontext() of the C library makes a system call each
// time.)
extern "C" void simulationChangeStacks(void **from, void *to);
asm(R"(
    .text
    .globl simulationChangeStacks
    .type simulationChangeStacks, @function
simulationChangeStacks:
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    movq %rsp, (%rdi)
    movq %rsi, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
    .size simulationChangeStacks, . - simulationChangeStacks
)");

namespace {

constexpr size_t kStackSize = 256 * 1024;

Threads *running; // for enter(), which gets no argument

#ifdef SIMULATION_ASAN
const void *outsideBottom; // the outside's own stack, learnt at the first change away from it
size_t outsideSize;
#endif

// To be called on the new stack.
void arrived([[maybe_unused]] void *fakeStack)
{
#ifdef SIMULATION_ASAN
    const void *bottom;
    size_t size;
    __sanitizer_finish_switch_fiber(fakeStack, &bottom, &size);
    if (outsideBottom == nullptr) {
        outsideBottom = bottom;
        outsideSize = size;
    }
#endif
}

} // namespace

Threads::Threads() : threads_(1)
{
    threads_.reserve(16);
    threads_[0].wakeAt = 0;
    running = this;
}

Threads::~Threads()
{
    endDaemon();
    for (std::byte *const stack : spareStacks_) {
        munmap(stack, kStackSize);
    }
}

void Threads::start(std::function<void()> body)
{
    Thread &thread = threads_.emplace_back();
    thread.body = std::move(body);
    thread.wakeAt = now_;
    if (spareStacks_.empty()) {
        void *const memory = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            std::abort();
        }
        spareStacks_.push_back(static_cast<std::byte *>(memory));
    }
    thread.stack = spareStacks_.back();
    spareStacks_.pop_back();
    // As simulationChangeStacks() leaves a stack: six registers and where to go on. The place after
    // them keeps the stack aligned as at a function's entry.
    void **top = reinterpret_cast<void **>(thread.stack + kStackSize) - 2;
    *top = reinterpret_cast<void *>(&Threads::enter);
    thread.stackPointer = top - 6;
    std::memset(thread.stackPointer, 0, 6 * sizeof(void *));
}

void Threads::enter()
{
    arrived(nullptr);
    running->threads_[running->current_].body();
    std::abort(); // the daemon's threads never return
}

void Threads::sleepUntil(Time when)
{
    threads_[current_].wakeAt = when;
    size_t first = 0;
    for (size_t i = 1; i < threads_.size(); ++i) {
        if (threads_[i].wakeAt < threads_[first].wakeAt) {
            first = i;
        }
    }
    now_ = std::max(now_, threads_[first].wakeAt);
    if (first != current_) {
        changeTo(first);
    }
}

void Threads::wake(size_t thread, Time when)
{
    threads_[thread].wakeAt = std::min(threads_[thread].wakeAt, std::max(when, now_));
}

void Threads::changeTo(size_t thread)
{
    Thread &from = threads_[current_];
    const Thread &to = threads_[thread];
    current_ = thread;
    void *fakeStack = nullptr;
#ifdef SIMULATION_ASAN
    __sanitizer_start_switch_fiber(&fakeStack, thread == 0 ? outsideBottom : to.stack,
                                   thread == 0 ? outsideSize : kStackSize);
#endif
    simulationChangeStacks(&from.stackPointer, to.stackPointer);
    arrived(fakeStack);
    if (current_ == 0 && hasEnded_) {
        removeEnded();
    }
}

void Threads::endDaemon()
{
    hasEnded_ = true;
    if (current_ == 0) {
        removeEnded();
        return;
    }
    threads_[0].wakeAt = now_;
    changeTo(0);
}

void Threads::removeEnded()
{
    for (size_t i = 1; i < threads_.size(); ++i) {
#ifdef SIMULATION_ASAN
        __asan_unpoison_memory_region(threads_[i].stack, kStackSize);
#endif
        spareStacks_.push_back(threads_[i].stack);
    }
    threads_.resize(1);
    hasEnded_ = false;
}
