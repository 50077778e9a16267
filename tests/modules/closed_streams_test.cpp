// Services often run with the standard streams closed. The next files that are opened get their descriptors.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "loaded_module.h"
#include "nbx/location.h"
#include "support/temp_folder.h"

namespace {

/** Runs in a process of its own, which says by its status how far it came. */
class ClosedStreamsTest : public testing::Test {
  protected:
    ClosedStreamsTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    static void CloseStreams() {
        for (int descriptor = 0; descriptor <= 2; ++descriptor) {
            close(descriptor);
        }
    }
    static std::string ReadFile(const std::string& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    /** Writes to the streams while a new database is open, as any library writes an error message. */
    static void WriteWhileADatabaseIsOpen(const LoadedModule& module) {
        const TempFolder folder;
        const std::string file = folder / "a.db";
        const auto database = module->CreateDatabase(Location(file));
        database->Create();
        const std::string before = ReadFile(file);
        for (int descriptor = 0; descriptor <= 2; ++descriptor) {
            static_cast<void>(!write(descriptor, "text", 4));
        }
        if (before.empty() || ReadFile(file) != before) {
            _exit(3);
        }
        database->Close();
    }
};

TEST_F(ClosedStreamsTest, ThatAreClosedBeforeTheModuleIsLoadedNeverReachADatabase) {
    const auto run = [] {
        alarm(60);
        CloseStreams();
        WriteWhileADatabaseIsOpen(LoadedModule(MODULE));
        _exit(7);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(ClosedStreamsTest, ThatAreClosedLaterNeverReachADatabase) {
    const auto run = [] {
        alarm(60);
        const LoadedModule module(MODULE);
        CloseStreams();
        WriteWhileADatabaseIsOpen(module);
        _exit(7);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

}  // namespace
