/* gra_link.h - the game's side of the gra-overlay game link, in one header.
 *
 * The overlay program listens for short UDP datagrams on 127.0.0.1 (port
 * 47632 unless it was started with --port). Each datagram is the five bytes
 * "GRAO " followed by a command word and, after one space, an argument.
 * The program answers with datagrams of the same shape ("GRAO state active",
 * "GRAO modal on", "GRAO game jump 3"), always to one address: the source of
 * the last datagram it received, until one arrives from port 47630; from
 * then on only to the sender on port 47630. A game therefore sends from
 * 47630, and this library binds that port when it is free.
 * docs/game-protocol.md describes every command and report.
 *
 * How to use it
 *   In exactly one C or C++ source file of the game:
 *       #define GRA_LINK_IMPLEMENTATION
 *       #include "gra_link.h"
 *   Everywhere else include the header without the define. On Windows link
 *   ws2_32 (MSVC picks it up by itself). In the implementation file, include
 *   this header before <windows.h>, or define WIN32_LEAN_AND_MEAN, so that
 *   <winsock2.h> comes first.
 *
 *       gra_link link;
 *       gra_link_report report;
 *       if (gra_link_open(&link, 0) != GRA_LINK_OK) return;   (0: port 47632)
 *       if (!link.preferred) warn("replies may go elsewhere");
 *       gra_link_show(&link, "Wave 3");
 *       while (gra_link_poll(&link, &report) > 0)              (once a frame)
 *           if (report.kind == GRA_LINK_REPORT_STATE) ...;
 *       gra_link_close(&link);
 *
 * Every sending function returns GRA_LINK_OK or a negative GRA_LINK_E_* code;
 * gra_link_error_text() names it. A datagram that the program would drop or
 * misread is refused before it is sent: an argument holding a zero byte (the
 * program reads only up to it), a datagram longer than GRA_LINK_MAX_DATAGRAM,
 * a command word the program does not know, a "note" or "page" argument
 * that is not exactly one JSON value (the program inserts it without looking
 * at it, so that `0,"type":"close"` would make a message of another type),
 * and a "window" argument other than "borderless" or "framed" (the program
 * reads every other word, "Borderless" included, as framed).
 *
 * One link is used by one thread at a time. The socket never blocks: sends
 * either go out at once or fail, and polling returns at once.
 */
#ifndef GRA_LINK_H
#define GRA_LINK_H

/* Strict ISO modes (-std=c99) hide POSIX declarations that the
 * implementation needs; ask for them when this header comes first. The
 * GNU modes have them already and are left alone. */
#if defined(GRA_LINK_IMPLEMENTATION) && !defined(_WIN32) && defined(__STRICT_ANSI__) && \
    !defined(_POSIX_C_SOURCE) && !defined(_XOPEN_SOURCE)
#define _POSIX_C_SOURCE 200112L
#endif

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Where the program listens unless it was started with another --port. */
#define GRA_LINK_HOST_PORT 47632
/* The source port whose datagrams the program prefers as its reply target. */
#define GRA_LINK_GAME_PORT 47630
/* The program reads datagrams of up to 65,535 bytes, but an IPv4 UDP
 * datagram carries at most 65,507 bytes of payload: that is the real limit,
 * magic and command word included. */
#define GRA_LINK_MAX_DATAGRAM 65507
/* The longest report text (after the magic) that gra_link_poll accepts. The
 * program's own reports are far shorter: the text of a "game" report is at
 * most 244 bytes ("game ", a command word of up to 39 bytes, a space and an
 * argument of up to 199 bytes), 249 bytes with the magic. */
#define GRA_LINK_REPORT_MAX 500

enum gra_link_result {
    GRA_LINK_OK = 0,
    GRA_LINK_E_INVALID = -1,   /* null pointer, or a link that is not open */
    GRA_LINK_E_ZERO_BYTE = -2, /* the argument holds a zero byte */
    GRA_LINK_E_TOO_LONG = -3,  /* the datagram would exceed GRA_LINK_MAX_DATAGRAM */
    GRA_LINK_E_JSON = -4,      /* "note" or "page" argument is not valid JSON */
    GRA_LINK_E_COMMAND = -5,   /* a command word the program does not know */
    GRA_LINK_E_SOCKET = -6,    /* the socket could not be created or bound */
    GRA_LINK_E_SEND = -7,      /* the system refused or shortened the send */
    GRA_LINK_E_RECEIVE = -8,   /* the system reported a receive error */
    GRA_LINK_E_MEMORY = -9,    /* no memory for a large datagram */
    GRA_LINK_E_WINDOW = -10,   /* "window" argument is not "borderless" or "framed" */
    GRA_LINK_E_LAUNCH = -11    /* the program could not be started */
};

/* The program's interaction modes, numbered as the program numbers them. */
enum gra_link_mode {
    GRA_LINK_MODE_HIDDEN = 0,
    GRA_LINK_MODE_PASSIVE = 1,
    GRA_LINK_MODE_ACTIVE = 2
};

enum gra_link_report_kind {
    GRA_LINK_REPORT_STATE = 1, /* "state hidden|passive|active": mode is set */
    GRA_LINK_REPORT_MODAL = 2, /* "modal on|off": modal_on is set */
    GRA_LINK_REPORT_GAME = 3,  /* "game <cmd> [arg]": cmd and arg are set */
    GRA_LINK_REPORT_OTHER = 4, /* anything else after the magic: see text */
    GRA_LINK_REPORT_WARN = 5   /* "warn elevated|fullscreen|windowed": warning is set */
};

