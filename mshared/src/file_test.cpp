#include "nbx/file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "mshared/test_support.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

namespace fs = std::filesystem;

TEST(File, IsCreatedWrittenAndRead) {
    const TemporaryFolder folder;
    const smart_ptr<I_File> file = CreateFile(folder.LocationOf("x"));
    EXPECT_EQ(file->get_RefsCount(), 1U);
    EXPECT_FALSE(file->get_Exists());
    file->Create();
    EXPECT_TRUE(file->get_Exists());
    EXPECT_EQ(file->get_Size(), 0U);
    EXPECT_EQ(file->Write("content", 0, 7), 7U);
    EXPECT_EQ(file->Write("X", 10, 1), 1U);
    EXPECT_EQ(file->get_Size(), 11U);
    EXPECT_EQ(file->get_Length(), 11U);
    file->Flush();
    char buffer[16] = {};
    EXPECT_EQ(file->Read(buffer, 3, 4), 4U);
    EXPECT_STREQ(buffer, "tent");
    file->Close();
    EXPECT_NO_THROW(file->Close());
    EXPECT_EQ(file->get_Length(), 11U);
}

TEST(File, ReadsNoMoreThanThereIs) {
    const TemporaryFolder folder;
    std::ofstream(folder.get_Path() / "x") << "0123456789";
    FileWin file;
    file.put_Location(folder.LocationOf("x"));
    file.put_IsReadOnly(true);
    file.Open();
    char buffer[16] = {};
    EXPECT_EQ(file.Read(buffer, 8, 16), 2U);
    EXPECT_STREQ(buffer, "89");
    EXPECT_EQ(file.Read(buffer, 10, 16), 0U);
    EXPECT_EQ(file.Read(buffer, 1000, 16), 0U);
    EXPECT_EQ(file.Read(nullptr, 0, 0), 0U);
}

TEST(File, IsEmptiedWhenItIsCreatedAgain) {
    const TemporaryFolder folder;
    std::ofstream(folder.get_Path() / "x") << "0123456789";
    FileWin file;
    file.put_Location(folder.LocationOf("x"));
    file.Create();
    EXPECT_EQ(file.get_Size(), 0U);
}

void ExpectFileError(const std::string& path, const char* reason, const std::function<void()>& operation) {
    try {
        operation();
        ADD_FAILURE() << "no exception: " << reason;
    } catch (const xException& error) {
        EXPECT_EQ(error.get_Code(), kFileErrorCode);
        EXPECT_EQ(Narrow(error.get_Text(0)), path);
        EXPECT_NE(Narrow(error.get_Text(1)).find(reason), std::string::npos) << error.what();
    }
}

TEST(File, ReportsThePathAndTheReason) {
    const TemporaryFolder folder;
    const std::string path = (folder.get_Path() / "x").string();
    FileWin file;
    file.put_Location(folder.LocationOf("x"));
    ExpectFileError(path, std::strerror(ENOENT), [&file] { file.Open(); });
    ExpectFileError(path, std::strerror(ENOENT), [&file] { (void)file.get_Length(); });
    ExpectFileError(path, std::strerror(ENOENT), [&file] { file.ThrowOut(); });
    ExpectFileError(path, std::strerror(EBADF), [&file] { (void)file.get_Size(); });
    ExpectFileError(path, std::strerror(EBADF), [&file] { file.Write("x", 0, 1); });
    ExpectFileError(path, std::strerror(EBADF), [&file] { file.Flush(); });
    char byte;
    ExpectFileError(path, std::strerror(EBADF), [&file, &byte] { file.Read(&byte, 0, 1); });
    file.Create();
    ExpectFileError(path, std::strerror(EOVERFLOW), [&file, &byte] { file.Read(&byte, UINT64_MAX, 1); });
    ExpectFileError(path, std::strerror(EOVERFLOW), [&file] { file.Write("x", INT64_MAX, 1); });
    ExpectFileError(path, std::strerror(EBUSY), [&file] { file.ThrowOut(); });
}

TEST(File, IsNotWrittenWhenItWasOpenedForReading) {
    const TemporaryFolder folder;
    std::ofstream(folder.get_Path() / "x") << "content";
    FileWin file;
    file.put_Location(folder.LocationOf("x"));
    file.put_IsReadOnly(true);
    file.Open();
    EXPECT_THROW(file.Write("y", 0, 1), xException);
    file.put_IsReadOnly(false);
    file.Open();
    EXPECT_EQ(file.Write("y", 0, 1), 1U);
}

TEST(File, DoesNotOpenFoldersOrMissingFiles) {
    const TemporaryFolder folder;
    FileWin file;
    EXPECT_THROW(file.Open(), xException);
    EXPECT_FALSE(file.get_Exists());
    file.put_Location(folder.LocationOf(""));
    file.put_IsReadOnly(true);
    ExpectFileError(folder.get_Path().string(), std::strerror(EISDIR), [&file] { file.Open(); });
    EXPECT_FALSE(file.get_Exists());
}

TEST(File, DoesNotWaitForTheOtherEndOfANamedPipe) {
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder.get_Path() / "pipe").c_str(), 0600), 0);
    FileWin file;
    file.put_Location(folder.LocationOf("pipe"));
    file.put_IsReadOnly(true);
    char byte;
    EXPECT_THROW(
        {
            file.Open();
            file.Read(&byte, 8, 1);
        },
        xException);
}

TEST(File, IsDeletedWhenItIsClosed) {
    const TemporaryFolder folder;
    FileWin file;
    file.put_Location(folder.LocationOf("x"));
    file.Create();
    file.Close();
    file.ThrowOut();
    EXPECT_FALSE(file.get_Exists());
}

TEST(File, IsNotInheritedByOtherPrograms) {
    const TemporaryFolder folder;
    FileWin file;
    file.put_Location(folder.LocationOf("x"));
    file.Create();
    const std::string path = (folder.get_Path() / "x").string();
    int found = 0;
    for (int descriptor = 3; descriptor < 256; ++descriptor) {
        std::error_code error;
        if (fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error) == path) {
            ++found;
            EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace nbx
