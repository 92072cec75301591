// The registry of debug switches: named integer levels that turn on dumps and traces.
//
// Code that wants a switch defines a static object,
//
//     static register_option debug_wcg("debug:wcg");
//
// and asks it wherever it may print something: `if (debug_wcg)`. Every switch reads 0 until a level is set under
// its name, by assignment or by process_debug_option("debug", "wcg=3,merge_wcg"). No option of the
// tool does either: levels are set from a debugger or a test.
//
// Levels live in a table sorted by key, so that reading one is a binary search; setting one sorts the
// table again, which is cheap for a handful of switches. Names, keys and the table live until the process ends.
#pragma once

/// A named switch. Objects of the same name share one registered copy of it, and so one level.
class register_option {
public:
    /// Registers `switch_name` unless it is registered already. The text is copied.
    explicit register_option(const char* switch_name);

    /// The level, 0 when none was set. Negative levels are below every threshold.
    operator int() const;

    /// Whether a level other than 0 is set.
    explicit operator bool() const;

    /// Stores `level` under the switch's name.
    register_option& operator=(int level);

    /// Whether an object of this name was ever constructed.
    static bool is_registered(const char* switch_name);

    /// Has no effect.
    void dump() const;

    static char** options; ///< The registered names in order of registration.
    static int num;        ///< How many there are.

private:
    const char* name; ///< The registered copy; not owned.
};

/// A level and the key it is stored under.
struct assoc_entry {
    char* key; ///< Heap copy, never freed.
    int value; ///< The level.
};

extern assoc_entry* assoc_array; ///< The entries, ascending by key; null until the first is stored.
extern unsigned int assoc_top;   ///< Entries in use.
extern unsigned int assoc_size;  ///< Slots claimed.

/// Sets a level for each item of the comma-separated `list`: "name=level" (decimal, 0x hexadecimal or 0 octal)
/// or "name" for level 1, under the key "prefix:name". A key has room for 511 characters: a name that
/// would not fit is dropped and the level goes to the bare key "prefix:".
void process_debug_option(const char* prefix, const char* list);

/// The level stored under "enable:" and the pass name; 0 when there is none.
int pass_enable(const char* pass);

/// Whether a level other than 0 is stored under "disable:" and the pass name.
bool pass_disable(const char* pass);

/// The level stored under "debug:" and the pass name; 0 when there is none.
int pass_debug(const char* pass);

/// The entry of `key`, or null.
assoc_entry* assoc_find(const char* key);

/// Adds one to `count`. When the old count was a multiple of 100, gives `table` room for 100 elements more,
/// allocating it when it is null.
void grow_table(void** table, unsigned int* count, unsigned long element_size);
