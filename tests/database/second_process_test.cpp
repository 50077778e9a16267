#include "database_test_base.h"

// Which opens are refused while another process has the file open, and when the file is free again.

namespace {

using SecondProcessTest = DatabaseTest;

TEST_F(SecondProcessTest, AWriterKeepsEveryoneElseOut) {
    MakeFile();
    const auto database = host.Opened(Path());
    EXPECT_NE(TryOpenElsewhere(Path(), true), "ok");
    EXPECT_NE(TryOpenElsewhere(Path(), false), "ok");
}

TEST_F(SecondProcessTest, AReaderKeepsWritersOut) {
    MakeFile();
    const auto database = host.Database(Path());
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    database->put_Options(options);
    database->Open();
    EXPECT_NE(TryOpenElsewhere(Path(), true), "ok");
    EXPECT_EQ(TryOpenElsewhere(Path(), false), "ok");
}

TEST_F(SecondProcessTest, AWriterInAnotherProcessRefusesBothKindsOfOpening) {
    MakeFile();
    const HeldElsewhere writer(Path(), true);
    ASSERT_EQ(writer.get_Outcome(), "ok");
    const auto database = host.Database(Path());
    const std::string thrown = Thrown([&] { database->Open(); });
    EXPECT_EQ(thrown.find("xException 99000 [IO Error: Could not set lock on file"), 0u) << thrown;
    EXPECT_EQ(database->get_ConnectionCount(), 0u);
}

TEST_F(SecondProcessTest, AReaderInAnotherProcessForcesReadOnly) {
    MakeFile();
    {
        const HeldElsewhere reader(Path(), false);
        ASSERT_EQ(reader.get_Outcome(), "ok");
        const auto database = host.Opened(Path());
        EXPECT_TRUE(database->get_IsReadOnly());
        EXPECT_EQ(TryOpenElsewhere(Path(), false), "ok");
    }
    EXPECT_FALSE(host.Opened(Path())->get_IsReadOnly());
}

TEST_F(SecondProcessTest, TheFileIsLockedUntilTheLastUserCloses) {
    MakeFile();
    auto first = host.Opened(Path());
    auto second = host.Opened(Path());
    first = nullptr;
    EXPECT_NE(TryOpenElsewhere(Path(), false), "ok");
    second = nullptr;
    EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
}

TEST_F(SecondProcessTest, AReaderThatClosesLeavesTheLockOfTheOtherReaders) {
    MakeFile();
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    auto first = host.Database(Path());
    first->put_Options(options);
    first->Open();
    const auto second = host.Database(Path());
    options.threads = 2;
    second->put_Options(options);
    second->Open();
    first->Close();
    EXPECT_NE(TryOpenElsewhere(Path(), true), "ok");
    second->Close();
    EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
}

TEST_F(SecondProcessTest, AReaderThatJoinedTheWriterLeavesTheLockToIt) {
    MakeFile();
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    const auto writer = host.Opened(Path());
    const auto reader = host.Database(Path());
    reader->put_Options(options);
    reader->Open();
    reader->Close();
    EXPECT_NE(TryOpenElsewhere(Path(), false), "ok");
    Execute(*writer, "INSERT INTO t VALUES (4)");
    EXPECT_NE(TryOpenElsewhere(Path(), true), "ok");
}

TEST_F(SecondProcessTest, AFailedConnectionLeavesTheFileFree) {
    MakeFile();
    const auto database = host.Database(Path());
    duckdb_faults::FailCall("duckdb_connect", 1);
    EXPECT_NE(Thrown([&] { database->Open(); }), "none");
    EXPECT_EQ(TryOpenElsewhere(Path(), true), "ok");
}

}  // namespace
