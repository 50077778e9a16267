#include "arguments.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace mduckdb_host {

namespace {

using nlohmann::json;

/** Builds a cell while the JSON is read, so that a number that fits no 64-bit integer is still known by
    its digits. Objects are given back as text, nested or not. */
class CellReader final : public nlohmann::json_sax<json> {
  public:
    Cell TakeResult() { return std::move(result_); }

    bool null() override { return Add({Null{}}); }
    bool boolean(bool value) override { return Add({value}); }
    bool number_integer(int64_t value) override { return Add({value}); }
    bool number_unsigned(uint64_t value) override {
        return value <= INT64_MAX ? Add({static_cast<int64_t>(value)}) : Add({value});
    }
    bool number_float(double value, const std::string& digits) override {
        const bool is_whole = digits.find_first_of(".eE") == std::string::npos;
        return is_whole ? Add({digits}) : Add({value});
    }
    bool string(std::string& value) override { return Add({std::move(value)}); }
    bool binary(json::binary_t& /*value*/) override { return false; }

    bool start_object(std::size_t /*count*/) override { return false; }
    bool key(std::string& /*name*/) override { return false; }
    bool end_object() override { return false; }

    bool start_array(std::size_t /*count*/) override {
        open_lists_.emplace_back();
        return true;
    }
    bool end_array() override {
        List list = std::move(open_lists_.back());
        open_lists_.pop_back();
        return Add({std::move(list)});
    }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const json::exception& /*error*/) override {
        return false;
    }

  private:
    bool Add(Cell cell) {
        if (open_lists_.empty()) {
            result_ = std::move(cell);
        } else {
            open_lists_.back().items.push_back(std::move(cell));
        }
        return true;
    }

    Cell result_;
    std::vector<List> open_lists_;
};

/** The value, unless it is no JSON or has an object in it. */
std::optional<Cell> ReadWithoutObjects(const std::string& text) {
    CellReader reader;
    if (!json::sax_parse(text, &reader)) {
        return std::nullopt;
    }
    return reader.TakeResult();
}

Cell ToCell(const json& value) {
    if (value.is_object()) {
        return {JsonText{value.dump()}};
    }
    if (!value.is_array()) {
        return ReadWithoutObjects(value.dump()).value_or(Cell{});
    }
    List list;
    for (const json& item : value) {
        list.items.push_back(ToCell(item));
    }
    return {std::move(list)};
}

}  // namespace

Cell ParseArgument(const std::string& text) {
    std::optional<Cell> value = ReadWithoutObjects(text);
    if (!value || std::holds_alternative<bool>(value->content)) {
        return {text};
    }
    return *std::move(value);
}

Cell ParseJson(const std::string& text) {
    if (std::optional<Cell> value = ReadWithoutObjects(text)) {
        return *std::move(value);
    }
    const json value = json::parse(text, nullptr, false);
    if (value.is_discarded()) {
        throw std::invalid_argument(fmt::format("This is no JSON value: {}", text));
    }
    // The text as it was given keeps the digits of every number in it.
    return value.is_object() ? Cell{JsonText{text}} : ToCell(value);
}

}  // namespace mduckdb_host
