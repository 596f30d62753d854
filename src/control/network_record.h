#pragma once

// The network record: the settings of "eth0" as commands 0xF0 and 0xF1 carry them. Writing a record
// makes it a start-up script, runs that script at once, and stores the MAC address in the board's
// vendor storage. Reading a record takes it from the running system. The user preferences and the
// DHCP client (ip.h) are not involved.
//
// Main loop only. Unless said otherwise, an operation returns 0, or -1 after printing a message.

#include <cstdint>

// Addresses are in dotted order, first number first.
struct NetworkRecord {
    uint8_t ip[4];
    uint8_t mask[4];
    uint8_t route[4]; // default gateway
    uint8_t mac[6];
};

// The record that the vendor storage driver takes, little-endian.
struct VendorStorageRequest {
    uint32_t tag;    // kVendorStorageTag
    uint16_t id;     // item
    uint16_t length; // of the data, in bytes
    uint8_t data[92];
};

inline constexpr uint32_t kVendorStorageTag = 0x56524551;
inline constexpr uint32_t kVendorStorageRead = 0x40047601; // the driver's two requests
inline constexpr uint32_t kVendorStorageWrite = 0x40047602;
inline constexpr uint16_t kVendorItemMac = 3;

// The running system -----------------------------------------------------------------------------

// Read a setting of the interface `name`, of which at most 15 bytes are used. `size` is the size of
// `out` in bytes. A value that does not fit fails without a message, and so does get_local_ip() for
// an interface without an address.
[[nodiscard]] int32_t get_local_ip(const char *name, uint8_t *out, uint32_t size);
[[nodiscard]] int32_t get_local_netmask(const char *name, uint8_t *out, uint32_t size);
[[nodiscard]] int32_t get_local_mac(const char *name, uint8_t *out, uint32_t size);

// Reads the gateway of the first default route. Returns 0 and leaves `out` as it is when no gateway
// can be read, as on a point-to-point link. Returns -1 without a message when the gateway has more
// numbers than `size`.
[[nodiscard]] int32_t get_local_route(uint8_t *out, uint32_t size);

// Vendor storage ---------------------------------------------------------------------------------

// Makes the driver read an item, and discards the data. After a failed request the device stays
// open until the next one.
int32_t vendor_storage_read(uint16_t id);

// Writes an item: `length` bytes of `data` for items 1 and 5, and always 6 bytes for any other
// item. More than 92 bytes fail before they reach the driver. The device stays open until the next
// request.
int32_t vendor_storage_write(uint16_t id, const uint8_t *data, uint16_t length);

// The record -------------------------------------------------------------------------------------

// Writes to `text` the start-up script that configures "eth0" from `record`. Does nothing when
// either is null.
// Requires: `text` has room for kNetworkScriptSize bytes.
inline constexpr uint32_t kNetworkScriptSize = 1024;
void Command_Config_Network_String(char *text, const NetworkRecord *record);

// Stores the MAC address, writes the script and runs it, which takes about 1.5 s. Goes on if vendor
// storage fails, but stops if the script file cannot be created. Does nothing for null.
void Command_Config_Network(const NetworkRecord *record);

// Fills `record` from "eth0", field by field. The first field that cannot be read and those after
// it stay as they were.
// Requires: `record` is not null.
void Command_Read_Network(NetworkRecord *record);