/* Why the overlay cannot work (docs/game-protocol.md tells what to do). */
enum gra_link_warning {
    GRA_LINK_WARN_NONE = 0,       /* not a WARN report */
    GRA_LINK_WARN_ELEVATED = 1,   /* the game runs elevated and the overlay does not */
    GRA_LINK_WARN_FULLSCREEN = 2, /* the game went exclusive fullscreen */
    GRA_LINK_WARN_WINDOWED = 3    /* the game left exclusive fullscreen */
};

typedef struct gra_link_report {
    int kind;      /* one of enum gra_link_report_kind */
    int mode;      /* STATE: one of enum gra_link_mode, else -1 */
    int modal_on;  /* MODAL: 1 for "modal on", 0 for "modal off" */
    int warning;   /* WARN: one of enum gra_link_warning, else GRA_LINK_WARN_NONE */
    char cmd[40];  /* GAME: the page's command word, 1 to 39 bytes */
    char arg[200]; /* GAME: its argument, empty when there is none */
    char text[GRA_LINK_REPORT_MAX + 1]; /* the whole text after "GRAO " */
} gra_link_report;

#if defined(_WIN32)
typedef uintptr_t gra_link_socket; /* a Winsock SOCKET */
#else
typedef int gra_link_socket;
#endif

typedef struct gra_link {
    gra_link_socket sock;
    int is_open;
    unsigned short host_port;  /* the program's port that datagrams go to */
    unsigned short local_port; /* the source port this link got */
    int preferred;             /* 1 when local_port is GRA_LINK_GAME_PORT */
} gra_link;

/* Opens the link to the program on 127.0.0.1:host_port (0 means
 * GRA_LINK_HOST_PORT). Binds source port 47630 when it is free, otherwise an
 * ephemeral port; link->local_port and link->preferred say which. Close an
 * open link before opening it again: its socket would be lost. */
int gra_link_open(gra_link *link, unsigned short host_port);
/* As gra_link_open, but binds exactly local_port (0: an ephemeral port). */
int gra_link_open_port(gra_link *link, unsigned short host_port,
                       unsigned short local_port);
void gra_link_close(gra_link *link);

/* One function per command. A NULL or empty pad sends the bare command. */
int gra_link_show(gra_link *link, const char *pad);
int gra_link_show_n(gra_link *link, const char *pad, size_t len);
int gra_link_hide(gra_link *link);
int gra_link_toggle(gra_link *link, const char *pad);
int gra_link_toggle_n(gra_link *link, const char *pad, size_t len);
/* json_value is any JSON value: "\"a string\"", "{\"hp\":3}", "42". */
int gra_link_note(gra_link *link, const char *json_value);
int gra_link_note_n(gra_link *link, const char *json_value, size_t len);
/* Sends plain UTF-8 text as a note, made into a JSON string first. */
int gra_link_note_text(gra_link *link, const char *utf8);
int gra_link_note_text_n(gra_link *link, const char *utf8, size_t len);
/* json is a complete JSON text that the page receives as it stands. */
int gra_link_page(gra_link *link, const char *json);
int gra_link_page_n(gra_link *link, const char *json, size_t len);
int gra_link_reload(gra_link *link);
/* Asks for a "state" report; read it with gra_link_poll. */
int gra_link_state(gra_link *link);
/* Nonzero: make the game window borderless; zero: give its frame back.
 * Through gra_link_send the argument must be "borderless" or "framed". */
int gra_link_window(gra_link *link, int borderless);
/* Ends the program. */
int gra_link_bye(gra_link *link);
/* Any of the nine commands by name, with an argument of len bytes (arg may
 * be NULL when len is 0). The functions above all end here. */
int gra_link_send(gra_link *link, const char *cmd, const char *arg, size_t len);

/* Reads the next report of the program without blocking: 1 when one was
 * stored in *report, 0 when none is waiting, or a negative error code.
 * Datagrams from anyone but the program's address, without the magic, or
 * longer than any report are skipped. */
int gra_link_poll(gra_link *link, gra_link_report *report);
/* Waits up to timeout_ms (negative: for ever) for a datagram to arrive:
 * 1 when one is waiting, 0 on timeout, or a negative error code. */
int gra_link_wait(gra_link *link, int timeout_ms);
/* Polls and waits until a report arrives or timeout_ms have passed:
 * 1 with a report, 0 on timeout, or a negative error code. */
int gra_link_next_report(gra_link *link, gra_link_report *report, int timeout_ms);

/* Parses one received datagram: 1 and *report filled when it begins with
 * the magic and its text fits, otherwise 0. */
int gra_link_parse_report(const char *data, size_t len, gra_link_report *report);
/* Writes text as a JSON string, quotes included, into out (at most
 * out_size - 1 bytes and a terminating zero, like snprintf) and returns the
 * full length that the string needs. Quotation marks, backslashes and
 * control characters (a zero byte too) are escaped; other bytes pass. */
size_t gra_link_json_string(const char *text, size_t len, char *out, size_t out_size);
/* 1 when the len bytes are one valid JSON text (RFC 8259), else 0. */
int gra_link_json_valid(const char *text, size_t len);
const char *gra_link_error_text(int code);
/* "hidden", "passive", "active", or "?" for anything else. */
const char *gra_link_mode_name(int mode);

/* Sends "state" every quarter of a second until the program answers with a
 * state report, or timeout_ms have passed (negative: for ever). 1 when it
 * answered (*mode, when mode is not NULL, gets its mode), 0 on timeout, or
 * GRA_LINK_E_INVALID for a link that is not open. Other reports that arrive
 * meanwhile are read and dropped. The answer comes back to this link only
 * when it is the program's reply target (see above). */
int gra_link_wait_ready(gra_link *link, int timeout_ms, int *mode);

