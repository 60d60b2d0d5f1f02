// The page's two files: which names are allowed, where they lie, whole-file
// reads, and writes that go through a ".tmp" file moved over the target.
#include "page/page_files.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <gtest/gtest.h>

#include <string>

#include "app/host_state.h"
#include "fakes.h"
#include "test_support.h"

using fakes::HostStateGuard;
using test_support::fileExists;
using test_support::readBytes;
using test_support::ScratchFolder;
using test_support::writeBytes;

namespace {

// A second handle on a file, opened with the given sharing, as another
// program would hold it.
HANDLE openShared(const std::wstring& path, DWORD access, DWORD share) {
    return CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Bytes with every value 0..255, line ends of both kinds and a zero byte:
// binary mode must keep them all.
std::string allByteValues() {
    std::string bytes("a\r\nb\nc\r\0d", 10);
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    return bytes;
}

// ---- isPageFileName ----

TEST(IsPageFileName, TheTwoNamesAreAllowed) {
    EXPECT_TRUE(isPageFileName(L"gra_pad.json"));
    EXPECT_TRUE(isPageFileName(L"gra_overlay.json"));
}

TEST(IsPageFileName, CaseIsIgnored) {
    EXPECT_TRUE(isPageFileName(L"GRA_PAD.JSON"));
    EXPECT_TRUE(isPageFileName(L"Gra_Overlay.Json"));
    EXPECT_TRUE(isPageFileName(L"gRA_pAD.jSON"));
}

TEST(IsPageFileName, EveryOtherNameIsRefused) {
    for (const wchar_t* name :
         {L"", L"other.json", L"..\\gra_pad.json", L"../gra_pad.json", L".\\gra_pad.json", L"sub\\gra_pad.json",
          L"C:\\gra_pad.json", L"gra_pad.json ", L" gra_pad.json", L"gra_pad.json.tmp", L"gra_pad.jso",
          L"gra_pad", L"gra_pad.txt", L"gra_keys.txt", L"gra_overlay.log", L"gra_overlay.json\\",
          L"gra_pad.json:stream", L"gra_pad.json.", L"gra-pad.json"}) {
        EXPECT_FALSE(isPageFileName(name)) << std::string(name, name + wcslen(name));
    }
}

TEST(IsPageFileName, TheNameIsComparedWhole) {
    // A zero character would end a comparison of zero-terminated texts, and
    // the path built from the name would end there too.
    EXPECT_FALSE(isPageFileName(std::wstring(L"gra_pad.json\0x", 14)));
    EXPECT_FALSE(isPageFileName(std::wstring(L"gra_overlay.json\0", 17)));
    EXPECT_FALSE(isPageFileName(std::wstring(L"\0gra_pad.json", 13)));
    EXPECT_FALSE(isPageFileName(std::wstring(L"GRA_PAD.JSON\0.tmp", 17)));
}

TEST(IsPageFileName, LookAlikeLettersAreRefused) {
    // Cyrillic a (U+0430) in place of the Latin one.
    EXPECT_FALSE(isPageFileName(L"gr\u0430_pad.json"));
    // Fullwidth letters.
    EXPECT_FALSE(isPageFileName(L"\uFF47ra_pad.json"));
}

// ---- pageFilePath ----

TEST(PageFilePath, DocumentsFolderBackslashAndTheNameAsWritten) {
    HostStateGuard guard;
    host.docFolder = L"C:\\Users\\p\\Documents";
    EXPECT_EQ(pageFilePath(L"gra_pad.json"), L"C:\\Users\\p\\Documents\\gra_pad.json");
    EXPECT_EQ(pageFilePath(L"GRA_PAD.JSON"), L"C:\\Users\\p\\Documents\\GRA_PAD.JSON");
    EXPECT_EQ(pageFilePath(L"Gra_Overlay.json"), L"C:\\Users\\p\\Documents\\Gra_Overlay.json");
}

TEST(PageFilePath, NothingIsNormalised) {
    HostStateGuard guard;
    host.docFolder = L"D:\\docs\\";
    EXPECT_EQ(pageFilePath(L"gra_pad.json"), L"D:\\docs\\\\gra_pad.json");
    host.docFolder = L"";
    EXPECT_EQ(pageFilePath(L"gra_pad.json"), L"\\gra_pad.json");
    host.docFolder = L"Z:\\tmp\\Dokumente \u00e9";
    EXPECT_EQ(pageFilePath(L"gra_overlay.json"), L"Z:\\tmp\\Dokumente \u00e9\\gra_overlay.json");
}

// ---- readWholeFile ----

TEST(ReadWholeFile, AMissingFileGivesFalseAndLeavesTheBytesAlone) {
    ScratchFolder folder;
    std::string bytes = "kept";
    EXPECT_FALSE(readWholeFile(folder.file(L"gra_pad.json"), bytes));
    EXPECT_EQ(bytes, "kept");
}

TEST(ReadWholeFile, AMissingFolderGivesFalse) {
    ScratchFolder folder;
    std::string bytes = "kept";
    EXPECT_FALSE(readWholeFile(folder.file(L"no such folder\\gra_pad.json"), bytes));
    EXPECT_EQ(bytes, "kept");
}

TEST(ReadWholeFile, AnEmptyFileGivesTrueAndEmptyBytes) {
    ScratchFolder folder;
    writeBytes(folder.file(L"gra_pad.json"), "");
    std::string bytes = "earlier content";
    EXPECT_TRUE(readWholeFile(folder.file(L"gra_pad.json"), bytes));
    EXPECT_EQ(bytes, "");
}

TEST(ReadWholeFile, EveryByteAsItIsOnDisk) {
    ScratchFolder folder;
    std::string content = "\xEF\xBB\xBF" + allByteValues();
    writeBytes(folder.file(L"gra_pad.json"), content);
    std::string bytes = "earlier content that is longer than nothing";
    EXPECT_TRUE(readWholeFile(folder.file(L"gra_pad.json"), bytes));
    EXPECT_EQ(bytes, content);
}

TEST(ReadWholeFile, ALargeFileIsReadWhole) {
    ScratchFolder folder;
    std::string content;
    for (int i = 0; content.size() < 300000; ++i) content += std::to_string(i) + ",";
    writeBytes(folder.file(L"gra_overlay.json"), content);
    std::string bytes;
    EXPECT_TRUE(readWholeFile(folder.file(L"gra_overlay.json"), bytes));
    EXPECT_EQ(bytes.size(), content.size());
    EXPECT_EQ(bytes, content);
}

TEST(ReadWholeFile, AFileThatAnotherHandleWritesIsStillRead) {
    ScratchFolder folder;
    writeBytes(folder.file(L"gra_pad.json"), "shared");
    HANDLE writer = openShared(folder.file(L"gra_pad.json"), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    std::string bytes;
    EXPECT_TRUE(readWholeFile(folder.file(L"gra_pad.json"), bytes));
    EXPECT_EQ(bytes, "shared");
    CloseHandle(writer);
}

// A stream whose reads fail: its handle may only write.
FILE* unreadableStream(const std::wstring& path) {
    HANDLE handle = openShared(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDONLY | _O_BINARY);
    if (descriptor == -1) {
        CloseHandle(handle);
        return nullptr;
    }
    return _fdopen(descriptor, "rb");
}

// The read of a stream that fails is no whole file, however many bytes came
// before the failure.
TEST(ReadWholeStream, AReadErrorGivesFalseAndLeavesTheBytesAlone) {
    ScratchFolder folder;
    writeBytes(folder.file(L"gra_pad.json"), "the good version");
    FILE* file = unreadableStream(folder.file(L"gra_pad.json"));
    ASSERT_NE(file, nullptr);
    std::string bytes = "kept";
    EXPECT_FALSE(readWholeStream(file, bytes));
    EXPECT_TRUE(bytes == "kept") << bytes.size() << " bytes";
    fclose(file);
}

TEST(ReadWholeStream, AReadableStreamIsReadToItsEnd) {
    ScratchFolder folder;
    std::string content(200000, 'p');
    writeBytes(folder.file(L"gra_pad.json"), content);
    FILE* file = _wfopen(folder.file(L"gra_pad.json").c_str(), L"rb");
    ASSERT_NE(file, nullptr);
    std::string bytes;
    EXPECT_TRUE(readWholeStream(file, bytes));
    EXPECT_TRUE(bytes == content) << bytes.size() << " bytes";
    fclose(file);
}

TEST(ReadWholeFile, AFolderIsNoFile) {
    ScratchFolder folder;
    CreateDirectoryW(folder.file(L"gra_pad.json").c_str(), nullptr);
    std::string bytes = "kept";
    EXPECT_FALSE(readWholeFile(folder.file(L"gra_pad.json"), bytes));
    EXPECT_EQ(bytes, "kept");
}

// ---- writeFileReplacing ----

TEST(WriteFileReplacing, ANewFileHoldsExactlyTheBytesAndNoTmpIsLeft) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_pad.json");
    EXPECT_TRUE(writeFileReplacing(target, allByteValues()));
    EXPECT_EQ(readBytes(target), allByteValues());
    EXPECT_FALSE(fileExists(target + L".tmp"));
}

TEST(WriteFileReplacing, AnExistingFileIsReplacedWhole) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_overlay.json");
    writeBytes(target, std::string(5000, 'L'));
    EXPECT_TRUE(writeFileReplacing(target, "short"));
    EXPECT_EQ(readBytes(target), "short");
    EXPECT_TRUE(writeFileReplacing(target, std::string(7000, 'M')));
    EXPECT_EQ(readBytes(target), std::string(7000, 'M'));
    EXPECT_FALSE(fileExists(target + L".tmp"));
}

TEST(WriteFileReplacing, EmptyBytesGiveAnEmptyFile) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_pad.json");
    writeBytes(target, "something");
    EXPECT_TRUE(writeFileReplacing(target, ""));
    EXPECT_TRUE(fileExists(target));
    EXPECT_EQ(readBytes(target), "");
}

