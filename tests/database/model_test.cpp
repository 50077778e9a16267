#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>

#include "database_test_base.h"

// Random sequences of operations on several databases, compared with a plain model of what each of them must
// answer.

namespace {

struct PathModel {
    std::string path;
    bool exists = false;
    /** Somebody opened it for writing since it was last unused. */
    bool has_writer = false;
    uint32_t users = 0;
};

enum class Wish { none, writing, reading };

struct ObjectModel {
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> database;
    PathModel* path = nullptr;
    bool is_open = false;
    bool is_read_only = false;
    Wish wish = Wish::none;
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement>> statements;
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor>> cursors;
};

class DatabaseModel : public DatabaseTest {
  protected:
    bool IsMemory(const PathModel& path) const { return path.path == ":memory:"; }

    void ModelClose(ObjectModel& object) {
        if (!object.is_open) {
            return;
        }
        object.is_open = object.is_read_only = false;
        object.wish = Wish::none;
        if (--object.path->users == 0) {
            object.path->has_writer = false;
        }
    }
    void ModelOpened(ObjectModel& object, bool is_read_only) {
        object.is_open = true;
        object.is_read_only = is_read_only;
        object.path->has_writer |= !is_read_only;
        ++object.path->users;
    }

    /** What opening must throw, as its beginning. */
    std::string ModelOpen(ObjectModel& object) {
        ModelClose(object);
        PathModel& path = *object.path;
        if (!IsMemory(path) && !path.exists) {
            return Refusal(path.path, "File does not exist");
        }
        const bool wants_reading = object.wish == Wish::reading && !path.has_writer;
        if (wants_reading && IsMemory(path)) {
            return "xException 99000 [";
        }
        ModelOpened(object, wants_reading);
        return "none";
    }
    std::string ModelDrop(ObjectModel& object) {
        ModelClose(object);
        PathModel& path = *object.path;
        if (path.users > 0) {
            return Refusal(path.path,
                           "Can not be dropped. " + std::to_string(path.users) + " connections are alive.");
        }
        if (!IsMemory(path) && !path.exists) {
            return "xException ";
        }
        path.exists = false;
        return "none";
    }
    std::string ModelCreate(ObjectModel& object) {
        ModelDrop(object);
        object.path->exists = !IsMemory(*object.path);
        ModelOpened(object, false);
        return "none";
    }

    void Put(ObjectModel& object, Wish wish) {
        nbx::mrsql::DuckDBDatabaseOptions options;
        options.threads = 1;
        options.read_write = wish != Wish::reading;
        object.database->put_Options(options);
        object.wish = wish;
    }
    void UseChildren(ObjectModel& object, unsigned choice) {
        if (choice % 5 == 0) {
            object.statements.clear();
            object.cursors.clear();
        } else if (!object.is_open) {
            EXPECT_EQ(Thrown([&] { object.database->CreateStatement(S("SELECT 1")); }),
                      Refusal(object.path->path, "DuckDBDatabase is not open"));
        } else if (choice % 2 == 0) {
            object.statements.push_back(object.database->CreateStatement(S("SELECT 1")));
        } else {
            object.cursors.push_back(object.database->SqlSelect(S("SELECT 1"), 1 + choice % 3, nullptr));
        }
    }
    void Check(const ObjectModel& object) {
        ASSERT_EQ(object.database->get_IsOpen(), object.is_open);
        ASSERT_EQ(object.database->get_IsReadOnly(), object.is_read_only);
        ASSERT_EQ(object.database->get_ConnectionCount(), object.path->users);
        ASSERT_EQ(object.database->get_Exists(), object.path->exists);
        ASSERT_EQ(host->IsDatabaseOpen(object.database->get_Key()), object.path->users > 0);
        ASSERT_EQ(mduckdb::EngineFiles::Get().IsInUse(object.path->path),
                  object.path->users > 0 && !IsMemory(*object.path));
    }
    void Step(ObjectModel& object, unsigned operation, unsigned choice) {
        std::string expected = "none";
        std::string thrown = "none";
        nbx::mrsql::I_DuckDBDatabase& database = *object.database;
        if (operation < 15) {
            expected = ModelOpen(object);
            thrown = Thrown([&] { database.Open(); });
        } else if (operation < 28) {
            ModelClose(object);
            thrown = Thrown([&] { database.Close(); });
        } else if (operation < 30) {
            expected = ModelCreate(object);
            thrown = Thrown([&] { database.Create(); });
        } else if (operation < 32) {
            expected = ModelDrop(object);
            thrown = Thrown([&] { database.Drop(); });
        } else if (operation < 45) {
            Put(object, choice % 3 == 0 ? Wish::reading : Wish::writing);
        } else {
            UseChildren(object, choice);
        }
        ASSERT_EQ(thrown.substr(0, expected.size()), expected);
        Check(object);
    }
};

unsigned FromEnvironment(const char* name, unsigned otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? static_cast<unsigned>(std::atoi(text)) : otherwise;
}

TEST_F(DatabaseModel, RandomSequencesBehaveAsTheModelDoes) {
    const unsigned seed = FromEnvironment("MDUCKDB_TEST_SEED", std::random_device{}());
    const unsigned steps = FromEnvironment("MDUCKDB_TEST_MODEL_STEPS", 5000);
    std::cout << "MDUCKDB_TEST_SEED=" << seed << " MDUCKDB_TEST_MODEL_STEPS=" << steps << "\n";
    std::mt19937 random(seed);
    std::array<PathModel, 3> paths;
    paths[0].path = ":memory:";
    paths[1].path = Path("a.db");
    paths[2].path = Path("b.db");
    std::array<ObjectModel, 9> objects;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        objects[i].path = &paths[i % paths.size()];
        objects[i].database = host.Database(objects[i].path->path);
    }
    for (unsigned step = 0; step < steps; ++step) {
        const auto object = random() % objects.size();
        const auto operation = static_cast<unsigned>(random() % 100);
        const auto choice = static_cast<unsigned>(random() % 60);
        Step(objects[object], operation, choice);
        ASSERT_FALSE(HasFatalFailure())
            << "step " << step << ", object " << object << ", operation " << operation;
        if (step % 1000 == 0) {
            duckdb_faults::ClearLog();
        }
    }
}

}  // namespace