/* ---- starting the program ----
 *
 *       gra_link_launch_options o = {0};
 *       gra_link_process p;
 *       o.program = "overlay\\gra-overlay.exe";
 *       o.game = "My \"Best\" Game";
 *       o.game_class = "MyGameWindow";
 *       if (gra_link_launch(&o, &p) == GRA_LINK_OK &&
 *           gra_link_open(&link, o.port) == GRA_LINK_OK &&
 *           gra_link_wait_ready(&link, 10000, NULL) == 1) ...   (it listens)
 *       ...
 *       CloseHandle((HANDLE)p.handle);
 *
 * Every text is UTF-8. Each option left NULL (or 0) is left out, so that the
 * program takes its default. The values reach the program exactly as given,
 * whatever spaces, quotation marks and backslashes they hold: the command
 * line is built for the Windows rules of CommandLineToArgvW, which the
 * program uses to split it. */
typedef struct gra_link_launch_options {
    const char *program;    /* path of gra-overlay.exe; must not hold a '"' */
    const char *web;        /* --web FOLDER: the page's folder */
    const char *doc;        /* --doc FOLDER: the page's files and gra_keys.txt */
    unsigned short port;    /* --port N: where the program listens (0: 47632) */
    const char *game;       /* --game TITLE: the game window's exact title */
    const char *game_class; /* --game-class CLASS: its exact window class */
    const char *mode;       /* --mode child|owned */
    const char *log;        /* --log FILE */
    const char *data;       /* --data FOLDER: the browser's user data */
    int show;               /* nonzero: --show, the overlay shown at start */
} gra_link_launch_options;

typedef struct gra_link_process {
    void *handle;        /* the process HANDLE: wait on it, end it, and give
                            it back with CloseHandle when done */
    unsigned long id;    /* the process id */
    unsigned long error; /* GRA_LINK_E_LAUNCH: the system's error number */
} gra_link_process;

/* Writes arg quoted for CommandLineToArgvW into out (snprintf-like, as
 * gra_link_json_string) and returns the length it needs: as it stands when
 * it is not empty and holds no space, tab, line feed, vertical tab or
 * quotation mark; otherwise in quotation marks, with each quotation mark
 * escaped by a backslash and the backslashes before a quotation mark (or
 * before the closing one) doubled. */
size_t gra_link_quote_argument(const char *arg, char *out, size_t out_size);
/* Writes the whole command line for options (the program first, then one
 * option and value after another), snprintf-like, and returns the length it
 * needs; 0 when options has no program, an empty one, or one holding a
 * quotation mark. */
size_t gra_link_command_line(const gra_link_launch_options *options, char *out,
                             size_t out_size);
#if defined(_WIN32)
/* Starts the program with options (Windows only): GRA_LINK_OK with
 * *process filled, GRA_LINK_E_INVALID for unusable options or text that is
 * not UTF-8, GRA_LINK_E_TOO_LONG for a command line longer than Windows
 * takes (32,767 characters), GRA_LINK_E_MEMORY, or GRA_LINK_E_LAUNCH with
 * the system's error number in process->error. */
int gra_link_launch(const gra_link_launch_options *options, gra_link_process *process);
#endif

#ifdef __cplusplus
}
#endif

#endif /* GRA_LINK_H */

/* ------------------------------------------------------------------------ */

#if defined(GRA_LINK_IMPLEMENTATION) && !defined(GRA_LINK_IMPLEMENTED)
#define GRA_LINK_IMPLEMENTED

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#if defined(_MSC_VER)
#pragma comment(lib, "ws2_32.lib")
#endif
#ifndef SIO_UDP_CONNRESET
#define SIO_UDP_CONNRESET _WSAIOW(IOC_VENDOR, 12)
#endif
typedef int grl_socklen;
typedef int grl_buflen; /* Winsock takes buffer lengths as int */
#define GRL_BAD_SOCKET ((gra_link_socket)INVALID_SOCKET)
#else
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
typedef socklen_t grl_socklen;
typedef size_t grl_buflen;
#define GRL_BAD_SOCKET (-1)
#endif

#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

static const char grl_magic[5] = {'G', 'R', 'A', 'O', ' '};

/* The command words the program knows; it silently drops any other. */
static const char *const grl_commands[] = {
    "show", "hide", "toggle", "note", "reload", "page", "state", "window", "bye"};

/* ---- platform ---- */

static void grl_close_socket(gra_link_socket s) {
#if defined(_WIN32)
    closesocket((SOCKET)s);
#else
    close(s);
#endif
}

static int grl_would_block(void) {
#if defined(_WIN32)
    return WSAGetLastError() == WSAEWOULDBLOCK;
#else
    return errno == EAGAIN || errno == EWOULDBLOCK;
#endif
}

/* Errors that concern one datagram and not the socket: reading goes on. */
static int grl_skippable_receive_error(void) {
#if defined(_WIN32)
    int e = WSAGetLastError();
    /* WSAEMSGSIZE: the datagram was longer than any report.
     * WSAECONNRESET: an earlier send met a closed port (ICMP). */
    return e == WSAEMSGSIZE || e == WSAECONNRESET;
#else
    return errno == EINTR || errno == ECONNREFUSED;
#endif
}

static int grl_set_nonblocking(gra_link_socket s) {
#if defined(_WIN32)
    u_long on = 1;
    return ioctlsocket((SOCKET)s, FIONBIO, &on) == 0;
#else
    int flags = fcntl(s, F_GETFL, 0);
    return flags != -1 && fcntl(s, F_SETFL, flags | O_NONBLOCK) != -1;
#endif
}

/* Windows reports a send to a closed port as an error of the next receive
 * on the same socket; a game should not see the program's absence that way. */
