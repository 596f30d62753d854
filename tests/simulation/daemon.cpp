#include "tests/simulation/daemon.h"

#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <stdexcept>
#include <vector>

#include "tests/simulation/calls.h"
#include "tests/simulation/model.h"
#include "tests/simulation/world.h"

int daemon_main(int argc, char **argv);

namespace {

// The library's variables: its writable memory, without what the dynamic linker made read-only.
struct Variables {
    char *begin = nullptr;
    std::vector<char> fresh; // as the library was loaded
};
Variables variables;

int findVariables(dl_phdr_info *info, size_t, void *)
{
    const auto inside = reinterpret_cast<uintptr_t>(&daemon_main);
    uintptr_t begin = 0;
    uintptr_t end = 0;
    uintptr_t readOnlyEnd = 0;
    bool isOurs = false;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &part = info->dlpi_phdr[i];
        const uintptr_t from = info->dlpi_addr + part.p_vaddr;
        isOurs =
            isOurs || (part.p_type == PT_LOAD && from <= inside && inside < from + part.p_memsz);
        if (part.p_type == PT_LOAD && (part.p_flags & PF_W) != 0) {
            begin = from;
            end = from + part.p_memsz;
        } else if (part.p_type == PT_GNU_RELRO) {
            readOnlyEnd = (from + part.p_memsz) & ~uintptr_t{4095};
        }
    }
    if (!isOurs) {
        return 0;
    }
    variables.begin = reinterpret_cast<char *>(std::max(begin, readOnlyEnd));
    variables.fresh.resize(end - reinterpret_cast<uintptr_t>(variables.begin));
    return 1;
}

// Not memcpy(), which would complain about the gaps that the address sanitizer keeps between
// variables.
void copy(char *to, const char *from, size_t count)
{
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(count) : : "memory");
}

void refreshVariables()
{
    if (variables.begin == nullptr) {
        if (dl_iterate_phdr(findVariables, nullptr) == 0) {
            throw std::runtime_error("the daemon's variables are not found");
        }
        copy(variables.fresh.data(), variables.begin, variables.fresh.size());
    }
    copy(variables.begin, variables.fresh.data(), variables.fresh.size());
}

} // namespace

void startDaemon()
{
    refreshVariables();
    bootCalls();
    world->isRunning = true;
    world->exitStatus = -1;
    world->armedUntil = 0;
    world->note("the daemon starts");
    world->threads.start([] {
        static char name[] = "vesk_h264";
        static char *arguments[] = {name, nullptr};
        daemon_main(1, arguments);
    });
}

void killDaemon()
{
    world->threads.endDaemon();
    endCalls();
    world->isRunning = false;
}

void daemonHasEnded(int status)
{
    world->note("the daemon ends with status %d", status);
    world->isRunning = false;
    world->exitStatus = status;
    world->model->daemonEnded(status);
    world->threads.endDaemon();
    __builtin_unreachable();
}
