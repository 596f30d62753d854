#pragma once

// The device information, one record in memory that is its file "DevInfo.sav" byte for byte
// (little-endian, no version, no checksum). docs/files.md describes it.
//
// The record is loaded at start-up. Only its two identifications are checked: if one is wrong, the
// defaults replace the record. Bytes that a missing or short file lacks stay as they were in the
// record, which is zero at start-up. Main loop only.

#include <cstdint>

struct DeviceInfo {
    uint32_t identification;       // kDeviceInfoId
    uint32_t serialNumber;         // commands set and read its low 16 bits
    uint8_t deviceByte;            // no reader
    uint8_t reserved9[3];          // kept
    uint32_t secondIdentification; // kDeviceInfoSecondId
    uint8_t reserved16[4];         // kept
};

inline constexpr uint32_t kDeviceInfoId = 0x4BCD365C;
inline constexpr uint32_t kDeviceInfoSecondId = 0x3200;

// Reads the file into the record. Returns the length of the file, or 0 when it cannot be opened.
uint32_t readDeviceInfo();

// Both write the record to the file. Return 1, or 0 when the file cannot be opened.
int32_t writeDeviceInfo();
int32_t saveDeviceInfo();

// Reads the record. If an identification is wrong, waits 30 ms, prints a message and resets the
// record, without saving it.
void loadDeviceInfo();

// Sets the identifications and clears the device byte. The rest stays, including the serial number.
void resetDeviceInfo();

uint32_t getDeviceSN();

// Stores the number and saves the record. Returns the result of saveDeviceInfo().
int32_t saveDeviceSN(uint32_t serialNumber);

// Waiting for a later model -----------------------------------------------------------------------

DeviceInfo *getDeviceInfo(); // the record itself