static void grl_quiet_connection_resets(gra_link_socket s) {
#if defined(_WIN32)
    BOOL off = FALSE;
    DWORD returned = 0;
    WSAIoctl((SOCKET)s, SIO_UDP_CONNRESET, &off, sizeof off, NULL, 0, &returned,
             NULL, NULL);
#else
    (void)s;
#endif
}

/* Keeps other sockets from sharing port 47630 on Windows, where another
 * program's SO_REUSEADDR could otherwise take our replies. */
static void grl_claim_exclusively(gra_link_socket s) {
#if defined(_WIN32)
    BOOL on = TRUE;
    setsockopt((SOCKET)s, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, (const char *)&on,
               sizeof on);
#else
    (void)s;
#endif
}

/* Milliseconds from an arbitrary origin; only differences are used, in
 * unsigned arithmetic, so that the wrap-around of the counter is harmless. */
static unsigned long grl_now_ms(void) {
#if defined(_WIN32)
    return (unsigned long)GetTickCount();
#elif defined(CLOCK_MONOTONIC)
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (unsigned long)t.tv_sec * 1000ul + (unsigned long)(t.tv_nsec / 1000000);
#else
    /* POSIX clocks were hidden (strict mode, another header first): whole
     * seconds make waits up to a second longer, nothing worse. */
    return (unsigned long)time(NULL) * 1000ul;
#endif
}

static void grl_loopback(struct sockaddr_in *a, unsigned short port) {
    memset(a, 0, sizeof *a);
    a->sin_family = AF_INET;
    a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a->sin_port = htons(port);
}

/* ---- opening and closing ---- */

static int grl_bind(gra_link *link, unsigned short local_port) {
    struct sockaddr_in a;
    grl_socklen a_len = (grl_socklen)sizeof a;
    gra_link_socket s = (gra_link_socket)socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (s == GRL_BAD_SOCKET) return GRA_LINK_E_SOCKET;
    if (local_port != 0) grl_claim_exclusively(s);
    grl_loopback(&a, local_port);
    if (bind(s, (struct sockaddr *)&a, (grl_socklen)sizeof a) != 0 ||
        getsockname(s, (struct sockaddr *)&a, &a_len) != 0 ||
        !grl_set_nonblocking(s)) {
        grl_close_socket(s);
        return GRA_LINK_E_SOCKET;
    }
    grl_quiet_connection_resets(s);
    link->sock = s;
    link->local_port = ntohs(a.sin_port);
    link->preferred = link->local_port == GRA_LINK_GAME_PORT;
    link->is_open = 1;
    return GRA_LINK_OK;
}

static int grl_start(gra_link *link, unsigned short host_port) {
    if (!link) return GRA_LINK_E_INVALID;
    memset(link, 0, sizeof *link);
    link->sock = GRL_BAD_SOCKET;
    link->host_port = host_port ? host_port : (unsigned short)GRA_LINK_HOST_PORT;
#if defined(_WIN32)
    {
        WSADATA wsa;
        if (WSAStartup(MAKEWORD(2, 2), &wsa) != 0) return GRA_LINK_E_SOCKET;
    }
#endif
    return GRA_LINK_OK;
}

/* Gives back the Winsock reference of grl_start when opening failed. */
static int grl_finish(int result) {
#if defined(_WIN32)
    if (result != GRA_LINK_OK) WSACleanup();
#endif
    return result;
}

int gra_link_open_port(gra_link *link, unsigned short host_port,
                       unsigned short local_port) {
    int r = grl_start(link, host_port);
    if (r != GRA_LINK_OK) return r;
    return grl_finish(grl_bind(link, local_port));
}

int gra_link_open(gra_link *link, unsigned short host_port) {
    int r = grl_start(link, host_port);
    if (r != GRA_LINK_OK) return r;
    r = grl_bind(link, GRA_LINK_GAME_PORT);
    if (r != GRA_LINK_OK) r = grl_bind(link, 0); /* 47630 is taken */
    return grl_finish(r);
}

void gra_link_close(gra_link *link) {
    if (!link || !link->is_open) return;
    grl_close_socket(link->sock);
    link->sock = GRL_BAD_SOCKET;
    link->is_open = 0;
#if defined(_WIN32)
    WSACleanup();
#endif
}

/* ---- JSON ---- */

size_t gra_link_json_string(const char *text, size_t len, char *out, size_t out_size) {
    static const char hex[] = "0123456789abcdef";
    size_t need = 0, i;
    char piece[6];
    if (!text) len = 0;
#define GRL_PUT(c)                                 \
    do {                                                 \
        if (out && need + 1 < out_size) out[need] = (c); \
        need++;                                          \
    } while (0)
    GRL_PUT('"');
    for (i = 0; i < len; i++) {
        unsigned char c = (unsigned char)text[i];
        size_t n = 0, k;
        if (c == '"' || c == '\\') {
            piece[n++] = '\\';
            piece[n++] = (char)c;
        } else if (c < 0x20) {
            const char *short_form = c == '\b' ? "b" : c == '\f' ? "f" : c == '\n' ? "n"
                                  : c == '\r' ? "r" : c == '\t' ? "t" : NULL;
            piece[n++] = '\\';
            if (short_form) {
                piece[n++] = short_form[0];
            } else {
                piece[n++] = 'u';
                piece[n++] = '0';
                piece[n++] = '0';
                piece[n++] = hex[c >> 4];
                piece[n++] = hex[c & 15];
            }
        } else {
            piece[n++] = (char)c;
        }
        for (k = 0; k < n; k++) GRL_PUT(piece[k]);
    }
    GRL_PUT('"');
#undef GRL_PUT
    if (out && out_size > 0) out[need < out_size ? need : out_size - 1] = '\0';
    return need;
}

/* A small recursive-descent checker: it accepts exactly the JSON grammar
 * and builds nothing. Nesting deeper than 256 levels is refused so that a
 * hostile argument cannot exhaust the stack. */
