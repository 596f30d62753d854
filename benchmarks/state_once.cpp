// Does one operation on the stored state once, in measured(), for a tool that counts the
// instructions of a function. scripts/bench runs it that way, inside the board.
//
//   state_once OPERATION daemon|plain

#include <cstdio>
#include <cstring>

#include "benchmarks/stored_state.h"

extern "C" void measured(void (*action)(uint32_t turn));

// Neither inlined nor cloned, because the tool finds it by name.
[[gnu::noipa]] void measured(void (*action)(uint32_t turn))
{
    action(1);
}

int main(int argc, char **argv)
{
    for (const StoredStateOperation &operation : kStoredStateOperations) {
        if (argc == 3 && operation.name == argv[1]) {
            const auto action =
                std::strcmp(argv[2], "plain") == 0 ? operation.plain : operation.daemon;
            operation.prepare();
            action(0); // not measured: the first call also pays for dynamic linking
            measured(action);
            return 0;
        }
    }
    std::fputs("usage: state_once OPERATION daemon|plain\n", stderr);
    return 2;
}
