// The benchmark's floor: the least a program of this kind does. One UDP
// socket on 127.0.0.1 with WSAAsyncSelect to a hidden window, a 100 ms timer
// that does nothing, and an answer to "GRAO state"; nothing else. Its figures
// beside the program's show what the program costs beyond the bare minimum.
//
//   floor.exe --port N
#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <cwchar>

namespace {

const UINT socketMessage = WM_APP + 1;
SOCKET link = INVALID_SOCKET;
char buffer[65536];

void answerWaitingDatagrams() {
    for (;;) {
        sockaddr_in sender{};
        int senderLength = sizeof sender;
        int got = recvfrom(link, buffer, 65535, 0, reinterpret_cast<sockaddr*>(&sender), &senderLength);
        if (got <= 0) return;
        if (got == 10 && std::memcmp(buffer, "GRAO state", 10) == 0) {
            sendto(link, "GRAO state hidden", 17, 0, reinterpret_cast<const sockaddr*>(&sender), sizeof sender);
        }
    }
}

LRESULT CALLBACK floorWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == socketMessage) {
        answerWaitingDatagrams();
        return 0;
    }
    if (message == WM_TIMER) return 0;
    return DefWindowProcW(window, message, wParam, lParam);
}

int portFrom(const wchar_t* commandLine) {
    const wchar_t* option = std::wcsstr(commandLine, L"--port ");
    return option ? _wtoi(option + 7) : 47632;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR commandLine, int) {
    WSADATA data;
    WSAStartup(0x0202, &data);
    link = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<u_short>(portFrom(commandLine)));
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(link, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) return 1;
    int room = 0x400000;
    setsockopt(link, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&room), sizeof room);

    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = floorWindowProc;
    windowClass.hInstance = instance;
    windowClass.lpszClassName = L"GRAFloor";
    RegisterClassW(&windowClass);
    HWND window = CreateWindowExW(0, L"GRAFloor", L"floor", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, instance,
                                  nullptr);
    WSAAsyncSelect(link, window, socketMessage, FD_READ);
    SetTimer(window, 1, 100, nullptr);

    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    closesocket(link);
    WSACleanup();
    return 0;
}