typedef struct grl_json {
    const unsigned char *p, *end;
    int depth;
} grl_json;

static int grl_json_value(grl_json *j);

static void grl_json_space(grl_json *j) {
    while (j->p < j->end && (*j->p == ' ' || *j->p == '\t' || *j->p == '\n' || *j->p == '\r'))
        j->p++;
}

static int grl_json_take(grl_json *j, char c) {
    if (j->p < j->end && *j->p == (unsigned char)c) {
        j->p++;
        return 1;
    }
    return 0;
}

static int grl_json_digits(grl_json *j) {
    const unsigned char *start = j->p;
    while (j->p < j->end && *j->p >= '0' && *j->p <= '9') j->p++;
    return j->p > start;
}

static int grl_json_number(grl_json *j) {
    grl_json_take(j, '-');
    if (!grl_json_take(j, '0') && !grl_json_digits(j)) return 0;
    if (grl_json_take(j, '.') && !grl_json_digits(j)) return 0;
    if (grl_json_take(j, 'e') || grl_json_take(j, 'E')) {
        if (!grl_json_take(j, '+')) grl_json_take(j, '-');
        if (!grl_json_digits(j)) return 0;
    }
    return 1;
}

static int grl_json_hex4(grl_json *j) {
    int i;
    for (i = 0; i < 4; i++, j->p++) {
        unsigned char c;
        if (j->p >= j->end) return 0;
        c = *j->p;
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')))
            return 0;
    }
    return 1;
}

static int grl_json_string(grl_json *j) {
    if (!grl_json_take(j, '"')) return 0;
    while (j->p < j->end) {
        unsigned char c = *j->p++;
        if (c == '"') return 1;
        if (c < 0x20) return 0;
        if (c == '\\') {
            if (j->p >= j->end) return 0;
            c = *j->p++;
            if (c == 'u') {
                if (!grl_json_hex4(j)) return 0;
            } else if (!strchr("\"\\/bfnrt", c) || c == '\0') {
                return 0;
            }
        }
    }
    return 0;
}

static int grl_json_word(grl_json *j, const char *word) {
    size_t n = strlen(word);
    if ((size_t)(j->end - j->p) < n || memcmp(j->p, word, n) != 0) return 0;
    j->p += n;
    return 1;
}

/* Object and array share their shape: open, members separated by commas,
 * close; an object member is a string, a colon and a value. */
static int grl_json_container(grl_json *j, char close, int object) {
    int ok = 1;
    if (++j->depth > 256) return 0;
    grl_json_space(j);
    if (!grl_json_take(j, close)) {
        do {
            grl_json_space(j);
            if (object) {
                ok = grl_json_string(j);
                grl_json_space(j);
                ok = ok && grl_json_take(j, ':');
            }
            ok = ok && grl_json_value(j);
            grl_json_space(j);
        } while (ok && grl_json_take(j, ','));
        ok = ok && grl_json_take(j, close);
    }
    j->depth--;
    return ok;
}

static int grl_json_value(grl_json *j) {
    grl_json_space(j);
    if (j->p >= j->end) return 0;
    switch (*j->p) {
    case '{': j->p++; return grl_json_container(j, '}', 1);
    case '[': j->p++; return grl_json_container(j, ']', 0);
    case '"': return grl_json_string(j);
    case 't': return grl_json_word(j, "true");
    case 'f': return grl_json_word(j, "false");
    case 'n': return grl_json_word(j, "null");
    default: return grl_json_number(j);
    }
}

int gra_link_json_valid(const char *text, size_t len) {
    grl_json j;
    if (!text) return 0;
    j.p = (const unsigned char *)text;
    j.end = j.p + len;
    j.depth = 0;
    if (!grl_json_value(&j)) return 0;
    grl_json_space(&j);
    return j.p == j.end;
}

/* ---- sending ---- */

static int grl_known_command(const char *cmd) {
    size_t i;
    for (i = 0; i < sizeof grl_commands / sizeof grl_commands[0]; i++)
        if (strcmp(cmd, grl_commands[i]) == 0) return 1;
    return 0;
}

static int grl_is_word(const char *arg, size_t len, const char *word) {
    return len == strlen(word) && memcmp(arg, word, len) == 0;
}

/* Everything the program would drop or misread is refused here. */
static int grl_check(const gra_link *link, const char *cmd, const char *arg,
                           size_t len) {
    if (!link || !link->is_open || !cmd || (!arg && len)) return GRA_LINK_E_INVALID;
    if (!grl_known_command(cmd)) return GRA_LINK_E_COMMAND;
    if (len && memchr(arg, '\0', len)) return GRA_LINK_E_ZERO_BYTE;
    if (len > GRA_LINK_MAX_DATAGRAM ||
        sizeof grl_magic + strlen(cmd) + (len ? 1 + len : 0) > GRA_LINK_MAX_DATAGRAM)
        return GRA_LINK_E_TOO_LONG;
    if ((strcmp(cmd, "note") == 0 || strcmp(cmd, "page") == 0) &&
        !gra_link_json_valid(arg, len))
        return GRA_LINK_E_JSON;
    if (strcmp(cmd, "window") == 0 && !grl_is_word(arg, len, "borderless") &&
        !grl_is_word(arg, len, "framed"))
        return GRA_LINK_E_WINDOW;
    return GRA_LINK_OK;
}

