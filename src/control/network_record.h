#pragma once

// The network record: settings of "eth0" as commands 0xF0 and 0xF1 carry them. Written, it becomes
// a start-up script, which runs at once, and the MAC address goes to the board's vendor storage.
// Read, it comes from the running system. Preferences and DHCP client (ip.h) are not concerned.
//
// Main loop only. Results are 0, or -1 with a message on the console, unless said otherwise.

#include <cstdint>

struct NetworkRecord {
    uint8_t ip[4]; // dotted order, first octet first, as all addresses here
    uint8_t mask[4];
    uint8_t route[4]; // default gateway
    uint8_t mac[6];
};

// The record that the vendor storage driver takes, little-endian.
struct VendorStorageRequest {
    uint32_t tag;    // kVendorStorageTag
    uint16_t id;     // item
    uint16_t length; // of the data, bytes
    uint8_t data[92];
};

inline constexpr uint32_t kVendorStorageTag = 0x56524551;
inline constexpr uint32_t kVendorStorageRead = 0x40047601; // the driver's two requests
inline constexpr uint32_t kVendorStorageWrite = 0x40047602;
inline constexpr uint16_t kVendorItemMac = 3;

// The running system -----------------------------------------------------------------------------

// Settings of the interface `name` (its first 15 bytes count). `size` is that of `out` in bytes;
// one that is too small fails without a message, and so does an interface that has no address.
int32_t get_local_ip(const char *name, uint8_t *out, uint32_t size);
int32_t get_local_netmask(const char *name, uint8_t *out, uint32_t size);
int32_t get_local_mac(const char *name, uint8_t *out, uint32_t size);

// The gateway of the first default route. Without a readable one, as on a point-to-point link,
// `out` stays as it is, and the result is 0; it is -1 for more numbers than `size`.
int32_t get_local_route(uint8_t *out, uint32_t size);

// Vendor storage ---------------------------------------------------------------------------------

// Has the driver read an item; the data are not passed on. After a failure the device stays open up
// to the next request.
int32_t vendor_storage_read(uint16_t id);

// Writes an item: `length` bytes of `data` for items 1 and 5, of which more than 92 fail before
// they reach the driver; for any other item 6 bytes, whatever `length` says. The device stays open
// up to the next request.
int32_t vendor_storage_write(uint16_t id, const uint8_t *data, uint16_t length);

// The record -------------------------------------------------------------------------------------

// Writes the start-up script that configures "eth0" as `record` says to `text`, which holds
// kNetworkScriptSize bytes. Does nothing when either is null.
inline constexpr uint32_t kNetworkScriptSize = 1024;
void Command_Config_Network_String(char *text, const NetworkRecord *record);

// Stores the MAC address, writes the script and runs it, which takes about 1.5 s. Without vendor
// storage it goes on, without a script file it stops. Does nothing for null.
void Command_Config_Network(const NetworkRecord *record);

// Fills `record`, which is not null, from "eth0", field by field up to the first that cannot be
// read: that one and those behind it stay as they were.
void Command_Read_Network(NetworkRecord *record);
