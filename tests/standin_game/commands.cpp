// The stand-in game's control commands: one UTF-8 text per datagram, a word
// and its arguments separated by spaces, answered with one JSON object.
// Handles are hexadecimal (16 digits as printed, shorter forms accepted);
// other numbers are decimal or 0x hexadecimal.
//
//   ping, hwnd, info, children, owned, window <H>
//   minimize, restore, front, show, hide, move X Y, resize W H, setclient W H,
//   settitle <text>, close, exit
//   second <class> <title>, raise <H>, spawn-owned
//   post <H> <msg> <wparam> <lparam>, send <H> <msg> <wparam> <lparam>,
//   find <class> [<title>]
//   langrequests, layout <KLID>, activate <HKL>, clicks
//   freeze <seconds>: the game's thread stops pumping messages for that long
//   scene: how many frames of the game's scene were drawn, and its markers
//
// A few more let a test build window arrangements without the overlay:
//   setparent <H> <parent|0>, setowner <H> <owner|0>,
//   setstyle <H> <style> [<exstyle>], setregion <H> none | [l t r b ...],
//   setlayered <H> <colour key> <alpha> <flags>
//
// Replies: window descriptions as in wininfo.h; "hwnd" {"hwnd","pid","tid",
// "ppid"}; "info" the game window's description with "foreground", "focus"
// and "active" (the game thread's GUI state) and "layout" (its keyboard
// layout); "children"/"owned" {"windows":[...]}; "second"/"find" {"hwnd"};
// "spawn-owned" {"pid","port"}; "post" {"ok","error"}; "send" {"ok","result",
// "error"}; "langrequests" {"requests":[{"wparam","lparam","hwnd"}...]};
// "clicks" {"clicks":[[x,y]...]} (left-button presses on the game window);
// "scene" {"frames","markers","still"} (frames put on the window so far, click
// markers in the latest frame, whether it was started with --still);
// most others {"ok":true}. "close", "exit" and "freeze" reply before they act.
// Unknown commands and bad arguments are answered with {"error":"..."}.
#include "standin_game.h"

#include <tlhelp32.h>

#include <cstdint>
#include <vector>

#include "scene.h"
#include "wininfo.h"

using wininfo::handleHex;
using wininfo::jsonBool;
using wininfo::jsonString;

namespace {

const std::string kOk = "{\"ok\":true}";

std::string error(const std::string& message) { return "{\"error\":" + jsonString(message) + "}"; }

// Takes the first space-separated word off text.
std::string nextWord(std::string& text) {
    const size_t start = text.find_first_not_of(' ');
    if (start == std::string::npos) {
        text.clear();
        return std::string();
    }
    const size_t end = text.find(' ', start);
    std::string word = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const size_t rest = end == std::string::npos ? std::string::npos : text.find_first_not_of(' ', end);
    text = rest == std::string::npos ? std::string() : text.substr(rest);
    return word;
}

bool nextHandle(std::string& args, HWND* window) { return wininfo::parseHandle(nextWord(args), window); }

bool nextNumber(std::string& args, std::int64_t* value) { return wininfo::parseNumber(nextWord(args), value); }

bool nextInts(std::string& args, int* first, int* second) {
    std::int64_t a = 0, b = 0;
    if (!nextNumber(args, &a) || !nextNumber(args, &b)) return false;
    *first = static_cast<int>(a);
    *second = static_cast<int>(b);
    return true;
}

std::string hwndField(const char* name, HWND window) {
    return std::string("\"") + name + "\":\"" + handleHex(window) + "\"";
}

std::string windowList(const std::vector<HWND>& windows) {
    std::string out = "{\"windows\":[";
    for (size_t i = 0; i < windows.size(); ++i) out += (i ? "," : "") + wininfo::windowInfoJson(windows[i]);
    return out + "]}";
}

// --- about the game window ---

DWORD parentProcessId() {
    DWORD parent = 0;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ProcessID == GetCurrentProcessId()) parent = entry.th32ParentProcessID;
    }
    CloseHandle(snapshot);
    return parent;
}