int gra_link_send(gra_link *link, const char *cmd, const char *arg, size_t len) {
    char small[512];
    char *buf = small;
    size_t cmd_len, total;
    struct sockaddr_in to;
    int r = grl_check(link, cmd, arg, len), sent;
    if (r != GRA_LINK_OK) return r;
    cmd_len = strlen(cmd);
    total = sizeof grl_magic + cmd_len + (len ? 1 + len : 0);
    if (total > sizeof small && !(buf = (char *)malloc(total))) return GRA_LINK_E_MEMORY;
    memcpy(buf, grl_magic, sizeof grl_magic);
    memcpy(buf + sizeof grl_magic, cmd, cmd_len);
    if (len) {
        buf[sizeof grl_magic + cmd_len] = ' ';
        memcpy(buf + sizeof grl_magic + cmd_len + 1, arg, len);
    }
    grl_loopback(&to, link->host_port);
    sent = (int)sendto(link->sock, buf, (grl_buflen)total, 0, (const struct sockaddr *)&to,
                       (grl_socklen)sizeof to);
    if (buf != small) free(buf);
    return sent == (int)total ? GRA_LINK_OK : GRA_LINK_E_SEND;
}

static size_t grl_length(const char *text) { return text ? strlen(text) : 0; }

int gra_link_show_n(gra_link *link, const char *pad, size_t len) {
    return gra_link_send(link, "show", pad, len);
}
int gra_link_show(gra_link *link, const char *pad) {
    return gra_link_show_n(link, pad, grl_length(pad));
}
int gra_link_hide(gra_link *link) { return gra_link_send(link, "hide", NULL, 0); }
int gra_link_toggle_n(gra_link *link, const char *pad, size_t len) {
    return gra_link_send(link, "toggle", pad, len);
}
int gra_link_toggle(gra_link *link, const char *pad) {
    return gra_link_toggle_n(link, pad, grl_length(pad));
}
int gra_link_note_n(gra_link *link, const char *json_value, size_t len) {
    return gra_link_send(link, "note", json_value, len);
}
int gra_link_note(gra_link *link, const char *json_value) {
    return gra_link_note_n(link, json_value, grl_length(json_value));
}
int gra_link_page_n(gra_link *link, const char *json, size_t len) {
    return gra_link_send(link, "page", json, len);
}
int gra_link_page(gra_link *link, const char *json) {
    return gra_link_page_n(link, json, grl_length(json));
}
int gra_link_reload(gra_link *link) { return gra_link_send(link, "reload", NULL, 0); }
int gra_link_state(gra_link *link) { return gra_link_send(link, "state", NULL, 0); }
int gra_link_window(gra_link *link, int borderless) {
    /* Only the exact word "borderless" means borderless to the program. */
    const char *arg = borderless ? "borderless" : "framed";
    return gra_link_send(link, "window", arg, strlen(arg));
}
int gra_link_bye(gra_link *link) { return gra_link_send(link, "bye", NULL, 0); }

int gra_link_note_text_n(gra_link *link, const char *utf8, size_t len) {
    char small[512];
    char *json = small;
    size_t need = gra_link_json_string(utf8, len, NULL, 0);
    int r;
    if (need > GRA_LINK_MAX_DATAGRAM) return GRA_LINK_E_TOO_LONG;
    if (need >= sizeof small && !(json = (char *)malloc(need + 1))) return GRA_LINK_E_MEMORY;
    gra_link_json_string(utf8, len, json, need + 1);
    r = gra_link_note_n(link, json, need);
    if (json != small) free(json);
    return r;
}
int gra_link_note_text(gra_link *link, const char *utf8) {
    return gra_link_note_text_n(link, utf8, grl_length(utf8));
}

/* ---- receiving ---- */

static void grl_copy(char *to, const char *from, size_t len) {
    memcpy(to, from, len);
    to[len] = '\0';
}

static void grl_classify(gra_link_report *r, size_t len) {
    static const char state[] = "state ", game[] = "game ";
    int m;
    for (m = GRA_LINK_MODE_HIDDEN; m <= GRA_LINK_MODE_ACTIVE; m++) {
        if (strncmp(r->text, state, sizeof state - 1) == 0 &&
            strcmp(r->text + sizeof state - 1, gra_link_mode_name(m)) == 0) {
            r->kind = GRA_LINK_REPORT_STATE;
            r->mode = m;
            return;
        }
    }
    if (strcmp(r->text, "modal on") == 0 || strcmp(r->text, "modal off") == 0) {
        r->kind = GRA_LINK_REPORT_MODAL;
        r->modal_on = r->text[7] == 'n';
        return;
    }
    for (m = GRA_LINK_WARN_ELEVATED; m <= GRA_LINK_WARN_WINDOWED; m++) {
        static const char *const warnings[] = {"warn elevated", "warn fullscreen", "warn windowed"};
        if (strcmp(r->text, warnings[m - GRA_LINK_WARN_ELEVATED]) == 0) {
            r->kind = GRA_LINK_REPORT_WARN;
            r->warning = m;
            return;
        }
    }
    if (len > sizeof game - 1 && memcmp(r->text, game, sizeof game - 1) == 0) {
        const char *cmd = r->text + sizeof game - 1;
        const char *space = strchr(cmd, ' ');
        size_t cmd_len = space ? (size_t)(space - cmd) : strlen(cmd);
        size_t arg_len = space ? strlen(space + 1) : 0;
        if (cmd_len > 0 && cmd_len < sizeof r->cmd && arg_len < sizeof r->arg) {
            grl_copy(r->cmd, cmd, cmd_len);
            grl_copy(r->arg, space ? space + 1 : "", arg_len);
            r->kind = GRA_LINK_REPORT_GAME;
            return;
        }
    }
    r->kind = GRA_LINK_REPORT_OTHER;
}

