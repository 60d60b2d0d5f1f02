#include "processes.h"

#define PSAPI_VERSION 2
#include <winsock2.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <cstdio>

#include "app/text.h"
#include "gra_link.h"

bool startGameRole(const std::wstring& checkExe, const std::wstring& title, const std::wstring& windowClass,
                   StartedProcess& game, DWORD& error) {
    // The title and class hold no quotation marks: the check makes them.
    std::wstring line = L"\"" + checkExe + L"\" --game-role \"" + title + L"\" \"" + windowClass + L"\" " +
                        std::to_wstring(GetCurrentProcessId());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(checkExe.c_str(), &line[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &info)) {
        error = GetLastError();
        return false;
    }
    CloseHandle(info.hThread);
    game.handle.reset(info.hProcess);
    game.id = info.dwProcessId;
    return true;
}

bool startProgram(const ProgramOptions& options, StartedProcess& program, std::string& problem) {
    gra_link_launch_options launch{};
    launch.program = options.program.c_str();
    launch.web = options.web.c_str();
    launch.doc = options.doc.c_str();
    launch.log = options.log.c_str();
    launch.data = options.data.c_str();
    launch.game = options.game.c_str();
    launch.game_class = options.gameClass.c_str();
    launch.mode = options.mode.c_str();
    launch.port = options.port;
    gra_link_process started{};
    int result = gra_link_launch(&launch, &started);
    if (result != GRA_LINK_OK) {
        problem = std::string("gra_link_launch: ") + gra_link_error_text(result);
        if (result == GRA_LINK_E_LAUNCH) problem += " (error " + std::to_string(started.error) + ")";
        return false;
    }
    program.handle.reset(static_cast<HANDLE>(started.handle));
    program.id = static_cast<DWORD>(started.id);
    return true;
}

bool processEnded(const StartedProcess& process, DWORD waitMs, DWORD& exitCode) {
    if (!process.handle) return true;
    if (WaitForSingleObject(process.handle.get(), waitMs) != WAIT_OBJECT_0) return false;
    exitCode = STILL_ACTIVE;
    GetExitCodeProcess(process.handle.get(), &exitCode);
    return true;
}

void endProcess(StartedProcess& process, DWORD gracefulMs) {
    if (!process.handle) return;
    DWORD exitCode = 0;
    if (!processEnded(process, gracefulMs, exitCode)) {
        TerminateProcess(process.handle.get(), 1);
        WaitForSingleObject(process.handle.get(), 5000);
    }
    process.handle.reset();
}

ProcessMemory memoryOf(DWORD processId) {
    ProcessMemory memory;
    OwnedHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_VM_READ, FALSE, processId));
    if (!process) process.reset(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    if (!process) return memory;
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (!GetProcessMemoryInfo(process.get(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters)) {
        return memory;
    }
    memory.known = true;
    memory.workingSetMiB = static_cast<double>(counters.WorkingSetSize) / (1024.0 * 1024.0);
    memory.privateMiB = static_cast<double>(counters.PrivateUsage) / (1024.0 * 1024.0);
    return memory;
}

std::vector<DWORD> processTree(DWORD root) {
    std::vector<DWORD> tree;
    OwnedHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return tree;
    std::vector<PROCESSENTRY32W> entries;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
        entries.push_back(entry);
    }
    bool rootRuns = false;
    for (const PROCESSENTRY32W& e : entries) rootRuns = rootRuns || e.th32ProcessID == root;
    if (!rootRuns) return tree;
    tree.push_back(root);
    // Breadth first: the browser's children, then theirs.
    for (size_t next = 0; next < tree.size(); ++next) {
        for (const PROCESSENTRY32W& e : entries) {
            if (e.th32ParentProcessID == tree[next] && e.th32ProcessID != tree[next]) tree.push_back(e.th32ProcessID);
        }
    }
    return tree;
}

namespace {

// A socket opened to ask the system for a free port, closed with its scope.
class ProbeSocket {
public:
    ProbeSocket() : socket_(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)) {}
    ~ProbeSocket() {
        if (socket_ != INVALID_SOCKET) closesocket(socket_);
    }
    ProbeSocket(const ProbeSocket&) = delete;
    ProbeSocket& operator=(const ProbeSocket&) = delete;
    SOCKET get() const { return socket_; }

private:
    SOCKET socket_;
};

}  // namespace

unsigned short freeUdpPort() {
    ProbeSocket probe;
    if (probe.get() == INVALID_SOCKET) return 0;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    unsigned short port = 0;
    int length = sizeof address;
    if (bind(probe.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    return port;
}

std::string formatMiB(double mib) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MiB", mib);
    return text;
}