TEST(WriteFileReplacing, AMissingFolderFailsAndCreatesNothing) {
    ScratchFolder folder;
    std::wstring missing = folder.file(L"no such folder");
    EXPECT_FALSE(writeFileReplacing(missing + L"\\gra_pad.json", "text"));
    EXPECT_FALSE(fileExists(missing));
}

TEST(WriteFileReplacing, AFailedMoveLeavesTheTmpFileAndTheTargetAlone) {
    ScratchFolder folder;
    // A folder by the target's name cannot be replaced by a file.
    std::wstring target = folder.file(L"gra_pad.json");
    ASSERT_TRUE(CreateDirectoryW(target.c_str(), nullptr));
    EXPECT_FALSE(writeFileReplacing(target, "the new text"));
    EXPECT_EQ(readBytes(target + L".tmp"), "the new text");
    DWORD attributes = GetFileAttributesW(target.c_str());
    ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// A read-only target is not observable here: Wine moves a file over a
// read-only one where Windows refuses; the folder case above covers the
// failed move. A target that another program holds open without delete
// sharing cannot be replaced on either.
TEST(WriteFileReplacing, ATargetHeldOpenIsNotReplaced) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_pad.json");
    writeBytes(target, "the old text");
    HANDLE reader = openShared(target, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(writeFileReplacing(target, "the new text"));
    CloseHandle(reader);
    EXPECT_EQ(readBytes(target), "the old text");
    EXPECT_EQ(readBytes(target + L".tmp"), "the new text");
}

TEST(WriteFileReplacing, ALeftOverTmpIsTruncatedAndReused) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_pad.json");
    writeBytes(target + L".tmp", std::string(10000, 'x'));
    ASSERT_TRUE(fileExists(target + L".tmp"));
    EXPECT_TRUE(writeFileReplacing(target, "abc"));
    EXPECT_EQ(readBytes(target), "abc");
    EXPECT_FALSE(fileExists(target + L".tmp"));
}

