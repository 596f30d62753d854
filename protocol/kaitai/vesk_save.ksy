# Made by protocol/kaitai.py, which is to be changed instead.
meta:
  id: vesk_save
  title: User setting of a vesk_h264 device (save0.sav)
  application: vesk_h264
  file-extension: sav
  license: MIT
  ks-version: '0.8'
  endian: le
  imports:
  - vesk_view
doc-ref: docs/files.md, save0.sav
seq:
- id: identification
  -orig-id: identification
  type: u4
  doc: '0x2021365C'
- id: input_enable
  -orig-id: inputEnable
  type: u1
  repeat: expr
  repeat-expr: 26
  doc: 0 or 1
- id: input_timing
  -orig-id: inputTiming
  type: input_timing
  repeat: expr
  repeat-expr: 26
- id: pre_input
  -orig-id: preInput
  type: pre_input
  repeat: expr
  repeat-expr: 26
- id: input_color_key
  -orig-id: inputColorKey
  type: color_key
  repeat: expr
  repeat-expr: 26
- id: user_mode
  -orig-id: userMode
  type: u4
  doc: 0 or 1
- id: output_timing
  -orig-id: outputTiming
  type: output_timing
  repeat: expr
  repeat-expr: 6
- id: output_format
  -orig-id: outputFormat
  type: u1
  repeat: expr
  repeat-expr: 6
  doc: format
- id: output_enable
  -orig-id: outputEnable
  type: u1
  repeat: expr
  repeat-expr: 6
  doc: 0 or 1
- id: output_resolution
  -orig-id: outputResolution
  type: resolution
  repeat: expr
  repeat-expr: 6
- id: setting_byte2000
  -orig-id: settingByte2000
  type: u1
- id: setting_byte2001
  -orig-id: settingByte2001
  type: u1
- id: reserved2002
  -orig-id: reserved2002
  size: 26
- id: rs1_output_bytes2028
  -orig-id: rs1OutputBytes2028
  size: 24
- id: rs1_output_bytes2052
  -orig-id: rs1OutputBytes2052
  size: 24
- id: rs1_outputs
  -orig-id: rs1Outputs
  type: rs1_output
  repeat: expr
  repeat-expr: 24
- id: setting_byte2412
  -orig-id: settingByte2412
  type: u1
- id: ext_input_format
  -orig-id: extInputFormat
  type: u1
  doc: format, not 125
- id: reserved2414
  -orig-id: reserved2414
  size: 2
- id: containers
  -orig-id: containers
  type: container
  repeat: expr
  repeat-expr: 24
- id: group_areas
  -orig-id: groupAreas
  type: group_area
  repeat: expr
  repeat-expr: 24
- id: group_flags
  -orig-id: groupFlags
  type: u1
  repeat: expr
  repeat-expr: 24
- id: input_flags
  -orig-id: inputFlags
  type: u1
  repeat: expr
  repeat-expr: 24
- id: user_mode_mirror
  -orig-id: userModeMirror
  type: u1
  doc: 0 or 1
- id: factory_reset
  -orig-id: factoryReset
  type: u1
  doc: 0 or 1
- id: page_number
  -orig-id: pageNumber
  type: u1
  doc: 0 to 15
- id: current_view
  -orig-id: currentView
  type: u1
  doc: 0 to 15
- id: table3716
  -orig-id: table3716
  type: u1
  repeat: expr
  repeat-expr: 8
- id: reserved3724
  -orig-id: reserved3724
  size: 2
- id: index_table3726
  -orig-id: indexTable3726
  type: u1
  repeat: expr
  repeat-expr: 8
- id: reserved3734
  -orig-id: reserved3734
  size: 2
- id: custom_resolution
  -orig-id: customResolution
  type: resolution
- id: setting_word3752
  -orig-id: settingWord3752
  type: u4
- id: setting_bytes3756
  -orig-id: settingBytes3756
  size: 2
- id: setting_byte3758
  -orig-id: settingByte3758
  type: u1
- id: setting_bytes3759
  -orig-id: settingBytes3759
  size: 2
