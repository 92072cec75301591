#include "support/debug_switch.h"

#include "support/memory.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

char** register_option::options = nullptr;
int register_option::num = 0;

assoc_entry* assoc_array = nullptr;
unsigned int assoc_top = 0;
unsigned int assoc_size = 0;

namespace {

const register_option debug_progress("debug:progress"); // kept for long passes to report on; none does yet

constexpr unsigned int table_block = 100; // slots by which the table grows
constexpr std::size_t key_capacity = 511; // characters a list item's key may hold

int compare_keys(const void* a, const void* b) {
    return std::strcmp(static_cast<const assoc_entry*>(a)->key, static_cast<const assoc_entry*>(b)->key);
}

int level_of(const char* key) {
    const assoc_entry* const entry = assoc_find(key);
    return entry == nullptr ? 0 : entry->value;
}

int level_of_pass(const char* kind, const char* pass) {
    return level_of((std::string(kind) + ":" + pass).c_str());
}

void assoc_set(const char* key, int level) {
    if (assoc_entry* const entry = assoc_find(key)) {
        entry->value = level;
        return;
    }
    if (assoc_top >= assoc_size) {
        void* table = assoc_array;
        grow_table(&table, &assoc_size, sizeof(assoc_entry));
        assoc_array = static_cast<assoc_entry*>(table);
    }
    assoc_array[assoc_top++] = {safestrdup(key), level};
    std::qsort(assoc_array, assoc_top, sizeof(assoc_entry), compare_keys);
}

// One list item, "name" or "name=level", applied under `prefix`, which ends in ":".
void apply_item(std::string_view prefix, std::string_view item) {
    const std::size_t equals = item.find('=');
    const std::string_view item_name = item.substr(0, equals);
    int level = 1;
    if (equals != std::string_view::npos) {
        level = static_cast<int>(std::strtol(std::string(item.substr(equals + 1)).c_str(), nullptr, 0));
    }
    std::string key(prefix);
    if (key.size() + item_name.size() <= key_capacity) {
        key += item_name;
    }
    assoc_set(key.c_str(), level);
}

} // namespace

register_option::register_option(const char* switch_name) {
    for (int i = 0; i < num; ++i) {
        if (std::strcmp(options[i], switch_name) == 0) {
            name = options[i];
            return;
        }
    }
    options = static_cast<char**>(saferealloc(options, (static_cast<unsigned long>(num) + 1) * sizeof(char*)));
    options[num] = safestrdup(switch_name);
    name = options[num];
    ++num;
}

register_option::operator int() const {
    return level_of(name);
}

register_option::operator bool() const {
    return level_of(name) != 0;
}

register_option& register_option::operator=(int level) {
    assoc_set(name, level);
    return *this;
}

bool register_option::is_registered(const char* switch_name) {
    for (int i = 0; i < num; ++i) {
        if (std::strcmp(options[i], switch_name) == 0) {
            return true;
        }
    }
    return false;
}

void register_option::dump() const {}

void process_debug_option(const char* prefix, const char* list) {
    const std::string key_prefix = std::string(prefix) + ":";
    const std::string_view items(list);
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = items.find(',', start);
        apply_item(key_prefix, items.substr(start, comma - start));
        if (comma == std::string_view::npos) {
            return;
        }
        start = comma + 1;
    }
}

int pass_enable(const char* pass) {
    return level_of_pass("enable", pass);
}

bool pass_disable(const char* pass) {
    return level_of_pass("disable", pass) != 0;
}

int pass_debug(const char* pass) {
    return level_of_pass("debug", pass);
}

assoc_entry* assoc_find(const char* key) {
    if (assoc_array == nullptr) {
        return nullptr;
    }
    const assoc_entry wanted = {const_cast<char*>(key), 0};
    return static_cast<assoc_entry*>(std::bsearch(&wanted, assoc_array, assoc_top, sizeof(assoc_entry), compare_keys));
}

void grow_table(void** table, unsigned int* count, unsigned long element_size) {
    if (*count % table_block == 0) {
        *table = saferealloc(*table, (static_cast<unsigned long>(*count) + table_block) * element_size);
    }
    ++*count;
}
