#include "objects/arrow_stream.h"

#include <cerrno>
#include <new>
#include <string>
#include <utility>

#include "base/errors.h"
#include "nbx/exception.h"

namespace mduckdb {
namespace {

/** What a stream points to; the record that refers to it may be copied elsewhere. */
struct Contents {
    std::unique_ptr<ArrowSource> source;
    std::string error;
    /** Null after a success. */
    const char* last_error = nullptr;
};

/** DuckDB's message without the JSON around it. */
std::string MessageOf(const nbx::xException& error) {
    const nbx::String& text = error.get_Text(1);
    return text.isEmpty() ? error.what() : nbx::ToUtf8(ReadDuckDBError(nbx::ToUtf8(text).c_str()).message);
}

/** Keeps the text of the exception that is being handled, and returns its error number. */
int KeepError(Contents& contents) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        contents.last_error = "Out of memory";
        return ENOMEM;
    } catch (const nbx::xInterruptError&) {
        contents.last_error = "Interrupted";
        return ECANCELED;
    } catch (const nbx::xException& error) {
        contents.error = MessageOf(error);
    } catch (const std::exception& error) {
        contents.error = error.what();
    }
    contents.last_error = contents.error.c_str();
    return EIO;
}

/** Runs what a callback does; returns 0 or an error number. */
template <class Action>
int Answer(ArrowArrayStream* stream, Action action) {
    if (stream == nullptr || stream->release == nullptr) {
        return EINVAL;
    }
    Contents& contents = *static_cast<Contents*>(stream->private_data);
    contents.last_error = nullptr;
    try {
        try {
            action(*contents.source);
            return 0;
        } catch (...) {
            return KeepError(contents);
        }
    } catch (...) {  // no memory for the text, or not an exception of the standard library
        contents.last_error = "Out of memory";
        return ENOMEM;
    }
}

int GetSchema(ArrowArrayStream* stream, ArrowSchema* out) {
    out->release = nullptr;
    return Answer(stream, [out](ArrowSource& source) { source.CopySchema(*out); });
}

int GetNext(ArrowArrayStream* stream, ArrowArray* out) {
    out->release = nullptr;
    return Answer(stream, [out](ArrowSource& source) { source.ReadArray(*out); });
}

const char* GetLastError(ArrowArrayStream* stream) {
    if (stream == nullptr || stream->release == nullptr) {
        return nullptr;
    }
    return static_cast<Contents*>(stream->private_data)->last_error;
}

void Release(ArrowArrayStream* stream) {
    if (stream == nullptr || stream->release == nullptr) {
        return;
    }
    stream->release = nullptr;
    delete static_cast<Contents*>(std::exchange(stream->private_data, nullptr));
}

}  // namespace

void MakeArrowStream(std::unique_ptr<ArrowSource> source, ArrowArrayStream& out) {
    auto contents = std::make_unique<Contents>();
    contents->source = std::move(source);
    out = {&GetSchema, &GetNext, &GetLastError, &Release, contents.release()};
}

}  // namespace mduckdb
