# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_time_con
  title: Time-control table of a vesk_h264 device (timeCon0.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
doc-ref: docs/files.md, timeCon0.sav
seq:
- id: identification
  -orig-id: identification
  type: u4
  doc: '0x201104AD'
- id: setting_byte4
  -orig-id: settingByte4
  type: u1
- id: setting_byte5
  -orig-id: settingByte5
  type: u1
- id: entries
  -orig-id: entries
  size: 144
  doc: bytes
- id: padding
  -orig-id: padding
  size: 2
