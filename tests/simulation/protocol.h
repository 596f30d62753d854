#pragma once

// The command protocol, by docs/protocol.md: what the daemon makes of the bytes that it reads from
// the line, what it answers, and what it writes of the PC's.

#include <deque>
#include <set>
#include <string>
#include <utility>

#include "tests/simulation/model.h"
#include "tests/simulation/threads.h"
#include "tests/simulation/update.h"

class Protocol : public Watcher {
public:
    // Every command is answered, and all of the PC's bytes are on the line.
    bool isDone() const;
    uint64_t answered() const // commands, in all runs
    {
        return answered_;
    }

    void boot() override;
    void passBegins() override;
    void lineRead(const std::string &bytes) override;
    void lineWritten(const std::string &bytes) override;
    void datagramReceived(PcAddress from, const std::string &bytes) override;
    void toolStarts(const std::string &command) override;
    void toolRan(const Tools::Run &run) override;
    void callFailed(Call call, const std::string &object) override;
    void daemonEnded(int status) override;
    void diskChanges() override;
    void timePasses() override;
    void quiet() override;

private:
    struct Request {
        std::string frame;  // the eight bytes
        std::string before; // those of the frame before
        bool endIsWrong;
        Time readAt;
        std::string payload;
        bool isWhole = true; // nothing of the payload is to come
        Time clock = 0;      // the wall clock's lead when it was read
        uint8_t operator[](size_t i) const
        {
            return static_cast<uint8_t>(frame[i]);
        }
        uint32_t length() const // of data that follows
        {
            return (*this)[6] * 256u + (*this)[5];
        }
    };
    struct Answer {
        std::string text;
        bool isAnyData = false; // calls failed, so only address, tag and command are known
    };
    struct Words { // the PC's, on their way to the line
        std::string bytes;
        bool endMayBeLost;
    };
    // A change is written a certain time after the last one, by the wall clock.
    struct Delayed {
        bool isDue = false;
        Time since = 0;
        int passes = 0; // that have begun since
        [[nodiscard]] Time waited() const;
        [[nodiscard]] bool isOverdue(Time delay) const; // it has happened, or will in this pass
        bool hasHappened(Time delay);
    };

    // Reading
    void takeByte(char byte);
    void frameIsWhole();
    bool takePayloadByte(Request &request, char byte);
    // Answering
    bool isSilent(const Request &request) const;
    void answer(const Request &request);
    void execute(const Request &request);
    void reply(const Request &request, uint8_t d1, uint8_t d2, uint8_t d3, uint8_t d4);
    void ack(const Request &request);
    void nak(const std::string &frame);
    void replyAddress(const Request &request, size_t at);
    void change(size_t at, const std::string &bytes);
    void executeUpdate(const Request &request);
    void writeData(const Request &request);
    void readData(const Request &request);
    void takeSystemNetwork();
    uint32_t systemVersion() const;
    void done();
    bool takePcBytes(const std::string &bytes);
    void addNextWords();
    void forgetWords();
    void checkTime();

    std::string partial_; // of a frame
    std::string lastFrame_;
    std::deque<Request> requests_;
    std::deque<Answer> answers_; // to the first, once it is being answered
    Time headSince_ = 0;
    Time headExcused_ = 0;

    std::deque<Words> words_;
    // How far they may be said: whole datagrams, and bytes of the next one.
    std::set<std::pair<size_t, size_t>> said_{{0, 0}};
    Time wordsSince_ = 0;
    Time wordsExcused_ = 0;

    std::string pref_; // UserPref.sav, in memory
    std::string info_; // DevInfo.sav, in memory
    bool isPrefKnown_ = true;
    bool isSetIp_ = false;
    struct Taken { // what the device learnt of the system
        std::string ip = std::string(4, '\0');
        std::string gateway = ip;
        std::string mask = std::string("\xff\xff\xff\0", 4);
        std::string dns = ip;
        std::string mac = std::string(6, '\0');
        bool dhcp = true;
    } taken_;
    bool takenIsKnown_ = true;
    std::deque<Tools::Run> runs_; // since the last answer
    bool hasFailures_ = false;    // of calls, since the last answer
    bool updateIsInDoubt_ = false;
    UpdateModel update_;
    Delayed save_, apply_;
    uint64_t answered_ = 0;
    std::string toBeSaved_;
};
