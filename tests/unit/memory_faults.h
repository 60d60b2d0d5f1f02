// Memory faults for the unit tests: allocations through operator new that
// fail on demand, and a spy on COM's task memory that tells whether what was
// handed out was freed again.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <objidl.h>

#include <cstddef>
#include <set>

namespace test_support {

// While it lives, every allocation through operator new of at least `bytes`
// bytes throws std::bad_alloc.
class FailLargeAllocations {
public:
    explicit FailLargeAllocations(size_t bytes);
    ~FailLargeAllocations();
    FailLargeAllocations(const FailLargeAllocations&) = delete;
    FailLargeAllocations& operator=(const FailLargeAllocations&) = delete;
};

// While it lives, every block allocated with CoTaskMemAlloc is noted, and
// crossed off when CoTaskMemFree frees it.
class TaskMemorySpy : public IMallocSpy {
public:
    TaskMemorySpy();
    ~TaskMemorySpy();
    TaskMemorySpy(const TaskMemorySpy&) = delete;
    TaskMemorySpy& operator=(const TaskMemorySpy&) = delete;

    bool registered = false;
    size_t allocated = 0;
    std::set<void*> outstanding;

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override;
    STDMETHOD_(ULONG, AddRef)() override { return 2; }
    STDMETHOD_(ULONG, Release)() override { return 1; }
    STDMETHOD_(SIZE_T, PreAlloc)(SIZE_T request) override { return request; }
    STDMETHOD_(void*, PostAlloc)(void* actual) override;
    STDMETHOD_(void*, PreFree)(void* request, BOOL spyed) override;
    STDMETHOD_(void, PostFree)(BOOL) override {}
    STDMETHOD_(SIZE_T, PreRealloc)(void* request, SIZE_T size, void** newRequest, BOOL) override {
        *newRequest = request;
        return size;
    }
    STDMETHOD_(void*, PostRealloc)(void* actual, BOOL) override { return actual; }
    STDMETHOD_(void*, PreGetSize)(void* request, BOOL) override { return request; }
    STDMETHOD_(SIZE_T, PostGetSize)(SIZE_T actual, BOOL) override { return actual; }
    STDMETHOD_(void*, PreDidAlloc)(void* request, BOOL) override { return request; }
    STDMETHOD_(int, PostDidAlloc)(void*, BOOL, int actual) override { return actual; }
    STDMETHOD_(void, PreHeapMinimize)() override {}
    STDMETHOD_(void, PostHeapMinimize)() override {}
};

}  // namespace test_support