- id: reserved3761
  -orig-id: reserved3761
  type: u1
- id: window_x
  -orig-id: windowX
  type: u2
  doc: pixels
- id: window_y
  -orig-id: windowY
  type: u2
  doc: lines
- id: setting_bytes3766
  -orig-id: settingBytes3766
  size: 2
- id: setting_byte3768
  -orig-id: settingByte3768
  type: u1
- id: reserved3769
  -orig-id: reserved3769
  size: 7
- id: setting_value3776
  -orig-id: settingValue3776
  type: f8
- id: flags3784
  -orig-id: flags3784
  type: u1
  repeat: expr
  repeat-expr: 24
- id: reserved3808
  -orig-id: reserved3808
  size: 4
- id: preview
  -orig-id: preview
  type: vesk_view
- id: program
  -orig-id: program
  type: vesk_view
- id: fpga_settings
  -orig-id: fpgaSettings
  type: u1
  repeat: expr
  repeat-expr: 3
- id: setting_byte11807
  -orig-id: settingByte11807
  type: u1
- id: index_table11808
  -orig-id: indexTable11808
  type: u1
  repeat: expr
  repeat-expr: 16
- id: setting_byte11824
  -orig-id: settingByte11824
  type: u1
- id: setting_byte11825
  -orig-id: settingByte11825
  type: u1
- id: reserved11826
  -orig-id: reserved11826
  size: 2
- id: trailing_identification
  -orig-id: trailingIdentification
  type: u4
  doc: '0x00123456'
