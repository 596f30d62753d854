"""The pages of the commands, docs/commands/, for generate.py.

A page shows the frames of a command field by field, an example, and what veskctl makes of it. The examples are
derived from vesk.yaml here, and a test holds them against the daemon.
"""
import glob
import os
import re
import textwrap

from command_table import PLACES, ROOT, Refused, answer_of, bytes_of, code_of, length_of, told

TOOL = "veskctl --serial /dev/ttyUSB0"

# Commands with a payload have a subcommand of their own: its words, and what it prints beside the reply.
SUBCOMMANDS = {
    "write data": (
        "network write 192.168.0.100 255.255.255.0 192.168.0.1 02:76:65:73:6b:01",
        ["address, mask and gateway are set",
         "the MAC 02:76:65:73:6b:01 is kept for the next start; now it is 02:76:65:73:6b:01"],
    ),
    "read data": (
        "network read",
        ["address  192.168.0.100", "mask     255.255.255.0", "gateway  192.168.0.1", "MAC      02:76:65:73:6b:01"],
    ),
    "write text": ("text write 09 00 '[a=1,b=2]'", []),
    "read text": ("text read 09 00", ["[]"]),
}
# The blocks of an update are sent by `update` only, which prints no frames. The program is the one that the
# simulated board runs.
UPDATE = [
    f"$ {TOOL} update --machine x86_64 build/release/vesk_h264",
    "69 blocks in 0.08 s, 862.5 blocks/s, 0 sent again",
    "the device has restarted, with version 1.10",
]

# Chapters of docs/protocol.md, for codes that the table gives none.
CHAPTERS = {code: "Network settings" for code in (0x84, 0x85, 0x88, 0x89, 0x8C, 0x8D, 0x8E)}


def file_of(command):
    return "-".join(re.findall("[a-z0-9]+", command["name"].lower())) + ".md"


# Tables -------------------------------------------------------------------------------------------


def markdown(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "|" + "---|" * len(heads)]
    return lines + [re.sub(r"\|  (?=\|)", "| ", "| " + " | ".join(cells) + " |") for cells in rows]


def layout_table(table, fields, last=None):
    rows = [(str(f["at"]), str(length_of(table, f)), f.get("about", f["name"])) for f in fields]
    return markdown(["offset", "length", "content"], rows + ([last] if last else []))


# Frames -----------------------------------------------------------------------------------------------


def example_of(table, field):
    value = field.get("value", field.get("example", field.get("usual")))
    if value is None:
        value = field["values"][0]["value"] if "values" in field else field.get("range", [0])[0]
    return bytes_of(table, field, value)


def data_of_command(table, command):
    data = [command.get("dat1", 0), 0, 0, 0]
    for field in command.get("parameters", []):
        first = PLACES.index(field["at"])
        data[first:first + length_of(table, field)] = example_of(table, field)
    return data


def data_of_reply(table, command):
    asked = data_of_command(table, command)
    if command["answer"] == "nak":
        return table["refusal"]
    if command["answer"] == "ack":
        return asked
    data = [command.get("dat1", 0), 0, 0, 0]
    for field in command["answer"]:
        first = PLACES.index(field["at"])
        length = length_of(table, field)
        data[first:first + length] = asked[first:first + length] if field.get("echo") else example_of(table, field)
    return data


def frame_of(table, begins, code, data):
    body = [0, 0, code, *data]
    return begins + bytes([*body, sum(body) % 256]).hex() + ">"


def payload_of(table, name, is_written):
    """As the document writes it, or nothing if it is too long."""
    payload = table["payloads"][name]
    if "fields" not in payload:
        return payload["example"] if is_written else payload["begins"] + payload["ends"]
    if payload["length"] > 32:
        return ""
    data = []
    for field in payload["fields"]:
        data += [sum(data) % 256] if field["type"] == "sum8" else example_of(table, field)
    return bytes(data).hex(" ")


def frames(table, command):
    """The lines of an example, both ways."""
    code = command["code"]
    lines = [f"> {frame_of(table, table['frame']['command_begins'], code, data_of_command(table, command))}"]
    if "payload" in command:
        payload = payload_of(table, command["payload"], True)
        lines.append(f"> {payload}" if payload else "> 1024 bytes of the stream, and their sum modulo 256")
    lines.append(f"< {frame_of(table, table['frame']['reply_begins'], code, data_of_reply(table, command))}")
    if "answer_payload" in command:
        lines.append(f"< {payload_of(table, command['answer_payload'], False)}")
    return lines


# What veskctl makes of them ---------------------------------------------------------------------------


def text_of(table, field, data):
    first = PLACES.index(field["at"])
    bytes_ = data[first:first + length_of(table, field)]
    kind = field["type"]
    if kind == "u8":
        return str(bytes_[0])
    if kind == "on/off":
        return "on" if bytes_[0] else "off"
    if kind in ("version", "ipv4", "mask"):
        return ".".join(str(byte) for byte in bytes_)
    if kind in ("first half of mac", "last half of mac"):
        return bytes(bytes_).hex(":")
    if kind == "serial number":
        number = bytes_[0] * 256 + bytes_[1]
        return f"{number} (0x{number:04x})"
    if kind == "u16":
        return "0x" + bytes(reversed(bytes_) if field["order"] == "low first" else bytes_).hex()
    return bytes(bytes_).hex()


