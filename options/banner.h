// How the tool identifies itself: the banner line and the build number line.
#pragma once

#include <cstdio>

/// Writes the title, padded to 40 columns, and the version as one line.
void print_tool_banner(FILE* stream);

/// Writes `label` (nothing when null) and the build number as one line. A null stream is standard output.
///
///     1[KMX-EMB-YARAY-YAR-ZI
///
/// The five characters of the date and hour are: the digit 1, the year as the character of code year - 1935, the
/// month A to L, the day 1 to 9 or A to V, the hour A to X (here 2026-11-22, 23h). Then follow the build tag, two
/// version texts and the source branch, each through a substitution that leaves only letters, digits and a few signs.
void buildid(FILE* stream, const char* label);

// The pieces of the build number.

/// Letters and digits of the build tag.
char build_tag_character(char c);
/// Digits, dots and dashes of the version texts.
char build_version_character(char c);
/// The branch name: known prefixes as two-letter codes, the rest character by character.
void print_branch(FILE* stream, const char* branch);
