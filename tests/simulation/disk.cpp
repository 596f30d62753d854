#include "tests/simulation/disk.h"

#include <algorithm>
#include <set>

namespace {

constexpr Time kWriteBackAge = 30 * kSecond;

void put(File &file, size_t offset, const std::string &bytes)
{
    if (file.content.size() < offset + bytes.size()) {
        file.content.resize(offset + bytes.size(), '\0');
    }
    file.content.replace(offset, bytes.size(), bytes);
}

// Puts some of the sectors of a write there.
void putTorn(File &file, size_t offset, const std::string &bytes, Random &random)
{
    const size_t sector = random.onceIn(2) ? 512 : 4096;
    if (random.onceIn(2)) { // the length may reach the medium ahead of the bytes
        file.content.resize(std::max(file.content.size(), offset + bytes.size()), '\0');
    }
    for (size_t at = 0; at < bytes.size();) {
        const size_t next =
            std::min(bytes.size(), (offset + at) / sector * sector + sector - offset);
        if (random.onceIn(2)) {
            put(file, offset + at, bytes.substr(at, next - at));
        }
        at = next;
    }
}

} // namespace

void Inode::write(size_t offset, const std::string &bytes, Time when)
{
    put(now_, offset, bytes);
    changes_.push_back({Change::kWrite, offset, bytes, when});
}

void Inode::truncate(size_t length, Time when)
{
    if (length != now_.content.size()) {
        now_.content.resize(length, '\0');
        changes_.push_back({Change::kTruncate, length, {}, when});
    }
}

void Inode::setMode(uint32_t mode, Time when)
{
    now_.mode = mode;
    changes_.push_back({Change::kMode, mode, {}, when});
}

void Inode::sync()
{
    if (!changes_.empty()) {
        onMedium_ = now_;
        changes_.clear();
    }
}

File Inode::afterCut(Random &random, Time when) const
{
    File file = onMedium_;
    for (const Change &change : changes_) {
        const bool isOld = when - change.when > kWriteBackAge;
        const uint64_t fate = isOld ? 0 : random.below(3); // whole, missing, torn
        if (fate == 1) {
            continue;
        }
        switch (change.kind) {
        case Change::kWrite:
            if (fate == 0) {
                put(file, change.at, change.bytes);
            } else {
                putTorn(file, change.at, change.bytes, random);
            }
            break;
        case Change::kTruncate:
            file.content.resize(change.at, '\0');
            break;
        case Change::kMode:
            file.mode = static_cast<uint32_t>(change.at);
            break;
        }
    }
    return file;
}

std::shared_ptr<Inode> Disk::find(const std::string &path) const
{
    const auto found = names_.find(path);
    return found == names_.end() ? nullptr : found->second;
}

std::shared_ptr<Inode> Disk::create(const std::string &path)
{
    auto inode = std::make_shared<Inode>();
    link(path, inode);
    return inode;
}

void Disk::link(const std::string &path, std::shared_ptr<Inode> inode)
{
    change(path, std::move(inode));
}

bool Disk::remove(const std::string &path)
{
    if (names_.count(path) == 0) {
        return false;
    }
    change(path, nullptr);
    return true;
}

void Disk::change(const std::string &path, std::shared_ptr<Inode> inode)
{
    if (inode == nullptr) {
        names_.erase(path);
    } else {
        names_[path] = inode;
    }
    changes_.push_back({path, std::move(inode), now_});
}

void Disk::put(const std::string &path, File file)
{
    const auto inode = create(path);
    inode->write(0, file.content, now_);
    inode->setMode(file.mode, now_);
    inode->sync();
    onMedium_[path] = inode;
    std::erase_if(changes_, [&](const NameChange &change) { return change.path == path; });
}

std::optional<File> Disk::get(const std::string &path) const
{
    const auto inode = find(path);
    return inode == nullptr ? std::nullopt : std::optional(inode->now());
}

void Disk::syncFile(const std::shared_ptr<Inode> &inode)
{
    inode->sync();
    if (namesNeedOwnSync) {
        return;
    }
    std::set<std::string> paths; // the file's names, of which older changes count no more
    for (const NameChange &change : changes_) {
        if (change.inode == inode) {
            paths.insert(change.path);
        }
    }
    for (const std::string &path : paths) {
        if (const auto current = find(path)) {
            onMedium_[path] = current;
        } else {
            onMedium_.erase(path);
        }
    }
    std::erase_if(changes_, [&](const NameChange &change) { return paths.count(change.path) > 0; });
}

void Disk::syncNames()
{
    onMedium_ = names_;
    changes_.clear();
}

void Disk::syncAll()
{
    for (const auto &[path, inode] : names_) {
        inode->sync();
    }
    syncNames();
}

std::optional<File> Disk::afterCut(const std::string &path, Random &random) const
{
    const auto found = onMedium_.find(path);
    std::shared_ptr<Inode> inode = found == onMedium_.end() ? nullptr : found->second;
    for (const NameChange &change : changes_) {
        if (change.path == path && (now_ - change.when > kWriteBackAge || random.onceIn(2))) {
            inode = change.inode;
        }
    }
    return inode == nullptr ? std::nullopt : std::optional(inode->afterCut(random, now_));
}

void Disk::cut(Random &random)
{
    std::map<std::string, File> left;
    Names all = onMedium_;
    all.insert(names_.begin(), names_.end());
    for (const auto &[path, inode] : all) {
        if (auto file = afterCut(path, random)) {
            left[path] = std::move(*file);
        }
    }
    names_.clear();
    onMedium_.clear();
    changes_.clear();
    for (auto &[path, file] : left) {
        put(path, std::move(file));
    }
}
