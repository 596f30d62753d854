# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_view
  title: A stored view of a vesk_h264 device (view0.sav to view15.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
doc-ref: docs/files.md, view0.sav to view15.sav
seq:
- id: view_byte0
  -orig-id: viewByte0
  type: u1
- id: reserved1
  -orig-id: reserved1
  size: 15
- id: layers
  -orig-id: layers
  type: layer
  repeat: expr
  repeat-expr: 96
- id: layer_alpha_pos
  -orig-id: layerAlphaPos
  type: u1
  repeat: expr
  repeat-expr: 96
  doc: 0 to 95
- id: layer_alpha
  -orig-id: layerAlpha
  type: u1
  repeat: expr
  repeat-expr: 96
- id: other
  -orig-id: other
  type: other_setting
- id: view_number
  -orig-id: viewNumber
  type: u1
  doc: 0 to 15
- id: reserved2743
  -orig-id: reserved2743
  type: u1
- id: rs1
  -orig-id: rs1
  type: rs1_setting
- id: containers
  -orig-id: containers
  type: container_other
  repeat: expr
  repeat-expr: 24
- id: identification
  -orig-id: identification
  type: u4
  doc: '0x29215679'
types:
  layer:
    -orig-id: Layer
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: input_port
      -orig-id: inputPort
      type: u1
      doc: number of the input
    - id: state
      -orig-id: state
      type: u1
    - id: layer_bytes2
      -orig-id: layerBytes2
      size: 2
    - id: source_x
      -orig-id: sourceX
      type: u2
      doc: pixels
    - id: source_y
      -orig-id: sourceY
      type: u2
      doc: lines
    - id: source_width
      -orig-id: sourceWidth
      type: u2
      doc: pixels
    - id: source_height
      -orig-id: sourceHeight
      type: u2
      doc: lines
    - id: window_x
      -orig-id: windowX
      type: u2
      doc: pixels
    - id: window_y
      -orig-id: windowY
      type: u2
      doc: lines
    - id: window_width
      -orig-id: windowWidth
      type: u2
      doc: pixels
    - id: window_height
      -orig-id: windowHeight
      type: u2
      doc: lines
    - id: layer_bytes20
      -orig-id: layerBytes20
      size: 3
    - id: layer_bytes23
      -orig-id: layerBytes23
      size: 3
  other_setting:
    -orig-id: OtherSetting
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: setting_byte0
      -orig-id: settingByte0
      type: u1
    - id: setting_byte1
      -orig-id: settingByte1
      type: u1
    - id: setting_word2
      -orig-id: settingWord2
      type: u2
    - id: setting_word4
      -orig-id: settingWord4
      type: u2
    - id: setting_word6
      -orig-id: settingWord6
      type: u2
    - id: setting_byte8
      -orig-id: settingByte8
      type: u1
    - id: setting_bytes9
      -orig-id: settingBytes9
      size: 5
    - id: container_flags
      -orig-id: containerFlags
      type: u1
      repeat: expr
      repeat-expr: 24
  rs1_setting:
    -orig-id: Rs1Setting
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: first
      -orig-id: first
      type: rs1_first
      repeat: expr
      repeat-expr: 24
    - id: second
      -orig-id: second
      type: rs1_second
      repeat: expr
      repeat-expr: 6
    - id: third
      -orig-id: third
      type: rs1_third
      repeat: expr
      repeat-expr: 24
  rs1_first:
    -orig-id: Rs1First
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: word0
      -orig-id: word0
      type: u2
    - id: words2
      -orig-id: words2
      type: u2
      repeat: expr
      repeat-expr: 4
    - id: byte10
      -orig-id: byte10
      type: u1
    - id: reserved11
      -orig-id: reserved11
      type: u1
  rs1_second:
    -orig-id: Rs1Second
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: halves
      -orig-id: halves
      type: rs1_half
      repeat: expr
      repeat-expr: 2
  rs1_half:
    -orig-id: Rs1Half
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: word0
      -orig-id: word0
      type: u2
    - id: word2
      -orig-id: word2
      type: u2
    - id: byte4
      -orig-id: byte4
      type: u1
    - id: reserved5
      -orig-id: reserved5
      type: u1
    - id: word6
      -orig-id: word6
      type: u2
    - id: word8
      -orig-id: word8
      type: u2
    - id: byte10
      -orig-id: byte10
      type: u1
    - id: byte11
      -orig-id: byte11
      type: u1
  rs1_third:
    -orig-id: Rs1Third
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: words0
      -orig-id: words0
      type: u2
      repeat: expr
      repeat-expr: 8
    - id: byte16
      -orig-id: byte16
      type: u1
    - id: reserved17
      -orig-id: reserved17
      type: u1
  container_other:
    -orig-id: ContainerOther
    doc-ref: docs/files.md, view0.sav to view15.sav
    seq:
    - id: setting_byte0
      -orig-id: settingByte0
      type: u1
    - id: setting_byte1
      -orig-id: settingByte1
      type: u1
    - id: setting_byte2
      -orig-id: settingByte2
      type: u1
    - id: reserved3
      -orig-id: reserved3
      type: u1
    - id: setting_word4
      -orig-id: settingWord4
      type: s2
    - id: setting_word6
      -orig-id: settingWord6
      type: s2
    - id: setting_byte8
      -orig-id: settingByte8
      type: u1
    - id: setting_byte9
      -orig-id: settingByte9
      type: u1
    - id: setting_word10
      -orig-id: settingWord10
      type: u2
    - id: setting_word12
      -orig-id: settingWord12
      type: u2
    - id: flag
      -orig-id: flag
      type: u1
    - id: setting_byte15
      -orig-id: settingByte15
      type: u1