types:
  input_timing:
    -orig-id: InputTiming
    doc-ref: docs/files.md, Timings of inputs and outputs
    seq:
    - id: format
      -orig-id: format
      type: u1
      doc: format
    - id: sync_polarity
      -orig-id: syncPolarity
      type: u1
    - id: h_total
      -orig-id: hTotal
      type: u2
      doc: pixels
    - id: v_total
      -orig-id: vTotal
      type: u2
      doc: lines
    - id: h_start
      -orig-id: hStart
      type: u2
      doc: pixels
    - id: v_start
      -orig-id: vStart
      type: u2
      doc: lines
    - id: h_active
      -orig-id: hActive
      type: u2
      doc: pixels
    - id: v_active
      -orig-id: vActive
      type: u2
      doc: lines
    - id: h_sync_width
      -orig-id: hSyncWidth
      type: u2
      doc: pixels
    - id: v_sync_width
      -orig-id: vSyncWidth
      type: u2
      doc: lines
    - id: timing_byte18
      -orig-id: timingByte18
      type: u1
    - id: timing_byte19
      -orig-id: timingByte19
      type: u1
    - id: v_freq
      -orig-id: vFreq
      type: u1
      doc: Hz
    - id: reserved21
      -orig-id: reserved21
      type: u1
  pre_input:
    -orig-id: PreInput
    doc-ref: docs/files.md, Inputs
    seq:
    - id: group
      -orig-id: group
      type: u1
      doc: 0 to 3
    - id: pre_input_byte1
      -orig-id: preInputByte1
      type: u1
    - id: pre_input_byte2
      -orig-id: preInputByte2
      type: u1
    - id: reserved3
      -orig-id: reserved3
      type: u1
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
    - id: target_x
      -orig-id: targetX
      type: u2
      doc: pixels
    - id: target_y
      -orig-id: targetY
      type: u2
      doc: lines
    - id: target_width
      -orig-id: targetWidth
      type: u2
      doc: pixels
    - id: target_height
      -orig-id: targetHeight
      type: u2
      doc: lines
    - id: pre_input_byte20
      -orig-id: preInputByte20
      type: u1
    - id: group_bit
      -orig-id: groupBit
      type: u1
      doc: 1, 2, 4 or 8
    - id: pre_input_bytes22
      -orig-id: preInputBytes22
      size: 4
    - id: pre_input_bytes26
      -orig-id: preInputBytes26
      size: 3
    - id: pre_input_bytes29
      -orig-id: preInputBytes29
      size: 3
    - id: pre_input_byte32
      -orig-id: preInputByte32
      type: u1
    - id: pre_input_byte33
      -orig-id: preInputByte33
      type: u1
    - id: pre_input_byte34
      -orig-id: preInputByte34
      type: u1
    - id: reserved35
      -orig-id: reserved35
      type: u1
  color_key:
    -orig-id: ColorKey
    doc-ref: docs/files.md, Inputs
    seq:
    - id: enable
      -orig-id: enable
      type: u1
      doc: 0 or 1
    - id: color_key_bytes1
      -orig-id: colorKeyBytes1
      size: 3
    - id: color
      -orig-id: color
      type: u1
      repeat: expr
      repeat-expr: 3
  output_timing:
    -orig-id: OutputTiming
    doc-ref: docs/files.md, Timings of inputs and outputs
    seq:
    - id: format
      -orig-id: format
      type: u1
      doc: format
    - id: sync_polarity
      -orig-id: syncPolarity
      type: u1
    - id: h_total
      -orig-id: hTotal
      type: u2
      doc: pixels
    - id: v_total
      -orig-id: vTotal
      type: u2
      doc: lines
    - id: h_start
      -orig-id: hStart
      type: u2
      doc: pixels
    - id: v_start
      -orig-id: vStart
      type: u2
      doc: lines
    - id: h_active
      -orig-id: hActive
      type: u2
      doc: pixels
    - id: v_active
      -orig-id: vActive
      type: u2
      doc: lines
    - id: h_sync_width
      -orig-id: hSyncWidth
      type: u2
      doc: pixels
    - id: v_sync_width
      -orig-id: vSyncWidth
      type: u2
      doc: lines
    - id: timing_byte18
      -orig-id: timingByte18
      type: u1
    - id: reserved19
      -orig-id: reserved19
      size: 5
    - id: timing_word24
      -orig-id: timingWord24
      type: u4
  resolution:
    -orig-id: Resolution
    doc-ref: docs/files.md, Timings of inputs and outputs
    seq:
    - id: width
      -orig-id: width
      type: u4
      doc: pixels
    - id: height
      -orig-id: height
      type: u4
      doc: lines
    - id: frame_rate
      -orig-id: frameRate
      type: u4
      doc: Hz
    - id: size_class
      -orig-id: sizeClass
      type: u1
      doc: 0, 1 or 2
    - id: reserved13
      -orig-id: reserved13
      size: 3
  rs1_output:
    -orig-id: Rs1Output
    doc-ref: docs/files.md, Outputs
    seq:
    - id: word0
      -orig-id: word0
      type: u2
    - id: word2
      -orig-id: word2
      type: u2
    - id: bytes4
      -orig-id: bytes4
      size: 9
    - id: reserved13
      -orig-id: reserved13
      type: u1
  container:
    -orig-id: Container
    doc-ref: docs/files.md, Outputs
    seq:
    - id: container_word0
      -orig-id: containerWord0
      type: u2
    - id: container_word2
      -orig-id: containerWord2
      type: u2
    - id: container_word4
      -orig-id: containerWord4
      type: u2
    - id: reserved6
      -orig-id: reserved6
      size: 2
    - id: width
      -orig-id: width
      type: u4
      doc: pixels
    - id: height
      -orig-id: height
      type: u4
      doc: lines
    - id: container_bytes16
      -orig-id: containerBytes16
      size: 5
    - id: reserved21
      -orig-id: reserved21
      type: u1
    - id: container_word22
      -orig-id: containerWord22
      type: u2
    - id: container_bytes24
      -orig-id: containerBytes24
      size: 6
    - id: reserved30
      -orig-id: reserved30
      size: 2
  group_area:
    -orig-id: GroupArea
    doc-ref: docs/files.md, Outputs
    seq:
    - id: group_byte0
      -orig-id: groupByte0
      type: u1
    - id: reserved1
      -orig-id: reserved1
      size: 7
    - id: width
      -orig-id: width
      type: s4
      doc: pixels
    - id: reserved12
      -orig-id: reserved12
      size: 4
    - id: height
      -orig-id: height
      type: s4
      doc: lines
