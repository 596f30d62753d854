// What of the tool needs a desk: files of the system, a terminal, two lines at once. A page does
// not have them.

#include <string>

#include <fcntl.h>
#include <sys/mman.h>

#include <fmt/format.h>

#include "tools/console.h"
#include "tools/errors.h"
#include "tools/kept_settings.h"
#include "tools/monitor.h"
#include "tools/player.h"
#include "tools/ports.h"
#include "tools/sav.h"
#include "tools/transcript.h"

namespace {

[[noreturn]] void refuse(const char *subcommand)
{
    throw UsageError(fmt::format("`{}` runs at a desk only, not in a page", subcommand));
}

} // namespace

int runConsole(const Desk &, Milliseconds)
{
    refuse("console");
}

int runMonitor(const Watched &, const MonitorOptions &)
{
    refuse("monitor");
}

int runPorts(const std::string &)
{
    refuse("serial ports");
}

std::vector<Step> parseTranscript(std::istream &, const std::string &)
{
    refuse("play");
}

int playTranscript(const std::vector<Step> &, const std::string &, const Desk &, Milliseconds)
{
    refuse("play");
}

int runSavEdit(const std::string &, SavKind)
{
    refuse("sav edit");
}

// A page's line has no settings to keep.
KeptSettings::KeptSettings(int) : place_(-1) {}
KeptSettings::~KeptSettings() = default;

// Emscripten's C library declares it only. All files are in memory; this one keeps its name,
// without which its size could not be asked for, and ends with the run.
int memfd_create(const char *, unsigned)
{
    static int last = 0;
    const std::string name = fmt::format("/tmp/memory{}", ++last);
    return open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
}
