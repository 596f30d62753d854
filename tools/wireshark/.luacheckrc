-- What Wireshark gives its scripts.
std = "lua52c"
max_line_length = 120
read_globals = {
    "Address", "ByteArray", "DissectorTable", "Field", "NSTime", "P2P_DIR_RECV", "P2P_DIR_SENT", "Proto", "ProtoExpert",
    "ProtoField", "base", "expert", "frametype", "wtap", "wtap_encaps",
}