int gra_link_parse_report(const char *data, size_t len, gra_link_report *report) {
    const char *zero;
    if (!data || !report || len < sizeof grl_magic ||
        memcmp(data, grl_magic, sizeof grl_magic) != 0)
        return 0;
    /* Like the program, read the text only up to a zero byte. */
    if ((zero = (const char *)memchr(data, '\0', len)) != NULL) len = (size_t)(zero - data);
    len -= sizeof grl_magic;
    if (len > GRA_LINK_REPORT_MAX) return 0;
    memset(report, 0, sizeof *report);
    report->mode = -1;
    grl_copy(report->text, data + sizeof grl_magic, len);
    grl_classify(report, len);
    return 1;
}

int gra_link_poll(gra_link *link, gra_link_report *report) {
    /* One byte more than the longest accepted datagram, so that a longer
     * one shows itself by filling the buffer. */
    char buf[sizeof grl_magic + GRA_LINK_REPORT_MAX + 1];
    if (!link || !link->is_open || !report) return GRA_LINK_E_INVALID;
    for (;;) {
        struct sockaddr_in from;
        grl_socklen from_len = (grl_socklen)sizeof from;
        int n = (int)recvfrom(link->sock, buf, (grl_buflen)sizeof buf, 0, (struct sockaddr *)&from,
                              &from_len);
        if (n < 0) {
            if (grl_would_block()) return 0;
            if (grl_skippable_receive_error()) continue;
            return GRA_LINK_E_RECEIVE;
        }
        if ((size_t)n >= sizeof buf) continue;
        if (from.sin_addr.s_addr != htonl(INADDR_LOOPBACK) ||
            from.sin_port != htons(link->host_port))
            continue; /* not the program */
        if (gra_link_parse_report(buf, (size_t)n, report)) return 1;
    }
}

int gra_link_wait(gra_link *link, int timeout_ms) {
    int n;
    if (!link || !link->is_open) return GRA_LINK_E_INVALID;
#if defined(_WIN32)
    {
        fd_set readable;
        struct timeval tv;
        FD_ZERO(&readable);
        FD_SET((SOCKET)link->sock, &readable);
        tv.tv_sec = timeout_ms / 1000;
        tv.tv_usec = (timeout_ms % 1000) * 1000;
        n = select(0, &readable, NULL, NULL, timeout_ms < 0 ? NULL : &tv);
    }
#else
    {
        struct pollfd p;
        p.fd = link->sock;
        p.events = POLLIN;
        p.revents = 0;
        n = poll(&p, 1, timeout_ms < 0 ? -1 : timeout_ms);
        if (n < 0 && errno == EINTR) return 0; /* a signal: the caller decides */
    }
#endif
    if (n > 0) return 1;
    return n == 0 ? 0 : GRA_LINK_E_RECEIVE;
}

int gra_link_next_report(gra_link *link, gra_link_report *report, int timeout_ms) {
    unsigned long start = grl_now_ms();
    for (;;) {
        int left = timeout_ms, r = gra_link_poll(link, report);
        if (r != 0) return r;
        if (timeout_ms >= 0) {
            unsigned long spent = grl_now_ms() - start;
            if (spent >= (unsigned long)timeout_ms) return 0;
            left = timeout_ms - (int)spent;
        }
        r = gra_link_wait(link, left);
        if (r < 0) return r;
    }
}

int gra_link_wait_ready(gra_link *link, int timeout_ms, int *mode) {
    unsigned long start = grl_now_ms();
    gra_link_report report;
    if (!link || !link->is_open) return GRA_LINK_E_INVALID;
    for (;;) {
        int slice = 250;
        if (timeout_ms >= 0) {
            unsigned long spent = grl_now_ms() - start;
            if (spent >= (unsigned long)timeout_ms) return 0;
            if ((unsigned long)timeout_ms - spent < (unsigned long)slice)
                slice = (int)((unsigned long)timeout_ms - spent);
        }
        /* A failed send or receive is taken as "not yet": the program may
         * still be starting, and the next round asks again. */
        (void)gra_link_state(link);
        while (gra_link_next_report(link, &report, slice) == 1) {
            if (report.kind == GRA_LINK_REPORT_STATE) {
                if (mode) *mode = report.mode;
                return 1;
            }
        }
    }
}

/* ---- starting the program ---- */

/* Appends to a text that is being measured and, while there is room,
 * written (the shape of snprintf). */
typedef struct grl_text {
    char *out;
    size_t size, need;
} grl_text;

static void grl_put(grl_text *t, char c) {
    if (t->out && t->need + 1 < t->size) t->out[t->need] = c;
    t->need++;
}

static void grl_put_many(grl_text *t, char c, size_t count) {
    while (count--) grl_put(t, c);
}

static void grl_end(grl_text *t) {
    if (t->out && t->size > 0) t->out[t->need < t->size ? t->need : t->size - 1] = '\0';
}

static void grl_put_quoted(grl_text *t, const char *arg) {
    size_t backslashes = 0;
    const char *p;
    if (*arg && !strpbrk(arg, " \t\n\v\"")) {
        for (p = arg; *p; p++) grl_put(t, *p);
        return;
    }
    grl_put(t, '"');
    for (p = arg; *p; p++) {
        if (*p == '\\') {
            backslashes++;
            continue;
        }
        /* Backslashes count only before a quotation mark: there each one
         * is doubled, and one more escapes the mark itself. */
        grl_put_many(t, '\\', *p == '"' ? 2 * backslashes + 1 : backslashes);
        grl_put(t, *p);
        backslashes = 0;
    }
    grl_put_many(t, '\\', 2 * backslashes); /* they come before the closing mark */
    grl_put(t, '"');
}

size_t gra_link_quote_argument(const char *arg, char *out, size_t out_size) {
    grl_text t;
    t.out = out;
    t.size = out_size;
    t.need = 0;
    grl_put_quoted(&t, arg ? arg : "");
    grl_end(&t);
    return t.need;
}

