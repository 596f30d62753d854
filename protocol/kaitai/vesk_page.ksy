# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_page
  title: A page of a vesk_h264 device (page0_0.sav to page15_0.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
  imports:
  - vesk_view
doc-ref: docs/files.md, Files
seq:
- id: views
  -orig-id: views
  type: vesk_view
  repeat: expr
  repeat-expr: 16
