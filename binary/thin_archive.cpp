#include "binary/thin_archive.h"

#include "support/failure.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

namespace {

constexpr std::string_view magic = "!<thin>\n";
constexpr std::size_t header_size = 60;
constexpr std::size_t name_size = 16;  // at the start of the header
constexpr std::size_t size_place = 48; // of the decimal size, 10 digits
constexpr std::string_view symbol_tables[] = {"/", "/SYM64/"};

std::string_view without_blanks(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1); // npos + 1 is 0
}

} // namespace

bool is_thin_archive(std::string_view bytes) {
    return bytes.starts_with(magic);
}

std::vector<std::string> thin_archive_files(std::string_view bytes, const std::string& path) {
    const failure damaged(path, "a damaged thin archive");
    const auto number_of = [&](std::string_view text) {
        std::size_t value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || (end != text.data() + text.size() && *end != ':')) {
            throw damaged;
        }
        return value;
    };
    const std::string folder = path.substr(0, path.rfind('/') + 1); // npos + 1 is 0
    std::vector<std::string> files;
    std::unordered_set<std::string> known;
    std::string_view names;
    bytes.remove_prefix(magic.size());
    while (!bytes.empty()) {
        if (bytes.size() < header_size) {
            throw damaged;
        }
        std::string_view name = without_blanks(bytes.substr(0, name_size));
        const std::size_t size = number_of(without_blanks(bytes.substr(size_place, 10)));
        bytes.remove_prefix(header_size);
        if (name == "//" ||
            std::find(std::begin(symbol_tables), std::end(symbol_tables), name) != std::end(symbol_tables)) {
            if (size > bytes.size()) {
                throw damaged;
            }
            names = name == "//" ? bytes.substr(0, size) : names;
            bytes.remove_prefix(std::min(size + size % 2, bytes.size()));
            continue;
        }
        if (name.starts_with('/')) {
            const std::size_t start = number_of(name.substr(1));
            const std::size_t end = names.find("/\n", start);
            if (end == std::string_view::npos) {
                throw damaged;
            }
            name = names.substr(start, end - start);
        } else if (name.ends_with('/')) {
            name.remove_suffix(1);
        }
        std::string file = (name.starts_with('/') ? "" : folder) + std::string(name);
        if (known.insert(file).second) {
            files.push_back(std::move(file));
        }
    }
    return files;
}