static void grl_put_option(grl_text *t, const char *name, const char *value) {
    const char *p;
    if (!value) return;
    grl_put(t, ' ');
    for (p = name; *p; p++) grl_put(t, *p);
    grl_put(t, ' ');
    grl_put_quoted(t, value);
}

size_t gra_link_command_line(const gra_link_launch_options *o, char *out, size_t out_size) {
    grl_text t;
    char port[8] = "";
    const char *p;
    if (out && out_size > 0) out[0] = '\0';
    if (!o || !o->program || !*o->program || strchr(o->program, '"')) return 0;
    t.out = out;
    t.size = out_size;
    t.need = 0;
    /* The program's own name is split by another rule: everything up to the
     * next quotation mark, backslashes included, so it is quoted as it is. */
    grl_put(&t, '"');
    for (p = o->program; *p; p++) grl_put(&t, *p);
    grl_put(&t, '"');
    if (o->port) {
        unsigned v = o->port, n = 0;
        char digits[8];
        do {
            digits[n++] = (char)('0' + v % 10);
            v /= 10;
        } while (v);
        for (v = 0; v < n; v++) port[v] = digits[n - 1 - v];
        port[n] = '\0';
    }
    grl_put_option(&t, "--web", o->web);
    grl_put_option(&t, "--doc", o->doc);
    grl_put_option(&t, "--port", o->port ? port : NULL);
    grl_put_option(&t, "--game", o->game);
    grl_put_option(&t, "--game-class", o->game_class);
    grl_put_option(&t, "--mode", o->mode);
    grl_put_option(&t, "--log", o->log);
    grl_put_option(&t, "--data", o->data);
    if (o->show) {
        for (p = " --show"; *p; p++) grl_put(&t, *p);
    }
    grl_end(&t);
    return t.need;
}

#if defined(_WIN32)
/* UTF-8 to a new UTF-16 text (free it), or NULL when it is not UTF-8, too
 * long for Windows' 32-bit lengths, or there is no memory. */
static wchar_t *grl_widen(const char *utf8, size_t len, int *chars) {
    wchar_t *wide;
    int n;
    if (len > 0x7fffffff) return NULL;
    n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, (int)len, NULL, 0);
    if (n <= 0 && len > 0) return NULL;
    if (!(wide = (wchar_t *)malloc(((size_t)n + 1) * sizeof *wide))) return NULL;
    if (n > 0 && MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, (int)len, wide, n) != n) {
        free(wide);
        return NULL;
    }
    wide[n] = L'\0';
    *chars = n;
    return wide;
}

static int grl_create_process(wchar_t *program, wchar_t *line, gra_link_process *process) {
    STARTUPINFOW startup;
    PROCESS_INFORMATION info;
    memset(&startup, 0, sizeof startup);
    startup.cb = sizeof startup;
    if (!CreateProcessW(program, line, NULL, NULL, FALSE, 0, NULL, NULL, &startup, &info)) {
        process->error = GetLastError();
        return GRA_LINK_E_LAUNCH;
    }
    CloseHandle(info.hThread);
    process->handle = info.hProcess;
    process->id = info.dwProcessId;
    return GRA_LINK_OK;
}

int gra_link_launch(const gra_link_launch_options *options, gra_link_process *process) {
    size_t need = gra_link_command_line(options, NULL, 0);
    char *line = NULL;
    wchar_t *wide_line = NULL, *wide_program = NULL;
    int line_chars = 0, program_chars = 0, r;
    if (!process) return GRA_LINK_E_INVALID;
    memset(process, 0, sizeof *process);
    if (need == 0) return GRA_LINK_E_INVALID;
    if (!(line = (char *)malloc(need + 1))) return GRA_LINK_E_MEMORY;
    gra_link_command_line(options, line, need + 1);
    wide_line = grl_widen(line, need, &line_chars);
    wide_program = grl_widen(options->program, strlen(options->program), &program_chars);
    if (!wide_line || !wide_program)
        r = GRA_LINK_E_INVALID;
    else if (line_chars > 32767 - 1) /* the limit counts the terminating zero */
        r = GRA_LINK_E_TOO_LONG;
    else
        r = grl_create_process(wide_program, wide_line, process);
    free(wide_program);
    free(wide_line);
    free(line);
    return r;
}
#endif

/* ---- names ---- */

const char *gra_link_error_text(int code) {
    switch (code) {
    case GRA_LINK_OK: return "ok";
    case GRA_LINK_E_INVALID: return "invalid argument or link not open";
    case GRA_LINK_E_ZERO_BYTE: return "the argument holds a zero byte";
    case GRA_LINK_E_TOO_LONG: return "the datagram would be longer than 65507 bytes";
    case GRA_LINK_E_JSON: return "the argument is not valid JSON";
    case GRA_LINK_E_COMMAND: return "unknown command";
    case GRA_LINK_E_SOCKET: return "the UDP socket could not be opened";
    case GRA_LINK_E_SEND: return "the datagram could not be sent";
    case GRA_LINK_E_RECEIVE: return "receiving failed";
    case GRA_LINK_E_MEMORY: return "out of memory";
    case GRA_LINK_E_WINDOW: return "the window argument must be \"borderless\" or \"framed\"";
    case GRA_LINK_E_LAUNCH: return "the program could not be started";
    default: return "unknown error";
    }
}

const char *gra_link_mode_name(int mode) {
    switch (mode) {
    case GRA_LINK_MODE_HIDDEN: return "hidden";
    case GRA_LINK_MODE_PASSIVE: return "passive";
    case GRA_LINK_MODE_ACTIVE: return "active";
    default: return "?";
    }
}

#ifdef __cplusplus
}
#endif

#endif /* GRA_LINK_IMPLEMENTATION */
