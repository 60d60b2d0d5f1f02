"""The game's commands as the game maker's kit checks them before sending
(sdk/gra_link.h, sdk/GraLink.cs): the preview refuses what the kit would
refuse, with the kit's reason, instead of sending the program something it
drops or misreads. tests/sdk_cases/link_cases.txt holds the cases all three
answer alike."""

import json

COMMANDS = ("show", "hide", "toggle", "note", "reload", "page", "state", "window", "bye")
MAGIC = b"GRAO "
MAX_DATAGRAM = 65507
MAX_DEPTH = 256

# The kit's reasons, as gra_link_error_text names them.
REASONS = {
    "command": "unknown command",
    "zero-byte": "the argument holds a zero byte",
    "too-long": "the datagram would be longer than 65507 bytes",
    "json": "the argument is not valid JSON",
    "window": "window takes borderless or framed",
}


class Refused(Exception):
    def __init__(self, kind):
        super().__init__(REASONS[kind])
        self.kind = kind


def _depth(value, level=1):
    if level > MAX_DEPTH:
        return False
    if isinstance(value, dict):
        return all(_depth(v, level + 1) for v in value.values())
    if isinstance(value, list):
        return all(_depth(v, level + 1) for v in value)
    return True


def json_value(data):
    """True when the bytes are exactly one JSON value, white space around it allowed."""
    def refuse_constant(name):
        raise ValueError(name)
    try:
        # Numbers are only looked at, never made: a long one is valid JSON all the same.
        value = json.loads(data.decode("utf-8"), parse_constant=refuse_constant, parse_int=len, parse_float=len)
    except (ValueError, RecursionError):
        return False
    return _depth(value)


def check(command, argument=b""):
    """Raises Refused when the kit would refuse the command word (text) with its argument (bytes)."""
    if command not in COMMANDS:
        raise Refused("command")
    if b"\0" in argument:
        raise Refused("zero-byte")
    if len(MAGIC) + len(command.encode("utf-8")) + (1 + len(argument) if argument else 0) > MAX_DATAGRAM:
        raise Refused("too-long")
    if command in ("note", "page") and not json_value(argument):
        raise Refused("json")
    if command == "window" and argument not in (b"borderless", b"framed"):
        raise Refused("window")


def datagram_text(line):
    """A typed line ("show Wave 3", 'note {"text":"hi"}', optionally after "GRAO ") as the text
    after the magic, once checked; raises Refused with the kit's reason."""
    if line.startswith("GRAO "):
        line = line[5:]
    command, _, argument = line.partition(" ")
    check(command, argument.encode("utf-8"))
    return line
