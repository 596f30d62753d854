# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_dev_info
  title: Device information of a vesk_h264 device (DevInfo.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
doc-ref: docs/files.md, DevInfo.sav
seq:
- id: identification
  -orig-id: identification
  type: u4
  doc: '0x4BCD365C'
- id: serial_number
  -orig-id: serialNumber
  type: u4
  doc: 0 to 65535
- id: device_byte
  -orig-id: deviceByte
  type: u1
- id: reserved9
  -orig-id: reserved9
  size: 3
- id: second_identification
  -orig-id: secondIdentification
  type: u4
  doc: '0x3200'
- id: reserved16
  -orig-id: reserved16
  size: 4
