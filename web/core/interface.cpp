// What web/src/core/wasm.ts calls. Texts are UTF-8; a result that is a text stays as it is until
// the next call.

#include "web/core/interface.h"

#include <cstdio>
#include <string>
#include <vector>

#include <emscripten.h>

#include "tools/status.h"

int veskctlMain(int argc, char **argv); // tools/veskctl.cpp

extern "C" {

// Runs veskctl with arguments, each ended by a NUL. Gives the exit status.
EMSCRIPTEN_KEEPALIVE int runTool(const char *arguments, int size)
{
    std::vector<std::string> texts{"veskctl"};
    const char *const end = arguments + size;
    while (arguments < end) {
        texts.emplace_back(arguments);
        arguments += texts.back().size() + 1;
    }
    std::vector<char *> pointers;
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    const int count = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
    int status = kInterrupted;
    try {
        status = veskctlMain(count, pointers.data());
    } catch (const EndOfRun &) {
        // Without a word, as at a desk.
    }
    std::fflush(nullptr); // as at the end of a program
    return status;
}

} // extern "C"
