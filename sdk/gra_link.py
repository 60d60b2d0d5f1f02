"""gra_link.py - the game's side of the gra-overlay game link, in one Python file.

For a game's tools, servers and test scripts: standard library only, Python
3.6 or later, on Windows, Linux and macOS. It does what sdk/gra_link.h does,
with the same refusals in the same order, checked by the same tables of
cases.

The overlay program listens for short UDP datagrams on 127.0.0.1 (port 47632
unless it was started with --port). Each datagram is the five bytes "GRAO "
followed by a command word and, after one space, an argument. The program
answers with datagrams of the same shape ("GRAO state active", "GRAO modal
on", "GRAO game jump 3"), always to one address: the source of the last
datagram it received, until one arrives from port 47630; from then on only to
the sender on port 47630. A game therefore sends from 47630, and open() binds
that port when it is free. docs/game-protocol.md describes every command and
report.

    import gra_link

    with gra_link.open() as link:               # or gra_link.open(47700)
        if not link.preferred:
            print("replies may go elsewhere")
        link.show("Wave 3")
        report = link.poll()                    # once a frame: None when nothing came
        if report and report.kind == gra_link.REPORT_STATE:
            print(report.mode_name)

Every sending method returns None, or raises LinkError when it refuses or the
system does: what the program would drop or misread is never sent. That is an
argument holding a zero byte (the program reads only up to it), a datagram
longer than MAX_DATAGRAM bytes, a command word the program does not know, a
"note" or "page" argument that is not exactly one JSON value (the program
inserts it without looking at it), and a "window" argument other than
"borderless" or "framed". LinkError.code is the number gra_link.h uses
(E_JSON, ...), str(error) its text.

Arguments are text (sent as UTF-8; a lone surrogate is refused with
E_INVALID) or bytes (sent as they are).

One link is used by one thread at a time. The socket never blocks: sends go
out at once or fail, and poll() returns at once.
"""

import os
import select
import socket
import subprocess
import time

HOST_PORT = 47632     # where the program listens unless started with another --port
GAME_PORT = 47630     # the source port whose datagrams the program prefers as its reply target
MAX_DATAGRAM = 65507  # the most bytes an IPv4 UDP datagram carries, magic included
REPORT_MAX = 500      # the longest report text (after the magic) that poll accepts

OK = 0
E_INVALID = -1
E_ZERO_BYTE = -2
E_TOO_LONG = -3
E_JSON = -4
E_COMMAND = -5
E_SOCKET = -6
E_SEND = -7
E_RECEIVE = -8
E_MEMORY = -9
E_WINDOW = -10
E_LAUNCH = -11

MODE_UNKNOWN = -1
MODE_HIDDEN = 0
MODE_PASSIVE = 1
MODE_ACTIVE = 2

REPORT_STATE = 1  # "state hidden|passive|active": mode is set
REPORT_MODAL = 2  # "modal on|off": modal_on is set
REPORT_GAME = 3   # "game <cmd> [arg]": cmd and arg are set
REPORT_OTHER = 4  # anything else after the magic: see text
REPORT_WARN = 5   # "warn elevated|fullscreen|windowed": warning is set

WARN_NONE = 0        # not a WARN report
WARN_ELEVATED = 1    # the game runs elevated and the overlay does not
WARN_FULLSCREEN = 2  # the game went exclusive fullscreen
WARN_WINDOWED = 3    # the game left exclusive fullscreen
_WARNINGS = {b"warn elevated": WARN_ELEVATED, b"warn fullscreen": WARN_FULLSCREEN,
             b"warn windowed": WARN_WINDOWED}

COMMANDS = ("show", "hide", "toggle", "note", "reload", "page", "state", "window", "bye")

_MAGIC = b"GRAO "
_MODE_NAMES = {MODE_HIDDEN: "hidden", MODE_PASSIVE: "passive", MODE_ACTIVE: "active"}
_ERROR_TEXTS = {
    OK: "ok",
    E_INVALID: "invalid argument or link not open",
    E_ZERO_BYTE: "the argument holds a zero byte",
    E_TOO_LONG: "the datagram would be longer than 65507 bytes",
    E_JSON: "the argument is not valid JSON",
    E_COMMAND: "unknown command",
    E_SOCKET: "the UDP socket could not be opened",
    E_SEND: "the datagram could not be sent",
    E_RECEIVE: "receiving failed",
    E_MEMORY: "out of memory",
    E_WINDOW: 'the window argument must be "borderless" or "framed"',
    E_LAUNCH: "the program could not be started",
}
_WINDOWS = os.name == "nt"
# Windows' CreateProcess takes at most 32,767 UTF-16 units, the zero included.
_COMMAND_LINE_MAX = 32767 - 1