std::string hwndCommand(std::string) {
    return "{" + hwndField("hwnd", standin.gameWindow) + ",\"pid\":" + std::to_string(GetCurrentProcessId()) +
           ",\"tid\":" + std::to_string(GetCurrentThreadId()) + ",\"ppid\":" + std::to_string(parentProcessId()) + "}";
}

std::string infoCommand(std::string) {
    GUITHREADINFO thread{};
    thread.cbSize = sizeof thread;
    GetGUIThreadInfo(GetCurrentThreadId(), &thread);
    return "{" + wininfo::windowInfoFields(standin.gameWindow) + "," + hwndField("foreground", GetForegroundWindow()) +
           "," + hwndField("focus", thread.hwndFocus) + "," + hwndField("active", thread.hwndActive) +
           ",\"layout\":\"" + handleHex(GetKeyboardLayout(0)) + "\"}";
}

BOOL CALLBACK collectWindow(HWND window, LPARAM list) {
    reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
    return TRUE;
}

BOOL CALLBACK collectOwnedWindow(HWND window, LPARAM list) {
    if (GetWindow(window, GW_OWNER) == standin.gameWindow) collectWindow(window, list);
    return TRUE;
}

std::string childrenCommand(std::string) {
    std::vector<HWND> windows;
    EnumChildWindows(standin.gameWindow, collectWindow, reinterpret_cast<LPARAM>(&windows));
    return windowList(windows);
}

std::string ownedCommand(std::string) {
    std::vector<HWND> windows;
    EnumWindows(collectOwnedWindow, reinterpret_cast<LPARAM>(&windows));
    return windowList(windows);
}

std::string windowCommand(std::string args) {
    HWND window = nullptr;
    if (!nextHandle(args, &window)) return error("window <HWNDHEX>");
    return wininfo::windowInfoJson(window);
}

// --- moving the game window about ---

std::string minimizeCommand(std::string) {
    ShowWindow(standin.gameWindow, SW_MINIMIZE);
    return kOk;
}

std::string restoreCommand(std::string) {
    ShowWindow(standin.gameWindow, SW_RESTORE);
    return kOk;
}

std::string frontCommand(std::string) {
    if (IsIconic(standin.gameWindow)) ShowWindow(standin.gameWindow, SW_RESTORE);
    SetForegroundWindow(standin.gameWindow);
    BringWindowToTop(standin.gameWindow);
    SetActiveWindow(standin.gameWindow);
    return kOk;
}

std::string showCommand(std::string) {
    ShowWindow(standin.gameWindow, SW_SHOW);
    return kOk;
}

std::string hideCommand(std::string) {
    ShowWindow(standin.gameWindow, SW_HIDE);
    return kOk;
}

