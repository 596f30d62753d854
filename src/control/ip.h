#pragma once

// Network configuration of the board: read from the system's tools and the DHCP client's file,
// mirrored into the user preferences, changed by rewriting that file. A second way configures
// "eth0" at once, through a start-up script that it generates, and keeps the MAC address in the
// board's vendor storage.
//
// Every command of the system runs to its end on the main loop, which is where all of this belongs.
// What the tools print is not trusted: a value that cannot be read in full and in range stays as it
// was. An address is four bytes in dotted order, first octet first; a MAC address six bytes.
// Results are 0, or -1 with a message on the console, unless said otherwise.

#include "core/record.h"

#include <cstdint>

// Non-zero once command 0x88 has set an address: read_ip() then does nothing, so that what the
// interface still has does not overwrite what was set.
extern uint8_t isSetIp;

// Settings of the interface, as commands 0xF0 and 0xF1 carry them.
struct NetworkRecord {
    uint8_t ip[4];
    uint8_t mask[4];
    uint8_t route[4]; // default gateway
    uint8_t mac[6];
};
RECORD_FIELD(NetworkRecord, 0, uint8_t[4], ip);
RECORD_FIELD(NetworkRecord, 4, uint8_t[4], mask);
RECORD_FIELD(NetworkRecord, 8, uint8_t[4], route);
RECORD_FIELD(NetworkRecord, 12, uint8_t[6], mac);
static_assert(sizeof(NetworkRecord) == 18);

// The record that the vendor storage driver takes, little-endian.
struct VendorStorageRequest {
    uint32_t tag;    // kVendorStorageTag
    uint16_t id;     // item
    uint16_t length; // of the data, bytes
    uint8_t data[92];
};
RECORD_FIELD(VendorStorageRequest, 0, uint32_t, tag);
RECORD_FIELD(VendorStorageRequest, 4, uint16_t, id);
RECORD_FIELD(VendorStorageRequest, 6, uint16_t, length);
RECORD_FIELD(VendorStorageRequest, 8, uint8_t[92], data);
static_assert(sizeof(VendorStorageRequest) == 100);

inline constexpr uint32_t kVendorStorageTag = 0x56524551;
inline constexpr uint32_t kVendorStorageRead = 0x40047601; // the driver's two requests
inline constexpr uint32_t kVendorStorageWrite = 0x40047602;
inline constexpr uint16_t kVendorItemMac = 3;

// Through the DHCP client's file -----------------------------------------------------------------

// Reads the system into the module's state: name, MAC address, address and mask of the first
// interface that "ifconfig" lists, gateway, name server, and whether DHCP is on, which it is unless
// "/etc/dhcpcd.conf" has a section for the interface. If on, keeps a copy of that file as
// "/etc/dhcpcd.conf.dhcp".
int32_t init_ip();

// Copies the state out; `*dhcp` is 1 for DHCP, 0 for static. Returns 0.
int32_t get_ip(uint8_t *dhcp, uint8_t *ip, uint8_t *gateway, uint8_t *mask, uint8_t *dns,
               uint8_t *mac);

// Stores the values in the state and rewrites "/etc/dhcpcd.conf": for `*dhcp` 0 with a static
// section for the interface that init_ip() found, else from the copy that init_ip() kept. The mask
// becomes a prefix of whole bytes, so 255.255.254.0 becomes /16. Takes effect when the DHCP client
// next reads its file. Whether the file could be written is not checked. Returns 0.
int32_t set_ip(const uint8_t *dhcp, const uint8_t *ip, const uint8_t *gateway, const uint8_t *mask,
               const uint8_t *dns);

// init_ip(), then the state into the user preferences, even if that failed.
void read_ip();

// set_ip() with what the user preferences hold.
void ResetStaticIp();

// Store four bytes in the user preferences; save those 1000 ms and apply them 1500 ms after the
// last of such changes.
void SetIpAddress(const uint8_t *ip);
void SetNetMask(const uint8_t *mask);
void SetDefGW(const uint8_t *gateway);

// Copy four bytes out of the user preferences.
void GetIpAddress(uint8_t *ip);
void GetNetMask(uint8_t *mask);
void GetDefGW(uint8_t *gateway);

// Set the DHCP flag of the user preferences; saved and applied as above.
void enable_dhcp();
void disable_dhcp();

// The running system -----------------------------------------------------------------------------

// Major version times 256 plus minor version modulo 256, from "v2.13" at the beginning of
// "/etc/issue"; 0 when that does not begin so, 0xFFFFFFFF when the command cannot be started.
uint32_t getSystemVersion();

// Settings of the interface `name` (its first 15 bytes count). `size` is that of `out` in bytes; an
// address that does not fit is cut and fails. Nothing is printed when the interface has no address.
int32_t get_local_ip(const char *name, uint8_t *out, uint32_t size);
int32_t get_local_netmask(const char *name, uint8_t *out, uint32_t size);

// The gateway of the first default route; `out` stays as it is when there is none.
int32_t get_local_route(uint8_t *out, uint32_t size);

// `size` must be 6 at least.
int32_t get_local_mac(const char *name, uint8_t *out, uint32_t size);

// Vendor storage ---------------------------------------------------------------------------------

// Has the driver read an item; the data are not passed on.
int32_t vendor_storage_read(uint16_t id);

// Writes `length` bytes of an item, 92 at most, or 6 whatever `length` says for any item but 1 and
// 5: that many `data` must hold.
int32_t vendor_storage_write(uint16_t id, const uint8_t *data, uint16_t length);

// The network record -----------------------------------------------------------------------------

// Writes the start-up script that configures "eth0" as `record` says to `text`, which holds
// kNetworkScriptSize bytes. Does nothing when either is null.
inline constexpr uint32_t kNetworkScriptSize = 1024;
void Command_Config_Network_String(char *text, const NetworkRecord *record);

// Stores the MAC address, writes the script and runs it: about 1.3 s. Does nothing for null.
void Command_Config_Network(const NetworkRecord *record);

// Fills `record` from "eth0", field by field up to the first that cannot be read: that one and
// those behind it stay as they were.
void Command_Read_Network(NetworkRecord *record);

// The difference of the first two bytes that differ, `a` less `b`; 0 when all `length` are equal.
int32_t cmpBuf(const uint8_t *a, const uint8_t *b, uint32_t length);

// 1 while a firmware update runs, else 0.
int32_t isInUpdate();
