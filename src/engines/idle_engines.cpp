#include "engines/idle_engines.h"

#include <exception>
#include <utility>

#include "engines/idle_list.h"

namespace mduckdb {

std::optional<MemoryEngine> IdleEngines::Take(const EngineTerms& terms, EngineUse& use) noexcept {
    try {
        while (std::optional<MemoryEngine> engine = IdleList::Get().TakeOne(terms, use)) {
            if (engine->IsUpToDate()) {
                return engine;
            }
        }
    } catch (const std::exception&) {  // No memory for the list.
    }
    return std::nullopt;
}

void IdleEngines::Keep(MemoryEngine engine) noexcept {
    try {
        if (engine.IsAsOpened()) {
            IdleList::Get().Add(engine);
        }
    } catch (const std::exception&) {  // No memory or no thread: the engine closes here.
    }
}

void IdleEngines::CloseAll() noexcept {
    try {
        IdleList::Get().CloseAll();
    } catch (const std::exception&) {  // No memory for the list: it is empty.
    }
}

void IdleEngines::put_IsOn(bool is_on) noexcept {
    try {
        IdleList::Get().put_IsOn(is_on);
        IdleList::Get().CloseAll();
    } catch (const std::exception&) {  // As above.
    }
}

uint64_t IdleEngines::get_Round() {
    return IdleList::Get().get_Round();
}

void IdleEngines::List(std::vector<uint64_t>& numbers) {
    IdleList::Get().List(numbers);
}

void IdleEngines::put_IdleTime(std::chrono::milliseconds time) {
    IdleList::Get().put_IdleTime(time);
}

std::size_t IdleEngines::get_Most() noexcept {
    return IdleList::get_Most();
}

}  // namespace mduckdb
