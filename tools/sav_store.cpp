#include "tools/sav_store.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "core/systick.h"
#include "storage/fatfs.h"
#include "tools/errors.h"
#include "tools/output.h"

namespace {

// A file that is being saved.
struct Saving {
    int copy; // ours, for the content
    std::string name;
};

// State of a run.
const SavFiles *present = nullptr;
std::string inTheWay; // the name of what is not a regular file
std::vector<Saving> savings;
std::vector<std::string> asked;
int failure; // errno of the first call that failed here, and not in the daemon's eyes

int failed()
{
    failure = failure == 0 ? errno : failure;
    return -1;
}

// The name of a settings file; "" for what is no such file.
std::string nameIn(const char *path)
{
    const std::string_view text(path);
    return std::string(text.starts_with(USERPath) ? text.substr(std::strlen(USERPath)) : "");
}

// A regular file in memory.
int openMemory(std::string_view content)
{
    const int descriptor = memfd_create("sav", MFD_CLOEXEC);
    if (descriptor < 0) {
        return failed();
    }
    // In memory nothing is cut short.
    if (pwrite(descriptor, content.data(), content.size(), 0) !=
        static_cast<ssize_t>(content.size())) {
        failed();
    }
    return descriptor;
}

std::string contentOf(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        failed();
        return {};
    }
    std::string content(static_cast<size_t>(status.st_size), '\0');
    if (pread(descriptor, content.data(), content.size(), 0) !=
        static_cast<ssize_t>(content.size())) {
        failed();
    }
    return content;
}

// A file as it is now.
bool find(const std::string &name, std::string &content)
{
    if (name.empty()) {
        return false;
    }
    for (auto saving = savings.rbegin(); saving != savings.rend(); ++saving) {
        if (saving->name == name) {
            content = contentOf(saving->copy);
            return true;
        }
    }
    const auto file = present->find(name);
    if (file == present->end()) {
        return false;
    }
    content = file->second;
    return true;
}

// The system calls of the store. Its files cannot be truncated when they are opened, removed or be
// in other directories, and no loader wants that. As on some file systems, all have names.

int openFile(const char *path, int flags, mode_t = 0)
{
    const std::string name = nameIn(path);
    const bool isRead = (flags & O_ACCMODE) == O_RDONLY;
    if (isRead && !name.empty() && std::find(asked.begin(), asked.end(), name) == asked.end()) {
        asked.push_back(name);
    }
    if (!name.empty() && name == inTheWay) {
        errno = EISDIR; // nobody looks at which error it is
        return -1;
    }
    std::string content;
    if (!find(name, content) && (name.empty() || (flags & O_CREAT) == 0)) {
        errno = ENOENT;
        return -1;
    }
    const int descriptor = openMemory(content);
    if (descriptor >= 0 && !isRead) {
        const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
        if (copy < 0) {
            close(descriptor);
            return failed();
        }
        savings.push_back({copy, name});
    }
    return descriptor;
}

// A file in memory has no name in the system's eyes, and always one in ours.
int nameMemory(int, const char *, int, const char *, int)
{
    return 0;
}

int statFile(const char *path, struct stat *)
{
    std::string content;
    const std::string name = nameIn(path);
    if ((!name.empty() && name == inTheWay) || find(name, content)) {
        return 0;
    }
    errno = ENOENT;
    return -1;
}

const char *nothingInsteadOf(const char *)
{
    return "";
}

// What a function prints on standard output.
std::string printedBy(const std::function<void()> &function)
{
    flushOutput();
    const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    const int console = openMemory({});
    if (output < 0 || console < 0 || dup2(console, STDOUT_FILENO) < 0) {
        throw LocalError(fmt::format("cannot run the loaders: {}", std::strerror(errno)));
    }
    function();
    if (std::fflush(stdout) != 0) {
        failed();
    }
    std::string text = contentOf(console);
    dup2(output, STDOUT_FILENO);
    close(output);
    close(console);
    return text;
}

} // namespace

// NOLINTBEGIN(bugprone-suspicious-include): it is the daemon's very code that is to run.
#define open              openFile
#define linkat            nameMemory
#define lstat             statFile
#define remove(path)      remove(nothingInsteadOf(path))
#define mkdir(path, mode) (-1)
#include "storage/fatfs.cpp"
#undef open
#undef linkat
#undef lstat
#undef remove
#undef mkdir
// NOLINTEND(bugprone-suspicious-include)

// A pause of the daemon's start takes no time here.
void SysDelayMs(uint32_t) {}

SavRun runOnFiles(const SavFiles &files, const std::function<void()> &loader,
                  const std::string &blocked)
{
    present = &files;
    inTheWay = blocked;
    failure = 0;
    SavRun run;
    run.says = printedBy(loader);
    for (const Saving &saving : savings) {
        run.written[saving.name] = contentOf(saving.copy);
        close(saving.copy);
    }
    savings.clear();
    run.read = std::move(asked);
    asked.clear();
    if (failure != 0) {
        throw LocalError(fmt::format("cannot run the loaders: {}", std::strerror(failure)));
    }
    return run;
}