TEST(WriteFileReplacing, ALockedTmpFailsAndLeavesTheTargetUntouched) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_pad.json");
    writeBytes(target, "the old text");
    writeBytes(target + L".tmp", "someone else's");
    // Held open with no sharing at all: the temporary file cannot be opened.
    HANDLE holder = openShared(target + L".tmp", GENERIC_READ, 0);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(writeFileReplacing(target, "the new text"));
    CloseHandle(holder);
    EXPECT_EQ(readBytes(target), "the old text");
    EXPECT_EQ(readBytes(target + L".tmp"), "someone else's");
}

TEST(WriteFileReplacing, TheTmpLiesBesideTheTargetUnderTheTargetsSpelling) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"GRA_PAD.JSON");
    ASSERT_TRUE(CreateDirectoryW(target.c_str(), nullptr));
    EXPECT_FALSE(writeFileReplacing(target, "x"));
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(folder.file(L"*.tmp").c_str(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_EQ(std::wstring(found.cFileName), L"GRA_PAD.JSON.tmp");
    FindClose(search);
}

TEST(WriteFileReplacing, ThroughPageFilePathTheFileLandsInTheDocumentsFolder) {
    HostStateGuard guard;
    ScratchFolder folder;
    host.docFolder = folder.path;
    EXPECT_TRUE(writeFileReplacing(pageFilePath(L"gra_overlay.json"), "{\"a\":1}"));
    EXPECT_EQ(readBytes(folder.file(L"gra_overlay.json")), "{\"a\":1}");
    std::string bytes;
    EXPECT_TRUE(readWholeFile(pageFilePath(L"GRA_OVERLAY.JSON"), bytes));
    EXPECT_EQ(bytes, "{\"a\":1}");
}

TEST(WriteFileReplacing, WrittenThenReadGivesTheSameBytes) {
    ScratchFolder folder;
    std::wstring target = folder.file(L"gra_overlay.json");
    std::string text = "{\"notes\":\"gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xF0\x9F\x8E\xAE\"}\r\n";
    ASSERT_TRUE(writeFileReplacing(target, text));
    std::string bytes;
    EXPECT_TRUE(readWholeFile(target, bytes));
    EXPECT_EQ(bytes, text);
}

}  // namespace
