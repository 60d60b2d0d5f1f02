// standin-game.exe: a window that the end-to-end tests use as "the game".
//
//   standin-game.exe --title T --class C --port P [--hidden] [--still]
//                    [--x X --y Y --w W --h H] [--owner HWNDHEX]
//                    [--child-process-of-browser]
//
// It shows one overlapped window (title T, class C) and brings it to the
// front itself, since Xvfb has no window manager to do so. The window shows a
// small platform game (scene.cpp), animated a few times a second, with a
// marker for a few seconds wherever it is clicked; --still keeps the picture
// from moving, for a test that wants the same pixels over time. A UDP socket on
// 127.0.0.1:P takes one command per datagram and answers each with one JSON
// datagram (see commands.cpp). The socket is serviced by WSAAsyncSelect on a
// message-only window, so the one GUI thread does everything and the control
// window never shows up among the windows that the tests look at.
//
// --child-process-of-browser makes this process stand for a browser process:
// it shows nothing itself and runs the same command line, without this flag,
// as its direct child process, waiting until that child ends. The window the
// tests see then belongs to a child process of the browser process.
#include "standin_game.h"

#include <shellapi.h>

#include <cstdio>
#include <cstdlib>

#include "scene.h"
#include "wininfo.h"

Standin standin;

namespace {

const UINT kSocketMessage = WM_APP + 1;
const wchar_t kControlClass[] = L"StandinGameControl";

// The game window draws the scene; other windows of the class (from "second")
// stay plain, erased with the class brush.
LRESULT CALLBACK gameWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INPUTLANGCHANGEREQUEST) standin.langRequests.push_back({wParam, lParam, window});
    if (window != standin.gameWindow) return DefWindowProcW(window, message, wParam, lParam);
    switch (message) {
        case WM_LBUTTONDOWN: {
            const POINT at{static_cast<short>(LOWORD(lParam)), static_cast<short>(HIWORD(lParam))};
            standin.clicks.push_back(at);
            markClick(window, at);
            break;
        }
        case WM_ERASEBKGND:
            return 1;  // the scene covers every pixel of the client area
        case WM_PAINT:
            paintScene(window);
            return 0;
        case WM_TIMER:
            if (advanceScene(window, wParam)) return 0;
            break;
        case WM_DESTROY:
            endScene(window);
            PostQuitMessage(0);
            return 0;
        default:
            break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

bool registerGameClass(const std::wstring& className) {
    WNDCLASSEXW existing{};
    existing.cbSize = sizeof existing;
    if (GetClassInfoExW(GetModuleHandleW(nullptr), className.c_str(), &existing)) return true;
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    // The scene is laid out for the client area's size, so all of it is drawn
    // again when that size changes.
    windowClass.style = CS_HREDRAW | CS_VREDRAW;
    windowClass.lpfnWndProc = gameWindowProc;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    // A green that stands out in screenshots next to the overlay's dark blue;
    // the game window itself paints its scene over it.
    windowClass.hbrBackground = CreateSolidBrush(RGB(32, 112, 48));
    windowClass.lpszClassName = className.c_str();
    return RegisterClassExW(&windowClass) != 0;
}

void replyTo(const sockaddr_in& sender, const std::string& reply) {
    sendto(standin.socket, reply.data(), static_cast<int>(reply.size()), 0,
           reinterpret_cast<const sockaddr*>(&sender), sizeof sender);
}

void carryOut(AfterReply after) {
    if (after == AfterReply::destroyGameWindow) DestroyWindow(standin.gameWindow);
    if (after == AfterReply::exitProcess) ExitProcess(0);
    if (after == AfterReply::freezeThread) Sleep(standin.freezeMilliseconds);
}

std::string trimmed(const char* data, int length) {
    std::string text(data, static_cast<size_t>(length));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
    return text;
}

// Reads every waiting datagram; each gets its reply before the next is read.
void serviceSocket() {
    static char buffer[65536];
    for (;;) {
        sockaddr_in sender{};
        int senderLength = sizeof sender;
        const int length = recvfrom(standin.socket, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender),
                                    &senderLength);
        if (length == SOCKET_ERROR) {
            if (WSAGetLastError() == WSAEMSGSIZE || WSAGetLastError() == WSAECONNRESET) continue;
            return;
        }
        AfterReply after = AfterReply::nothing;
        replyTo(sender, runCommand(trimmed(buffer, length), &after));
        carryOut(after);
    }
}

