#include "duckdb_internals/arrow_schema.h"

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mduckdb {
namespace {

/** What a copied schema points to. */
struct Contents {
    ~Contents() {
        for (ArrowSchema& child : children) {
            Release(child);
        }
        Release(dictionary);
    }
    static void Release(ArrowSchema& schema) {
        // Null if it was moved out, or not copied yet.
        if (schema.release != nullptr) {
            schema.release(&schema);
        }
    }

    std::string format;
    std::optional<std::string> name;
    std::optional<std::string> metadata;
    std::vector<ArrowSchema> children;
    std::vector<ArrowSchema*> child_pointers;
    ArrowSchema dictionary{};
};

void ReleaseCopy(ArrowSchema* schema) {
    if (schema == nullptr || schema->release == nullptr) {
        return;
    }
    schema->release = nullptr;
    delete static_cast<Contents*>(schema->private_data);
    schema->private_data = nullptr;
}

/** The metadata are counted: the number of pairs, and before each key and each value its length. */
std::string CopyMetadata(const char* metadata) {
    const char* end = metadata;
    const auto read_count = [&end] {
        int32_t count = 0;
        std::memcpy(&count, end, sizeof(count));
        end += sizeof(count);
        return count;
    };
    for (int32_t texts = 2 * read_count(); texts > 0; --texts) {
        const int32_t length = read_count();
        end += length;
    }
    return {metadata, end};
}

const char* PointerTo(const std::optional<std::string>& text) {
    return text ? text->data() : nullptr;
}

}  // namespace

void CopyArrowSchema(const ArrowSchema& schema, ArrowSchema& out) {
    auto contents = std::make_unique<Contents>();
    contents->format = schema.format;
    if (schema.name != nullptr) {
        contents->name = schema.name;
    }
    if (schema.metadata != nullptr) {
        contents->metadata = CopyMetadata(schema.metadata);
    }
    contents->children.resize(static_cast<std::size_t>(schema.n_children));
    for (std::size_t i = 0; i < contents->children.size(); ++i) {
        CopyArrowSchema(*schema.children[i], contents->children[i]);
        contents->child_pointers.push_back(&contents->children[i]);
    }
    if (schema.dictionary != nullptr) {
        CopyArrowSchema(*schema.dictionary, contents->dictionary);
    }
    Contents& copied = *contents;
    out = {copied.format.c_str(),
           PointerTo(copied.name),
           PointerTo(copied.metadata),
           schema.flags,
           schema.n_children,
           copied.child_pointers.data(),
           schema.dictionary != nullptr ? &copied.dictionary : nullptr,
           &ReleaseCopy,
           contents.release()};
}

}  // namespace mduckdb
