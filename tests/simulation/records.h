#pragma once

// The records under /userdata and the program in /usr/bin, at every power cut.
//
// Of each record there is a list of what it has been, oldest first. What was acknowledged and had
// its time to be saved is settled: after a power cut the file holds that or a later one, whole.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tests/simulation/disk.h"
#include "tests/simulation/model.h"

inline constexpr char kUserPrefFile[] = "/userdata/UserPref.sav";
inline constexpr char kDevInfoFile[] = "/userdata/DevInfo.sav";
inline constexpr char kSave0File[] = "/userdata/save0.sav";
inline constexpr char kWorkTimeFile[] = "/userdata/workTime.sav";
inline constexpr char kPackageFile[] = "/userdata/_update.pkg";
inline constexpr char kProgramFile[] = "/usr/bin/vesk_h264";
inline constexpr char kBackupFile[] = "/usr/bin/vesk_h264_backup";

// True when the loader takes this content as it is, by docs/files.md.
bool isTaken(const std::string &path, const std::string &content);
// What the record is after that content was loaded: taken, or reset.
std::string loaded(const std::string &path, const std::string &content);

class Records : public Watcher {
public:
    enum Record : uint8_t { kUserPref, kDevInfo, kSave0, kWorkTime, kRecords };

    // The record is this now, in memory.
    void changed(Record record, const std::string &content);
    // This version has had its time to be saved.
    void settled(Record record, const std::string &version);
    // The record may become this while a command is being executed.
    void mayBecome(Record record, const std::string &content)
    {
        states_[record].next = content;
    }
    // What the record is, in memory, cannot be said.
    void unknown(Record record)
    {
        states_[record].isInDoubt = states_[record].hasFailed = true;
    }
    // The device is given this program.
    void install(const std::string &program)
    {
        newProgram_ = program;
    }

    void boot() override;
    void passBegins() override;
    void callFailed(Call call, const std::string &object) override;
    void diskChanges() override;
    void powerReturns() override;

private:
    struct State {
        std::vector<std::string> versions; // the oldest that counts first
        bool isKnown = false;              // since the power came
        bool isSettled = false;            // versions[0] was saved, so the file is not missing
        bool isInDoubt = false;            // a call for the file failed
        bool hasFailed = false;            // the same, since a version was to be settled
        bool existed = false;              // there was a file then
        bool isWrittenAtStart = false;     // as it is missing or bad
        bool nameIsInDoubt = false;        // it may be only in the cache
        std::string next;
    };
    void check(Record record, const std::optional<File> &found) const;
    void checkPrograms(const std::optional<File> &program, const std::optional<File> &backup,
                       const std::optional<File> &package) const;

    std::array<State, kRecords> states_;
    std::string program_; // in /usr/bin, whole
    bool packageIsInDoubt_ = false;
    std::string newProgram_; // the one that replaces it, or empty
    uint64_t passes_ = 0;
};
