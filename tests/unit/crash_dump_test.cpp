// The parts of the crash report that can run without a crash: where the dump
// goes and how the place of the exception is named. The crash itself, the
// dump and the line are tested end to end (tests/e2e/test_warnings.py).
#include "app/crash_dump.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(CrashDumpPath, BesideTheLogFile) {
    EXPECT_EQ(crashDumpPath(L"C:\\Games\\GRA\\gra_overlay.log"), L"C:\\Games\\GRA\\gra_overlay.dmp");
    EXPECT_EQ(crashDumpPath(L"Z:/tmp/logs/overlay.txt"), L"Z:/tmp/logs/gra_overlay.dmp");
}

TEST(CrashDumpPath, ALogWithoutAFolderGivesTheNameAlone) {
    EXPECT_EQ(crashDumpPath(L"overlay.log"), L"gra_overlay.dmp");
}

TEST(CodeLocation, TheModulesFileNameAndTheOffsetFromItsStart) {
    auto module = reinterpret_cast<const char*>(GetModuleHandleW(nullptr));
    EXPECT_EQ(codeLocation(module + 0x1234), "unit_tests.exe+0x1234");
}

TEST(CodeLocation, AnAddressOutsideEveryModule) {
    EXPECT_EQ(codeLocation(reinterpret_cast<const void*>(static_cast<uintptr_t>(0x10))), "?+0x10");
}

}  // namespace
