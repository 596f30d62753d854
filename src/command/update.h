#pragma once

// Firmware update, command 0x9A: receives a package in blocks of 1024 bytes into "_update.pkg",
// checks its sum and its length, makes it executable, keeps the old executable as
// "/usr/bin/vesk_h264_backup", installs the package as "/usr/bin/vesk_h264", and ends the process,
// which the system then restarts. docs/protocol.md describes the stream for senders. Main loop
// only.

#include <cstdint>

inline constexpr uint32_t kUpdateBlockSize = 1024;

extern uint8_t updateSoftChannel; // the channel that sends the update; never read

// Handler in the dispatch table. Any 0x9A command starts or prolongs update mode.
void SoftwareUpdate();

// 1 in update mode, else 0. The mode ends 5000 ms after the last 0x9A command. In update mode the
// main loop only receives, bridges and runs delayed calls, without pausing.
[[nodiscard]] int32_t isUpdateProgram();

// The number of the block that the command being executed announces.
[[nodiscard]] uint32_t updateBlockNumber();

// Receives the block that follows the command, and its checksum byte. Returns false when the block
// is incomplete or its sum is wrong; that is logged and the command is refused.
[[nodiscard]] bool receiveUpdateBlock(uint8_t (&block)[kUpdateBlockSize + 1]);

// Reads the size of the package and the sum of the stored file from the header, which is the first
// 128 bytes of block 0. UpdateMcu1KToSDCARD() adds the 128 bytes of the header to the size.
void getUpdateFileSize(const uint8_t *block);

// Receives the block that follows the command, stores it and answers. When the package is complete
// and its sum and length are right, installs it and does not return.
void UpdateMcu1KToSDCARD();

// 1 when the sum of all bytes of "_update.pkg", modulo 65536, equals the announced sum and the file
// is not shorter than the announced package; else prints both sums, or both lengths, and returns 0.
[[nodiscard]] int32_t checkUpdateFileOk();

// Copies the executables and prints the output of the commands. Returns the wait status of the
// shell, as pclose() gives it, or -1 when the shell could not be started.
int32_t cpUpdateFile();

// Prints "exit", closes descriptors 0 to 255 and ends the process with status 0.
[[noreturn]] void Reboot();