def error_text(code):
    """The text gra_link_error_text gives for a code."""
    return _ERROR_TEXTS.get(code, "unknown error")


def mode_name(mode):
    """"hidden", "passive", "active", or "?" for anything else."""
    return _MODE_NAMES.get(mode, "?")


class LinkError(Exception):
    """A refusal or failure: code is one of the E_* numbers; error is the
    system's error number for E_SOCKET, E_SEND, E_RECEIVE and E_LAUNCH
    (0 when there is none)."""

    def __init__(self, code, error=0):
        super().__init__(error_text(code))
        self.code = code
        self.error = error


# ---- JSON ----

def json_string(text):
    """text as a JSON string, quotation marks included: quotation marks,
    backslashes and control characters (a zero one too) are escaped,
    everything else passes. str gives str; bytes give bytes, every byte from
    0x80 up passing as it is."""
    if isinstance(text, (bytes, bytearray)):
        return json_string(bytes(text).decode("latin-1")).encode("latin-1")
    out = ['"']
    for c in text or "":
        if c in '"\\':
            out.append("\\" + c)
        elif c < " ":
            short = {"\b": "b", "\f": "f", "\n": "n", "\r": "r", "\t": "t"}.get(c)
            out.append("\\" + short if short else "\\u%04x" % ord(c))
        else:
            out.append(c)
    out.append('"')
    return "".join(out)


class _JsonChecker:
    """A small recursive-descent checker over bytes: it accepts exactly the
    JSON grammar (RFC 8259) and builds nothing. Nesting deeper than 256
    levels is refused."""

    def __init__(self, data):
        self.s = data
        self.p = 0
        self.depth = 0

    def space(self):
        s, p = self.s, self.p
        while p < len(s) and s[p] in b" \t\n\r":
            p += 1
        self.p = p

    def take(self, c):
        if self.p < len(self.s) and self.s[self.p] == c:
            self.p += 1
            return True
        return False

    def digits(self):
        start = self.p
        while self.p < len(self.s) and 0x30 <= self.s[self.p] <= 0x39:
            self.p += 1
        return self.p > start

    def number(self):
        self.take(0x2D)  # -
        if not self.take(0x30) and not self.digits():
            return False
        if self.take(0x2E) and not self.digits():  # .
            return False
        if self.take(0x65) or self.take(0x45):  # e E
            if not self.take(0x2B):
                self.take(0x2D)
            if not self.digits():
                return False
        return True

    def string(self):
        s = self.s
        if not self.take(0x22):
            return False
        while self.p < len(s):
            c = s[self.p]
            self.p += 1
            if c == 0x22:
                return True
            if c < 0x20:
                return False
            if c == 0x5C:
                if self.p >= len(s):
                    return False
                c = s[self.p]
                self.p += 1
                if c == 0x75:  # u
                    hex4 = s[self.p:self.p + 4]
                    if len(hex4) < 4 or any(h not in b"0123456789abcdefABCDEF" for h in hex4):
                        return False
                    self.p += 4
                elif c not in b'"\\/bfnrt':
                    return False
        return False

    def word(self, w):
        if self.s[self.p:self.p + len(w)] != w:
            return False
        self.p += len(w)
        return True

    def container(self, close, is_object):
        # Object and array share their shape: open, members separated by
        # commas, close; an object member is a string, a colon and a value.
        self.depth += 1
        if self.depth > 256:
            return False
        ok = True
        self.space()
        if not self.take(close):
            while True:
                self.space()
                if is_object:
                    ok = self.string()
                    self.space()
                    ok = ok and self.take(0x3A)
                ok = ok and self.value()
                self.space()
                if not (ok and self.take(0x2C)):
                    break
            ok = ok and self.take(close)
        self.depth -= 1
        return ok

    def value(self):
        self.space()
        if self.p >= len(self.s):
            return False
        c = self.s[self.p]
        if c == 0x7B:
            self.p += 1
            return self.container(0x7D, True)
        if c == 0x5B:
            self.p += 1
            return self.container(0x5D, False)
        if c == 0x22:
            return self.string()
        if c == 0x74:
            return self.word(b"true")
        if c == 0x66:
            return self.word(b"false")
        if c == 0x6E:
            return self.word(b"null")
        return self.number()