std::string moveCommand(std::string args) {
    int x = 0, y = 0;
    if (!nextInts(args, &x, &y)) return error("move X Y");
    SetWindowPos(standin.gameWindow, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    return kOk;
}

std::string resizeCommand(std::string args) {
    int width = 0, height = 0;
    if (!nextInts(args, &width, &height)) return error("resize W H");
    SetWindowPos(standin.gameWindow, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    return kOk;
}

// The frame's size is taken from the window as it is, not computed from the
// styles, so that whatever frame the system draws is accounted for.
std::string setClientCommand(std::string args) {
    int width = 0, height = 0;
    if (!nextInts(args, &width, &height)) return error("setclient W H");
    RECT outer{}, client{};
    GetWindowRect(standin.gameWindow, &outer);
    GetClientRect(standin.gameWindow, &client);
    const int frameWidth = (outer.right - outer.left) - client.right;
    const int frameHeight = (outer.bottom - outer.top) - client.bottom;
    SetWindowPos(standin.gameWindow, nullptr, 0, 0, width + frameWidth, height + frameHeight,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    return kOk;
}

std::string setTitleCommand(std::string args) {
    SetWindowTextW(standin.gameWindow, wininfo::toWide(args).c_str());
    return kOk;
}

std::string closeCommand(std::string) { return kOk; }

std::string exitCommand(std::string) { return kOk; }

// --- other windows ---

std::string secondCommand(std::string args) {
    const std::string className = nextWord(args);
    if (className.empty()) return error("second <class> <title>");
    RECT place{160, 160, 560, 460};
    HWND window = createTopLevelWindow(wininfo::toWide(className), wininfo::toWide(args), place, nullptr, true);
    if (window == nullptr) return error("CreateWindowExW failed: " + std::to_string(GetLastError()));
    SetWindowPos(window, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    return "{" + hwndField("hwnd", window) + "}";
}

std::string raiseCommand(std::string args) {
    HWND window = nullptr;
    if (!nextHandle(args, &window)) return error("raise <HWNDHEX>");
    const BOOL placed = SetWindowPos(window, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    const BOOL foreground = SetForegroundWindow(window);
    return "{\"ok\":" + jsonBool(placed && foreground) + "}";
}

std::string spawnOwnedCommand(std::string) {
    const int port = standin.options.port + 1000;
    const std::wstring arguments = L"--owner " + wininfo::toWide(handleHex(standin.gameWindow)) +
                                   L" --title \"owned helper\" --class StandinOwnedHelper --port " +
                                   std::to_wstring(port);
    const DWORD pid = startCopy(arguments);
    if (pid == 0) return error("CreateProcessW failed: " + std::to_string(GetLastError()));
    return "{\"pid\":" + std::to_string(pid) + ",\"port\":" + std::to_string(port) + "}";
}

bool messageArguments(std::string& args, HWND* window, UINT* message, WPARAM* wParam, LPARAM* lParam) {
    std::int64_t m = 0, w = 0, l = 0;
    if (!nextHandle(args, window) || !nextNumber(args, &m) || !nextNumber(args, &w) || !nextNumber(args, &l)) {
        return false;
    }
    *message = static_cast<UINT>(m);
    *wParam = static_cast<WPARAM>(w);
    *lParam = static_cast<LPARAM>(l);
    return true;
}

std::string postCommand(std::string args) {
    HWND window = nullptr;
    UINT message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    if (!messageArguments(args, &window, &message, &wParam, &lParam)) return error("post <H> <msg> <wparam> <lparam>");
    const BOOL ok = PostMessageW(window, message, wParam, lParam);
    const DWORD code = ok ? 0 : GetLastError();
    return "{\"ok\":" + jsonBool(ok != FALSE) + ",\"error\":" + std::to_string(code) + "}";
}

std::string sendCommand(std::string args) {
    HWND window = nullptr;
    UINT message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    if (!messageArguments(args, &window, &message, &wParam, &lParam)) return error("send <H> <msg> <wparam> <lparam>");
    DWORD_PTR result = 0;
    const LRESULT ok = SendMessageTimeoutW(window, message, wParam, lParam, SMTO_ABORTIFHUNG, 1000, &result);
    const DWORD code = ok ? 0 : GetLastError();
    return "{\"ok\":" + jsonBool(ok != 0) + ",\"result\":" + std::to_string(static_cast<long long>(result)) +
           ",\"error\":" + std::to_string(code) + "}";
}

std::string findCommand(std::string args) {
    const std::wstring className = wininfo::toWide(nextWord(args));
    const std::wstring title = wininfo::toWide(args);
    HWND window = FindWindowW(className.c_str(), args.empty() ? nullptr : title.c_str());
    return "{" + hwndField("hwnd", window) + "}";
}

// --- keyboard layouts ---

std::string langRequestJson(const LangRequest& request) {
    return "{\"wparam\":" + std::to_string(static_cast<unsigned long long>(request.wParam)) + ",\"lparam\":\"" +
           wininfo::hex16(static_cast<std::uint64_t>(request.lParam)) + "\"," + hwndField("hwnd", request.window) + "}";
}

std::string langRequestsCommand(std::string) {
    std::string out = "{\"requests\":[";
    for (size_t i = 0; i < standin.langRequests.size(); ++i) {
        out += (i ? "," : "") + langRequestJson(standin.langRequests[i]);
    }
    return out + "]}";
}

std::string clicksCommand(std::string) {
    std::string out = "{\"clicks\":[";
    for (size_t i = 0; i < standin.clicks.size(); ++i) {
        out += (i ? ",[" : "[") + std::to_string(standin.clicks[i].x) + "," + std::to_string(standin.clicks[i].y) + "]";
    }
    return out + "]}";
}

std::string sceneCommand(std::string) {
    const SceneCounts counts = sceneCounts();
    return "{\"frames\":" + std::to_string(counts.frames) + ",\"markers\":" + std::to_string(counts.markers) +
           ",\"still\":" + jsonBool(counts.still) + "}";
}

// Wine 8 answers LoadKeyboardLayoutW with the current layout and switches
// nothing; "activate" is the way to change the layout there.
std::string layoutCommand(std::string args) {
    const std::string klid = nextWord(args);
    std::uint64_t id = 0;
    if (klid.size() != 8 || !wininfo::parseHex(klid, &id)) return error("layout <KLID, 8 hex digits>");
    HKL loaded = LoadKeyboardLayoutW(wininfo::toWide(klid).c_str(), KLF_ACTIVATE);
    return "{\"loaded\":\"" + handleHex(loaded) + "\",\"layout\":\"" + handleHex(GetKeyboardLayout(0)) + "\"}";
}

// ActivateKeyboardLayout for the game's thread. Wine 8 only switches between
// layouts of the thread's current language: the handle's low word must stay,
// and its high word must repeat it or name a variant (04090409, F0010409);
// it refuses others, such as 04070407 or 04070409 (previous 0). The game
// window's default handling of WM_INPUTLANGCHANGEREQUEST switches the same way.
std::string activateCommand(std::string args) {
    std::uint64_t layout = 0;
    if (!wininfo::parseHex(nextWord(args), &layout)) return error("activate <HKLHEX>");
    HKL previous = ActivateKeyboardLayout(reinterpret_cast<HKL>(static_cast<std::uintptr_t>(layout)), 0);
    return "{\"previous\":\"" + handleHex(previous) + "\",\"layout\":\"" + handleHex(GetKeyboardLayout(0)) + "\"}";
}

// --- window arrangements for tests that do without the overlay ---

std::string setParentCommand(std::string args) {
    HWND window = nullptr, parent = nullptr;
    if (!nextHandle(args, &window) || !nextHandle(args, &parent)) return error("setparent <H> <parent|0>");
    HWND previous = SetParent(window, parent);
    return "{" + hwndField("previous", previous) + ",\"error\":" + std::to_string(previous ? 0 : GetLastError()) + "}";
}

std::string setOwnerCommand(std::string args) {
    HWND window = nullptr, owner = nullptr;
    if (!nextHandle(args, &window) || !nextHandle(args, &owner)) return error("setowner <H> <owner|0>");
    SetWindowLongPtrW(window, GWLP_HWNDPARENT, reinterpret_cast<LONG_PTR>(owner));
    return kOk;
}

std::string setStyleCommand(std::string args) {
    HWND window = nullptr;
    std::int64_t style = 0, exStyle = 0;
    if (!nextHandle(args, &window) || !nextNumber(args, &style)) return error("setstyle <H> <style> [<exstyle>]");
    SetWindowLongPtrW(window, GWL_STYLE, static_cast<LONG_PTR>(static_cast<std::uint32_t>(style)));
    if (!args.empty()) {
        if (!nextNumber(args, &exStyle)) return error("setstyle <H> <style> [<exstyle>]");
        SetWindowLongPtrW(window, GWL_EXSTYLE, static_cast<LONG_PTR>(static_cast<std::uint32_t>(exStyle)));
    }
    const UINT flags = SWP_NOMOVE | SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED;
    SetWindowPos(window, nullptr, 0, 0, 0, 0, flags);
    return kOk;
}

std::string setRegionCommand(std::string args) {
    HWND window = nullptr;
    if (!nextHandle(args, &window)) return error("setregion <H> none | [l t r b ...]");
    if (args == "none") return "{\"ok\":" + jsonBool(SetWindowRgn(window, nullptr, TRUE) != 0) + "}";
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    while (!args.empty()) {
        int left = 0, top = 0, right = 0, bottom = 0;
        if (!nextInts(args, &left, &top) || !nextInts(args, &right, &bottom)) {
            DeleteObject(region);
            return error("setregion <H> none | [l t r b ...]");
        }
        HRGN part = CreateRectRgn(left, top, right, bottom);
        CombineRgn(region, region, part, RGN_OR);
        DeleteObject(part);
    }
    // The window owns the region once SetWindowRgn has taken it.
    const bool ok = SetWindowRgn(window, region, TRUE) != 0;
    if (!ok) DeleteObject(region);
    return "{\"ok\":" + jsonBool(ok) + "}";
}

std::string setLayeredCommand(std::string args) {
    HWND window = nullptr;
    std::int64_t key = 0, alpha = 0, flags = 0;
    if (!nextHandle(args, &window) || !nextNumber(args, &key) || !nextNumber(args, &alpha) ||
        !nextNumber(args, &flags)) {
        return error("setlayered <H> <key> <alpha> <flags>");
    }
    SetWindowLongPtrW(window, GWL_EXSTYLE, GetWindowLongPtrW(window, GWL_EXSTYLE) | WS_EX_LAYERED);
    const BOOL ok = SetLayeredWindowAttributes(window, static_cast<COLORREF>(key), static_cast<BYTE>(alpha),
                                               static_cast<DWORD>(flags));
    return "{\"ok\":" + jsonBool(ok != FALSE) + "}";
}

std::string pingCommand(std::string) { return kOk; }

std::string freezeCommand(std::string args) {
    std::int64_t seconds = 0;
    if (!nextNumber(args, &seconds) || seconds < 0 || seconds > 600) return error("freeze <seconds>");
    standin.freezeMilliseconds = static_cast<DWORD>(seconds * 1000);
    return kOk;
}

struct Command {
    const char* name;
    std::string (*run)(std::string args);
    AfterReply after;
};

const Command kCommands[] = {
    {"ping", pingCommand, AfterReply::nothing},
    {"hwnd", hwndCommand, AfterReply::nothing},
    {"info", infoCommand, AfterReply::nothing},
    {"children", childrenCommand, AfterReply::nothing},
    {"owned", ownedCommand, AfterReply::nothing},
    {"window", windowCommand, AfterReply::nothing},
    {"minimize", minimizeCommand, AfterReply::nothing},
    {"restore", restoreCommand, AfterReply::nothing},
    {"front", frontCommand, AfterReply::nothing},
    {"show", showCommand, AfterReply::nothing},
    {"hide", hideCommand, AfterReply::nothing},
    {"move", moveCommand, AfterReply::nothing},
    {"resize", resizeCommand, AfterReply::nothing},
    {"setclient", setClientCommand, AfterReply::nothing},
    {"settitle", setTitleCommand, AfterReply::nothing},
    {"close", closeCommand, AfterReply::destroyGameWindow},
    {"exit", exitCommand, AfterReply::exitProcess},
    {"freeze", freezeCommand, AfterReply::freezeThread},
    {"second", secondCommand, AfterReply::nothing},
    {"raise", raiseCommand, AfterReply::nothing},
    {"spawn-owned", spawnOwnedCommand, AfterReply::nothing},
    {"post", postCommand, AfterReply::nothing},
    {"send", sendCommand, AfterReply::nothing},
    {"find", findCommand, AfterReply::nothing},
    {"langrequests", langRequestsCommand, AfterReply::nothing},
    {"clicks", clicksCommand, AfterReply::nothing},
    {"scene", sceneCommand, AfterReply::nothing},
    {"layout", layoutCommand, AfterReply::nothing},
    {"activate", activateCommand, AfterReply::nothing},
    {"setparent", setParentCommand, AfterReply::nothing},
    {"setowner", setOwnerCommand, AfterReply::nothing},
    {"setstyle", setStyleCommand, AfterReply::nothing},
    {"setregion", setRegionCommand, AfterReply::nothing},
    {"setlayered", setLayeredCommand, AfterReply::nothing},
};

}  // namespace

std::string runCommand(const std::string& text, AfterReply* after) {
    std::string args = text;
    const std::string word = nextWord(args);
    for (const Command& command : kCommands) {
        if (word != command.name) continue;
        *after = command.after;
        return command.run(args);
    }
    *after = AfterReply::nothing;
    return error("unknown command: " + word);
}
