#include "memory_faults.h"

#include <objbase.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> failFrom{SIZE_MAX};

void* allocate(size_t size) {
    if (size >= failFrom.load()) throw std::bad_alloc();
    void* block = std::malloc(size ? size : 1);
    if (!block) throw std::bad_alloc();
    return block;
}

}  // namespace

// The test program's own operator new, so that a test can make it fail.
void* operator new(size_t size) {
    return allocate(size);
}

void* operator new[](size_t size) {
    return allocate(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

void operator delete[](void* block, size_t) noexcept {
    std::free(block);
}

namespace test_support {

FailLargeAllocations::FailLargeAllocations(size_t bytes) {
    failFrom = bytes;
}

FailLargeAllocations::~FailLargeAllocations() {
    failFrom = SIZE_MAX;
}

TaskMemorySpy::TaskMemorySpy() {
    registered = SUCCEEDED(CoRegisterMallocSpy(this));
}

TaskMemorySpy::~TaskMemorySpy() {
    if (registered) CoRevokeMallocSpy();
}

HRESULT TaskMemorySpy::QueryInterface(REFIID riid, void** object) {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMallocSpy)) {
        *object = static_cast<IMallocSpy*>(this);
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

void* TaskMemorySpy::PostAlloc(void* actual) {
    if (actual) {
        ++allocated;
        outstanding.insert(actual);
    }
    return actual;
}

void* TaskMemorySpy::PreFree(void* request, BOOL) {
    outstanding.erase(request);
    return request;
}

}  // namespace test_support
