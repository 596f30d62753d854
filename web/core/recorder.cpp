// What the page's line carries, as `--record` writes it. The page reads the file.

#include <optional>
#include <string>
#include <string_view>

#include <emscripten.h>

#include "tools/record.h"

namespace {

constexpr char kFile[] = "/session.txt";

std::optional<Recorder> recorder;

} // namespace

extern "C" {

// Begins the file anew. `about` stands in its first line.
EMSCRIPTEN_KEEPALIVE void startRecord(const char *about, int size)
{
    recorder.emplace(kFile, std::string(about, static_cast<size_t>(size)), true);
}

EMSCRIPTEN_KEEPALIVE void takeRecord(int isSent, const char *bytes, int size)
{
    recorder->take("front", isSent != 0 ? Passing::kSent : Passing::kReceived,
                   std::string_view(bytes, static_cast<size_t>(size)));
}

} // extern "C"
