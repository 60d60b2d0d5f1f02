/* gra-send: drives the gra-overlay program from a shell over its game link.
 *
 *   gra-send [options] show "Wave 3"     gra-send state
 *   gra-send [options] note-text "hi"    gra-send listen
 *
 * Built on gra_link.h, for Linux and for Windows. Exit status: 0 done,
 * 1 no state report in time, 2 bad command line, 3 refused or socket error.
 */
#define GRA_LINK_IMPLEMENTATION
#include "gra_link.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#if defined(_WIN32)
#include <windows.h>
#include <shellapi.h>
#endif

enum { EXIT_DONE = 0, EXIT_NO_ANSWER = 1, EXIT_USAGE = 2, EXIT_REFUSED = 3 };
/* parse_command_line's answer when the usage was asked for and printed. */
enum { HELP_GIVEN = -1 };

static const char usage_text[] =
    "usage: gra-send [options] COMMAND [TEXT...]\n"
    "commands:\n"
    "  show [TEXT]               show the overlay, with an optional pad text\n"
    "  hide                      ask the page to close\n"
    "  toggle [TEXT]             hide when active, else show\n"
    "  note JSON                 pass a JSON value to the page as a note\n"
    "  note-text TEXT            pass plain text as a note (made a JSON string)\n"
    "  page JSON                 pass a whole JSON message to the page\n"
    "  reload                    reload the page\n"
    "  state                     print the program's state report\n"
    "  window borderless|framed  make the game window borderless, or framed again\n"
    "  bye                       end the program\n"
    "  listen                    ask for the state, then print every report\n"
    "                            until interrupted\n"
    "options (before the command):\n"
    "  --port N    the program's UDP port (default 47632)\n"
    "  --from N    send from local port N, 0 for any free one\n"
    "              (default: 47630 when free, else any)\n"
    "  --wait MS   how long 'state' waits for the report (default 2000)\n"
    "  --count N   'listen' ends after N reports\n"
    "  --verbose   tell which local port was bound\n"
    "  --help      print this text and end\n"
    "Several TEXT words are joined with single spaces.\n";

typedef struct options {
    unsigned short host_port;
    int from; /* -1: 47630 when free, else any */
    int wait_ms;
    long count; /* 0: no limit */
    int verbose;
    const char *command;
    char *text; /* the TEXT words joined, or NULL */
} options;

static int usage(const char *complaint) {
    if (complaint) fprintf(stderr, "gra-send: %s\n", complaint);
    fputs(usage_text, stderr);
    return EXIT_USAGE;
}

/* Reads a whole decimal number within [low, high]; 0 when it is not one. */
static int parse_number(const char *s, long low, long high, long *out) {
    char *end = NULL;
    long v;
    if (!s || !*s) return 0;
    v = strtol(s, &end, 10);
    if (*end != '\0' || v < low || v > high) return 0;
    *out = v;
    return 1;
}

static char *join_words(int count, char **words) {
    size_t size = 1;
    int i;
    char *joined;
    for (i = 0; i < count; i++) size += strlen(words[i]) + 1;
    joined = (char *)malloc(size);
    if (!joined) return NULL;
    joined[0] = '\0';
    for (i = 0; i < count; i++) {
        if (i) strcat(joined, " ");
        strcat(joined, words[i]);
    }
    return joined;
}

static int take_option(options *o, int argc, char **argv, int *i) {
    const char *name = argv[*i];
    long v = 0;
    if (strcmp(name, "--verbose") == 0) {
        o->verbose = 1;
        return 1;
    }
    if (*i + 1 >= argc) return 0;
    if (strcmp(name, "--port") == 0 && parse_number(argv[*i + 1], 1, 65535, &v))
        o->host_port = (unsigned short)v;
    else if (strcmp(name, "--from") == 0 && parse_number(argv[*i + 1], 0, 65535, &v))
        o->from = (int)v;
    else if (strcmp(name, "--wait") == 0 && parse_number(argv[*i + 1], 0, 3600000, &v))
        o->wait_ms = (int)v;
    else if (strcmp(name, "--count") == 0 && parse_number(argv[*i + 1], 1, 1000000000, &v))
        o->count = v;
    else
        return 0;
    ++*i;
    return 1;
}

/* Options come first; the first other word is the command, and all words
 * after it are its text, so a text may itself begin with "--". */
static int parse_command_line(options *o, int argc, char **argv) {
    int i;
    memset(o, 0, sizeof *o);
    o->host_port = GRA_LINK_HOST_PORT;
    o->from = -1;
    o->wait_ms = 2000;
    for (i = 1; i < argc && strncmp(argv[i], "--", 2) == 0; i++) {
        if (strcmp(argv[i], "--help") == 0) {
            fputs(usage_text, stdout);
            return HELP_GIVEN;
        }
        if (!take_option(o, argc, argv, &i)) return usage("bad option or value");
    }
    if (i < argc && strcmp(argv[i], "-h") == 0) {
        fputs(usage_text, stdout);
        return HELP_GIVEN;
    }
    if (i >= argc) return usage("no command given");
    o->command = argv[i++];
    if (i < argc && !(o->text = join_words(argc - i, argv + i))) return EXIT_REFUSED;
    return EXIT_DONE;
}

