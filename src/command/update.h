#pragma once

// Firmware update, command 0x9A: receives a package in blocks of 1024 bytes into "_update.pkg",
// checks its sum, puts it in the place of "/usr/bin/vesk_h264", keeps the old executable as
// "/usr/bin/vesk_h264_backup", and ends the process, which the system then starts anew.
// docs/protocol.md describes the stream for those who send it. Main loop only.

#include <cstdint>

// Handler of the dispatch table. Any 0x9A command begins or prolongs the update mode.
void SoftwareUpdate();

// 1 in update mode, else 0. It ends 5000 ms after the last 0x9A command. While in it, the main loop
// only receives, bridges and runs delayed calls, without a pause.
int32_t isUpdateProgram();

// Takes the size of the stream and the sum of the stored file from the header, the first 128 bytes
// of block 0. The size is the package's: UpdateMcu1KToSDCARD() adds the header's own 128 bytes.
void getUpdateFileSize(const uint8_t *block);

// Receive one block, which follows the command, and answer. The first form stores it; when the
// package is complete and its sum right, it installs it and does not return. The other two belong
// to paths that no command takes: they store nothing.
void UpdateMcu1KToSDCARD();
void UpdateMcu1K();
void UpdateMcu1K_test();

// 1 when the sum of all bytes of "_update.pkg", modulo 65536, is the announced one; else prints
// both and returns 0.
int32_t checkUpdateFileOk();

// Copies the executables, printing what the copying prints. Returns the wait status of the shell,
// as pclose() gives it; -1 when it could not be started.
int32_t cpUpdateFile();

// Says "exit", closes descriptors 0 to 255 and ends the process with status 0.
[[noreturn]] void Reboot();

// The sum of the first `count` modulo 256 bytes, modulo 256.
uint8_t GetCheckSum(const uint8_t *bytes, uint32_t count);

// Closes the local save file and gives its handle back, if there is one; nothing opens it in this
// model.
void closeSaveLocalFile();
