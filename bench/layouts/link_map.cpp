#include "bench/layouts/link_map.h"

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <unordered_map>

std::vector<section> read_link_map(const std::string& file) {
    std::ifstream in(file);
    std::vector<section> sections;
    std::unordered_map<std::string, int> seen;
    bool is_text = false;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        section s;
        std::uint64_t load_address;
        std::uint64_t alignment;
        if (!(fields >> std::hex >> s.address >> load_address >> s.size >> std::dec >> alignment)) {
            continue;
        }
        // An output section stands one column behind the numbers, an input section eight further, a symbol eight more.
        std::string rest;
        std::getline(fields, rest);
        const std::size_t indent = rest.find_first_not_of(' ');
        if (indent == 1) {
            is_text = rest == " .text";
        } else if (indent == 9 && s.size != 0 && rest.find(":(") != std::string::npos) {
            s.name = rest.substr(indent);
            const int number = ++seen[s.name];
            s.name += number == 1 ? "" : "#" + std::to_string(number);
            s.is_text = is_text;
            sections.push_back(std::move(s));
        }
    }
    if (sections.empty()) {
        throw std::runtime_error(file + ": no sections; a map of lld is wanted");
    }
    std::stable_sort(sections.begin(), sections.end(),
                     [](const section& a, const section& b) { return a.address < b.address; });
    return sections;
}

void shake(std::vector<section>& sections, unsigned int luck) {
    if (luck == 0) {
        return;
    }
    std::mt19937_64 random(luck);
    std::uint64_t moved = 16 * (random() % 256);
    for (section& s : sections) {
        if (s.is_text && random() % 10 == 0) {
            moved += 16 + 16 * (random() % 4);
        }
        s.address += moved;
    }
}
