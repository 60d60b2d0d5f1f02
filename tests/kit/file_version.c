/* file-version: prints the version resource of a program, one field a line:
 *   file-version PATH
 * "version a.b.c.d" (the fixed file version), then each string of the first
 * language: "ProductName ...", "FileDescription ...", "FileVersion ...",
 * "ProductVersion ...", "LegalCopyright ...". Exit status 1 without one. */
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>

static void print_utf8(const wchar_t *name, const wchar_t *value) {
    char a[512], b[1024];
    WideCharToMultiByte(CP_UTF8, 0, name, -1, a, sizeof a, NULL, NULL);
    WideCharToMultiByte(CP_UTF8, 0, value, -1, b, sizeof b, NULL, NULL);
    printf("%s %s\n", a, b);
}

static void print_strings(void *data) {
    static const wchar_t *const names[] = {L"ProductName", L"FileDescription", L"FileVersion",
                                           L"ProductVersion", L"LegalCopyright"};
    struct { WORD language, codepage; } *translation = NULL;
    UINT size = 0;
    size_t i;
    if (!VerQueryValueW(data, L"\\VarFileInfo\\Translation", (void **)&translation, &size) ||
        size < sizeof *translation)
        return;
    for (i = 0; i < sizeof names / sizeof names[0]; i++) {
        wchar_t path[128];
        wchar_t *value = NULL;
        UINT length = 0;
        swprintf(path, 128, L"\\StringFileInfo\\%04x%04x\\%ls", translation->language,
                 translation->codepage, names[i]);
        if (VerQueryValueW(data, path, (void **)&value, &length) && value) print_utf8(names[i], value);
    }
}

int wmain(int argc, wchar_t **argv) {
    DWORD ignored = 0, size;
    void *data;
    VS_FIXEDFILEINFO *fixed = NULL;
    UINT fixed_size = 0;
    if (argc != 2) return 2;
    size = GetFileVersionInfoSizeW(argv[1], &ignored);
    if (size == 0 || !(data = malloc(size))) return 1;
    if (!GetFileVersionInfoW(argv[1], 0, size, data) ||
        !VerQueryValueW(data, L"\\", (void **)&fixed, &fixed_size) || !fixed) {
        free(data);
        return 1;
    }
    printf("version %lu.%lu.%lu.%lu\n", (unsigned long)HIWORD(fixed->dwFileVersionMS),
           (unsigned long)LOWORD(fixed->dwFileVersionMS), (unsigned long)HIWORD(fixed->dwFileVersionLS),
           (unsigned long)LOWORD(fixed->dwFileVersionLS));
    print_strings(data);
    free(data);
    return 0;
}
