#pragma once

// The user preferences, which belong to the unit rather than to a show: one record in memory that
// is its file "UserPref.sav" byte for byte (little-endian, no version, no checksum). docs/files.md
// describes it.
//
// The record is loaded at start-up. Only its identification is checked: if it is wrong, the
// defaults replace the record. Bytes that a missing or short file lacks stay as they were in the
// record, which is zero at start-up. Main loop only.

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
    uint8_t reserved37;         // cleared by a reset
    uint8_t delayCallIndex;     // as delayCallTime
    uint8_t padLockEnable;      // 0, or not 0: locked as padLockState says
    uint8_t padLockState;       // meaningful while enabled
    uint8_t reserved41;         // 0
    uint8_t indexTable[8];      // entry n holds n; no reader
    uint8_t preferenceBytes[3]; // no reader
    uint8_t padding[3];         // saved unchanged
};

inline constexpr uint32_t kUserPrefId = 0x06247638;

// The record itself: change fields in place, then call saveUserPref().
UserPref *getUserPref();

// Reads the file into the record. Returns the length of the file, or 0 when it cannot be opened.
uint32_t readUserPref();

// Writes the record to the file. Returns 1, or 0 when the file cannot be opened.
int32_t saveUserPref();

// Reads the record. If its identification is wrong, prints messages and resets the record; the file
// stays as it is until something saves.
void loadUserPrefNoSave();

// Sets the defaults, without saving. The MAC address stays. The language and the fade option stay
// if they are valid.
void resetUserPref();

// Waiting for a later model -----------------------------------------------------------------------

// Like loadUserPrefNoSave(), but a reset record is saved.
void loadUserPref();

// A setter stores its value, saves the whole record and returns the result of saveUserPref().
uint8_t *getIPAddress(); // the four bytes in the record
int32_t saveIPAddress(); // saves the record, in which the caller has changed the address
uint8_t getUserPadLockEnable();
uint8_t getUserPadLockState();
int32_t saveUserPadLock(uint8_t enable, uint8_t state); // if `enable` is 0, the state becomes 0
uint8_t getUserLang();
int32_t saveUserLang(uint8_t language);
uint8_t getDelayCallTime();
int32_t saveDelayCallTime(uint8_t time);
uint8_t getDelayCallIndex();
int32_t saveDelayCallIndex(uint8_t index);
uint8_t getLoadFadeInOutOff();
int32_t saveLoadFadeInOutOff(uint8_t off);
