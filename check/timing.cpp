#include "timing.h"

#include <algorithm>
#include <cmath>

double preciseMs() {
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

double percentile(std::vector<double> samples, double share) {
    if (samples.empty()) return 0.0;
    std::sort(samples.begin(), samples.end());
    size_t rank = static_cast<size_t>(std::ceil(share * static_cast<double>(samples.size())));
    if (rank < 1) rank = 1;
    if (rank > samples.size()) rank = samples.size();
    return samples[rank - 1];
}

void pumpMessages() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

void pollPause(DWORD milliseconds) {
    pumpMessages();
    // Woken early by input for the check's windows, so they never wait long.
    MsgWaitForMultipleObjects(0, nullptr, FALSE, milliseconds, QS_ALLINPUT);
    pumpMessages();
}
