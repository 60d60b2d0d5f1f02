// One kernel handle (a process, a token, an event, a thread, a file) owned by
// the scope that opened it and closed when that scope ends, however it ends.
#pragma once

#include <windows.h>

class OwnedHandle {
public:
    OwnedHandle() = default;
    explicit OwnedHandle(HANDLE handle) : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    ~OwnedHandle() { reset(); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    HANDLE get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    // For the calls that hand a new handle back through an out pointer.
    HANDLE* receive() {
        reset();
        return &handle_;
    }
    void reset(HANDLE handle = nullptr) {
        HANDLE old = handle_;
        handle_ = handle == INVALID_HANDLE_VALUE ? nullptr : handle;
        if (old) CloseHandle(old);
    }

private:
    HANDLE handle_ = nullptr;
};
