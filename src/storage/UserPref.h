#pragma once

// What belongs to the unit rather than to a show: the user preferences ("UserPref.sav") and the
// device information ("DevInfo.sav"), each one record in memory that is its file byte for byte
// (little-endian, no version, no checksum). docs/files.md describes both.
//
// The records are loaded at start-up and judged by their identification alone: where that is wrong
// the defaults stand in. What a missing or short file does not bring stays as it was in the record,
// zero at start-up. A setter stores its value and saves the whole record; its result is the save's:
// 1, or 0 when the file could not be opened. Main loop only.

#include <cstdint>

struct UserPref {
    uint32_t identification;    // kUserPrefId
    uint8_t language;           // of the user interface, 0 or 1
    uint8_t loadFadeInOutOff;   // 0 or 1
    uint16_t preferenceWord;    // no reader
    uint8_t networkFlag;        // no reader
    uint8_t dhcpEnable;         // 1 address from DHCP, 0 static
    uint8_t ipAddress[4];       // dotted order, first octet first, as all addresses here
    uint8_t gateway[4];         // default gateway
    uint8_t netMask[4];         // leading ones
    uint8_t dns[2][4];          // two name servers
    uint8_t mac[6];             // as the network code read it from the interface
    uint8_t delayCallTime;      // stored for the front board; unit unknown here
    uint8_t reserved37;         // cleared with its neighbours
    uint8_t delayCallIndex;     // the same
    uint8_t padLockEnable;      // 0, or not 0: locked as padLockState says
    uint8_t padLockState;       // meaningful while enabled
    uint8_t reserved41;         // 0
    uint8_t indexTable[8];      // entry n holds n; no reader
    uint8_t preferenceBytes[3]; // no reader
    uint8_t padding[3];         // written as they stand
};

struct DeviceInfo {
    uint32_t identification;       // kDeviceInfoId
    uint32_t serialNumber;         // commands set and read its low 16 bits
    uint8_t deviceByte;            // no reader
    uint8_t reserved9[3];          // kept
    uint32_t secondIdentification; // kDeviceInfoSecondId
    uint8_t reserved16[4];         // kept
};

inline constexpr uint32_t kUserPrefId = 0x06247638;
inline constexpr uint32_t kDeviceInfoId = 0x4BCD365C;
inline constexpr uint32_t kDeviceInfoSecondId = 0x3200;

// Start-up: takes the blocks of malloc_saveView(), then loads preferences, device information,
// work-time list, and user setting slot 0, whose result it returns. The file store must be there.
int32_t loadAllUserPref();

// User preferences -------------------------------------------------------------------------------

// The record itself: change fields in place, then call saveUserPref().
UserPref *getUserPref();

// Returns the length of the file, 0 when it cannot be opened.
uint32_t readUserPref();
int32_t saveUserPref();

// Reads the record; where its identification is wrong, says so and resets it. The second form does
// not save the reset record: the file stays as it is until something saves.
void loadUserPref();
void loadUserPrefNoSave();

// Sets the defaults, without saving. The MAC address stays, and so do language and fade option
// where they hold a valid value.
void resetUserPref();

uint8_t *getIPAddress(); // the four bytes in the record
int32_t saveIPAddress(); // saves the record, the address having been changed in place
uint8_t getUserPadLockEnable();
uint8_t getUserPadLockState();
int32_t saveUserPadLock(uint8_t enable, uint8_t state); // without enable the state becomes 0
uint8_t getUserLang();
int32_t saveUserLang(uint8_t language);
uint8_t getDelayCallTime();
int32_t saveDelayCallTime(uint8_t time);
uint8_t getDelayCallIndex();
int32_t saveDelayCallIndex(uint8_t index);
uint8_t getLoadFadeInOutOff();
int32_t saveLoadFadeInOutOff(uint8_t off);

// Device information -----------------------------------------------------------------------------

DeviceInfo *getDeviceInfo(); // the record itself

// As above.
uint32_t readDeviceInfo();
int32_t writeDeviceInfo();
int32_t saveDeviceInfo();

// Reads the record; where an identification is wrong, waits 30 ms, says so and resets it, without
// saving.
void loadDeviceInfo();

// Sets the identifications and clears the device byte; the rest stays, the serial number too.
void resetDeviceInfo();

uint32_t getDeviceSN();
int32_t saveDeviceSN(uint32_t serialNumber);

// The board, of which this model knows nothing ---------------------------------------------------

uint8_t getHardwareVersion(); // always 1
uint8_t getBoardType();       // always 0
uint32_t getSizeEEPROM();     // always 0
void checkBoardType();        // does nothing
void checkSizeEEPROM();       // does nothing
