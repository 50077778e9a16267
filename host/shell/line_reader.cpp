#include "shell/line_reader.h"

namespace mduckdb_host {

namespace {

class PipeReader final : public LineReader {
  public:
    explicit PipeReader(std::istream& in) : in_(in) {}

    ReadOutcome ReadLine(const std::string& /*prompt*/, std::string& line) override {
        if (!std::getline(in_, line)) {
            return ReadOutcome::kEnd;
        }
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        return ReadOutcome::kLine;
    }
    void AddToHistory(const std::string& /*entry*/) override {}

  private:
    std::istream& in_;
};

}  // namespace

LineReader::~LineReader() = default;

std::unique_ptr<LineReader> MakePipeReader(std::istream& in) {
    return std::make_unique<PipeReader>(in);
}

}  // namespace mduckdb_host
