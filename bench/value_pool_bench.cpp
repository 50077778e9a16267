// Costs of the foundation's hot paths: creating and releasing values, and converting text.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nbx/string.h"
#include "nbx/value.h"

namespace {

using nbx::I_Value;
using nbx::smart_ptr;

void MakeAndReleaseLong(benchmark::State& state) {
    int32_t content = 42;
    for (auto _ : state) {
        I_Value* const value = nbx::CreateValueLong(false, &content, nullptr);
        benchmark::DoNotOptimize(value);
        value->Release();
    }
}
BENCHMARK(MakeAndReleaseLong);

void MakeAndReleaseText(benchmark::State& state) {
    const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    const std::string_view content = text;
    for (auto _ : state) {
        I_Value* const value = nbx::CreateValueString(false, &content, nullptr);
        benchmark::DoNotOptimize(value);
        value->Release();
    }
}
BENCHMARK(MakeAndReleaseText)->Arg(4)->Arg(8)->Arg(40)->Arg(400);

/** Rows of five numbers, all kept and then released: a client cursor's life. Time is per value. */
void KeepManyLongs(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<smart_ptr<I_Value>> values;
    values.reserve(count);
    for (auto _ : state) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto content = static_cast<int32_t>(i);
            values.push_back(smart_ptr<I_Value>::Adopt(nbx::CreateValueLong(false, &content, nullptr)));
        }
        values.clear();
    }
    state.SetItemsProcessed(static_cast<int64_t>(count) * state.iterations());
}
BENCHMARK(KeepManyLongs)->Arg(1000)->Arg(2'000'000);

void ConvertText(benchmark::State& state, const std::string& text) {
    const nbx::Converter* const converter = nbx::GetConverter_UTF8();
    for (auto _ : state) {
        nbx::StToUTF16 wide(text.data(), static_cast<std::ptrdiff_t>(text.size()), converter);
        benchmark::DoNotOptimize(wide.c_str());
    }
    state.SetBytesProcessed(static_cast<int64_t>(text.size()) * state.iterations());
}

void ConvertTextBack(benchmark::State& state, const std::string& text) {
    const nbx::Converter* const converter = nbx::GetConverter_UTF8();
    const nbx::String wide(text.data(), static_cast<std::ptrdiff_t>(text.size()));
    for (auto _ : state) {
        nbx::StFromUTF16 narrow(wide, converter);
        benchmark::DoNotOptimize(narrow.c_str());
    }
    state.SetBytesProcessed(static_cast<int64_t>(text.size()) * state.iterations());
}

std::string Repeat(std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

BENCHMARK_CAPTURE(ConvertText, ascii_8, Repeat("x", 8));
BENCHMARK_CAPTURE(ConvertText, ascii_40, Repeat("x", 40));
BENCHMARK_CAPTURE(ConvertText, cyrillic_20_characters, Repeat("\u0436", 20));
BENCHMARK_CAPTURE(ConvertText, cjk_20_characters, Repeat("\u6f22", 20));
BENCHMARK_CAPTURE(ConvertText, german_40_characters, Repeat("stra\u00dfe und weg ", 3));
BENCHMARK_CAPTURE(ConvertText, ascii_1_megabyte, Repeat("x", 1'000'000));
BENCHMARK_CAPTURE(ConvertText, cjk_1_megabyte, Repeat("\u6f22", 333'333));
BENCHMARK_CAPTURE(ConvertTextBack, ascii_40, Repeat("x", 40));
BENCHMARK_CAPTURE(ConvertTextBack, cyrillic_20_characters, Repeat("\u0436", 20));
BENCHMARK_CAPTURE(ConvertTextBack, ascii_1_megabyte, Repeat("x", 1'000'000));

}  // namespace

BENCHMARK_MAIN();
