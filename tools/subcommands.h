#pragma once

// The subcommands of veskctl that are neither console nor transcript. Each returns the exit status.

#include "tools/json.h"
#include "tools/line.h"

#include <string>
#include <vector>

// Sends the command that `text` means (see frameFromText()) and prints the reply. Replies to other
// commands are reported on standard error.
int runSend(Line &line, const std::string &text, Milliseconds timeout);

// The settings of the board's interface, as a user writes them.
struct NetworkSettings {
    std::string address;
    std::string mask;
    std::string gateway;
    std::string mac;
};

// The record of 18 bytes that carries them. Throws UsageError for a text that is not an address.
std::string networkRecord(const NetworkSettings &settings);

// What is wrong with them together, though each is an address; "" if nothing is.
std::string faultOfNetwork(const NetworkSettings &settings);

// Reads the network record. Says on standard error why it could not.
int readNetworkRecord(Line &line, Milliseconds timeout, std::string &record);

// The record of 18 bytes as JSON: address, mask, gateway, mac.
Json jsonOfNetwork(const std::string &record);

// What a device does with written settings.
constexpr char kNetworkWriteAbout[] =
    "The device sets up its interface at once, and again whenever it starts. Its DHCP client is\n"
    "stopped. It keeps a new MAC address for its next start.";

// Read and write the network record. Print the reply, then the record that was read. After writing
// it is read back and compared: kRefused if address, mask or gateway differ.
int runNetworkRead(Line &line, Milliseconds timeout);
int runNetworkWrite(Line &line, const NetworkSettings &settings, Milliseconds timeout);

// Read and write a text; `which` are its dat1 and dat2 as the user wrote them. Print the reply,
// then the text that was read. `text` may contain escapes and need not be in brackets.
int runTextRead(Line &line, const std::string &which, Milliseconds timeout);
int runTextWrite(Line &line, const std::string &which, const std::string &text,
                 Milliseconds timeout);
