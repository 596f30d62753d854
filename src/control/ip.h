#pragma once

// Network settings through the DHCP client: read from the system's tools and the client's file,
// mirrored into the user preferences, changed by rewriting that file. (network_record.h is the
// other way, which configures "eth0" at once.)
//
// Every command of the system runs to its end on the main loop, which is where all of this belongs.
// What the tools print is not trusted: a value that cannot be read in full and in range stays as it
// was. An address is four bytes in dotted order, first octet first; a MAC address six bytes.

#include <cstdint>

// Non-zero once command 0x88 has set an address: read_ip() then does nothing, so that what the
// interface still has does not overwrite what was set. Written by the command's handler.
extern uint8_t isSetIp;

// Reads the system into the module's state: name and MAC address of the first interface that
// "ifconfig" lists, the first address and mask that it lists for any, gateway, name server, and
// whether DHCP is on, which it is unless "/etc/dhcpcd.conf" has a section for the interface. If on,
// keeps a copy of that file as "/etc/dhcpcd.conf.dhcp". Returns 0; or -1, with a message, when a
// command could not be started or "ifconfig" did not begin with an interface: what is not read by
// then stays as it was.
int32_t init_ip();

// Copies the state out; `*dhcp` is 1 for DHCP, 0 for static. Before the first init_ip() that is
// DHCP, a mask of 255.255.255.0 and zeros. Returns 0.
int32_t get_ip(uint8_t *dhcp, uint8_t *ip, uint8_t *gateway, uint8_t *mask, uint8_t *dns,
               uint8_t *mac);

// Stores the values in the state and rewrites "/etc/dhcpcd.conf": for `*dhcp` 0 with a static
// section for the interface that init_ip() found (a nameless one if it has not run), else from the
// copy that init_ip() kept. The mask becomes a prefix of whole bytes, so 255.255.254.0 becomes /16.
// Takes effect when the DHCP client next reads its file. Whether the file could be written is not
// checked. Returns 0.
int32_t set_ip(const uint8_t *dhcp, const uint8_t *ip, const uint8_t *gateway, const uint8_t *mask,
               const uint8_t *dns);

// init_ip(), then the state into the user preferences, even if that failed. Changes that have not
// reached the system yet are lost.
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

// Command 0x8E 0x02: does nothing when `enable` is what the user preferences hold. Otherwise calls
// disable_dhcp() for 0 and enable_dhcp(), which stores 1, for any other value, and saves the user
// preferences at once.
void setDhcp(uint8_t enable);

// Major version times 256 plus minor version modulo 256, from "v2.13" at the beginning of
// "/etc/issue"; 0 when that does not begin so, 0xFFFFFFFF when the command cannot be started.
uint32_t getSystemVersion();

// Reads an address such as "192.168.0.1" from the beginning of `text`, behind blanks: four numbers,
// each in range, and the end or white space behind them. False, and `address` stays, for anything
// else.
bool readAddress(const char *text, uint8_t *address);
