#include "import_patch.h"

#include <cstring>

namespace {

// The import table entry of this executable through which `function` of
// `dll` is called; null when it imports no such function.
void** importSlot(const char* dll, const char* function) {
    auto* base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
    auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.VirtualAddress == 0) return nullptr;
    for (auto* entry = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress); entry->Name;
         ++entry) {
        if (_stricmp(reinterpret_cast<const char*>(base + entry->Name), dll) != 0) continue;
        auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
        for (; names->u1.AddressOfData; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
            auto* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(byName->Name), function) == 0) {
                return reinterpret_cast<void**>(&slots->u1.Function);
            }
        }
    }
    return nullptr;
}

void writeSlot(void** slot, void* value) {
    DWORD old = 0;
    if (!VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &old)) return;
    *slot = value;
    VirtualProtect(slot, sizeof *slot, old, &old);
    FlushInstructionCache(GetCurrentProcess(), slot, sizeof *slot);
}

}  // namespace

ImportPatch::ImportPatch(const char* dll, const char* function, void* replacement) {
    void** slot = importSlot(dll, function);
    if (!slot) return;
    original_ = *slot;
    writeSlot(slot, replacement);
    if (*slot == replacement) slot_ = slot;
}

ImportPatch::~ImportPatch() {
    if (slot_) writeSlot(slot_, original_);
}