def is_json(text):
    """True when text (str or bytes) is exactly one JSON value, with nothing
    but white space around it."""
    if text is None:
        return False
    if isinstance(text, str):
        try:
            text = text.encode("utf-8")
        except UnicodeEncodeError:
            return False
    j = _JsonChecker(bytes(text))
    if not j.value():
        return False
    j.space()
    return j.p == len(j.s)


# ---- datagrams ----

def _argument_bytes(argument):
    if argument is None:
        return b""
    if isinstance(argument, (bytes, bytearray)):
        return bytes(argument)
    try:
        return argument.encode("utf-8")
    except (UnicodeEncodeError, AttributeError):
        raise LinkError(E_INVALID)


def build(command, argument=None):
    """The datagram (bytes) for a command word and its argument, or LinkError
    with the reason it would be refused: the checks of send, in their order
    (command, zero byte, length, JSON, window argument)."""
    if not isinstance(command, str):
        raise LinkError(E_INVALID)
    if command not in COMMANDS:
        raise LinkError(E_COMMAND)
    arg = _argument_bytes(argument)
    if b"\0" in arg:
        raise LinkError(E_ZERO_BYTE)
    total = len(_MAGIC) + len(command) + (1 + len(arg) if arg else 0)
    if total > MAX_DATAGRAM:
        raise LinkError(E_TOO_LONG)
    if command in ("note", "page") and not is_json(arg):
        raise LinkError(E_JSON)
    if command == "window" and arg not in (b"borderless", b"framed"):
        raise LinkError(E_WINDOW)
    return _MAGIC + command.encode("ascii") + (b" " + arg if arg else b"")


class Report:
    """One report of the program.

    kind      REPORT_STATE, REPORT_MODAL, REPORT_GAME, REPORT_WARN or REPORT_OTHER
    mode      STATE: MODE_HIDDEN, MODE_PASSIVE or MODE_ACTIVE; else MODE_UNKNOWN
    modal_on  MODAL: True for "modal on", False for "modal off"
    cmd, arg  GAME: the page's command word and its argument ("" when none)
    warning   WARN: WARN_ELEVATED, WARN_FULLSCREEN or WARN_WINDOWED; else WARN_NONE
    text      the whole text after "GRAO " (UTF-8, undecodable bytes replaced)
    """

    __slots__ = ("kind", "mode", "modal_on", "cmd", "arg", "warning", "text")

    def __init__(self, text):
        self.kind = REPORT_OTHER
        self.mode = MODE_UNKNOWN
        self.modal_on = False
        self.cmd = ""
        self.arg = ""
        self.warning = WARN_NONE
        self.text = text.decode("utf-8", "replace")
        self._classify(text)

    @property
    def mode_name(self):
        return mode_name(self.mode)

    def _classify(self, text):
        for mode, name in _MODE_NAMES.items():
            if text == b"state " + name.encode("ascii"):
                self.kind, self.mode = REPORT_STATE, mode
                return
        if text in (b"modal on", b"modal off"):
            self.kind, self.modal_on = REPORT_MODAL, text == b"modal on"
            return
        if text in _WARNINGS:
            self.kind, self.warning = REPORT_WARN, _WARNINGS[text]
            return
        if text.startswith(b"game ") and len(text) > 5:
            cmd, space, arg = text[5:].partition(b" ")
            if 0 < len(cmd) < 40 and len(arg) < 200:
                self.kind = REPORT_GAME
                self.cmd = cmd.decode("utf-8", "replace")
                self.arg = arg.decode("utf-8", "replace")

    def __repr__(self):
        return "Report(%r)" % self.text


def parse_report(data):
    """The Report of one received datagram (bytes) when it begins with the
    magic and its text fits, otherwise None. Like the program, the text is
    read only up to a zero byte."""
    data = bytes(data)
    if not data.startswith(_MAGIC):
        return None
    text = data[len(_MAGIC):].split(b"\0", 1)[0]
    if len(text) > REPORT_MAX:
        return None
    return Report(text)


# ---- the link ----

def _now_ms():
    return time.monotonic() * 1000.0


