// Finds the virtual-table slot that a call through a COM interface
// declaration lands on: the call is made on a probe object whose table holds,
// at every index N, a function that records N. A declaration with a missing or
// extra method earlier in the table makes the recorded slot differ.
#pragma once

#include <windows.h>

#include <array>
#include <utility>

namespace vtable_probe {

inline int lastSlot = -1;

template <int N>
HRESULT STDMETHODCALLTYPE record(void*) {
    lastSlot = N;
    return S_OK;
}

template <int... N>
std::array<void*, sizeof...(N)> makeTable(std::integer_sequence<int, N...>) {
    return {reinterpret_cast<void*>(&record<N>)...};
}

struct Probe {
    void* const* table;
};

inline const std::array<void*, 128>& table() {
    static const std::array<void*, 128> t = makeTable(std::make_integer_sequence<int, 128>{});
    return t;
}

// Returns an object that looks like an interface pointer of type T.
template <typename T>
T* as() {
    static Probe probe{table().data()};
    return reinterpret_cast<T*>(&probe);
}

// Usage: EXPECT_EQ(vtable_probe::slotOf([](auto* p) { p->Navigate(nullptr); }, as<ICoreWebView2>()), 5);
template <typename T, typename Call>
int slotOf(T* object, Call call) {
    lastSlot = -1;
    call(object);
    return lastSlot;
}

}  // namespace vtable_probe
