#include "host/game_warnings.h"

#include <shellapi.h>

#include <string>

#include "app/host_state.h"
#include "app/log.h"
#include "app/owned_handle.h"
#include "gamelink/datagrams.h"
#include "page/page_messages.h"
#include "page/web_view.h"

namespace {

constexpr uint32_t fullscreenQuestionEveryMs = 1000;

// Held until the page is ready, like the game's notes.
void tellPage(const wchar_t* what) {
    std::wstring json = std::wstring(L"{\"type\":\"warn\",\"what\":\"") + what + L"\"}";
    if (host.pageReady) {
        postToPage(json);
    } else {
        holdForPage(json);
    }
}

TokenReading failed(const char* call, DWORD error) {
    TokenReading reading;
    reading.failedCall = call;
    reading.error = error;
    return reading;
}

// An integrity level that cannot be read is no failure: systems without
// integrity levels have none to compare.
void readIntegrity(HANDLE token, TokenFacts& facts) {
    alignas(TOKEN_MANDATORY_LABEL) BYTE buffer[sizeof(TOKEN_MANDATORY_LABEL) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    if (!GetTokenInformation(token, TokenIntegrityLevel, buffer, sizeof buffer, &size)) return;
    PSID sid = reinterpret_cast<TOKEN_MANDATORY_LABEL*>(buffer)->Label.Sid;
    if (!sid || !IsValidSid(sid) || *GetSidSubAuthorityCount(sid) == 0) return;
    facts.integrity = *GetSidSubAuthority(sid, *GetSidSubAuthorityCount(sid) - 1u);
    facts.integrityKnown = true;
}

bool logUnreadable(const char* whose, const TokenReading& reading) {
    if (reading.ok) return false;
    logLine("%s token cannot be read - %s error %lu - whether the game runs elevated is unknown", whose,
            reading.failedCall, reading.error);
    return true;
}

void warnOfElevation() {
    host.warnings.gameElevated = true;
    logLine("game runs elevated and this program does not - Windows keeps the overlay from the game's window and "
            "input (start both elevated, or neither)");
    // Dropped while the game has not spoken yet; its first datagram brings it.
    sendToGame("warn elevated");
    tellPage(L"elevated");
}

void tellFullscreenChange(bool fullscreen) {
    host.warnings.exclusiveFullscreen = fullscreen;
    if (fullscreen) {
        logLine("the game went exclusive fullscreen - the overlay cannot be seen over it (borderless windowed works)");
    } else {
        logLine("the game left exclusive fullscreen");
    }
    sendToGame(fullscreen ? "warn fullscreen" : "warn windowed");
    tellPage(fullscreen ? L"fullscreen" : L"windowed");
}

}  // namespace

bool gameOutranksProgram(const TokenFacts& game, const TokenFacts& program) {
    if (game.elevated && !program.elevated) return true;
    return game.integrityKnown && program.integrityKnown && game.integrity > program.integrity;
}

TokenReading readProcessToken(HANDLE process) {
    OwnedHandle token;
    // The last error is read only right after a call that failed.
    if (!OpenProcessToken(process, TOKEN_QUERY, token.receive())) return failed("OpenProcessToken", GetLastError());
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    if (!GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &size)) {
        return failed("GetTokenInformation", GetLastError());
    }
    TokenReading reading;
    reading.ok = true;
    reading.facts.elevated = elevation.TokenIsElevated != 0;
    readIntegrity(token.get(), reading.facts);
    return reading;
}

void checkGameElevation() {
    GameWarnings& warnings = host.warnings;
    if (host.gameProcessId == 0 || host.gameProcessId == warnings.tokenCheckedFor) return;
    warnings.tokenCheckedFor = host.gameProcessId;
    warnings.gameElevated = false;

    OwnedHandle game(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, host.gameProcessId));
    TokenReading gameToken = game ? readProcessToken(game.get()) : failed("OpenProcess", GetLastError());
    judgeGameTokens(gameToken, readProcessToken(GetCurrentProcess()));
}

void judgeGameTokens(const TokenReading& game, const TokenReading& program) {
    if (logUnreadable("the game's", game) || logUnreadable("this program's", program)) return;
    if (gameOutranksProgram(game.facts, program.facts)) warnOfElevation();
}

void watchExclusiveFullscreen(uint32_t now) {
    GameWarnings& warnings = host.warnings;
    if (!host.gameWindow || !IsWindow(host.gameWindow) || host.gameAway) return;
    if (warnings.fullscreenAsked && now - warnings.fullscreenAskedAt < fullscreenQuestionEveryMs) return;
    warnings.fullscreenAsked = true;
    warnings.fullscreenAskedAt = now;

    QUERY_USER_NOTIFICATION_STATE state = QUNS_ACCEPTS_NOTIFICATIONS;
    HRESULT result = SHQueryUserNotificationState(&state);
    if (FAILED(result)) {
        // Once, not every second.
        if (!warnings.fullscreenQueryFailed) {
            logLine("SHQueryUserNotificationState: 0x%08lx - exclusive fullscreen goes unnoticed",
                    static_cast<unsigned long>(result));
        }
        warnings.fullscreenQueryFailed = true;
        return;
    }
    bool fullscreen = state == QUNS_RUNNING_D3D_FULL_SCREEN;
    if (fullscreen != warnings.exclusiveFullscreen) tellFullscreenChange(fullscreen);
}

void tellGameTheWarnings() {
    if (host.warnings.gameElevated) sendToGame("warn elevated");
    if (host.warnings.exclusiveFullscreen) sendToGame("warn fullscreen");
}
