/* kit-launcher: starts gra-overlay.exe the way a game would, with
 * gra_link_launch, and waits with gra_link_wait_ready until it answers.
 *
 *   kit-launcher PROGRAM PORT TITLE CLASS LOG DOC DATA
 *
 * Prints "ready <mode>" once the program answered "state" (or "not ready"
 * after 30 s), then waits up to 60 s for the program to end and prints
 * "exit <code>" (or "still running", and ends it). Exit status 0 when the
 * program was ready and ended by itself. */
#define GRA_LINK_IMPLEMENTATION
#include "gra_link.h"

#include <stdio.h>
#include <stdlib.h>

static int report_launch_failure(int code, const gra_link_process *process) {
    printf("launch failed: %s (%lu)\n", gra_link_error_text(code), process->error);
    return 2;
}

static int wait_for_exit(HANDLE process) {
    DWORD code = 0;
    if (WaitForSingleObject(process, 60000) != WAIT_OBJECT_0) {
        printf("still running\n");
        TerminateProcess(process, 1);
        return 1;
    }
    GetExitCodeProcess(process, &code);
    printf("exit %lu\n", (unsigned long)code);
    return 0;
}

int main(int argc, char **argv) {
    gra_link_launch_options options;
    gra_link_process process;
    gra_link link;
    int r, mode = -1, status;
    if (argc != 8) {
        fprintf(stderr, "usage: kit-launcher PROGRAM PORT TITLE CLASS LOG DOC DATA\n");
        return 2;
    }
    memset(&options, 0, sizeof options);
    options.program = argv[1];
    options.port = (unsigned short)atoi(argv[2]);
    options.game = argv[3];
    options.game_class = argv[4];
    options.log = argv[5];
    options.doc = argv[6];
    options.data = argv[7];
    /* The C runtime's arguments are in the ANSI code page: the end-to-end
     * test gives ASCII only, so they are UTF-8 as well. */
    r = gra_link_launch(&options, &process);
    if (r != GRA_LINK_OK) return report_launch_failure(r, &process);
    r = gra_link_open_port(&link, options.port, 0);
    if (r == GRA_LINK_OK && gra_link_wait_ready(&link, 30000, &mode) == 1)
        printf("ready %s\n", gra_link_mode_name(mode));
    else
        printf("not ready\n");
    fflush(stdout);
    if (r == GRA_LINK_OK) gra_link_close(&link);
    status = wait_for_exit((HANDLE)process.handle);
    CloseHandle((HANDLE)process.handle);
    return mode >= 0 && status == 0 ? 0 : 1;
}
