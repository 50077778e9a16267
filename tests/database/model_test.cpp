#include <duckdb.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <random>

#include "database_test_base.h"
#include "support/environment.h"
#include "support/second_module.h"

// Random sequences of operations on several databases, compared with a plain model that predicts each
// outcome.

namespace {

/** A file, or the database in memory. */
struct FileModel {
    /** One engine writes, and all users share it; otherwise each user reads. */
    bool has_writer = false;
    uint32_t users = 0;
};

/** A name in a folder, and the file that has it now. */
struct PlaceModel {
    std::shared_ptr<FileModel> file;
};

/** A path to a place, with or without links. */
struct PathModel {
    std::string path;
    PlaceModel* place = nullptr;
    uint32_t users = 0;
};

enum class Wish { none, writing, reading };

struct ObjectModel {
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> database;
    /** Its module counts the users and knows the open paths. */
    nbx::mrsql::I_DuckDBExtension* module = nullptr;
    PathModel* path = nullptr;
    std::shared_ptr<FileModel> file{};
    bool is_read_only = false;
    Wish wish = Wish::none;
    bool is_wish_new = false;
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement>> statements{};
    std::vector<nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor>> cursors{};
};

class DatabaseModel : public DatabaseTest {
  protected:
    void TearDown() override {
        attached.reset();
        DatabaseTest::TearDown();
    }

    static constexpr const char* kAttached = "for example by ATTACH";

    bool IsMemory(const PathModel& path) const { return path.path == ":memory:"; }

    void ModelClose(ObjectModel& object, bool is_reopened) {
        if (object.file) {
            --object.path->users;
            if (--object.file->users == 0) {
                object.file->has_writer = false;
            }
            object.file = nullptr;
            object.is_read_only = false;
            object.wish = is_reopened && object.is_wish_new ? object.wish : Wish::none;
        }
    }
    void ModelOpened(ObjectModel& object, bool is_read_only) {
        object.file = object.path->place->file;
        object.is_read_only = is_read_only;
        object.is_wish_new = false;
        object.file->has_writer |= !is_read_only;
        ++object.file->users;
        ++object.path->users;
    }
    /** Why a file without users cannot be used; empty when it can. */
    std::string OutsideUse(const FileModel& file) {
        if (attached && &file == attached_file.get()) {
            return kAttached;
        }
        return elsewhere && &file == elsewhere_file.get() ? "process" : "";
    }
    std::string Readers(const FileModel& file) {
        return "Cannot open file for writing: " + std::to_string(file.users) +
               (file.users == 1 ? " reader of this process has it open"
                                : " readers of this process have it open");
    }

    /** What opening must throw: a part of the text. */
    std::string ModelOpen(ObjectModel& object) {
        ModelClose(object, true);
        const FileModel* file = object.path->place->file.get();
        if (file == nullptr) {
            return Refusal(object.path->path, "File does not exist");
        }
        if (const std::string use = OutsideUse(*file); !use.empty()) {
            return use == kAttached ? kAttached : "Could not set lock on file";
        }
        const bool is_reading = object.wish == Wish::reading && !file->has_writer;
        if (is_reading && IsMemory(*object.path)) {
            return "xException 99000 [";
        }
        if (!is_reading && !file->has_writer && file->users > 0) {
            return "xException 99000 [" + Readers(*file) + "]";
        }
        ModelOpened(object, is_reading);
        return "none";
    }
    std::string ModelDelete(const ObjectModel& object) {
        PathModel& path = *object.path;
        const FileModel* file = path.place->file.get();
        const uint32_t users = file != nullptr ? file->users : 0;
        if (users > 0) {
            return Refusal(path.path,
                           "Can not be dropped. " + std::to_string(users) + " connections are alive.");
        }
        if (IsMemory(path)) {
            return "none";
        }
        if (file == nullptr) {
            return "xException ";
        }
        if (const std::string use = OutsideUse(*file); !use.empty()) {
            return use == kAttached ? kAttached : "has the file open.]";
        }
        path.place->file = nullptr;
        return "none";
    }
    std::string ModelDrop(ObjectModel& object) {
        ModelClose(object, false);
        return ModelDelete(object);
    }
    std::string ModelCreate(ObjectModel& object) {
        ModelClose(object, true);
        PathModel& path = *object.path;
        const bool is_shared = path.users > 0 && path.place->file && path.place->file->users > 0;
        if (is_shared && !path.place->file->has_writer) {
            return Refusal(path.path, Readers(*path.place->file));
        }
        if (!is_shared && path.place->file) {
            if (const std::string error = ModelDelete(object); error != "none") {
                return error;
            }
        }
        if (!path.place->file) {
            path.place->file = std::make_shared<FileModel>();
        }
        ModelOpened(object, false);
        return "none";
    }

