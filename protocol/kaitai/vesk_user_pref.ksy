# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_user_pref
  title: User preferences of a vesk_h264 device (UserPref.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
doc-ref: docs/files.md, UserPref.sav
seq:
- id: identification
  -orig-id: identification
  type: u4
  doc: '0x06247638'
- id: language
  -orig-id: language
  type: u1
  doc: 0 or 1
- id: load_fade_in_out_off
  -orig-id: loadFadeInOutOff
  type: u1
  doc: 0 or 1
- id: preference_word
  -orig-id: preferenceWord
  type: u2
- id: network_flag
  -orig-id: networkFlag
  type: u1
- id: dhcp_enable
  -orig-id: dhcpEnable
  type: u1
  doc: 0 or 1
- id: ip_address
  -orig-id: ipAddress
  size: 4
  doc: address
- id: gateway
  -orig-id: gateway
  size: 4
  doc: address
- id: net_mask
  -orig-id: netMask
  size: 4
  doc: leading ones
- id: dns
  -orig-id: dns
  size: 4
  repeat: expr
  repeat-expr: 2
  doc: two addresses
- id: mac
  -orig-id: mac
  size: 6
  doc: MAC address
- id: delay_call_time
  -orig-id: delayCallTime
  type: u1
- id: reserved37
  -orig-id: reserved37
  type: u1
- id: delay_call_index
  -orig-id: delayCallIndex
  type: u1
- id: pad_lock_enable
  -orig-id: padLockEnable
  type: u1
  doc: 0, or not 0
- id: pad_lock_state
  -orig-id: padLockState
  type: u1
- id: reserved41
  -orig-id: reserved41
  type: u1
- id: index_table
  -orig-id: indexTable
  type: u1
  repeat: expr
  repeat-expr: 8
  doc: entry n holds n
- id: preference_bytes
  -orig-id: preferenceBytes
  size: 3
- id: padding
  -orig-id: padding
  size: 3
