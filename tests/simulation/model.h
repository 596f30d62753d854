#pragma once

// What must hold in every life. The world tells the model what the daemon does, and the model tells
// each watcher. A watcher knows one part of the documents (docs/protocol.md, docs/files.md) and
// calls world->fail() when the daemon does otherwise. README.md shows how to add one.

#include <memory>
#include <string>
#include <vector>

#include "tests/simulation/faults.h"
#include "tests/simulation/network.h"
#include "tests/simulation/tools.h"

class Watcher {
public:
    virtual ~Watcher() = default;

    virtual void boot() {}                           // the daemon is about to start
    virtual void passBegins() {}                     // of the main loop
    virtual void lineRead(const std::string &) {}    // what the daemon got from the line
    virtual void lineWritten(const std::string &) {} // what it gives to write(), taken or not
    virtual void datagramReceived(PcAddress, const std::string &) {}
    virtual void datagramSent(PcAddress, const std::string &) {} // taken or not
    virtual void toolStarts(const std::string &) {}
    virtual void toolRan(const Tools::Run &) {}
    virtual void callFailed(Call, const std::string &) {}
    virtual void daemonEnded(int) {} // by itself
    virtual void diskChanges() {}    // a power cut is possible here
    virtual void powerReturns() {}   // the disk is what a power cut left
    virtual void timePasses() {}     // the outside looks at the clock
    virtual void quiet() {}          // all input is served; nothing is to come
};

class Protocol;
class Mirror;
class Records;
class Loop;

class Model {
public:
    Model();
    ~Model();

    // clang-format off
    void boot() { for (auto &w : watchers_) { w->boot(); } }
    void passBegins() { for (auto &w : watchers_) { w->passBegins(); } }
    void lineRead(const std::string &bytes) { for (auto &w : watchers_) { w->lineRead(bytes); } }
    void lineWritten(const std::string &bytes) { for (auto &w : watchers_) { w->lineWritten(bytes); } }
    void datagramReceived(PcAddress from, const std::string &bytes) { for (auto &w : watchers_) { w->datagramReceived(from, bytes); } }
    void datagramSent(PcAddress to, const std::string &bytes) { for (auto &w : watchers_) { w->datagramSent(to, bytes); } }
    void toolStarts(const std::string &command) { for (auto &w : watchers_) { w->toolStarts(command); } }
    void toolRan(const Tools::Run &run) { for (auto &w : watchers_) { w->toolRan(run); } }
    void callFailed(Call call, const std::string &object) { for (auto &w : watchers_) { w->callFailed(call, object); } }
    void daemonEnded(int status) { for (auto &w : watchers_) { w->daemonEnded(status); } }
    void considerDisk() { for (auto &w : watchers_) { w->diskChanges(); } }
    void powerReturns() { for (auto &w : watchers_) { w->powerReturns(); } }
    void timePasses() { for (auto &w : watchers_) { w->timePasses(); } }
    void quiet() { for (auto &w : watchers_) { w->quiet(); } }
    // clang-format on

    // One more, which lives as long as the model.
    template <typename T> T *add()
    {
        watchers_.push_back(std::make_unique<T>());
        return static_cast<T *>(watchers_.back().get());
    }

private:
    std::vector<std::unique_ptr<Watcher>> watchers_;

public:
    // Those that others know of, in the order in which they are told. The protocol says what a
    // record may become before the disk is looked at.
    Loop *const loop;
    Mirror *const mirror;
    Protocol *const protocol;
    Records *const records;
};