def sentence(table, command):
    if command["answer"] == "nak":
        return f"refusal, address 00, tag 00: {command['name']}"
    text = f"reply, address 00, tag 00: {command['name']}"
    data = data_of_reply(table, command)
    if "payload" in command or "answer_payload" in command:
        return f"{text}, data {bytes(data).hex(' ')}"
    given = command.get("parameters", []) if command["answer"] == "ack" else command["answer"]
    texts = [text_of(table, field, data) for field in given if not field.get("echo")]
    return text + (": " + ", ".join(texts) if texts else "")


def words_of(table, command):
    """How `veskctl send` takes it."""
    words = command["name"].replace(",", "")
    if command["answer"] != "nak":
        data = data_of_command(table, command)
        for field in command.get("parameters", []):
            if "value" not in field and "usual" not in field:
                words += " " + text_of(table, field, data).split(" ", maxsplit=1)[0]
    return f"send {words}"


def session(table, command):
    """Lines of a terminal."""
    if command["name"] == "update block":
        return UPDATE
    lines = []
    if "example_after" in command:
        before = next(each for each in table["commands"] if each["name"] == command["example_after"])
        lines = session(table, before)
    words, more = SUBCOMMANDS.get(command["name"], (words_of(table, command), []))
    reply = frame_of(table, table["frame"]["reply_begins"], command["code"], data_of_reply(table, command))
    lines = lines + [f"$ {TOOL} {words}", f"{reply}  {sentence(table, command)}", *more]
    return lines + ["$ echo $?", "1"] if command["answer"] == "nak" else lines


# Pages ------------------------------------------------------------------------------------------------


def meaning_of(table, field, byte):
    """What one byte of a field means."""
    if field["name"] in PLACES:
        return "not used"
    length = length_of(table, field)
    text = field["name"]
    if field["type"] in ("u16", "serial number"):
        is_low = (byte == 0) == (field.get("order") == "low first")
        text += ", low byte" if is_low else ", high byte"
    elif field["type"] == "version":
        text += ", " + ["major", "minor"][byte]
    elif field["type"] == "on/off":
        text += ": 00 off, else on"
    elif length > 1:
        text += f", byte {byte + 1} of {length}"
    if "value" in field:
        text += ", always this"
    elif "values" in field:
        text += ": " + ", ".join(f"{each['value']:02X} {each['means']}" for each in field["values"])
    elif "range" in field and field["range"] != [0, 256 ** length - 1] and byte == 0:
        text += ", of {} to {}".format(*field["range"]) + (f" {field['unit']}" if "unit" in field else "")
    return text


def meanings(table, fields, without):
    """What each of dat1 to dat4 means."""
    texts = list(without)
    for field in fields:
        first = PLACES.index(field["at"])
        for byte in range(length_of(table, field)):
            texts[first + byte] = "as in the command" if field.get("echo") else meaning_of(table, field, byte)
    return texts


def fields_table(table, command):
    asked = data_of_command(table, command)
    replied = data_of_reply(table, command)
    of_command = ["which command, with the code" if "dat1" in command else "not used", *["not used"] * 3]
    of_command = meanings(table, command.get("parameters", []), of_command)
    if command["answer"] == "nak":
        of_reply = ["refused"] * 4
    elif command["answer"] == "ack":
        of_reply = ["as in the command"] * 4
    else:
        of_reply = ["as in the command" if "dat1" in command else "always 00", *["always 00"] * 3]
        of_reply = meanings(table, command["answer"], of_reply)
    request, reply = (line[2:] for line in frames(table, command) if line[2:4] in ("<T", "<F"))
    rows = []
    for field in table["frame"]["fields"]:
        at, name = field["at"], field["name"]
        length = length_of(table, field)
        texts = {
            "address": ("not compared", "as in the command"), "tag": ("chosen by the sender", "as in the command"),
            "command": ("the code", "as in the command"), "checksum": ("sum of the seven bytes before it", "the same"),
        }.get(name, ("", ""))
        if name in PLACES:
            place = PLACES.index(name)
            texts = of_command[place], of_reply[place]
            assert f"{asked[place]:02x}{replied[place]:02x}" == request[at:at + 2] + reply[at:at + 2]
        cells = [str(at), name, f"`{request[at:at + length]}`", texts[0], f"`{reply[at:at + length]}`", texts[1]]
        rows.append(cells)
    return markdown(["offset", "field", "command", "means", "reply", "means"], rows)


def payload_table(table, name):
    payload = table["payloads"][name]
    if "fields" in payload:
        return layout_table(table, payload["fields"])
    return [f"A text from `{payload['begins']}` to `{payload['ends']}`, of at most {payload['longest']} characters. "
            "Its length is not announced."]


def milliseconds(number):
    return f"{number / 1000:g} s" if number >= 1000 else f"{number} ms"