class Link:
    """One UDP socket on 127.0.0.1 aimed at the program. Make it with open()
    or open_port(); close it with close() or a with block."""

    def __init__(self, sock, host_port):
        self._sock = sock
        self.host_port = host_port
        self.local_port = sock.getsockname()[1]

    @property
    def preferred(self):
        """True when the link sends from 47630, so that the program's replies come here."""
        return self.local_port == GAME_PORT

    @property
    def is_open(self):
        return self._sock is not None

    def close(self):
        if self._sock is not None:
            self._sock.close()
            self._sock = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def fileno(self):
        """The socket's descriptor, for a game's own select loop."""
        if self._sock is None:
            raise LinkError(E_INVALID)
        return self._sock.fileno()

    # -- sending --

    def send(self, command, argument=None):
        """Any of the nine commands by name; None or an empty argument sends
        the bare command. The methods below all end here."""
        if self._sock is None:
            raise LinkError(E_INVALID)
        datagram = build(command, argument)
        try:
            sent = self._sock.sendto(datagram, ("127.0.0.1", self.host_port))
        except OSError as e:
            raise LinkError(E_SEND, e.errno or 0)
        if sent != len(datagram):
            raise LinkError(E_SEND)

    def show(self, pad=None):
        self.send("show", pad)

    def hide(self):
        self.send("hide")

    def toggle(self, pad=None):
        self.send("toggle", pad)

    def note(self, json_value):
        """json_value is one JSON value as text: '"a string"', '{"hp":3}', '42'."""
        self.send("note", json_value if json_value is not None else b"")

    def note_text(self, text):
        """Sends plain text as a note, made into a JSON string first."""
        self.send("note", json_string(text if text is not None else ""))

    def page(self, json_text):
        """json_text is one complete JSON text that the page receives as it stands."""
        self.send("page", json_text if json_text is not None else b"")

    def reload(self):
        self.send("reload")

    def state(self):
        """Asks for a "state" report; read it with poll()."""
        self.send("state")

    def window(self, borderless):
        """True: make the game window borderless; False: give its frame back."""
        self.send("window", "borderless" if borderless else "framed")

    def bye(self):
        """Ends the program."""
        self.send("bye")

    # -- receiving --

    def poll(self):
        """The next report of the program, or None when none is waiting;
        never blocks. Datagrams from anyone but the program's address,
        without the magic, or longer than any report are skipped."""
        if self._sock is None:
            raise LinkError(E_INVALID)
        # One byte more than the longest accepted datagram, so that a longer
        # one shows itself by filling the buffer.
        size = len(_MAGIC) + REPORT_MAX + 1
        while True:
            try:
                data, sender = self._sock.recvfrom(size)
            except BlockingIOError:
                return None
            except (ConnectionResetError, ConnectionRefusedError, InterruptedError):
                continue  # an earlier send met a closed port
            except OSError as e:
                if getattr(e, "winerror", None) == 10040:  # WSAEMSGSIZE: longer than any report
                    continue
                raise LinkError(E_RECEIVE, e.errno or 0)
            if len(data) >= size or sender != ("127.0.0.1", self.host_port):
                continue
            report = parse_report(data)
            if report is not None:
                return report

    def wait(self, timeout_ms):
        """Waits up to timeout_ms (negative: for ever) for a datagram: True
        when one is waiting, False when the time is up."""
        if self._sock is None:
            raise LinkError(E_INVALID)
        try:
            readable, _, _ = select.select([self._sock], [], [],
                                           None if timeout_ms < 0 else timeout_ms / 1000.0)
        except InterruptedError:
            return False
        return bool(readable)

    def next_report(self, timeout_ms):
        """Polls and waits until a report arrives (returned) or timeout_ms
        have passed (None); negative: for ever."""
        start = _now_ms()
        while True:
            report = self.poll()
            if report is not None:
                return report
            left = -1
            if timeout_ms >= 0:
                left = timeout_ms - (_now_ms() - start)
                if left <= 0:
                    return None
            self.wait(left)

    def wait_ready(self, timeout_ms):
        """Sends "state" every quarter of a second until the program answers
        with a state report (returned: report.mode is its mode), or None when
        timeout_ms have passed (negative: for ever). Other reports that
        arrive meanwhile are read and dropped. The answer comes back to this
        link only when it is the program's reply target."""
        if self._sock is None:
            raise LinkError(E_INVALID)
        start = _now_ms()
        while True:
            slice_ms = 250.0
            if timeout_ms >= 0:
                left = timeout_ms - (_now_ms() - start)
                if left <= 0:
                    return None
                slice_ms = min(slice_ms, left)
            # A failed send is taken as "not yet": the program may still be starting.
            try:
                self.state()
            except LinkError:
                pass
            round_start = _now_ms()
            while True:
                report = self.next_report(max(0.0, slice_ms - (_now_ms() - round_start)))
                if report is None:
                    break
                if report.kind == REPORT_STATE:
                    return report