    void Put(ObjectModel& object, Wish wish) {
        nbx::mrsql::DuckDBDatabaseOptions options;
        options.threads = 1;
        options.read_write = wish != Wish::reading;
        object.database->put_Options(options);
        object.wish = wish;
        object.is_wish_new = true;
    }
    /** Something outside the module opens the object's file, or closes what it has open. */
    void UseFromOutside(ObjectModel& object, unsigned choice) {
        const std::shared_ptr<FileModel> file = object.path->place->file;
        if (choice % 3 == 0) {
            attached.reset();
            elsewhere.reset();
        } else if (file && file->users == 0 && !IsMemory(*object.path) && OutsideUse(*file).empty()) {
            if (choice % 3 == 1) {
                attached.reset();
                attached.emplace(object.path->path);
                attached_file = file;
            } else {
                elsewhere.reset();
                elsewhere.emplace(object.path->path, true);
                ASSERT_EQ(elsewhere->get_Outcome(), "ok");
                elsewhere_file = file;
            }
        }
    }
    /** Gives the file of one place a second name in another, which has none. */
    void LinkHard(const PlaceModel& from, PlaceModel& to, const std::string& old_name,
                  const std::string& new_name) {
        if (from.file && !to.file) {
            std::filesystem::create_hard_link(Path(old_name), Path(new_name));
            to.file = from.file;
        }
    }
    void UseChildren(ObjectModel& object, unsigned choice) {
        if (choice % 5 == 0) {
            object.statements.clear();
            object.cursors.clear();
        } else if (!object.file) {
            EXPECT_EQ(Thrown([&] { object.database->CreateStatement(S("SELECT 1")); }),
                      Refusal(object.path->path, "DuckDBDatabase is not open"));
        } else if (choice % 2 == 0) {
            object.statements.push_back(object.database->CreateStatement(S("SELECT 1")));
        } else {
            object.cursors.push_back(object.database->SqlSelect(S("SELECT 1"), 1 + choice % 3, nullptr));
        }
    }
    void Check(const ObjectModel& object) {
        const PathModel& path = *object.path;
        const FileModel* file = path.place->file.get();
        ASSERT_EQ(object.database->get_IsOpen(), object.file != nullptr);
        ASSERT_EQ(object.database->get_IsReadOnly(), object.is_read_only);
        ASSERT_EQ(object.database->get_ConnectionCount(), path.users);
        ASSERT_EQ(object.database->get_Exists(), file != nullptr && !IsMemory(path));
        ASSERT_EQ(object.module->IsDatabaseOpen(object.database->get_Key()), path.users > 0);
        if (!IsMemory(path)) {
            ASSERT_EQ(mduckdb::EngineFiles::Get().IsInUse(path.path), file != nullptr && file->users > 0);
        }
    }
    void Step(ObjectModel& object, unsigned operation, unsigned choice) {
        std::string expected = "none";
        std::string thrown = "none";
        nbx::mrsql::I_DuckDBDatabase& database = *object.database;
        if (operation < 15) {
            expected = ModelOpen(object);
            thrown = Thrown([&] { database.Open(); });
        } else if (operation < 28) {
            ModelClose(object, false);
            thrown = Thrown([&] { database.Close(); });
        } else if (operation < 30) {
            expected = ModelCreate(object);
            thrown = Thrown([&] { database.Create(); });
        } else if (operation < 32) {
            expected = ModelDrop(object);
            thrown = Thrown([&] { database.Drop(); });
        } else if (operation < 45) {
            Put(object, choice % 3 == 0 ? Wish::reading : Wish::writing);
        } else if (operation == 45) {
            UseFromOutside(object, choice);
        } else {
            UseChildren(object, choice);
        }
        ASSERT_NE(thrown.find(expected), std::string::npos) << thrown << " instead of " << expected;
        Check(object);
    }