def times(table, command):
    time = command.get("time", table["default_time"])
    text = f"The answer usually comes within {milliseconds(time['usual'])} of the last byte"
    if time["longest"] is None and time["because"].startswith("while"):
        text += f", and takes longer {time['because']}"
    elif time["longest"] is None:
        text += f", and at the longest takes {time['because']}"
    elif time["longest"] != time["usual"]:
        text += f", and within {milliseconds(time['longest'])} {time['because']}"
    return f"{text}. Wait {milliseconds(time['timeout'])} for it."


def refusals(table, command):
    if command["answer"] == "nak":
        return ["This model always refuses it."]
    lines = []
    for reason in command.get("refused_if", []):
        lines.append(f"- {reason}")
    if lines:
        lines = ["It is refused, with ff ff ff ff in dat1 to dat4, if", "", *lines]
    else:
        lines = ["It is never refused if its frame arrives intact."]
    if command.get("ff_is_data"):
        lines.append("The answer ff ff ff ff is the address 255.255.255.255.")
    return lines


def chapter_of(table, command):
    chapters = {each["code"]: each["chapter"] for each in table["chapters"]}
    return {**CHAPTERS, **chapters}.get(command["code"], "Commands")


def capture_of(command):
    """The capture of the command's family, if there is one."""
    code = command["code"]
    families = {0xF0: "network-record", 0xF1: "network-record", 0xF2: "text", 0xF3: "text", 0x9A: "update-commands"}
    family = families.get(code, "network-settings" if code in CHAPTERS else "device")
    if command["answer"] == "nak":
        family = "not-supported"
    elif command.get("payload") == "block":
        family = "update"
    paths = sorted(glob.glob(os.path.join(ROOT, "docs", "captures", f"{family}.pcap*")))
    return os.path.basename(paths[0]) if paths else None


def page(table, command):
    about = told(command)
    about = f"{about[0].upper()}{about[1:]}."
    if command.get("writes"):
        about += " It changes the device."
    if command["name"] == "write data":
        about += " If the record is shorter than 19 bytes, there is no answer."
    lines = [f"# {code_of(command)}: {command['name']}", "", *textwrap.wrap(about, 118)]
    lines += ["", "## Frames", "", *fields_table(table, command)]
    for key, title in {"payload": "Payload of the command", "answer_payload": "Payload of the reply"}.items():
        if key in command:
            lines += ["", f"## {title}", "", *payload_table(table, command[key])]
    lines += ["", "## Example", "", *[f"    {line}" for line in frames(table, command)]]
    tool = "With `veskctl`"
    if command["name"] == "update block":
        tool += ", here to the simulated board; for a device leave out `--machine x86_64`"
    lines += ["", f"{tool}:", "", "```console", *session(table, command), "```"]
    lines += ["", "## Times and refusals", "", *textwrap.wrap(times(table, command), 118), ""]
    lines += refusals(table, command)
    chapter = chapter_of(table, command)
    anchor = chapter.lower().replace(" ", "-")
    lines += ["", "## More", "", f"- [{chapter}](../protocol.md#{anchor}) in the protocol"]
    capture = capture_of(command)
    if capture:
        lines += [f"- [{capture}](../captures/{capture}), a capture of this command and those like it: "
                  f"`vesk.command == 0x{command['code']:02x}` shows it in [Wireshark](../../tools/wireshark/README.md)"]
    lines += ["- [All commands](README.md)"]
    return "\n".join(lines) + "\n"


def index(table):
    rows = []
    for command in table["commands"]:
        answer = command["answer"] if isinstance(command["answer"], str) else ""
        says = {"ack": "acknowledged", "nak": "refused"}.get(
            answer, ", ".join(field["name"] for field in answer_of(command) if not field.get("echo")) or "answered")
        rows.append((code_of(command), f"[{command['name']}]({file_of(command)})", says,
                     "changes the device" if command.get("writes") else ""))
    lines = ["# The commands, one by one", "",
             "Each page has the frames of a command with every field, an example, and its `veskctl` line. "
             "[The command protocol](../protocol.md)", "says what they have in common. "
             "These pages are made from `protocol/vesk.yaml`.", "",
             *markdown(["command", "name", "reply", ""], rows)]
    return "\n".join(lines) + "\n"


def command_pages(table):
    """Their texts by path."""
    texts = {"docs/commands/README.md": index(table)}
    for command in table["commands"]:
        texts[f"docs/commands/{file_of(command)}"] = page(table, command)
    return texts


def navigation_in(table, text):
    """mkdocs.yml with the commands made anew between its markers."""
    pattern = r"( *)(# vesk\.yaml: commands\n).*?( *# end\n)"
    found = re.search(pattern, text, flags=re.DOTALL)
    if not found:
        raise Refused("mkdocs.yml: there is no place for the commands")
    lines = [f"{found[1]}- \"{code_of(each)} {each['name']}\": docs/commands/{file_of(each)}\n"
             for each in table["commands"]]
    return text[:found.start()] + found[1] + found[2] + "".join(lines) + found[3] + text[found.end():]