LRESULT CALLBACK controlWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kSocketMessage) {
        serviceSocket();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

bool openControlSocket(int port) {
    WSADATA wsa;
    if (WSAStartup(MAKEWORD(2, 2), &wsa) != 0) return false;
    standin.socket = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (standin.socket == INVALID_SOCKET) return false;
    // Copies started later (spawn-owned) must not keep this port bound.
    SetHandleInformation(reinterpret_cast<HANDLE>(standin.socket), HANDLE_FLAG_INHERIT, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(standin.socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return false;

    WNDCLASSEXW controlClass{};
    controlClass.cbSize = sizeof controlClass;
    controlClass.lpfnWndProc = controlWindowProc;
    controlClass.hInstance = GetModuleHandleW(nullptr);
    controlClass.lpszClassName = kControlClass;
    RegisterClassExW(&controlClass);
    HWND control = CreateWindowExW(0, kControlClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                   GetModuleHandleW(nullptr), nullptr);
    return control != nullptr && WSAAsyncSelect(standin.socket, control, kSocketMessage, FD_READ) == 0;
}

bool readInt(const wchar_t* text, int* value) {
    wchar_t* end = nullptr;
    const long parsed = std::wcstol(text, &end, 10);
    if (end == text || *end != L'\0') return false;
    *value = static_cast<int>(parsed);
    return true;
}

// Applies one option with its value; false for an unknown option or a bad value.
bool applyOption(const std::wstring& name, const wchar_t* value, StandinOptions& options) {
    if (name == L"--title") options.title = value;
    else if (name == L"--class") options.className = value;
    else if (name == L"--port") return readInt(value, &options.port);
    else if (name == L"--x") return readInt(value, &options.x);
    else if (name == L"--y") return readInt(value, &options.y);
    else if (name == L"--w") return readInt(value, &options.width);
    else if (name == L"--h") return readInt(value, &options.height);
    else if (name == L"--owner") return wininfo::parseHandle(wininfo::toUtf8(value), &options.owner);
    else return false;
    return true;
}

bool parseOptions(int argc, wchar_t** argv, StandinOptions& options) {
    for (int i = 1; i < argc; ++i) {
        const std::wstring name = argv[i];
        if (name == L"--hidden") options.hidden = true;
        else if (name == L"--still") options.still = true;
        else if (name == L"--child-process-of-browser") options.childProcessOfBrowser = true;
        else if (i + 1 >= argc || !applyOption(name, argv[++i], options)) return false;
    }
    return options.childProcessOfBrowser || (options.port > 0 && options.port < 65536);
}

// Quotes one argument so that CommandLineToArgvW gives it back unchanged.
std::wstring quoteArgument(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) return argument;
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        quoted.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        quoted += c;
    }
    quoted.append(backslashes * 2, L'\\');
    return quoted + L"\"";
}

// The browser stand-in: runs the real game as its child and ends with it.
int runAsBrowser(int argc, wchar_t** argv) {
    std::wstring arguments;
    for (int i = 1; i < argc; ++i) {
        if (std::wstring(argv[i]) == L"--child-process-of-browser") continue;
        arguments += (arguments.empty() ? L"" : L" ") + quoteArgument(argv[i]);
    }
    const DWORD childId = startCopy(arguments);
    HANDLE child = childId ? OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, childId) : nullptr;
    if (child == nullptr) return 4;
    std::printf("standin-game: browser stand-in pid %lu runs the game as pid %lu\n", GetCurrentProcessId(), childId);
    std::fflush(stdout);
    WaitForSingleObject(child, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(child, &code);
    CloseHandle(child);
    return static_cast<int>(code);
}

// Children die with this process: a job that kills its members when its last
// handle, held only here, is closed by the process's end.
HANDLE childJob() {
    static HANDLE job = nullptr;
    if (job != nullptr) return job;
    job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job) SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return job;
}

void showInFront(HWND window) {
    ShowWindow(window, SW_SHOW);
    UpdateWindow(window);
    SetForegroundWindow(window);
}

int runGame() {
    if (!openControlSocket(standin.options.port)) {
        std::fprintf(stderr, "standin-game: cannot use UDP port %d (%d)\n", standin.options.port, WSAGetLastError());
        return 3;
    }
    const StandinOptions& o = standin.options;
    const RECT place{o.x, o.y, o.x + o.width, o.y + o.height};
    standin.gameWindow = createTopLevelWindow(o.className, o.title, place, o.owner, false);
    if (standin.gameWindow == nullptr) {
        std::fprintf(stderr, "standin-game: CreateWindowExW failed (%lu)\n", GetLastError());
        return 5;
    }
    startScene(standin.gameWindow, o.still);
    if (!o.hidden) showInFront(standin.gameWindow);
    std::printf("standin-game: pid %lu window %s port %d\n", GetCurrentProcessId(),
                wininfo::handleHex(standin.gameWindow).c_str(), o.port);
    std::fflush(stdout);
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return 0;
}

}  // namespace

HWND createTopLevelWindow(const std::wstring& className, const std::wstring& title, const RECT& place, HWND owner,
                          bool visible) {
    if (!registerGameClass(className)) return nullptr;
    const DWORD style = WS_OVERLAPPEDWINDOW | (visible ? WS_VISIBLE : 0);
    return CreateWindowExW(0, className.c_str(), title.c_str(), style, place.left, place.top, place.right - place.left,
                           place.bottom - place.top, owner, nullptr, GetModuleHandleW(nullptr), nullptr);
}

DWORD startCopy(const std::wstring& arguments) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring commandLine = quoteArgument(path) + L" " + arguments;
    // The copy writes to the same log as this process.
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(path, &commandLine[0], nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                        &process)) {
        return 0;
    }
    AssignProcessToJobObject(childJob(), process.hProcess);
    ResumeThread(process.hThread);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return process.dwProcessId;
}

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argv == nullptr || !parseOptions(argc, argv, standin.options)) {
        std::fprintf(stderr, "standin-game: usage: --title T --class C --port P [--hidden] [--still]"
                             " [--x X --y Y --w W --h H]"
                             " [--owner HWNDHEX] [--child-process-of-browser]\n");
        return 2;
    }
    return standin.options.childProcessOfBrowser ? runAsBrowser(argc, argv) : runGame();
}
