// The print queue: collects labelled descriptions under a heading, sorts them, and prints them in columns.
//
//     init_queue("Options:", 28, sort_by_key);
//     queueup("--diag_wrap[=on,off]", "wrap diagnostics", 500);
//     print_queue(one_column, sort_long_labels_alone, 0);
//
// There is one queue at a time. With a width of 0 labels get the width of the longest label queued so far in the
// process.
#pragma once

#include <cstdio>

/// How entries are sorted; values that are not named sort by label.
using sort_method = int;
inline constexpr sort_method sort_by_label = 1;            ///< ascending, leading "-" characters skipped
inline constexpr sort_method sort_by_insertion = 2;        ///< as queued
inline constexpr sort_method sort_by_key = 3;              ///< descending key, then by label
inline constexpr sort_method sort_long_labels_alone = 128; ///< for print_queue(): a long label gets a line of its own

/// How entries are laid out; from two_columns on, entries that fit half a line stand in pairs.
using columnation = int;
inline constexpr columnation one_column = 0;
inline constexpr columnation two_columns = 2;

/// Starts a new queue; what was pending is dropped. `heading` is copied; `width` is the label width, 0 for automatic.
void init_queue(const char* heading, int width, sort_method sort);

/// Adds an entry, copying both texts; the description's first character becomes upper case. Entries that sort alike
/// stay in the order in which they were queued.
void queueup(const char* label, const char* description, int key);

/// Prints heading and entries on standard output and empties the queue; 1. An empty queue prints nothing; 0.
/// `indent` moves the start of the descriptions' continuation lines to the right.
int print_queue(columnation columns, sort_method sort, int indent);

/// Prints `text` wrapped at blanks, to lines of at most 79 columns, and ends with a line end. The first line starts
/// where the caller stopped, behind as many columns as `indent` has, plus one; continuation lines start with that many
/// blanks.
void fill_text(FILE* stream, const char* text, const char* indent);
