# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_update
  title: The stream of a firmware update of a vesk_h264 device
  application: vesk_h264
  file-extension: bin
  license: MIT
  ks-version: '0.8'
  endian: be
doc: Blocks of 1024 bytes, without the checksum byte after each on the line.
doc-ref: docs/protocol.md, Firmware update
seq:
- id: head
  type: head
  size: 128
- id: package
  size: head.length
  doc: the new executable
- id: filling
  size-eos: true
  doc: of the last block; it counts in the sum
types:
  head:
    seq:
    - id: head1
      -orig-id: head 1
      size: 48
      doc: not looked at
    - id: length
      -orig-id: length
      type: u4
      doc: length of the package in bytes, big-endian
    - id: head2
      -orig-id: head 2
      size: 28
      doc: not looked at
    - id: sum
      -orig-id: sum
      type: u2
      doc: sum of all bytes of the stored file, modulo 65536, big-endian
    - id: head3
      -orig-id: head 3
      size: 46
      doc: not looked at
