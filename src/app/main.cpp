// The GUI entry point: everything else lives in the gra_core library.
#include <windows.h>

#include "app/startup.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
    return runHost(instance);
}
