#pragma once

// Network settings through the DHCP client. They are read from the system's tools and the client's
// file, mirrored into the user preferences, and changed by rewriting that file. The command table
// and the delayed calls use this. (network_record.h is the other way: it configures "eth0"
// directly.)
//
// Main loop only. Every system command runs to its end before an operation returns. The output of
// the tools is not trusted: the old value stays unless the new one can be read in full and is in
// range. Any white space is accepted where a tool prints a blank. An address is four bytes in
// dotted order, first number first; a MAC address is six bytes.

#include <cstdint>

// Not 0 once command 0x88 has set an address. read_ip() then does nothing, so that the interface's
// old address does not overwrite the new one. Written by the command's handler.
extern uint8_t isSetIp;

// Reads the system into the module's state: the name and MAC address of the first interface that
// "ifconfig" lists, the first address and mask that it lists for any interface, the gateway, the
// name server, and whether DHCP is on: it is, unless "/etc/dhcpcd.conf" has a section for the
// interface. With DHCP on, the file is copied to "/etc/dhcpcd.conf.dhcp". Returns 0, or -1 with a
// message when a command cannot be started or when the output of "ifconfig" does not begin with an
// interface. Values read before a failure are kept.
int32_t init_ip();

// Copies the state out. `*dhcp` is 1 for DHCP, 0 for static. Before the first init_ip() or
// set_ip(), the state is DHCP, a mask of 255.255.255.0 and zeros. Returns 0.
int32_t get_ip(uint8_t *dhcp, uint8_t *ip, uint8_t *gateway, uint8_t *mask, uint8_t *dns,
               uint8_t *mac);

// Stores the values in the state and rewrites "/etc/dhcpcd.conf": from the copy that init_ip() made
// when `*dhcp` is not 0, else with a static section for the interface. If the interface's name is
// not known yet, only the name is read from "ifconfig", as in init_ip(). Without a name, a message
// is printed and the file stays. The mask becomes a prefix of whole bytes: 255.255.254.0 becomes
// /16. The change takes effect when the DHCP client next reads its file. Whether the file could be
// written is not checked. Returns 0.
int32_t set_ip(const uint8_t *dhcp, const uint8_t *ip, const uint8_t *gateway, const uint8_t *mask,
               const uint8_t *dns);

// Calls init_ip() and copies the state into the user preferences, even if that failed. This undoes
// changes that have not reached the system yet. Does nothing while isSetIp is not 0.
void read_ip();

// Calls set_ip() with the values in the user preferences.
void ResetStaticIp();

// Store four bytes in the user preferences. The preferences are saved 1000 ms and applied 1500 ms
// after the last such change.
void SetIpAddress(const uint8_t *ip);
void SetNetMask(const uint8_t *mask);
void SetDefGW(const uint8_t *gateway);

// Copy four bytes out of the user preferences.
void GetIpAddress(uint8_t *ip);
void GetNetMask(uint8_t *mask);
void GetDefGW(uint8_t *gateway);

// Set the DHCP flag of the user preferences to 1 or 0, which is saved and applied as above.
void enable_dhcp();
void disable_dhcp();

// Command 0x8E 0x02. Does nothing when `enable` equals the flag in the user preferences. Otherwise
// calls disable_dhcp() for 0, or enable_dhcp(), which stores 1, for any other value. Also saves the
// user preferences at once.
void setDhcp(uint8_t enable);

// Returns the major version times 256 plus the minor version modulo 256, from a text such as
// "v2.13" at the beginning of "/etc/issue". Returns 0 when the file does not begin like that, and
// 0xFFFFFFFF when the command cannot be started.
[[nodiscard]] uint32_t getSystemVersion();

// Reads an address such as "192.168.0.1" from the beginning of `text`: four numbers, each in the
// range of a byte. White space may stand before the first one, and must follow the last one unless
// the text ends there. Returns false and leaves `address` as it is for anything else.
[[nodiscard]] bool readAddress(const char *text, uint8_t *address);