def _bind(host_port, local_port):
    host_port = host_port or HOST_PORT
    if not (0 < host_port < 65536 and 0 <= local_port < 65536):
        raise LinkError(E_INVALID)
    try:
        sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM, socket.IPPROTO_UDP)
    except OSError as e:
        raise LinkError(E_SOCKET, e.errno or 0)
    try:
        if _WINDOWS and local_port and hasattr(socket, "SO_EXCLUSIVEADDRUSE"):
            # keeps another program's SO_REUSEADDR off port 47630
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_EXCLUSIVEADDRUSE, 1)
        sock.bind(("127.0.0.1", local_port))
        sock.setblocking(False)
    except OSError as e:
        sock.close()
        raise LinkError(E_SOCKET, e.errno or 0)
    return Link(sock, host_port)


def open(host_port=0, local_port=None):  # noqa: A001 - the C library's name
    """Opens the link to the program on 127.0.0.1:host_port (0: 47632). With
    local_port None it binds 47630 when it is free, otherwise an ephemeral
    port (link.local_port and link.preferred say which); with a number it
    binds exactly that port (0: ephemeral). LinkError(E_SOCKET) when no
    socket can be had."""
    if local_port is not None:
        return _bind(host_port, local_port)
    try:
        return _bind(host_port, GAME_PORT)
    except LinkError as e:
        if e.code != E_SOCKET:
            raise
        return _bind(host_port, 0)  # 47630 is taken


def open_port(host_port, local_port):
    """As open, but binds exactly local_port (0: an ephemeral port)."""
    return _bind(host_port, local_port)


# ---- starting the program ----

def quote_argument(argument):
    """argument quoted for Windows' CommandLineToArgvW: as it stands when it
    is not empty and holds no space, tab, line feed, vertical tab or
    quotation mark; otherwise in quotation marks, each quotation mark escaped
    by a backslash and the backslashes before a quotation mark (or before the
    closing one) doubled."""
    if argument and not any(c in argument for c in " \t\n\v\""):
        return argument
    out = ['"']
    backslashes = 0
    for c in argument:
        if c == "\\":
            backslashes += 1
            continue
        # Backslashes count only before a quotation mark: there each one is
        # doubled, and one more escapes the mark itself.
        out.append("\\" * (2 * backslashes + 1 if c == '"' else backslashes))
        out.append(c)
        backslashes = 0
    out.append("\\" * (2 * backslashes))  # they come before the closing mark
    out.append('"')
    return "".join(out)


def arguments(web=None, doc=None, port=0, game=None, game_class=None, mode=None, log=None,
              data=None, show=False):
    """The program's options as a list of words, in the order gra_link.h
    writes them; each None (or 0, or False) is left out."""
    words = []
    for name, value in (("--web", web), ("--doc", doc), ("--port", str(port) if port else None),
                        ("--game", game), ("--game-class", game_class), ("--mode", mode),
                        ("--log", log), ("--data", data)):
        if value is not None:
            words += [name, value]
    if show:
        words.append("--show")
    return words


def command_line(program, **options):
    """The whole Windows command line that launch() uses: the program in
    quotation marks, then each option and its value quoted for
    CommandLineToArgvW. LinkError(E_INVALID) when program is empty or holds
    a quotation mark; the options are those of arguments()."""
    if not program or '"' in program:
        raise LinkError(E_INVALID)
    # The program's own name is split by another rule: everything up to the
    # next quotation mark, backslashes included, so it is quoted as it is.
    return " ".join(['"%s"' % program] + [quote_argument(w) for w in arguments(**options)])


def launch(program, runner=None, **options):
    """Starts the program with options (those of arguments(): web, doc,
    port, game, game_class, mode, log, data, show) and returns its
    subprocess.Popen; every value reaches the program exactly as given.

    On Windows the command line is command_line()'s. Elsewhere the program
    runs through runner, a list of words put before it (default ["wine"]).
    LinkError(E_INVALID) for an unusable program path or a value holding a
    zero character, E_TOO_LONG for a command line over Windows' 32,767
    characters, E_LAUNCH (error: the system's error number) when it could
    not be started. The program starts with this process's environment and
    working folder; it finds its own defaults beside itself."""
    line = command_line(program, **options)
    if "\0" in line:
        raise LinkError(E_INVALID)
    try:
        line.encode("utf-8")
    except UnicodeEncodeError:
        raise LinkError(E_INVALID)
    if len(line.encode("utf-16-le")) // 2 > _COMMAND_LINE_MAX:
        raise LinkError(E_TOO_LONG)
    try:
        if _WINDOWS and runner is None:
            return subprocess.Popen(line, executable=program)
        words = list(runner if runner is not None else ["wine"]) + [program] + arguments(**options)
        return subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)
    except OSError as e:
        raise LinkError(E_LAUNCH, getattr(e, "winerror", None) or e.errno or 0)