    /** Some of the objects belong to the other module. */
    void RunRandomSteps(nbx::mrsql::I_DuckDBExtension& other_module);

    /** A file that SQL has attached to a database in memory. */
    class Attached {
      public:
        explicit Attached(const std::string& path) {
            EXPECT_EQ(duckdb_open(nullptr, &engine_), DuckDBSuccess);
            EXPECT_EQ(duckdb_connect(engine_, &connection_), DuckDBSuccess);
            EXPECT_EQ(duckdb_query(connection_, ("ATTACH '" + path + "' AS x").c_str(), nullptr),
                      DuckDBSuccess);
        }
        Attached(const Attached&) = delete;
        Attached& operator=(const Attached&) = delete;
        ~Attached() {
            duckdb_disconnect(&connection_);
            duckdb_close(&engine_);
        }

      private:
        duckdb_database engine_ = nullptr;
        duckdb_connection connection_ = nullptr;
    };

    std::optional<Attached> attached;
    std::shared_ptr<FileModel> attached_file;
    std::optional<HeldElsewhere> elsewhere;
    std::shared_ptr<FileModel> elsewhere_file;
};

void DatabaseModel::RunRandomSteps(nbx::mrsql::I_DuckDBExtension& other_module) {
    const auto seed = NumberFromEnvironment("MDUCKDB_TEST_SEED", static_cast<int>(std::random_device{}()));
    const int steps = NumberFromEnvironment("MDUCKDB_TEST_MODEL_STEPS", 3000);
    std::cout << "MDUCKDB_TEST_SEED=" << seed << " MDUCKDB_TEST_MODEL_STEPS=" << steps << "\n";
    std::mt19937 random(static_cast<unsigned>(seed));
    namespace fs = std::filesystem;
    fs::create_directory_symlink(folder / ".", Path("folder_link"));
    fs::create_symlink("a.db", Path("link.db"));
    std::array<PlaceModel, 4> places;
    places[0].file = std::make_shared<FileModel>();
    // Each module counts its own users, so each has its own paths.
    std::array<PathModel, 7> paths{{{":memory:", places.data()},
                                    {Path("a.db"), &places[1]},
                                    {Path("b.db"), &places[2]},
                                    {Path("link.db"), &places[1]},
                                    {Path("folder_link/a.db"), &places[1]},
                                    {Path("hard.db"), &places[3]},
                                    {Path("folder_link/link.db"), &places[1]}}};
    std::array<ObjectModel, 15> objects;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        objects[i].path = &paths[i % paths.size()];
        objects[i].module = i % paths.size() == 6 ? &other_module : &*host;
        objects[i].database = objects[i].module->CreateDatabase(Location(objects[i].path->path));
    }
    for (int step = 0; step < steps; ++step) {
        if (step % 50 == 0) {
            LinkHard(places[1], places[3], "a.db", "hard.db");
        }
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

TEST_F(DatabaseModel, RandomSequencesBehaveLikeTheModel) {
    RunRandomSteps(*host);
}

/** Here one module may close an engine that the other opened, so the handles that this program opens and
   closes do not match, and the fixture's check does not apply. */
class DatabaseModelOfTwoModules : public DatabaseModel {
  protected:
    void TearDown() override {
        EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u);
        duckdb_faults::Reset();
        DatabaseModel::TearDown();
    }
};

TEST_F(DatabaseModelOfTwoModules, RandomSequencesBehaveLikeTheModel) {
    const SecondModule module;
    RunRandomSteps(*module.get());
}

}  // namespace
