// `veskctl sav edit`.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/file.h"
#include "tools/manner.h"
#include "tools/sav.h"
#include "tools/sav_json.h"
#include "tools/text.h"

namespace {

constexpr size_t kLongestText = size_t{64} << 20;

std::string environmentOr(const char *name, const std::string &other)
{
    const char *const value = std::getenv(name);
    return value == nullptr || *value == '\0' ? other : value;
}

// A new file with the text, of which only the user can see anything. Returns its name.
std::string writeText(const std::string &text)
{
    constexpr std::string_view kEnd = ".json";
    std::string name = fmt::format("{}/veskctl-XXXXXX{}", environmentOr("TMPDIR", "/tmp"), kEnd);
    const int descriptor = mkostemps(name.data(), kEnd.size(), O_CLOEXEC);
    if (descriptor < 0) {
        throw LocalError(fmt::format("cannot write {}: {}", name, std::strerror(errno)));
    }
    close(descriptor);
    replaceFile(name, text);
    return name;
}

// Ctrl-C is for the editor while this exists, and not for veskctl.
class Deafness {
public:
    Deafness()
    {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGINT, &ignore, &interrupt_);
        sigaction(SIGQUIT, &ignore, &quit_);
    }

    ~Deafness()
    {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGQUIT, &quit_, nullptr);
    }

    Deafness(const Deafness &) = delete;
    Deafness &operator=(const Deafness &) = delete;

private:
    struct sigaction interrupt_ {};
    struct sigaction quit_ {};
};

// Runs the editor, which may be a command with options. Throws LocalError if it fails.
void runEditor(const std::string &name)
{
    const std::string editor = environmentOr("VISUAL", environmentOr("EDITOR", "vi"));
    std::string command = editor + " \"$1\"";
    std::string shell = "sh";
    std::string option = "-c";
    std::string argument = name;
    char *const arguments[] = {shell.data(), option.data(),   command.data(),
                               shell.data(), argument.data(), nullptr};
    const Deafness deafness;
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t heard;
    sigemptyset(&heard);
    sigaddset(&heard, SIGINT);
    sigaddset(&heard, SIGQUIT);
    posix_spawnattr_setsigdefault(&attributes, &heard);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t process = 0;
    int status = 0;
    const int error = posix_spawn(&process, "/bin/sh", nullptr, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw LocalError(fmt::format("cannot run /bin/sh: {}", std::strerror(error)));
    }
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw LocalError(fmt::format("the editor `{}` failed ({})", editor,
                                     WIFEXITED(status)
                                         ? fmt::format("status {}", WEXITSTATUS(status))
                                         : fmt::format("signal {}", WTERMSIG(status))));
    }
}

// What the text in `name` makes of the file is written. Returns whether anything was changed.
bool takeText(const SavFile &file, const std::string &name, const std::string &before)
{
    runEditor(name);
    const std::string text = readRegular(name, "the edited text", kLongestText);
    if (text == before) {
        return false;
    }
    const SavFile edited = savOfJson(text, escape(name));
    if (edited.kind != file.kind) {
        throw UsageError(fmt::format("{}: \"kind\" is {}, and was {}", escape(name),
                                     nameOf(edited.kind), nameOf(file.kind)));
    }
    if (readRegular(file.path, "a settings file", kLongestSav) != file.bytes) {
        throw LocalError(fmt::format("{} has changed meanwhile", escape(file.path)));
    }
    if (edited.bytes == file.bytes) {
        return false;
    }
    replaceFile(file.path, edited.bytes);
    return true;
}

} // namespace

int runSavEdit(const std::string &path, SavKind kind)
{
    const SavFile file = readSav(path, kind);
    const std::string text = jsonOfSav(file, SavLayout::kIndented) + '\n';
    const std::string name = writeText(text);
    const auto kept = [&](const std::string &what) {
        return access(name.c_str(), F_OK) == 0
                   ? fmt::format("{}; nothing was written, and the text is kept in {}", what,
                                 escape(name))
                   : fmt::format("{}; nothing was written", what);
    };
    bool isChanged = false;
    try {
        isChanged = takeText(file, name, text);
    } catch (const UsageError &error) {
        throw UsageError(kept(error.what()));
    } catch (const LocalError &error) {
        throw LocalError(kept(error.what()));
    }
    unlink(name.c_str());
    if (!isChanged && !manner().quiet) {
        fmt::print(stderr, "veskctl: nothing was changed\n");
    }
    return kDone;
}