static int refused(int code) {
    fprintf(stderr, "gra-send: %s\n", gra_link_error_text(code));
    return EXIT_REFUSED;
}

static void print_report(const gra_link_report *r) {
    printf("%s\n", r->text);
    fflush(stdout);
}

static int wait_for_state(gra_link *link, int wait_ms) {
    gra_link_report report;
    int r = gra_link_state(link);
    if (r != GRA_LINK_OK) return refused(r);
    /* Other reports may come first (a page's "game" text, say); the answer
     * is the first state report. */
    while ((r = gra_link_next_report(link, &report, wait_ms)) > 0) {
        if (report.kind == GRA_LINK_REPORT_STATE) {
            print_report(&report);
            return EXIT_DONE;
        }
    }
    if (r < 0) return refused(r);
    fprintf(stderr, "gra-send: no state report from 127.0.0.1:%u within %d ms\n",
            (unsigned)link->host_port, wait_ms);
    return EXIT_NO_ANSWER;
}

/* The program answers only the address that last wrote to it (or the game
 * on port 47630), so listening starts by asking for the state. */
static int listen_for_reports(gra_link *link, long count) {
    gra_link_report report;
    long seen = 0;
    int r = gra_link_state(link);
    if (r != GRA_LINK_OK) return refused(r);
    fprintf(stderr, "gra-send: listening on 127.0.0.1:%u to 127.0.0.1:%u%s\n",
            (unsigned)link->local_port, (unsigned)link->host_port,
            link->preferred ? "" : " (47630 is taken: replies come here only until "
                                   "the program hears from port 47630)");
    while (count == 0 || seen < count) {
        r = gra_link_next_report(link, &report, -1);
        if (r < 0) return refused(r);
        if (r > 0) {
            print_report(&report);
            seen++;
        }
    }
    return EXIT_DONE;
}

static int send_command(gra_link *link, const options *o) {
    const char *c = o->command, *t = o->text;
    size_t len = t ? strlen(t) : 0;
    int r;
    if (strcmp(c, "note-text") == 0) {
        r = gra_link_note_text_n(link, t ? t : "", len);
    } else if (strcmp(c, "window") == 0) {
        if (!t || (strcmp(t, "borderless") != 0 && strcmp(t, "framed") != 0))
            return usage("window takes borderless or framed");
        r = gra_link_window(link, strcmp(t, "borderless") == 0);
    } else if ((strcmp(c, "note") == 0 || strcmp(c, "page") == 0) && !t) {
        return usage("note and page take a JSON text");
    } else {
        r = gra_link_send(link, c, t, len);
    }
    if (r == GRA_LINK_E_COMMAND) return usage("unknown command");
    return r == GRA_LINK_OK ? EXIT_DONE : refused(r);
}

static int run(int argc, char **argv) {
    options o;
    gra_link link;
    int r = parse_command_line(&o, argc, argv);
    if (r == HELP_GIVEN) return EXIT_DONE;
    if (r != EXIT_DONE) return r;
    r = o.from < 0 ? gra_link_open(&link, o.host_port)
                   : gra_link_open_port(&link, o.host_port, (unsigned short)o.from);
    if (r != GRA_LINK_OK) {
        free(o.text);
        return refused(r);
    }
    if (o.verbose)
        fprintf(stderr, "gra-send: sending from 127.0.0.1:%u to 127.0.0.1:%u\n",
                (unsigned)link.local_port, (unsigned)link.host_port);
    if (strcmp(o.command, "state") == 0)
        r = wait_for_state(&link, o.wait_ms);
    else if (strcmp(o.command, "listen") == 0)
        r = listen_for_reports(&link, o.count);
    else
        r = send_command(&link, &o);
    gra_link_close(&link);
    free(o.text);
    return r;
}

#if defined(_WIN32)
/* The C runtime's argv is in the ANSI code page; the link speaks UTF-8. */
static char **utf8_arguments(int *argc) {
    wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), argc);
    char **args;
    int i;
    if (!wide) return NULL;
    args = (char **)calloc((size_t)*argc + 1, sizeof *args);
    for (i = 0; args && i < *argc; i++) {
        int size = WideCharToMultiByte(CP_UTF8, 0, wide[i], -1, NULL, 0, NULL, NULL);
        args[i] = (char *)malloc(size > 0 ? (size_t)size : 1);
        if (!args[i]) return NULL;
        args[i][0] = '\0';
        if (size > 0) WideCharToMultiByte(CP_UTF8, 0, wide[i], -1, args[i], size, NULL, NULL);
    }
    LocalFree(wide);
    return args;
}

int main(void) {
    int argc = 0;
    char **argv = utf8_arguments(&argc);
    if (!argv) {
        fputs("gra-send: cannot read the command line\n", stderr);
        return EXIT_REFUSED;
    }
    SetConsoleOutputCP(CP_UTF8);
    return run(argc, argv);
}
#else
int main(int argc, char **argv) { return run(argc, argv); }
#endif
