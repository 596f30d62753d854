# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_work_time
  title: Work-time list of a vesk_h264 device (workTime.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
doc-ref: docs/files.md, workTime.sav
seq:
- id: current_address
  -orig-id: currentAddress
  type: u4
  doc: address in the list
- id: addresses
  -orig-id: addresses
  type: u4
  repeat: expr
  repeat-expr: 2
  doc: address in the list
- id: counters
  -orig-id: counters
  type: u4
  repeat: expr
  repeat-expr: 2
- id: identification
  -orig-id: identification
  type: u4
  doc: '0x20150321'
